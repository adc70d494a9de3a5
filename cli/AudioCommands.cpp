#include "audio/Player.h"
#include "audio/PlayerView.h"
#include "audio/Recorder.h"
#include "audio/ReferenceTone.h"
#include "audio/SoundDevices.h"
#include "cli/Interruption.h"
#include "cli/Tool.h"
#include "options/Messages.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryFile>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <thread>
#include <unistd.h>

namespace quorval {

namespace {

bool stderrIsTerminal()
{
    return isatty(fileno(stderr)) == 1;
}

// Waits a little for the next look at the progress; the main queue's posts run meanwhile.
void pause()
{
    QCoreApplication::processEvents();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// A bar of up to 20 marks for a level 0..1.
std::string levelBar(float level)
{
    const int marks = std::clamp(static_cast<int>(level * 20.0f + 0.5f), 0, 20);
    return std::string(static_cast<std::size_t>(marks), '#') +
           std::string(static_cast<std::size_t>(20 - marks), ' ');
}

// Where a take is written. A new file is recorded in place; an existing one is replaced only
// by a take with sound in it, recorded beside it meanwhile, so that a take of nothing, or one
// that fails, costs the user no file.
class TakeFile
{
public:
    // Nothing, with why in problem, when the file named cannot take a recording.
    static std::optional<TakeFile> prepare(const QString &file, QString &problem)
    {
        TakeFile take;
        take.named = take.target = take.writing = file;
        const QFileInfo info(file);
        if (!info.exists())
            return take;
        if (!info.isFile()) {
            problem = QStringLiteral("%1 is %2, not a sound file to record into")
                          .arg(quotedForMessage(file),
                               info.isDir() ? QStringLiteral("a folder")
                                            : QStringLiteral("a device, pipe or socket"));
            return std::nullopt;
        }
        if (!info.isWritable()) {
            problem = QStringLiteral("%1 is read-only").arg(quotedForMessage(file));
            return std::nullopt;
        }
        take.target = info.canonicalFilePath();
        const QFileInfo resolved(take.target);
        QTemporaryFile beside(resolved.absolutePath() + QLatin1Char('/') +
                              resolved.completeBaseName() + QStringLiteral("-take-XXXXXX.wav"));
        beside.setAutoRemove(false);
        if (!beside.open()) {
            problem = QStringLiteral("can't write beside %1: %2")
                          .arg(quotedForMessage(file), beside.errorString());
            return std::nullopt;
        }
        take.writing = beside.fileName();
        take.replaces = true;
        return take;
    }

    [[nodiscard]] const QString &writingPath() const { return writing; }

    // Removes what was written; answers what became of the file named.
    QString discard() const
    {
        QFile::remove(writing);
        return QStringLiteral("Recorded nothing; %1 %2")
            .arg(quotedForMessage(named),
                 replaces ? QStringLiteral("left as it was") : QStringLiteral("not written"));
    }

    // Puts the take in place of the file named. False, with why in problem, when it cannot; the
    // take then stays where it was written.
    bool keep(QString &problem) const
    {
        if (!replaces)
            return true;
        (void)QFile::setPermissions(writing, QFile::permissions(target));
        if (std::rename(QFile::encodeName(writing).constData(),
                        QFile::encodeName(target).constData()) == 0)
            return true;
        problem = QStringLiteral("can't put the recording in place of %1 (%2); it is kept in %3")
                      .arg(quotedForMessage(named), QString::fromLocal8Bit(std::strerror(errno)),
                           quotedForMessage(writing));
        return false;
    }

private:
    QString named;   // as given, for messages
    QString target;  // the file to end up with, links resolved
    QString writing; // where the take goes meanwhile
    bool replaces = false;
};

} // namespace

namespace {

// A note number from "A4", "F#3", "Bb2", "C♯5" (middle C is C4, note 60) or a plain number.
std::optional<int> noteNumberOf(const QString &text)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (isNumber)
        return number >= 0 && number <= 127 ? std::optional(number) : std::nullopt;
    static const QRegularExpression pattern(
        QStringLiteral("^([A-Ga-g])([#b\u266F\u266D]?)(-?[0-9])$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    static constexpr int kLetterSemitones[] = {9, 11, 0, 2, 4, 5, 7}; // A B C D E F G
    const QChar letter = match.captured(1).front().toUpper();
    int n = kLetterSemitones[letter.unicode() - 'A'] + 12 * (match.captured(3).toInt() + 1);
    const QString sign = match.captured(2);
    if (sign == QLatin1String("#") || sign == QStringLiteral("\u266F"))
        ++n;
    else if (!sign.isEmpty())
        --n;
    return n >= 0 && n <= 127 ? std::optional(n) : std::nullopt;
}

} // namespace

int Tool::tone(const CommandLine &line)
{
    const std::optional<int> note = noteNumberOf(line.file);
    if (!note) {
        complain(QStringLiteral("\"%1\" is no note: give a name such as A4, F#3 or Bb2, or a "
                                "note number from 0 to 127")
                     .arg(line.file));
        return kBadUsage;
    }
    const Scale scale = Scale::current();
    // The note is named as the instrument's part writes it.
    const qint64 sounding = scale.soundingNote(*note);
    const double frequency = scale.frequency(scale.soundingPitch(sounding));
    const double seconds = line.seconds.value_or(3.0);
    // Said first, so that a musician without a sound output still learns the pitch.
    std::fprintf(stderr, "%s (sounding note %lld): %.3f Hz\n",
                 scale.noteNameWithOctave(sounding).toUtf8().constData(),
                 static_cast<long long>(sounding), frequency);
    auto output = ReferenceTone::make();
    if (!output) {
        complain(QStringLiteral("there is no sound output"));
        return kFailed;
    }
    const Interruption::Listening listening;
    output->start(frequency);
    // Counted in seconds, so that any length given (1e15 too) plays until interrupted.
    const auto began = std::chrono::steady_clock::now();
    while (!Interruption::requested() &&
           std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count() <
               seconds)
        pause();
    output->stop();
    // The fade out, heard before the output goes.
    std::this_thread::sleep_for(std::chrono::duration<double>(2 * ReferenceTone::kFadeSeconds));
    return kOk;
}

int Tool::devices()
{
    SoundDevices::waitForDeviceLists();
    const auto list = [this](const char *heading, const QStringList &names,
                             const std::optional<QAudioDevice> &chosen) {
        std::string text = std::string(heading) + (names.isEmpty() ? " none\n" : "\n");
        for (const QString &name : names)
            text +=
                (chosen && chosen->description() == name ? "* " : "  ") + name.toStdString() + "\n";
        print(text);
    };
    list("Inputs:", SoundDevices::inputNames(), SoundDevices::defaultInput());
    list("Outputs:", SoundDevices::outputNames(), SoundDevices::defaultOutput());
    return kOk;
}

std::int64_t Tool::framesToRecord(std::optional<double> seconds, double rate,
                                  std::int64_t maxFrames)
{
    if (!seconds)
        return maxFrames;
    // In doubles first: a long enough time in frames overflows any integer.
    const double frames = std::round(*seconds * rate);
    if (!(frames > 0.0))
        return 0;
    return frames >= static_cast<double>(maxFrames) ? maxFrames : static_cast<std::int64_t>(frames);
}

int Tool::record(const CommandLine &line)
{
    Parameters::InputDeviceParameter &input = Parameters::shared().inputDevice;
    // A device chosen by name must be looked for in the whole list.
    if (!line.device.isEmpty() || input.valueText() != input.defaultDevice())
        SoundDevices::waitForDeviceLists();
    if (!line.device.isEmpty()) {
        // Named on the command line, a device must be there: no quiet fallback.
        const QStringList inputs = SoundDevices::inputNames();
        if (!inputs.contains(line.device)) {
            complain(QStringLiteral("no input is named \"%1\"; the inputs are: %2")
                         .arg(line.device,
                              inputs.isEmpty() ? QStringLiteral("none") : inputs.join(", ")));
            return kBadUsage;
        }
        (void)input.setFromText(line.device);
    }
    QString problem;
    const std::optional<TakeFile> take = TakeFile::prepare(line.file, problem);
    if (!take) {
        complain(problem);
        return kFailed;
    }
    Recorder recorder;
    if (!recorder.setup())
        return kFailed;
    std::shared_ptr<WavStream> wav =
        WavStream::createForRecording(Recorder::nChannels, Recorder::bitDepth / 8,
                                      Recorder::sampleRate, take->writingPath().toStdString());
    if (!wav)
        return kFailed;
    const double rate = Recorder::sampleRate;
    // The file is a ring: beyond its length a recording would overwrite its own start.
    const std::int64_t limit = framesToRecord(line.seconds, rate, wav->maxFrames);
    recorder.setFrameLimit(limit);
    std::atomic<bool> endedByItself{false};
    recorder.setEndedCallback([&endedByItself] { endedByItself = true; });
    const Interruption::Listening listening;
    if (!recorder.start(wav)) {
        // Neither the empty file nor the take beside an existing one stays behind.
        wav.reset();
        complain(take->discard());
        return kFailed;
    }

    const bool showProgress = stderrIsTerminal();
    while (!Interruption::requested() && !endedByItself) {
        const std::int64_t frames = recorder.framesAppended();
        if (showProgress)
            std::fprintf(stderr, "\rRecording %s: %7.1f s  [%s]",
                         line.file.toLocal8Bit().constData(), static_cast<double>(frames) / rate,
                         levelBar(recorder.level()).c_str());
        pause();
    }
    recorder.stop();
    if (showProgress)
        std::fprintf(stderr, "\r\033[K");
    const std::int64_t recorded = wav->maximumIndex();
    // Closed before it takes the place of the file named.
    wav.reset();
    if (recorded == 0) {
        complain(take->discard());
        return kFailed;
    }
    if (!take->keep(problem)) {
        complain(problem);
        return kFailed;
    }
    if (recorded >= limit && (!line.seconds || *line.seconds * rate > static_cast<double>(limit)))
        complain(QStringLiteral("stopped at the longest sound kept (option \"Max audio file "
                                "length (minutes)\")"));
    std::fprintf(stderr, "Recorded %.1f s into %s\n", static_cast<double>(recorded) / rate,
                 line.file.toLocal8Bit().constData());
    // Ending at the limit is the plan; ending for any other reason has said why.
    return endedByItself && recorded < limit ? kFailed : kOk;
}

int Tool::play(const CommandLine &line)
{
    const std::shared_ptr<WavStream> wav = openSound(line.file);
    if (!wav)
        return kFailed;
    wav->waitForCopy();
    const double start = wav->xScale * static_cast<double>(wav->minimumIndex());
    const double end = wav->xScale * static_cast<double>(wav->maximumIndex());
    const auto stretch = stretchOf(line, {start, end, end - start});
    if (!stretch)
        return kBadUsage;
    if (!SoundDevices::defaultOutput()) {
        complain(QStringLiteral("There is no sound output on this device."));
        return kFailed;
    }
    SharedPlayerView view;
    if (line.fromSeconds || line.toSeconds)
        view.setSelection(stretch->first, stretch->second);
    view.setPlayMark(line.fromSeconds.value_or(start));
    view.setLoop(line.loop);
    std::atomic<bool> finished{false};
    const Interruption::Listening listening;
    {
        Player player(view);
        (void)player.setSpeed(line.speed.value_or(1.0));
        if (!player.start(*wav, [&finished] { finished = true; })) {
            complain(line.file + QStringLiteral(": can't be played"));
            return kFailed;
        }
        const bool showProgress = stderrIsTerminal();
        while (!Interruption::requested() && !finished) {
            if (showProgress)
                std::fprintf(stderr, "\rPlaying %s: %7.1f s", line.file.toLocal8Bit().constData(),
                             view.playMark());
            pause();
        }
        player.stop();
        if (showProgress)
            std::fprintf(stderr, "\r\033[K");
    }
    return kOk;
}

} // namespace quorval
