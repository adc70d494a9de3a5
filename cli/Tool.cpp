#include "cli/Tool.h"

#include "analysis/Check.h"
#include "analysis/WavFileOC.h"
#include "options/Messages.h"
#include "options/OptionStore.h"
#include "options/OptionsFile.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Deviations.h"
#include "streams/MusicStream.h"
#include "streams/NoteReport.h"
#include "streams/ParallelAnalysis.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cmath>
#include <unistd.h>

namespace quorval {

namespace {

// Appends printf-formatted text.
template <class... Args> void appendf(std::string &text, const char *format, Args... args)
{
    char buffer[256];
    const int n = std::snprintf(buffer, sizeof buffer, format, args...);
    if (n > 0)
        text.append(buffer, static_cast<std::size_t>(std::min<int>(n, sizeof buffer - 1)));
}

// Appends value as "%f" writes it (six decimals, the "C" locale's digits) without the formatted
// output machinery, which dominates a listing of every segment.
void appendFixed(std::string &text, double value)
{
    char buffer[400]; // "%f" of the largest double has 309 digits before the point
    const auto [end, error] =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 6);
    if (error == std::errc())
        text.append(buffer, end);
}

bool stderrIsTerminal()
{
    return isatty(fileno(stderr)) == 1;
}

} // namespace

void Tool::complain(const QString &text)
{
    std::fprintf(stderr, "quorval-cli: %s\n", text.toLocal8Bit().constData());
}

void Tool::print(const std::string &text)
{
    std::fwrite(text.data(), 1, text.size(), out);
}

std::string Tool::jsonString(const std::string &text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            appendf(quoted, "\\u%04x", static_cast<unsigned>(c));
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

bool Tool::applyOptions(const CommandLine &line)
{
    Parameters &parameters = Parameters::shared();
    for (const CommandLine::OptionStep &step : line.optionSteps) {
        if (step.isFile) {
            // The import shows its own message on failure.
            if (!OptionsFile::readOptions(parameters, step.text))
                return false;
            continue;
        }
        const qsizetype equals = step.text.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            complain(QStringLiteral("--set needs \"Label=value\", not %1")
                         .arg(quotedForMessage(step.text)));
            return false;
        }
        const QString label = step.text.left(equals).trimmed();
        const QString value = step.text.mid(equals + 1).trimmed();
        Parameter *option = parameters.findForKey(label);
        if (!option) {
            complain(QStringLiteral("no option is labelled %1").arg(quotedForMessage(label)));
            return false;
        }
        if (!option->setFromText(value)) {
            complain(Parameters::RefusedEntry{option->name, value,
                                              QStringLiteral("it takes ") + option->allowedValues()}
                         .text());
            return false;
        }
    }
    return true;
}

bool Tool::tuningReads()
{
    QString error;
    if (!Scale::tuningUnreadable(Parameters::shared(), error))
        return true;
    complain(error);
    return false;
}

int Tool::run(const CommandLine &line)
{
    if (line.command == CommandLine::Command::help) {
        print(CommandLine::usage());
        return kOk;
    }
    if (line.command == CommandLine::Command::version) {
        print(std::string("quorval-cli ") + QUORVAL_VERSION + "\n");
        return kOk;
    }
    Quorval::setDeveloperMode(line.developer);
    // A value the store cannot save would hold for this run only, not in the user's store.
    QString storeFile;
    if (line.useSettings && !line.optionSteps.empty() && !OptionStore::isWritable(storeFile)) {
        complain(QStringLiteral("the settings cannot be saved to %1, so --set and --options "
                                "cannot take effect")
                     .arg(quotedForMessage(storeFile, 200)));
        return kFailed;
    }
    using Command = CommandLine::Command;
    const bool analysesSound = line.command == Command::pitches ||
                               line.command == Command::deviations ||
                               line.command == Command::notes || line.command == Command::key ||
                               line.command == Command::render;
    // The sound's own key, from the options file beside it, unless an options file is given;
    // --set still has the last word.
    const bool optionsFileGiven =
        std::any_of(line.optionSteps.begin(), line.optionSteps.end(),
                    [](const CommandLine::OptionStep &step) { return step.isFile; });
    if (analysesSound && !optionsFileGiven)
        (void)OptionsFile::takeCompanionScale(Parameters::shared(), line.file);
    if (!applyOptions(line))
        return kBadUsage;
    const bool usesScale = analysesSound || line.command == Command::tone;
    if (usesScale && !tuningReads())
        return kFailed;
    int status = kOk;
    switch (line.command) {
    case CommandLine::Command::pitches:
        status = pitches(line);
        break;
    case CommandLine::Command::deviations:
        status = deviations(line);
        break;
    case CommandLine::Command::notes:
        status = notes(line);
        break;
    case CommandLine::Command::key:
        status = key(line);
        break;
    case CommandLine::Command::info:
        status = info(line);
        break;
    case CommandLine::Command::options:
        status = options(line);
        break;
    case CommandLine::Command::render:
        status = render(line);
        break;
    case CommandLine::Command::record:
        status = record(line);
        break;
    case CommandLine::Command::play:
        status = play(line);
        break;
    case CommandLine::Command::devices:
        status = devices();
        break;
    case CommandLine::Command::tone:
        status = tone(line);
        break;
    case CommandLine::Command::help:
    case CommandLine::Command::version:
        break;
    }
    if (std::fflush(out) != 0 || std::ferror(out)) {
        // A reader that stopped early (a pipe into head) needs no word about it.
        if (errno != EPIPE)
            complain(QStringLiteral("can't write the output"));
        return kFailed;
    }
    // The warning was given as the copy ended; the result is not to be trusted.
    if (status == kOk && soundChanged)
        return kFailed;
    return status;
}

