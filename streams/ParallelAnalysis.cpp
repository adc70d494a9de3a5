#include "streams/ParallelAnalysis.h"

#include "analysis/Check.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/SerialQueue.h"
#include "streams/WavStream.h"

#include <QCoreApplication>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

namespace quorval {

namespace {

using namespace std::chrono_literals;

// Segments a helper claims at a time: two visits to the data queue per block, and little
// duplicated work where a helper meets the calculation loop.
constexpr std::int64_t kBlock = 32;

} // namespace

ParallelAnalysis::Count ParallelAnalysis::count(MusicStream &music)
{
    const std::shared_ptr<PitchStream> pitch = music.pitchStream();
    if (!pitch)
        return {};
    return Quorval::dataQueue().sync([&pitch] {
        Count counted;
        for (std::int64_t i = pitch->minimumIndex_D(); i < pitch->maximumIndex_D(); ++i)
            counted.done += pitch->valueAt_D(i) != 0.0 ? 1 : 0;
        counted.total = pitch->maximumIndex_D() - pitch->minimumIndex_D();
        return counted;
    });
}

void ParallelAnalysis::analyse(const std::shared_ptr<MusicStream> &music, int jobs,
                               const Progress &progress)
{
    QUORVAL_CHECK(jobs >= 1 && music != nullptr);
    music->wavStream->waitForCopy();
    // The copy's last piece may still be on its way to the pitch range.
    music->refresh();
    music->requestCalculation();
    {
        const ParallelAnalysis helpers(music, jobs);
        while (!music->waitUntilCalculated(200ms)) {
            QCoreApplication::processEvents();
            if (progress) {
                const Count counted = count(*music);
                progress(counted.total > 0 ? static_cast<double>(counted.done) /
                                                 static_cast<double>(counted.total)
                                           : 1.0);
            }
        }
    }
    // The helpers' stores were posted before this visit, which therefore finds them in place.
    Quorval::dataQueue().sync([] {});
    QCoreApplication::processEvents();
    if (progress)
        progress(1.0);
}

int ParallelAnalysis::defaultJobs()
{
    return static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
}

ParallelAnalysis::ParallelAnalysis(const std::shared_ptr<MusicStream> &music_, int jobs)
    : music(music_)
{
    for (int k = 1; k < jobs; ++k)
        helpers.emplace_back([this] { serve(); });
}

ParallelAnalysis::~ParallelAnalysis()
{
    {
        std::lock_guard lock(mutex);
        stopping = true;
    }
    stopped.notify_all();
    for (std::thread &helper : helpers)
        helper.join();
}

bool ParallelAnalysis::pause(int ms)
{
    std::unique_lock lock(mutex);
    return !stopped.wait_for(lock, std::chrono::milliseconds(ms),
                             [this] { return stopping || Quorval::isShuttingDown(); });
}

bool ParallelAnalysis::claim(MusicStream &sound, std::shared_ptr<PitchStream> &pitch,
                             long long &first, long long &end)
{
    const std::shared_ptr<PitchStream> current = sound.pitchStream();
    if (!current)
        return false;
    std::lock_guard lock(mutex);
    if (current != served) {
        // A new sound's streams, or a resegmentation: start from the back of the new ones.
        const auto [low, high] = Quorval::dataQueue().sync([&current] {
            return std::make_pair(current->minimumIndex_D(), current->maximumIndex_D());
        });
        served = current;
        lowest = low;
        nextEnd = high;
    }
    if (nextEnd <= lowest)
        return false;
    pitch = served;
    end = nextEnd;
    first = std::max(lowest, end - kBlock);
    nextEnd = first;
    return true;
}

void ParallelAnalysis::serve()
{
    SerialQueue::letThisThreadRunItems();
    std::unique_ptr<PitchStream::Scratch> scratch;
    std::shared_ptr<PitchStream> scratchFor;
    for (;;) {
        {
            std::lock_guard lock(mutex);
            if (stopping || Quorval::isShuttingDown())
                return;
        }
        std::shared_ptr<PitchStream> pitch;
        long long first = 0;
        long long end = 0;
        bool claimed = false;
        bool fromTheBack = false;
        {
            const std::shared_ptr<MusicStream> sound = music.lock();
            if (!sound)
                return;
            // Segments of a sound still being copied or recorded into are not all there yet.
            if (!sound->wavStream->copying && !Quorval::recording) {
                claimed = claim(*sound, pitch, first, end);
                // Results recomputed since this helper reached the front, or the loop still
                // finishing the middle: look from the back again a little later.
                fromTheBack = !claimed && !sound->waitUntilCalculated(std::chrono::milliseconds(0));
            }
        }
        if (!claimed) {
            if (!pause(fromTheBack ? 20 : 50))
                return;
            if (fromTheBack) {
                std::lock_guard lock(mutex);
                served.reset();
            }
            continue;
        }
        if (scratchFor != pitch) {
            scratch = pitch->makeScratch();
            scratchFor = pitch;
        }
        const int computed = pitch->computeBlockInBackground(first, end, *scratch);
        computedByHelpers += computed;
        if (computed == 0) {
            // The loop, coming from the front, has been here: what lies below is done.
            std::lock_guard lock(mutex);
            if (served == pitch)
                nextEnd = lowest;
        }
    }
}

} // namespace quorval
