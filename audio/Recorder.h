#pragma once

#include "audio/AudioThread.h"

#include <QAudioDevice>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QAudioSource;
class QIODevice;
class QTimer;

namespace quorval {

class WavStream;

// Records the default input into a sound stream, always mono, 16-bit, 44100 frames per second.
//
// The input lives on a thread of its own with an event loop. Each buffer it delivers is read
// straight into a ring allocated at set-up; the "realtime" queue takes the samples from there
// and appends them to the sound stream (which writes them on the data queue, keeps the file's
// header current and tells the music stream, so analysis follows the recording live). Nothing
// is allocated per buffer and the input thread takes no lock.
//
// A source that stops delivering (device gone, server gone) ends the recording with
// "Recording aborted: no data", an input the server no longer lists with inputGoneMessage()
// (the server would carry on from another input), and a write that fails with
// kWriteFailedMessage. Either
// way what was written before stays in the stream and its file. Writes held up for longer than
// the ring lasts lose input: stop() says how much with lostSoundMessage(). Messages go through
// showMessage, from the thread that noticed.
//
// setup(), start(), stop() and the destructor: main thread (or a tool's). The rest: any thread.
class Recorder
{
public:
    static constexpr int nChannels = 1;
    static constexpr int bitDepth = 16;
    static constexpr double sampleRate = 44100.0;
    // Seconds without data after which a running source counts as gone.
    static constexpr double kNoDataSeconds = 2.0;
    // Seconds a start may take before the input counts as delivering nothing (a suspended
    // source, where the audio library would wait for ever).
    static constexpr double kStartSeconds = 4.0;
    // Seconds of input the ring holds while the stream's writes are held up.
    static constexpr double kRingSeconds = 8.0;
    static constexpr const char *kWriteFailedMessage =
        "Recording stopped: can't write the sound file (disk full, file too large or folder "
        "gone). Everything recorded before this point is kept.";

    // Why a recording stopped when its input (by description) went away.
    static QString inputGoneMessage(const QString &input);
    // Why a recording did not start when its input (by description) delivered nothing.
    static QString silentInputMessage(const QString &input);
    // What a take lost, in seconds, when its writes fell behind by more than the ring holds.
    static QString lostSoundMessage(double seconds);

    explicit Recorder(double ringSeconds = kRingSeconds);
    ~Recorder();
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    // Finds the default input and prepares the source. False after showing "There is no
    // microphone on this device.", the permission text, or "failed to initialize recorder --
    // internal error."; then recording cannot start. Done again by start() if not done.
    bool setup();

    // Starts appending to stream (16-bit mono at sampleRate). False after a set-up message,
    // silentInputMessage() when the input has not started within kStartSeconds, or when
    // already recording. Sets Quorval::recording.
    bool start(std::shared_ptr<WavStream> stream);

    // Stops the input and returns once every sample delivered has been appended. Idempotent.
    void stop();

    // Called once when the recording ends by itself (no data, failed write), on the thread
    // that noticed; not called for stop(). Set before start().
    void setEndedCallback(std::function<void()> callback) { ended = std::move(callback); }

    // Appends no more than frames from the next start() on; reaching them ends the recording
    // as though it ran out of room, without a message (the ended callback is called). Negative:
    // no limit.
    void setFrameLimit(std::int64_t frames) { frameLimit = frames; }

    [[nodiscard]] bool isRecording() const { return recording.load(); }
    // Frames appended to the stream since start().
    [[nodiscard]] std::int64_t framesAppended() const { return readFrames.load(); }
    // The input's level over the last buffer appended: peak and RMS, 0..1 of full scale, and
    // when a sample last reached full scale (steady clock, ms; negative: not since start()).
    struct Levels
    {
        float peak = 0.0f;
        float rms = 0.0f;
        std::int64_t clippedAtMs = -1;
    };
    [[nodiscard]] Levels levels() const { return {peak.load(), rms.load(), clippedAtMs.load()}; }
    // Peak of the last buffer appended, 0..1 of full scale.
    [[nodiscard]] float level() const { return peak.load(); }
    // The steady clock levels() measures clipping on, in ms.
    [[nodiscard]] static std::int64_t nowMs();

private:
    // Deletes the source (on the audio thread) and forgets its device. Main thread.
    void dropSource();
    // Starts the source on the audio thread, waiting at most kStartSeconds. Main thread.
    bool startSource();
    // Audio thread.
    void readInput();
    void checkStillDelivering();
    void stopSource();
    // "realtime" queue: appends what the ring holds.
    void drain();
    void appendFromRing();
    // Ends the recording with message (none when empty), once. Any thread.
    void abort(const QString &message);

    // Replaced when a start never comes back: the old thread is stuck in the audio library.
    std::unique_ptr<AudioThread> audio;
    std::optional<QAudioDevice> device;
    QAudioSource *source = nullptr;     // lives on the audio thread; owned by its anchor
    QIODevice *input = nullptr;         // the source's, while it runs
    QTimer *watchdog = nullptr;         // audio thread
    QMetaObject::Connection stateWatch; // the source's state, while it runs; audio thread
    std::int64_t lastDataMs = 0;        // audio thread, steady clock

    std::shared_ptr<WavStream> stream; // set by start(), read on the realtime queue
    std::vector<std::int16_t> ring;    // single producer (audio), single consumer (realtime)
    const std::int64_t ringFrames;     // ring.size(), fixed when made
    std::atomic<std::int64_t> writtenFrames{0};
    std::atomic<std::int64_t> readFrames{0};
    std::atomic<std::int64_t> droppedFrames{0};
    std::atomic<bool> drainPosted{false};
    std::atomic<bool> recording{false};
    std::atomic<bool> failed{false};
    std::atomic<float> peak{0.0f};
    std::atomic<float> rms{0.0f};
    std::atomic<std::int64_t> clippedAtMs{-1};
    std::atomic<std::int64_t> frameLimit{-1};
    std::function<void()> ended;
};

} // namespace quorval
