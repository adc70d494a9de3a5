#include "cli/Tool.h"

#include "analysis/WavFileOC.h"
#include "cli/ParallelAnalysis.h"
#include "options/Messages.h"
#include "options/OptionsFile.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Deviations.h"
#include "streams/MusicStream.h"
#include "streams/NoteReport.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
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
            complain(QStringLiteral("--set needs \"Label=value\", not \"%1\"").arg(step.text));
            return false;
        }
        const QString label = step.text.left(equals).trimmed();
        const QString value = step.text.mid(equals + 1).trimmed();
        Parameter *option = parameters.findForKey(label);
        if (!option) {
            complain(QStringLiteral("no option is labelled \"%1\"").arg(label));
            return false;
        }
        if (!option->setFromText(value)) {
            complain(QStringLiteral("\"%1\" refused the value \"%2\"").arg(option->name, value));
            return false;
        }
    }
    return true;
}

int Tool::run(const CommandLine &line)
{
    if (line.command == CommandLine::Command::help) {
        print(CommandLine::usage());
        return kOk;
    }
    Quorval::setDeveloperMode(line.developer);
    if (!applyOptions(line))
        return kBadUsage;
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
    case CommandLine::Command::help:
        break;
    }
    if (std::fflush(out) != 0 || std::ferror(out)) {
        complain(QStringLiteral("can't write the output"));
        return kFailed;
    }
    return status;
}

std::shared_ptr<WavStream> Tool::openSound(const QString &file)
{
    // Messages come without the file's name: put it in front.
    const MessageHandler previous = setMessageHandler(
        [&file](const QString &, const QString &text) { complain(file + ": " + text); });
    const std::string path = QFile::encodeName(file).toStdString();
    std::shared_ptr<WavStream> wav = WavStream::createFromFile(path);
    setMessageHandler(previous);
    // A WAV file cut short is read as far as it goes: say so, since its end is missing.
    WavFileOC header;
    if (wav && header.setupFromPath(path)) {
        const qint64 announced =
            static_cast<qint64>(header.getHeaderLength()) + header.getFileDataLength();
        const qint64 present = QFileInfo(file).size();
        if (present < announced)
            complain(QStringLiteral("%1: the file ends before the sound its header announces "
                                    "(%2 of %3 bytes); reading what is there")
                         .arg(file)
                         .arg(present)
                         .arg(announced));
    }
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
    ParallelAnalysis::analyse(*music, line.jobs, [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100.0);
        if (!showProgress || percent == shownPercent)
            return;
        shownPercent = percent;
        std::fprintf(stderr, "\rAnalysing %s: %3d%%", file.toLocal8Bit().constData(), percent);
    });
    if (showProgress && shownPercent >= 0)
        std::fprintf(stderr, "\r\033[K");
    return music;
}

int Tool::info(const CommandLine &line)
{
    const std::shared_ptr<WavStream> wav = openSound(line.file);
    if (!wav)
        return kFailed;
    wav->waitForCopy();
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

std::pair<double, double> Tool::stretchOf(const CommandLine &line, MusicStream &music)
{
    if (!line.fromSeconds && !line.toSeconds)
        return {0.0, 0.0};
    const MusicStream::TimeRange whole = music.timeRange();
    return {std::clamp(line.fromSeconds.value_or(whole.start), whole.start, whole.end),
            std::clamp(line.toSeconds.value_or(whole.end), whole.start, whole.end)};
}

int Tool::deviations(const CommandLine &line)
{
    const std::shared_ptr<MusicStream> music = openAndAnalyse(line);
    if (!music)
        return kFailed;
    const auto [t0, t1] = stretchOf(line, *music);
    const std::atomic<bool> canceled{false};
    const std::optional<Deviations::Results> results =
        Deviations::compute(*music, t0, t1, canceled);
    if (!results) {
        complain(QStringLiteral("the stretch runs backwards"));
        return kBadUsage;
    }
    print(Deviations::report(*results) + "\n");
    return kOk;
}

int Tool::notes(const CommandLine &line)
{
    const std::shared_ptr<MusicStream> music = openAndAnalyse(line);
    if (!music)
        return kFailed;
    const auto [t0, t1] = stretchOf(line, *music);
    const std::atomic<bool> canceled{false};
    const std::optional<NoteReport> report = NoteReport::compute(*music, t0, t1, canceled);
    if (!report) {
        complain(QStringLiteral("the stretch runs backwards"));
        return kBadUsage;
    }
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
                 : "\ndegree,name,notes,time_s,cents,spread_cents,worst_note_start_s\n";
    for (std::size_t k = 0; k < report->degrees.size(); ++k) {
        const NoteReport::Degree &degree = report->degrees[k];
        const std::string name = json ? jsonString(degree.name) : degree.name;
        appendf(text,
                json ? "%s\n  {\"degree\": %d, \"name\": %s, \"notes\": %d, \"time_s\": %f, "
                       "\"cents\": %.1f, \"spread_cents\": %.1f, \"worst_note_start_s\": %f}"
                     : "%s%d,%s,%d,%f,%.1f,%.1f,%f\n",
                json && k > 0 ? "," : "", degree.degree, name.c_str(), degree.notes,
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
