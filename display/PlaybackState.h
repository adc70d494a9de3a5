#pragma once

#include <atomic>

namespace quorval {

// Playback as the trace area shows it: where the needle stands and whether sound is playing or
// recording. Owned by the window, written by its transport (the needle also by the player's
// ticks on the "display" queue), read by the trace area when it prepares a frame. Any thread:
// every field is atomic.
struct PlaybackState
{
    // Seconds on the time axis; < 0: no needle (a picture without one).
    std::atomic<double> needleTime{-1.0};
    std::atomic<bool> playing{false};
    std::atomic<bool> recording{false};

    // While sound runs the view follows the needle and the mouse selects nothing.
    [[nodiscard]] bool running() const { return playing || recording; }
};

} // namespace quorval
