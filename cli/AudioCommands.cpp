#include "audio/Player.h"
#include "audio/PlayerView.h"
#include "audio/Recorder.h"
#include "audio/ReferenceTone.h"
#include "audio/SoundDevices.h"
#include "cli/Tool.h"
#include "options/Messages.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <limits>
#include <optional>
#include <thread>
#include <unistd.h>

namespace quorval {

namespace {

volatile std::sig_atomic_t interrupted = 0;

// Ctrl-C ends a recording or a looping play cleanly instead of killing the tool.
void catchInterrupt()
{
    interrupted = 0;
    std::signal(SIGINT, [](int) { interrupted = 1; });
    std::signal(SIGTERM, [](int) { interrupted = 1; });
}

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
    const double frequency = scale.frequency(scale.gridPitch(*note));
    const double seconds = line.seconds.value_or(3.0);
    auto output = ReferenceTone::make();
    if (!output) {
        complain(QStringLiteral("there is no sound output"));
        return kFailed;
    }
    std::fprintf(stderr, "%s (note %d): %.3f Hz\n", scale.noteName(*note).toUtf8().constData(),
                 *note, frequency);
    catchInterrupt();
    output->start(frequency);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!interrupted && std::chrono::steady_clock::now() < end)
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
    Recorder recorder;
    if (!recorder.setup())
        return kFailed;
    const std::string path = QFile::encodeName(line.file).toStdString();
    const std::shared_ptr<WavStream> wav = WavStream::createForRecording(
        Recorder::nChannels, Recorder::bitDepth / 8, Recorder::sampleRate, path);
    if (!wav)
        return kFailed;
    const double rate = Recorder::sampleRate;
    // The file is a ring: beyond its length a recording would overwrite its own start.
    const std::int64_t wanted = line.seconds ? std::llround(*line.seconds * rate)
                                             : std::numeric_limits<std::int64_t>::max();
    const std::int64_t limit = std::min(wanted, wav->maxFrames);
    recorder.setFrameLimit(limit);
    std::atomic<bool> endedByItself{false};
    recorder.setEndedCallback([&endedByItself] { endedByItself = true; });
    catchInterrupt();
    if (!recorder.start(wav))
        return kFailed;

    const bool showProgress = stderrIsTerminal();
    while (!interrupted && !endedByItself) {
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
    if (recorded >= limit && limit < wanted)
        complain(QStringLiteral("stopped at the longest sound kept (option \"Max audio file "
                                "length (minutes)\")"));
    std::fprintf(stderr, "Recorded %.1f s into %s\n", static_cast<double>(recorded) / rate,
                 line.file.toLocal8Bit().constData());
    // Ending at the limit is the plan; ending for any other reason has said why.
    return endedByItself && recorded < limit ? kFailed : kOk;
}

int Tool::play(const CommandLine &line)
{
    if (!SoundDevices::defaultOutput()) {
        complain(QStringLiteral("There is no sound output on this device."));
        return kFailed;
    }
    const std::shared_ptr<WavStream> wav = openSound(line.file);
    if (!wav)
        return kFailed;
    wav->waitForCopy();
    const double start = wav->xScale * static_cast<double>(wav->minimumIndex());
    const double end = wav->xScale * static_cast<double>(wav->maximumIndex());

    SharedPlayerView view;
    if (line.fromSeconds || line.toSeconds)
        view.setSelection(std::clamp(line.fromSeconds.value_or(start), start, end),
                          std::clamp(line.toSeconds.value_or(end), start, end));
    view.setPlayMark(line.fromSeconds.value_or(start));
    Quorval::loop = line.loop;
    std::atomic<bool> finished{false};
    catchInterrupt();
    {
        Player player(view);
        (void)player.setSpeed(line.speed.value_or(1.0));
        if (!player.start(*wav, [&finished] { finished = true; })) {
            complain(line.file + QStringLiteral(": can't be played"));
            return kFailed;
        }
        const bool showProgress = stderrIsTerminal();
        while (!interrupted && !finished) {
            if (showProgress)
                std::fprintf(stderr, "\rPlaying %s: %7.1f s", line.file.toLocal8Bit().constData(),
                             view.playMark());
            pause();
        }
        player.stop();
        if (showProgress)
            std::fprintf(stderr, "\r\033[K");
    }
    Quorval::loop = false;
    return kOk;
}

} // namespace quorval
