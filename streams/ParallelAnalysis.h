#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace quorval {

class MusicStream;
class PitchStream;

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
    static void analyse(const std::shared_ptr<MusicStream> &music, int jobs,
                        const Progress &progress);

    // Segments computed (pitch not 0.0) and held, of the music stream's present pitch stream.
    struct Count
    {
        long long done = 0;
        long long total = 0;
    };
    static Count count(MusicStream &music);

    // For a window: jobs - 1 helper threads serve `music` while it lives, taking blocks from the
    // back while the music stream's loop takes the visible segments first, then the front. They
    // wait while the sound is copied or recorded into, follow resegmentation, and start again
    // from the back when results are recomputed. Destruction stops and joins them; a helper is
    // at most one block (a fraction of a millisecond of work) from seeing that.
    ParallelAnalysis(const std::shared_ptr<MusicStream> &music, int jobs);
    ~ParallelAnalysis();
    ParallelAnalysis(const ParallelAnalysis &) = delete;
    ParallelAnalysis &operator=(const ParallelAnalysis &) = delete;

    // Segments the helpers computed so far.
    [[nodiscard]] long long helped() const { return computedByHelpers; }

    // Helper threads worth starting beside the loop on this machine.
    [[nodiscard]] static int defaultJobs();

private:
    void serve();
    // The block [first, end) to do next of the present pitch stream; false when there is none.
    bool claim(MusicStream &music, std::shared_ptr<PitchStream> &pitch, long long &first,
               long long &end);
    // Sleeps up to `ms` unless stopped meanwhile; answers whether to go on.
    bool pause(int ms);

    std::weak_ptr<MusicStream> music;
    std::mutex mutex;
    std::condition_variable stopped;
    bool stopping = false;
    std::shared_ptr<PitchStream> served; // the pitch stream the claims below refer to
    long long lowest = 0;                // its first segment
    long long nextEnd = 0;               // end of the next block to claim
    std::atomic<long long> computedByHelpers{0};
    std::vector<std::thread> helpers;
};

} // namespace quorval
