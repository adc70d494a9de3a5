#include "cli/ParallelAnalysis.h"

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

// Takes blocks from the back until one is found done already: the loop, which works upwards,
// has been there, and what lies below is its part.
void helper(PitchStream &pitch, std::atomic<std::int64_t> &nextEnd, std::int64_t first,
            const std::atomic<bool> &stop)
{
    // Its visits to the data queue then run here when the queue is idle, as the loop's do.
    SerialQueue::letThisThreadRunItems();
    const std::unique_ptr<PitchStream::Scratch> scratch = pitch.makeScratch();
    while (!stop && !Quorval::isShuttingDown()) {
        const std::int64_t end = nextEnd.fetch_sub(kBlock);
        if (end <= first ||
            pitch.computeBlockInBackground(std::max(first, end - kBlock), end, *scratch) == 0)
            return;
    }
}

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

void ParallelAnalysis::analyse(MusicStream &music, int jobs, const Progress &progress)
{
    QUORVAL_CHECK(jobs >= 1);
    music.wavStream->waitForCopy();
    // The copy's last piece may still be on its way to the pitch range.
    music.refresh();
    music.requestCalculation();
    const std::shared_ptr<PitchStream> pitch = music.pitchStream();
    QUORVAL_CHECK(pitch != nullptr);

    const auto [first, end] = Quorval::dataQueue().sync(
        [&pitch] { return std::make_pair(pitch->minimumIndex_D(), pitch->maximumIndex_D()); });
    std::atomic<std::int64_t> nextEnd{end};
    std::atomic<bool> stop{false};
    std::vector<std::jthread> helpers;
    for (int k = 1; k < jobs; ++k)
        helpers.emplace_back(
            [&pitch, &nextEnd, first = first, &stop] { helper(*pitch, nextEnd, first, stop); });

    while (!music.waitUntilCalculated(200ms)) {
        QCoreApplication::processEvents();
        if (progress) {
            const Count counted = count(music);
            progress(counted.total > 0
                         ? static_cast<double>(counted.done) / static_cast<double>(counted.total)
                         : 1.0);
        }
    }
    stop = true;
    helpers.clear();
    // The helpers' stores were posted before this visit, which therefore finds them in place.
    Quorval::dataQueue().sync([] {});
    QCoreApplication::processEvents();
    if (progress)
        progress(1.0);
}

} // namespace quorval
