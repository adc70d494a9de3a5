#pragma once

#include "audio/AudioPlayer.h"
#include "audio/AudioThread.h"

#include <QAudioFormat>
#include <QDeadlineTimer>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

class QAudioSink;
class QTimer;

namespace quorval {

class FileSource;

// Plays a PCM WAV file (8- or 16-bit, mono or stereo, as the working sound files are) through
// the default output. The file's bytes are read from disk as the output asks for them; the
// current time comes from the output's processed microseconds, so it is what is heard.
// The output lives on a thread of its own; every method may be called from any one other
// thread at a time.
class FilePlayer : public AudioPlayer
{
public:
    // Opens path for playing; nothing when it cannot be read or there is no output.
    static std::unique_ptr<FilePlayer> open(const std::string &path);
    ~FilePlayer() override;

    [[nodiscard]] double currentTime() override;
    void setCurrentTime(double seconds) override;
    void setNumberOfLoops(int loops) override;
    bool setSpeed(double speed) override;
    void play() override;
    void pause() override;
    void setFinishCallback(std::function<void()> callback) override;

    // Length of the file's sound in seconds.
    [[nodiscard]] double duration() const { return durationSeconds; }

private:
    FilePlayer();
    // Audio thread.
    [[nodiscard]] double currentTime_A() const;
    void stopOutput_A();
    // Microseconds of sound handed to the output and not yet played by it.
    [[nodiscard]] qint64 unplayedUSecs_A() const;
    // After the file has run out: stops the output and calls the finish callback once the
    // output has played everything it was given.
    void finishWhenPlayedOut_A();

    static constexpr int kDrainPollMs = 10;
    static constexpr qint64 kDrainSlackMs = 1000;

    AudioThread audio{"quorval-output"};
    QAudioFormat format;
    double durationSeconds = 0.0;
    // Audio thread only.
    QAudioSink *sink = nullptr;
    FileSource *source = nullptr;
    QTimer *drainTimer = nullptr;
    QDeadlineTimer drainDeadline;
    bool playing = false;
    double startSeconds = 0.0; // file position where the output last started
    std::function<void()> finished;
};

} // namespace quorval
