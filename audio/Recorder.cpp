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
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <span>

namespace quorval {

namespace {

// Frames the ring holds: far more than the realtime queue ever lags behind.
// Bytes the source hands over at a time: about 23 ms, short for a live display.
constexpr qsizetype kSourceBufferBytes = 2048;
// Starts given up on that have not returned yet.
std::atomic<int> stuckStarts{0};

std::int64_t steadyMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

Recorder::Recorder(double ringSeconds)
    : audio(std::make_unique<AudioThread>("quorval-input")),
      ring(static_cast<std::size_t>(std::max(1.0, ringSeconds * sampleRate))),
      ringFrames(static_cast<std::int64_t>(ring.size()))
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
    audio->run([this] {
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
    audio->run([&] {
        if (!device->isFormatSupported(format))
            return;
        source = new QAudioSource(*device, format, audio->context());
        source->setBufferSize(kSourceBufferBytes);
        watchdog = new QTimer(audio->context());
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
    if (!startSource()) {
        recording = false;
        Quorval::recording = false;
        stream.reset();
        return false;
    }
    return true;
}

bool Recorder::startSource()
{
    // What the start on the audio thread and the wait here share; the start may outlive both
    // the wait and the recorder.
    struct Start
    {
        std::mutex mutex;
        std::condition_variable finished;
        bool done = false;
        bool started = false;
        bool abandoned = false;
    };
    const auto shared = std::make_shared<Start>();
    QAudioSource *const starting = source;
    QTimer *const timer = watchdog;
    audio->post([this, shared, starting, timer] {
        // On a suspended source this waits until the source resumes, however long that is.
        QIODevice *const opened = starting->start();
        const std::lock_guard lock(shared->mutex);
        if (shared->abandoned) {
            // Nobody waits for this source any more, and the recorder may be gone: nothing here
            // may touch it. The thread has no other work and ends.
            starting->stop();
            delete starting;
            delete timer;
            --stuckStarts;
            QThread::currentThread()->quit();
            return;
        }
        if (opened && starting->error() == QAudio::NoError) {
            input = opened;
            stateWatch =
                QObject::connect(starting, &QAudioSource::stateChanged, starting,
                                 [this, starting](QAudio::State state) {
                                     // A source that stops by itself with an error has lost its
                                     // device or server.
                                     if (state == QAudio::StoppedState &&
                                         starting->error() != QAudio::NoError && recording)
                                         abort(QStringLiteral("Recording aborted: no data"));
                                 });
            QObject::connect(input, &QIODevice::readyRead, starting, [this] { readInput(); });
            lastDataMs = steadyMs();
            timer->start();
            shared->started = true;
        }
        shared->done = true;
        shared->finished.notify_one();
    });
    std::unique_lock lock(shared->mutex);
    const auto patience = std::chrono::duration<double>(kStartSeconds);
    if (!shared->finished.wait_for(lock, patience, [&shared] { return shared->done; })) {
        shared->abandoned = true;
        lock.unlock();
        // The thread stays inside the audio library until the source resumes: joining it would
        // hang and destroying it running would end the process. It is kept, reachable, and
        // the source and its timer are its to delete; the next recording gets a thread of its own.
        static std::mutex strandedMutex;
        // Never destroyed, not even at exit, where destroying it would wait for the thread.
        static auto *const stranded = new std::vector<std::unique_ptr<AudioThread>>;
        {
            const std::lock_guard keep(strandedMutex);
            stranded->push_back(std::move(audio));
        }
        // While that thread waits, the audio library's own clean-up at exit would abort on the
        // lock it waits with. Registered after the library's, this runs before it: the process
        // ends there, reporting failure, as a part of it never finished.
        ++stuckStarts;
        static std::once_flag exitQuietly;
        std::call_once(exitQuietly, [] {
            (void)std::atexit([] {
                if (stuckStarts.load() == 0)
                    return;
                (void)std::fflush(nullptr);
                std::_Exit(EXIT_FAILURE);
            });
        });
        audio = std::make_unique<AudioThread>("quorval-input");
        source = nullptr;
        watchdog = nullptr;
        const QString input = device ? device->description() : QString();
        device.reset();
        showMessage(QString(), silentInputMessage(input));
        return false;
    }
    if (shared->started)
        return true;
    lock.unlock();
    // A source whose server went away never starts again: the next start makes a new one, on
    // the server there is then.
    dropSource();
    showMessage(QString(), QStringLiteral("failed to initialize recorder -- internal error."));
    return false;
}

void Recorder::stopSource()
{
    if (watchdog)
        watchdog->stop();
    QObject::disconnect(stateWatch);
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
    audio->run([this] { stopSource(); });
    // Every buffer taken from the source reaches the stream before stop returns.
    Quorval::realtimeQueue().sync([this] { appendFromRing(); });
    recording = false;
    Quorval::recording = false;
    stream.reset();
    // The take goes on without the gap; the user must hear of it.
    if (const std::int64_t lost = droppedFrames.load(); lost > 0)
        showMessage(QString(), lostSoundMessage(static_cast<double>(lost) / sampleRate));
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
        const std::int64_t space = ringFrames - (head - readFrames.load(std::memory_order_acquire));
        const std::int64_t at = head % ringFrames;
        const std::int64_t want = std::min<std::int64_t>({available, space, ringFrames - at});
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

QString Recorder::lostSoundMessage(double seconds)
{
    return QStringLiteral("The recording lost %1 seconds of sound: it could not be written as "
                          "fast as it came (a slow or busy disk). What was written is kept, with "
                          "the lost stretch left out.")
        .arg(seconds, 0, 'f', 1);
}

QString Recorder::silentInputMessage(const QString &input)
{
    return QStringLiteral("No sound comes from the input \"%1\": it may be suspended or held by "
                          "another program. Resume it in the sound settings, or choose another "
                          "input, and record again.")
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
        const std::int64_t at = tail % ringFrames;
        std::int64_t count = std::min(head - tail, ringFrames - at);
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
    audio->post([this] { stopSource(); });
    recording = false;
    Quorval::recording = false;
    if (!message.isEmpty())
        showMessage(QString(), message);
    if (ended)
        ended();
}

} // namespace quorval
