#include "audio/Recorder.h"

#include "audio/SoundDevices.h"
#include "options/Messages.h"
#include "options/Parameters.h"
#include "streams/Quorval.h"
#include "streams/Warnings.h"
#include "streams/WavStream.h"

#include <QAudioFormat>
#include <QAudioSource>
#include <QMediaDevices>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <span>

namespace quorval {

namespace {

// Frames the ring holds: far more than the realtime queue ever lags behind.
constexpr std::int64_t kRingFrames = 8 * 44100;
// Bytes the source hands over at a time: about 23 ms, short for a live display.
constexpr qsizetype kSourceBufferBytes = 2048;

std::int64_t steadyMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

Recorder::Recorder() : ring(static_cast<std::size_t>(kRingFrames))
{
    // Past a file size limit, writes must fail with an error rather than end the process: the
    // recording stops and keeps what it has. The sound server's client sizes its shared memory
    // against the same limit, so this comes before any contact with the server.
    std::signal(SIGXFSZ, SIG_IGN);
}

Recorder::~Recorder()
{
    stop();
    dropSource();
}

void Recorder::dropSource()
{
    audio.run([this] {
        delete source;
        source = nullptr;
        delete watchdog;
        watchdog = nullptr;
    });
    device.reset();
}

std::int64_t Recorder::nowMs()
{
    return steadyMs();
}

bool Recorder::setup()
{
    const QString problem = SoundDevices::inputProblem();
    if (!problem.isEmpty()) {
        showMessage(QString(), problem);
        return false;
    }
    QString fallback;
    const std::optional<QAudioDevice> wanted =
        SoundDevices::chosenInput(Parameters::shared().inputDevice.valueText(), &fallback);
    if (!wanted)
        return false;
    // Set up for this input already; another one chosen since gets a source of its own.
    if (source && device && device->id() == wanted->id())
        return true;
    if (!fallback.isEmpty())
        showWarning(fallback);
    dropSource();
    device = wanted;
    QAudioFormat format;
    format.setSampleRate(static_cast<int>(sampleRate));
    format.setChannelCount(nChannels);
    format.setSampleFormat(QAudioFormat::Int16);
    bool made = false;
    audio.run([&] {
        if (!device->isFormatSupported(format))
            return;
        source = new QAudioSource(*device, format, audio.context());
        source->setBufferSize(kSourceBufferBytes);
        QObject::connect(source, &QAudioSource::stateChanged, source, [this](QAudio::State state) {
            // A source that stops by itself with an error has lost its device or server.
            if (state == QAudio::StoppedState && source->error() != QAudio::NoError && recording)
                abort(QStringLiteral("Recording aborted: no data"));
        });
        watchdog = new QTimer(audio.context());
        watchdog->setInterval(250);
        QObject::connect(watchdog, &QTimer::timeout, watchdog, [this] { checkStillDelivering(); });
        made = true;
    });
    if (!made) {
        showMessage(QString(), QStringLiteral("failed to initialize recorder -- internal error."));
        return false;
    }
    return true;
}

bool Recorder::start(std::shared_ptr<WavStream> target)
{
    if (recording || !target || !setup())
        return false;
    stream = std::move(target);
    writtenFrames = 0;
    readFrames = 0;
    droppedFrames = 0;
    failed = false;
    peak = 0.0f;
    rms = 0.0f;
    clippedAtMs = -1;
    recording = true;
    Quorval::recording = true;
    bool started = false;
    audio.run([&] {
        input = source->start();
        if (!input || source->error() != QAudio::NoError)
            return;
        QObject::connect(input, &QIODevice::readyRead, source, [this] { readInput(); });
        lastDataMs = steadyMs();
        watchdog->start();
        started = true;
    });
    if (!started) {
        recording = false;
        Quorval::recording = false;
        stream.reset();
        // A source whose server went away never starts again: the next start makes a new one,
        // on the server there is then.
        dropSource();
        showMessage(QString(), QStringLiteral("failed to initialize recorder -- internal error."));
        return false;
    }
    return true;
}

void Recorder::stopSource()
{
    if (watchdog)
        watchdog->stop();
    if (source && source->state() != QAudio::StoppedState) {
        // Whatever the source still holds belongs to the recording.
        if (input)
            readInput();
        source->stop();
    }
    input = nullptr;
}

void Recorder::stop()
{
    audio.run([this] { stopSource(); });
    // Every buffer taken from the source reaches the stream before stop returns.
    Quorval::realtimeQueue().sync([this] { appendFromRing(); });
    recording = false;
    Quorval::recording = false;
    stream.reset();
}

void Recorder::readInput()
{
    if (!input || failed)
        return;
    for (;;) {
        const qint64 available = source->bytesAvailable() / 2;
        if (available <= 0)
            break;
        const std::int64_t head = writtenFrames.load(std::memory_order_relaxed);
        const std::int64_t space =
            kRingFrames - (head - readFrames.load(std::memory_order_acquire));
        const std::int64_t at = head % kRingFrames;
        const std::int64_t want = std::min<std::int64_t>({available, space, kRingFrames - at});
        if (want <= 0) {
            // The ring is full: the realtime queue is stuck. Drop rather than block the input.
            std::int16_t scrap[512];
            const qint64 got =
                input->read(reinterpret_cast<char *>(scrap), 2 * std::min<qint64>(available, 512));
            if (got <= 0)
                break;
            droppedFrames += got / 2;
            continue;
        }
        const qint64 got = input->read(reinterpret_cast<char *>(ring.data() + at), 2 * want);
        if (got <= 0)
            break;
        writtenFrames.store(head + got / 2, std::memory_order_release);
        lastDataMs = steadyMs();
    }
    if (writtenFrames.load() > readFrames.load() && !drainPosted.exchange(true))
        Quorval::realtimeQueue().async([this] { drain(); });
}

void Recorder::checkStillDelivering()
{
    if (!recording)
        return;
    // The server would go on from another input without a word.
    if (device && !QMediaDevices::audioInputs().contains(*device)) {
        abort(inputGoneMessage(device->description()));
        return;
    }
    if (steadyMs() - lastDataMs > static_cast<std::int64_t>(kNoDataSeconds * 1000))
        abort(QStringLiteral("Recording aborted: no data"));
}

QString Recorder::inputGoneMessage(const QString &input)
{
    return QStringLiteral("Recording stopped: the input \"%1\" went away. Everything recorded "
                          "before this point is kept.")
        .arg(input);
}

void Recorder::drain()
{
    for (;;) {
        appendFromRing();
        drainPosted.store(false);
        // More came while appending, and nobody has posted for it yet. After a failed write
        // what is left stays unwritten.
        if (failed || writtenFrames.load() == readFrames.load() || drainPosted.exchange(true))
            return;
    }
}

void Recorder::appendFromRing()
{
    while (!failed && stream) {
        const std::int64_t tail = readFrames.load(std::memory_order_relaxed);
        const std::int64_t head = writtenFrames.load(std::memory_order_acquire);
        if (head == tail)
            return;
        const std::int64_t limit = frameLimit.load();
        if (limit >= 0 && tail >= limit) {
            abort({});
            return;
        }
        const std::int64_t at = tail % kRingFrames;
        std::int64_t count = std::min(head - tail, kRingFrames - at);
        if (limit >= 0)
            count = std::min(count, limit - tail);
        const std::span<const std::int16_t> piece(ring.data() + at,
                                                  static_cast<std::size_t>(count));
        if (!stream->appendSamples(piece)) {
            abort(QString::fromUtf8(kWriteFailedMessage));
            return;
        }
        // The meter's figures, here on the realtime path: no allocation, no lock.
        int loudest = 0;
        double squares = 0.0;
        for (const std::int16_t sample : piece) {
            loudest = std::max(loudest, std::abs(int{sample}));
            squares += static_cast<double>(sample) * static_cast<double>(sample);
        }
        peak = static_cast<float>(loudest) / 32768.0f;
        rms = static_cast<float>(std::sqrt(squares / static_cast<double>(count)) / 32768.0);
        if (loudest >= 32767)
            clippedAtMs = steadyMs();
        readFrames.store(tail + count, std::memory_order_release);
    }
}

void Recorder::abort(const QString &message)
{
    if (failed.exchange(true))
        return;
    audio.post([this] { stopSource(); });
    recording = false;
    Quorval::recording = false;
    if (!message.isEmpty())
        showMessage(QString(), message);
    if (ended)
        ended();
}

} // namespace quorval
