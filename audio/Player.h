#pragma once

#include "audio/AudioPlayer.h"
#include "audio/PlayerView.h"
#include "audio/QueueTimer.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quorval {

class WavStream;

// Plays the sound file of a wave stream and keeps the display's play mark in step with it.
//
// It plays the selection, or without one the whole recorded range, from the play mark when the
// mark lies inside that range, else from the range's start (moving the mark there); at the
// range's end it loops back to the range's start while the view's loop is on. Times are seconds on
// the display's axis; the file holds one period of the recording ring, so display time t is
// position t mod maxRange in the file and playing may wrap from the file's end to its start.
//
// A display timer on the "display" queue (30 ms) moves the mark by the forward distance the
// audio player went, ignoring jumps backwards or of half the ring or more. Every field is used
// on the "display" queue only: start() and stop() run their work there. start(), stop() and the
// destructor: any thread but the "display" queue.
class Player
{
public:
    using AudioPlayerFactory = std::function<std::unique_ptr<AudioPlayer>(const std::string &)>;

    // view outlives the player. makeAudioPlayer opens a file for playing (FilePlayer::open
    // unless a test gives another).
    explicit Player(PlayerView &view, AudioPlayerFactory makeAudioPlayer = {});
    ~Player();
    Player(const Player &) = delete;
    Player &operator=(const Player &) = delete;

    // Starts playing wav's sound file; finish is called (on the "display" queue) once when
    // playing ends without looping. False when the file cannot be opened for playing.
    bool start(WavStream &wav, std::function<void()> finish);
    // Stops at once where it is: the mark stays, no finish call. Idempotent.
    void stop();

    // Practice speeds: slower at the same pitch, the mark still on the sound's own time.
    static constexpr std::array<double, 3> kSpeeds{0.5, 0.75, 1.0};
    [[nodiscard]] static bool isPracticeSpeed(double speed);
    // Takes effect at once when playing. False (and nothing changes) for a speed not in kSpeeds.
    bool setSpeed(double speed);
    [[nodiscard]] double playingSpeed();

    // The display timer's handler. "display" queue.
    void tick();
    // The audio player reached the file's end with no loops left. "display" queue.
    void audioPlayerDidFinishPlaying();

    // Fields; "display" queue.
    std::unique_ptr<AudioPlayer> audioPlayer;
    std::string url;
    std::function<void()> finishCallback;
    double minX = 0.0;
    double maxX = 0.0;
    double maxRange = 0.0;
    double startTime = 0.0;
    double loopStartTime = 0.0;
    double lastTime = 0.0;
    double lastMark = 0.0;
    double endTime = 0.0;
    double startMark = 0.0;
    bool playing = false;
    double speed = 1.0;

    // The timer's interval.
    static constexpr std::chrono::milliseconds kTickInterval{30};

    // Begins a pass from startTime (also used to loop). "display" queue.
    void beginPass();

private:
    void finishPlaying(double markTime);

    PlayerView &view;
    AudioPlayerFactory makeAudioPlayer;
    std::uint64_t audioPlayerSerial = 0; // counts audio players made; "display" queue
    QueueTimer displayTimer;
};

} // namespace quorval