std::shared_ptr<WavStream> Tool::openSound(const QString &file)
{
    // The path as given goes in front; a refusal's detail names the file and says why.
    const MessageHandler previous =
        setMessageHandler([&file](const QString &, const QString &text, const QString &detail) {
            complain(file + QStringLiteral(": ") + text +
                     (detail.isEmpty() ? QString() : QStringLiteral(": ") + detail));
        });
    const std::string path = QFile::encodeName(file).toStdString();
    std::shared_ptr<WavStream> wav = WavStream::createFromFile(path);
    setMessageHandler(previous);
    return wav;
}

std::shared_ptr<MusicStream> Tool::openAndAnalyse(const CommandLine &line)
{
    const QString &file = line.file;
    std::shared_ptr<WavStream> wav = openSound(file);
    if (!wav)
        return nullptr;
    std::shared_ptr<MusicStream> music = MusicStream::create(wav);
    const bool showProgress = stderrIsTerminal();
    int shownPercent = -1;
    ParallelAnalysis::analyse(music, line.jobs, [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100.0);
        if (!showProgress || percent == shownPercent)
            return;
        shownPercent = percent;
        std::fprintf(stderr, "\rAnalysing %s: %3d%%", file.toLocal8Bit().constData(), percent);
    });
    if (showProgress && shownPercent >= 0)
        std::fprintf(stderr, "\r\033[K");
    soundChanged = wav->changedWhileCopying;
    return music;
}

std::optional<Tool::Stretch> Tool::openStretch(const CommandLine &line, int &status)
{
    Stretch opened;
    opened.music = openAndAnalyse(line);
    status = kFailed;
    if (!opened.music)
        return std::nullopt;
    const auto stretch = stretchOf(line, opened.music->timeRange());
    status = kBadUsage;
    if (!stretch)
        return std::nullopt;
    status = kOk;
    opened.t0 = stretch->first;
    opened.t1 = stretch->second;
    return opened;
}

int Tool::key(const CommandLine &line)
{
    int status = kOk;
    const std::optional<Stretch> stretch = openStretch(line, status);
    if (!stretch)
        return status;
    const std::atomic<bool> canceled{false};
    const std::optional<KeyGuess::Result> guess =
        NoteReport::guessKey(*stretch->music, stretch->t0, stretch->t1, canceled);
    if (!guess) {
        complain(line.file + QStringLiteral(": no notes to guess a key from"));
        return kFailed;
    }
    const Scale scale = Scale::current();
    const auto named = [&scale](const KeyGuess::Key &key) {
        return scale.keyAndMode(key.tonicPitchClass, key.minor).toStdString();
    };
    std::string text = named(guess->best);
    appendf(text, ", confidence %.2f (next: %s)\n", guess->confidence,
            named(guess->runnerUp).c_str());
    print(text);
    return kOk;
}

int Tool::info(const CommandLine &line)
{
    const std::shared_ptr<WavStream> wav = openSound(line.file);
    if (!wav)
        return kFailed;
    wav->waitForCopy();
    soundChanged = wav->changedWhileCopying;
    print(wav->description() + "\n");
    return kOk;
}

int Tool::pitches(const CommandLine &line)
{
    const std::shared_ptr<MusicStream> music = openAndAnalyse(line);
    if (!music)
        return kFailed;
    const Scale scale = Scale::current();
    const double aFrequency = Parameters::shared().aFrequency.value();
    const bool json = line.format == CommandLine::Format::json;
    const bool csv = line.format == CommandLine::Format::csv;
    const char separator = csv ? ',' : ' ';
    std::string text;
    if (csv)
        text = "index,time_s,pitch,goodness,frequency_hz,deviation_cents\n";
    if (json)
        text = "{\"file\": " + jsonString(line.file.toStdString()) + ",\n \"segments\": [";
    bool firstSegment = true;
    for (const MusicStream::SegmentValue &value : music->segmentValues()) {
        // No pitch (-1) has no frequency and no deviation: both read 0.
        const bool pitched = value.pitch > 0.0;
        const double freqHz = pitched ? Scale::frequency(value.pitch, aFrequency) : 0.0;
        const double cents = pitched ? scale.deviation(value.pitch) * 100.0 : 0.0;
        if (json) {
            text += firstSegment ? "\n  " : ",\n  ";
            appendf(text,
                    "{\"index\": %" PRId64 ", \"time_s\": %f, \"pitch\": %f, \"goodness\": %f, "
                    "\"frequency_hz\": %f, \"deviation_cents\": %f}",
                    value.index, value.timeSeconds, value.pitch, value.goodness, freqHz, cents);
        } else {
            // The "%" PRId64 " %f %f %f %f %f" line (commas for CSV).
            text += std::to_string(value.index);
            for (const double number :
                 {value.timeSeconds, value.pitch, value.goodness, freqHz, cents}) {
                text += separator;
                appendFixed(text, number);
            }
            text += '\n';
        }
        firstSegment = false;
        if (text.size() > (1u << 16)) {
            print(text);
            text.clear();
        }
    }
    if (json)
        text += "\n ]\n}\n";
    print(text);
    return kOk;
}

