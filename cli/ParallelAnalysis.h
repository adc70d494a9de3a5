#pragma once

#include <functional>

namespace quorval {

class MusicStream;

// Brings every segment of an opened sound to its pitch and goodness, on `jobs` threads.
//
// One of them is always the music stream's own calculation loop on the work queues, which walks
// the segments from the front; each of the jobs - 1 others has analysis objects of its own and
// takes blocks of segments from the back, so that they meet somewhere in between and the
// segments each computes are disjoint (but for the block where they meet). Every segment goes
// through the pitch stream's one computation, so the results do not depend on `jobs`.
class ParallelAnalysis
{
public:
    // Called now and then on the calling thread with the share of segments done, 0 .. 1.
    using Progress = std::function<void(double fraction)>;

    // Waits for the copy of the sound into its working file, then analyses. jobs >= 1. Also
    // runs the main queue's posted work while it waits. The thread that installed the main
    // poster, not a work queue.
    static void analyse(MusicStream &music, int jobs, const Progress &progress);

    // Segments computed (pitch not 0.0) and held, of the music stream's present pitch stream.
    struct Count
    {
        long long done = 0;
        long long total = 0;
    };
    static Count count(MusicStream &music);
};

} // namespace quorval
