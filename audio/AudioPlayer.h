#pragma once

#include <functional>

namespace quorval {

// What the player asks of the thing that sounds a file: a position in the file in seconds,
// a number of extra times through, play and pause, and word when the end is reached.
// Implementations are safe to call from any one thread at a time (the "display" queue).
class AudioPlayer
{
public:
    virtual ~AudioPlayer() = default;
    // Seconds from the file's start of what is being heard now.
    [[nodiscard]] virtual double currentTime() = 0;
    virtual void setCurrentTime(double seconds) = 0;
    // How many more times the file is played from its start after reaching its end.
    virtual void setNumberOfLoops(int loops) = 0;
    // Plays slower at the same pitch: speed from kSlowestSpeed to 1; currentTime stays the
    // file's time. False when refused (the speed stays).
    static constexpr double kSlowestSpeed = 0.25;
    virtual bool setSpeed(double speed) { return speed == 1.0; }
    virtual void play() = 0;
    virtual void pause() = 0;
    // Called once each time playing reaches the file's end with no loops left, on a thread of
    // the player's own. Set before play().
    virtual void setFinishCallback(std::function<void()> callback) = 0;
};

} // namespace quorval