std::optional<std::pair<double, double>> Tool::stretchOf(const CommandLine &line,
                                                         const MusicStream::TimeRange &whole)
{
    if (!line.fromSeconds && !line.toSeconds)
        return std::pair(0.0, 0.0);
    const double from = line.fromSeconds.value_or(whole.start);
    const double to = line.toSeconds.value_or(whole.end);
    QString fault;
    if (from < whole.start || from > whole.end || to < whole.start || to > whole.end)
        fault = QStringLiteral("lies outside the sound");
    else if (from > to)
        fault = QStringLiteral("runs backwards");
    else if (from == to)
        fault = QStringLiteral("is empty");
    else
        return std::pair(from, to);
    complain(QStringLiteral("the stretch from %1 s to %2 s %3; the sound lasts %4 s")
                 .arg(from, 0, 'f', 3)
                 .arg(to, 0, 'f', 3)
                 .arg(fault)
                 .arg(whole.duration, 0, 'f', 3));
    return std::nullopt;
}

int Tool::deviations(const CommandLine &line)
{
    int status = kOk;
    const std::optional<Stretch> stretch = openStretch(line, status);
    if (!stretch)
        return status;
    const std::atomic<bool> canceled{false};
    const std::optional<Deviations::Results> results =
        Deviations::compute(*stretch->music, stretch->t0, stretch->t1, canceled);
    QUORVAL_CHECK(results.has_value());
    print(Deviations::report(*results) + "\n");
    return kOk;
}

int Tool::notes(const CommandLine &line)
{
    int status = kOk;
    const std::optional<Stretch> stretch = openStretch(line, status);
    if (!stretch)
        return status;
    const std::atomic<bool> canceled{false};
    const std::optional<NoteReport> report =
        NoteReport::compute(*stretch->music, stretch->t0, stretch->t1, canceled);
    QUORVAL_CHECK(report.has_value());
    if (line.format == CommandLine::Format::text) {
        print(report->text());
        return kOk;
    }
    const bool json = line.format == CommandLine::Format::json;
    std::string text =
        json ? "{\"notes\": [" : "start_s,end_s,note,note_number,cents,spread_cents,goodness\n";
    for (std::size_t k = 0; k < report->notes.size(); ++k) {
        const NoteReport::Note &note = report->notes[k];
        const std::string name = json ? jsonString(note.name) : note.name;
        appendf(text,
                json
                    ? "%s\n  {\"start_s\": %f, \"end_s\": %f, \"note\": %s, \"note_number\": %lld, "
                      "\"cents\": %.1f, \"spread_cents\": %.1f, \"goodness\": %f}"
                    : "%s%f,%f,%s,%lld,%.1f,%.1f,%f\n",
                json && k > 0 ? "," : "", note.startSeconds, note.endSeconds, name.c_str(),
                static_cast<long long>(note.noteNumber), note.meanCents, note.spreadCents,
                note.meanGoodness);
    }
    text += json ? "\n ],\n \"degrees\": ["
                 : "\ndegree,number,name,notes,time_s,cents,spread_cents,worst_note_start_s\n";
    for (std::size_t k = 0; k < report->degrees.size(); ++k) {
        const NoteReport::Degree &degree = report->degrees[k];
        const std::string name = json ? jsonString(degree.name) : degree.name;
        const std::string number = json ? jsonString(degree.number) : degree.number;
        appendf(text,
                json ? "%s\n  {\"degree\": %d, \"number\": %s, \"name\": %s, \"notes\": %d, "
                       "\"time_s\": %f, \"cents\": %.1f, \"spread_cents\": %.1f, "
                       "\"worst_note_start_s\": %f}"
                     : "%s%d,%s,%s,%d,%f,%.1f,%.1f,%f\n",
                json && k > 0 ? "," : "", degree.degree, number.c_str(), name.c_str(), degree.notes,
                degree.totalSeconds, degree.meanCents, degree.spreadCents,
                report->notes[degree.worstNote].startSeconds);
    }
    if (json)
        text += "\n ]\n}\n";
    print(text);
    return kOk;
}

int Tool::options(const CommandLine &line)
{
    // The writer shows its own message on failure.
    return OptionsFile::writeOptions(Parameters::shared(), line.file) ? kOk : kFailed;
}

} // namespace quorval
