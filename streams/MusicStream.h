#pragma once

#include "streams/DataStream.h"
#include "streams/DataView.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace quorval {

class FFTStream;
class GoodnessStream;
class PitchStream;
class WavStream;

// One open sound (file or recording) bound to what is derived from it: pitch and goodness per
// segment, the spectrum of one chosen segment, and the views that draw them. It chooses the
// segmentation from the options, rebuilds the pitch stream when that changes, keeps the derived
// ranges in step as the sound grows, and runs the background calculation of every segment's
// pitch: visible segments first (as the display's column stream asks), then the rest.
//
// Threading: views are main-thread state. Everything else may be called from any thread except
// the data queue (the calls below take the data queue themselves), unless it says otherwise.
// Ownership: owns the sound and the derived streams (shared with the work queued for them); the
// calculation holds the music stream only weakly, so dropping the last owner ends it.
class MusicStream : public DoubleStream
{
public:
    // Binds wav (this becomes its parent), cuts it into segments and requests a calculation.
    static std::shared_ptr<MusicStream> create(std::shared_ptr<WavStream> wav);
    ~MusicStream() override;

    // The sound's extent.
    [[nodiscard]] std::int64_t minimumIndex_D() const override;
    [[nodiscard]] std::int64_t maximumIndex_D() const override;

    const std::shared_ptr<WavStream> wavStream;

    // The present derived streams; replaced by a resegmentation that changes the segments.
    [[nodiscard]] std::shared_ptr<PitchStream> pitchStream() const;
    [[nodiscard]] std::shared_ptr<GoodnessStream> goodnessStream() const;
    [[nodiscard]] std::shared_ptr<FFTStream> fftStream() const;
    // Segment whose spectrum fftStream holds; -1 for none.
    std::atomic<std::int64_t> fftPitchIndex{-1};
    // The spectrum view wants the spectrum of the segment at timeSeconds (negative: none
    // wanted): the calculation lays it into fftStream and flags a redisplay. While recording,
    // the newest segment's spectrum is laid in instead. Any thread.
    void showSpectrumAt(double timeSeconds);
    // Frames per segment (a power of two) and between segment starts, of the present pitch
    // stream.
    [[nodiscard]] std::int64_t segLength() const { return segLengthValue; }
    [[nodiscard]] std::int64_t segSpacing() const { return segSpacingValue; }

    // Views, one per view type, and the two axes. Main thread.
    std::shared_ptr<DataView> compositeView;
    std::shared_ptr<DataView> wavView; // amplitude; its showRMS flag picks RMS amplitude
    std::shared_ptr<DataView> pitchView;
    std::shared_ptr<DataView> goodnessView;
    std::shared_ptr<DataView> fftView;
    std::shared_ptr<HView> timeView;
    std::shared_ptr<HView> frequencyView;
    // The view for a view type; the amplitude view serves both amplitude types, with its RMS
    // flag set for RMS amplitude. Main thread.
    DataView &viewFor(ViewType type);

    // Segment length and spacing from "Response", "Lowest Note", "A Frequency" and "Frame
    // overlap": the smallest power of two not below Response periods of the lowest note, and
    // (1 - overlap) of it. Answers {segLength, segSpacing} for a sound of sampleRate held in a
    // ring of ringFrames frames, with the lowest note as PitchStream::usableLowestNote gives it.
    [[nodiscard]] static std::pair<std::int64_t, std::int64_t>
    segmentation(double sampleRate, std::int64_t ringFrames);
    // Applies the segmentation: keeps the pitch stream when it has these values (and only
    // refreshes it), otherwise builds a new pitch, goodness and spectrum stream and points the
    // views at them. A "Lowest Note" the analysis cannot use is named in a warning
    // (showWarning) with the value used instead, once per value. Main thread.
    void resegment();
    // After the sound grew: extends the pitch range to the whole segments the sound holds and
    // flags a redisplay; nothing when it holds none.
    void refresh();
    // refresh() and a calculation request: what the sound stream calls as it grows.
    void soundGrew();
    // After a note-range option changed: the composite and pitch views span "Lowest Note" -
    // "Scale extension" .. "Highest Note" + "Scale extension". Main thread.
    void noteRangeChanged();

    struct TimeRange
    {
        double start = 0.0; // seconds
        double end = 0.0;
        double duration = 0.0;
    };
    [[nodiscard]] TimeRange timeRange() const;

    // Computes segment i now, on the calling thread, and answers its pitch (-1: none).
    double pitchAt(std::int64_t i);

    // Starts the calculation unless it runs; if it runs, it goes through the segments once more
    // when done. Never more than one loop per stream.
    void requestCalculation();
    // Every result computed again (after an option that changes results), then recalculated.
    void recompute();
    [[nodiscard]] bool isCalculating() const { return running; }
    // Waits until no copy is under way, the loop is idle and every segment has its pitch.
    // False on timeout. Not from a work queue.
    bool waitUntilCalculated(std::chrono::milliseconds timeout);

    // The pitch (note number, -1 none, 0 not yet) and goodness of every segment held.
    struct SegmentValue
    {
        std::int64_t index = 0;
        double timeSeconds = 0.0; // start of the segment
        double pitch = 0.0;
        double goodness = 0.0;
    };
    [[nodiscard]] std::vector<SegmentValue> segmentValues() const;

    // "musicStream serial ..." with the pitch and goodness streams' descriptions.
    [[nodiscard]] std::string description() const;

    // Diagnostics and tests: called on the crunch queue with each unit's code (a segment index,
    // -2 for a spectrum refresh, -1 for nothing left), before the loop goes on. A unit that goes
    // on through the rest of the sound also computes the block of segments after its own, and is
    // reported by its first segment.
    void setUnitObserver(std::function<void(std::int64_t)> observer);
    // Calculation loops posted so far.
    [[nodiscard]] int calculationLoopsStarted() const { return loopsStarted; }

private:
    explicit MusicStream(std::shared_ptr<WavStream> wav);
    static void calculationLoop(const std::weak_ptr<MusicStream> &weakSelf);
    // One unit of the calculation; crunch queue.
    std::int64_t unitOfWork();
    std::int64_t spectrumStep(PitchStream &pitch);
    // The segments of the block after `first`, with analysis objects kept for the present pitch
    // stream: away from the visible ones a unit takes whole blocks, since the hand-overs between
    // queues cost more than a segment's analysis. Crunch queue.
    void computeBlockAfter(const std::shared_ptr<PitchStream> &current, std::int64_t first);
    void notifyIdle();

    struct BlockWork;
    std::unique_ptr<BlockWork> blockWork; // crunch queue only
    mutable std::mutex streamsMutex;      // guards the three stream pointers
    std::shared_ptr<PitchStream> pitch;
    std::shared_ptr<GoodnessStream> goodness;
    std::shared_ptr<FFTStream> fft;
    std::atomic<std::int64_t> segLengthValue{0};
    std::atomic<std::int64_t> segSpacingValue{0};
    double warnedLowestNote = std::numeric_limits<double>::quiet_NaN(); // main thread

    std::atomic<double> spectrumTime{-1.0}; // seconds; negative: no spectrum wanted
    std::atomic<bool> running{false};
    std::atomic<bool> requestedAgain{false};
    std::atomic<int> loopsStarted{0};
    std::mutex idleMutex;
    std::condition_variable idleSignal;
    std::mutex observerMutex;
    std::function<void(std::int64_t)> unitObserver; // guarded by observerMutex
};

} // namespace quorval
