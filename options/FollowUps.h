#pragma once

#include <functional>

namespace quorval {

// The work an option change asks of the analysis and display. The options sit below the central
// class that does this work, so that class installs its handlers here at start-up.
struct FollowUpHandlers
{
    std::function<void()> resegment; // re-cut the sound into segments, recompute all
    std::function<void()> recompute; // recompute the analysis results
    std::function<void()> recolor;   // recolour the display and redraw it
    std::function<void()> redisplay; // redraw the display
};

// Installs the handlers; a missing member leaves that request with only its count. Call on the
// main thread before options change, or in tests.
void setFollowUpHandlers(FollowUpHandlers handlers);

// Made by the options on a real change of a value, on the thread that set the value.
void requestResegment();
void requestRecompute();
void requestRecolor();
void requestRedisplay();

// How often each request was made since start or the last reset, whatever handler is installed.
struct FollowUpCounts
{
    int resegment = 0;
    int recompute = 0;
    int recolor = 0;
    int redisplay = 0;

    bool operator==(const FollowUpCounts &) const = default;
};

FollowUpCounts followUpCounts();
void resetFollowUpCounts();

} // namespace quorval
