#pragma once

#include "options/DeveloperMode.h"
#include "streams/BackgroundRun.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quorval {

class MusicStream;

// How well in tune a stretch of sound was: the mean and RMS deviation of its segments' pitches
// from the nearest shown grid line of the current scale, counting only segments at least
// "Volume threshold" × the stretch's RMS loud.
//
// compute() and report() are plain functions of their arguments. A Deviations object runs one
// computation at a time away from the main thread and hands the results to the main queue.
class Deviations
{
public:
    struct Results
    {
        double pitch = 0.0;     // mean signed deviation, semitones, + = sharp
        double deviation = 0.0; // RMS of the deviations about zero, semitones
        double volume = 0.0;    // RMS of the stretch / the sound's maxNominalY
        double coverage = 0.0;  // counted segments / segments in the stretch, 0 .. 1
        // Counted segments with a pitch of goodness at least "Quality threshold" / segments in
        // the stretch, 0 .. 1.
        double clearPitch = 0.0;
    };

    // Over [t0, t1) seconds of music's sound; a stretch of zero width means the whole sound.
    // Segments still uncalculated are computed on the calling thread. Nothing when the stretch
    // runs backwards or canceled was set (checked once per segment); four zeros when no segment
    // is loud enough. Any thread but the data queue.
    static std::optional<Results> compute(MusicStream &music, double t0, double t1,
                                          const std::atomic<bool> &canceled);

    // One segment of a stretch as the statistics and the note report see it.
    struct Segment
    {
        std::int64_t index = 0;
        double timeSeconds = 0.0; // where the segment starts
        double rms = 0.0;         // of the segment's own stretch of sound, integer sample units
        // At or above the stretch's volume floor (pure silence never is). Only a loud segment
        // is sure to have its pitch: one not yet calculated is computed for it.
        bool loud = false;
        double pitch = 0.0; // note number; -1 none, 0 not calculated
        double goodness = 0.0;
    };
    struct Stretch
    {
        std::int64_t firstSegment = 0;
        std::int64_t endSegment = 0; // one past the last
        double rms = 0.0;            // of the whole stretch, integer sample units
    };
    // Visits every segment of [t0, t1) seconds in order (zero width: the whole sound), on the
    // calling thread. Nothing when the stretch runs backwards or canceled was set (checked once
    // per segment). Any thread but the data queue.
    static std::optional<Stretch> walk(MusicStream &music, double t0, double t1,
                                       const std::atomic<bool> &canceled,
                                       const std::function<void(const Segment &)> &visit);

    // "Pitch = %+.3f\nDeviation =  ±%.3f", then "\nVolume = %.3f\nCoverage = %.3f" when
    // debugLines (by default: in developer mode). UTF-8.
    static std::string report(const Results &results, bool debugLines = developerMode());
    // The same figures as a musician reads them, to follow report(): the mean and RMS
    // deviation in cents, the share of the stretch with a clear pitch, and where the notes are
    // listed one by one. UTF-8.
    static std::string centsReport(const Results &results);

    Deviations() = default;
    // Cancels and waits for a computation under way.
    ~Deviations();
    Deviations(const Deviations &) = delete;
    Deviations &operator=(const Deviations &) = delete;

    // Starts computing on a thread of its own (a computation under way is canceled first); done
    // runs on the main queue with the results unless canceled meanwhile. Main thread.
    void start(std::shared_ptr<MusicStream> music, double t0, double t1,
               std::function<void(const Results &)> done);
    // The running computation stops at its next segment and reports nothing. Main thread.
    void cancel();
    // A computation has been started and not yet delivered or canceled. Main thread.
    [[nodiscard]] bool isRunning() const;

private:
    BackgroundRun<Results> run;
};

} // namespace quorval
