#pragma once

#include "analysis/FFTOC.h"
#include "analysis/PeakDataSetOC.h"
#include "analysis/PitchRefinerOC.h"
#include "analysis/PitchResultOC.h"
#include "streams/ResultStream.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace quorval {

class GoodnessStream;
class WavStream;

// One pitch per analysis segment of a sound, as a note number (69 = "A Frequency", one unit per
// semitone); -1 means no pitch, 0.0 not calculated yet. Segment i covers the sound's frames
// i × segSpacing .. i × segSpacing + segLength - 1; index i sits at i × segSpacing seconds-per-
// frame on the time axis. Its GoodnessStream holds the matching goodness (0 .. 1, 0 = none).
//
// Threading: construction and the methods ending in _D run on the data queue. computePitch and
// computePitchInBackground run on any other thread and serialise on the stream's own transform
// and peak set (one segment at a time per stream); they read the sound on the data queue.
// Ownership: the sound is not owned (weak); the goodness stream is shared with its users.
class PitchStream : public ResultStream
{
public:
    // On the data queue: a stream over wav's present extent, ring of ringSize segments
    // (>= the segments the sound can hold), options read now. segLength a power of two >= 2.
    PitchStream(const std::shared_ptr<WavStream> &wav, std::int64_t segLength,
                std::int64_t segSpacing, std::int64_t ringSize);

    const std::weak_ptr<WavStream> wavStream;
    const std::int64_t segLength;     // frames per segment
    const std::int64_t segSpacing;    // frames between segment starts
    const std::int64_t nFreqs;        // spectrum bins, segLength / 2 + 1
    std::atomic<double> freqMin{0.0}; // Hz, lowest pitch accepted
    std::atomic<double> freqMax{0.0}; // Hz, pitches must lie below
    // Every index up to this one is known to be calculated. Data queue.
    std::int64_t allPitchesCalculatedTo = -1;

    // Attached once, by the music stream, before any pitch is computed. Same index range and
    // ring size as this stream.
    void attachGoodnessStream(std::shared_ptr<GoodnessStream> goodness);
    [[nodiscard]] const std::shared_ptr<GoodnessStream> &goodnessStream() const { return goodness; }

    // Segment lengths the analysis uses: from 16 frames (a spacing of at least one frame at any
    // "Frame overlap") to 2^20 frames (some 24 seconds at 44.1 kHz, a few tens of MB of analysis
    // buffers per thread) and never longer than the sound's ring.
    static constexpr std::int64_t kMinSegLength = 16;
    static constexpr std::int64_t kMaxSegLength = std::int64_t{1} << 20;
    // "Lowest Note" as the analysis uses it for a sound at sampleRate in a ring of ringFrames
    // frames: the option's value when its segments lie within those lengths, otherwise the
    // nearest value (in hundredths of a semitone) whose segments do. Any thread.
    struct LowestNote
    {
        double requested = 0.0;
        double used = 0.0;
        [[nodiscard]] bool replaced() const { return used != requested; }
    };
    [[nodiscard]] static LowestNote usableLowestNote(double sampleRate, std::int64_t ringFrames);

    // Recalculates freqMin and freqMax from the note options (the lowest as usableLowestNote),
    // "Scale extension" semitones beyond the lowest and highest notes, and takes the search
    // settings afresh. Any thread.
    void setFrequencyRange();

    // The options the pitch search uses, as read by the last setFrequencyRange() (at
    // construction and on every reset). Each of them asks for a recompute or a resegmentation
    // when it changes, so every change reaches here; reading the store for every segment would
    // cost more than the analysis itself. Any thread.
    struct SearchSettings
    {
        int nHighest = 2;                               // "Number of inclusive peaks"
        double goodnessThreshold = 0.9;                 // "Inclusive Goodness Threshold"
        double dbLimit = 0.0;                           // "dB noise limit", dB
        double aFrequency = 440.0;                      // "A Frequency", Hz
        double freqMin = 0.0;                           // Hz
        double freqMax = 0.0;                           // Hz
        double minPeakThreshold = 0.5;                  // "Minimum Peak Threshold", dB
        double thresholdIncrement = 1.4142135623730951; // "Peak Threshold Increment"
        double peakLowFreq = 0.0;     // wanted peak spacing: the lowest note's frequency, Hz
        double hzPerBin = 0.0;        // spectrum bin width
        bool refinePitch = false;     // "Refine pitch"
        std::uint64_t generation = 0; // bumped at every reading
    };
    [[nodiscard]] SearchSettings searchSettings() const;

    // Computes segment i now and stores it (synchronously); answers the pitch. A segment not
    // wholly inside the sound stores -1 and leaves its goodness alone. Not on the data queue.
    double computePitch(std::int64_t i);
    // The same for background work: stores through the background store, never waiting for it.
    void computePitchInBackground(std::int64_t i);
    // Analysis objects of a caller's own, set up like the stream's, so that several threads can
    // compute disjoint segments at once, each with its own. Owned by the caller.
    struct Scratch
    {
        FFTOC fft;
        PeakDataSetOC peakDataSet;
        PitchResultOC pitchResult;
        PitchRefinerOC refiner;
        std::uint64_t peaksGeneration = 0; // the settings the peak set was made with
        std::vector<std::int64_t> todo;    // the block's segments still to compute
        std::vector<double> samples;       // the block's frames, integer units
        std::vector<double> beside;        // refining, with half a segment either side instead
    };
    [[nodiscard]] std::unique_ptr<Scratch> makeScratch() const;
    // Background work on the block of segments [first, end) with the caller's scratch instead
    // of the stream's: the segments inside the sound whose slot still reads 0.0 are chosen and
    // their frames read in one visit to the data queue, computed as computePitchInBackground
    // does, and stored in one more. Answers how many were computed. Not on the data queue.
    int computeBlockInBackground(std::int64_t first, std::int64_t end, Scratch &scratch);
    // Background work in one visit to the data queue: chooseSegment_D runs there and names the
    // segment (or -1 for none), whose samples are read in the same visit; the segment is then
    // computed here and stored in one more visit. Answers the segment computed, or -1. Not on
    // the data queue.
    std::int64_t computeChosenInBackground(const std::function<std::int64_t()> &chooseSegment_D);
    // The segments the sound holds now: in a whole opened file every segment that starts in it
    // (frames / segSpacing; the last may run past the end and then holds -1), in a sound still
    // growing the segments wholly inside it. Data queue.
    [[nodiscard]] std::int64_t segmentsHeld_D() const;
    // The first index from allPitchesCalculatedTo + 1 whose slot is 0.0, or -1. Data queue.
    [[nodiscard]] std::int64_t nextUncalculatedIndex_D();
    // Moves maxIndex to n (in the goodness stream too); slots newly entered read 0.0. Data queue.
    void extendRange_D(std::int64_t n);
    // Recompute everything: new frequency range, every slot 0.0. Data queue.
    void reset_D();
    // "serial <s> min <min> max <max>". Data queue / any other thread.
    [[nodiscard]] std::string description_D() const;
    [[nodiscard]] std::string description() const;

    // The dB spectrum (nFreqs values) of segment i computed with fft, which is resized to this
    // stream's segments if needed; empty when the segment is not inside the sound. Crunch queue
    // (fft is the shared transform).
    [[nodiscard]] std::vector<double> spectrumOf(std::int64_t i, FFTOC &fft);
    // A copy of the dB spectrum of the last segment this stream computed. Not on the data queue.
    [[nodiscard]] std::vector<double> lastSpectrum();

private:
    struct SegmentResult
    {
        bool inside = false;
        double pitch = -1.0;
        double goodness = 0.0;
    };
    SegmentResult computeSegment(std::int64_t i);
    // With chooseSegment_D, i is chosen by it on the data queue in the same visit that reads the
    // samples; a choice below 0 computes nothing. peaks is set up again when the settings read
    // in that visit are newer than peaksGenerationOf.
    // beside holds the frames the refiner reads.
    SegmentResult computeSegment(std::int64_t &i, FFTOC &transform, PeakDataSetOC &peaks,
                                 std::uint64_t &peaksGenerationOf, PitchResultOC &result,
                                 PitchRefinerOC &refinerOf, std::vector<double> &beside,
                                 const std::function<std::int64_t()> &chooseSegment_D);
    // The segment's unweighted frames, and the half segments just before and after it where the
    // sound holds them (nullptr where it does not).
    struct Frames
    {
        const double *samples = nullptr;
        const double *before = nullptr;
        const double *after = nullptr;
    };
    // Frames read into a buffer: buffer[0] is frame from; the sound then held frames lowest
    // (inclusive) to highest (exclusive).
    struct Span
    {
        std::int64_t from = 0;
        std::int64_t lowest = 0;
        std::int64_t highest = 0;
        bool read = false;
    };
    // Reads frames start to end with half a segment either side, as far as the sound holds them,
    // into buffer. Data queue.
    Span readBeside_D(std::int64_t start, std::int64_t end, std::vector<double> &buffer) const;
    // The frames of the segment starting at frame start in buffer, read as span says. The same
    // whatever else the span holds: only the sound decides what lies beside a segment.
    [[nodiscard]] Frames framesOf(const Span &span, const std::vector<double> &buffer,
                                  std::int64_t start) const;
    // Transforms the segment set up in probe and searches its pitch into result; with "Refine
    // pitch" the refiner checks and refines it from the segment's unweighted frames and the sound
    // beside them.
    void finishSegment(PitchResultOC &probe, FFTOC &transform, PeakDataSetOC &peaks,
                       std::uint64_t &peaksGenerationOf, const SearchSettings &search,
                       PitchRefinerOC &refiner, const Frames &frames, SegmentResult &result) const;
    void setUpPeaks(FFTOC &transform, PeakDataSetOC &peaks, const SearchSettings &search) const;
    void storeResultInBackground(std::int64_t i, const SegmentResult &result);
    // Stores segment i's pitch, and its goodness into goodnessTarget if given, unless i has left
    // the range. Data queue.
    void storeResult_D(std::int64_t i, const SegmentResult &result, GoodnessStream *goodnessTarget);
    [[nodiscard]] bool segmentInside_D(std::int64_t i) const;
    [[nodiscard]] GoodnessStream &requireGoodness() const;

    std::shared_ptr<GoodnessStream> goodness;
    mutable std::mutex settingsMutex;
    SearchSettings settings;           // guarded by settingsMutex
    std::uint64_t peaksGeneration = 0; // settings of the own peak set; guarded by scratchMutex
    int fftLogN = 0;
    std::mutex scratchMutex; // guards fft, peakDataSet, pitchResult, refiner and beside
    std::unique_ptr<FFTOC> fft;
    std::unique_ptr<PeakDataSetOC> peakDataSet;
    std::unique_ptr<PitchResultOC> pitchResult;
    std::unique_ptr<PitchRefinerOC> refiner;
    std::vector<double> beside;   // the refiner's frames
    PitchResultOC spectrumResult; // crunch queue
};

// The goodness of each segment of a pitch stream, index for index: same ring size, range and
// axis. No fields of its own.
class GoodnessStream : public ResultStream
{
public:
    // On the data queue, from the pitch stream whose range it copies.
    explicit GoodnessStream(const PitchStream &pitch);

private:
    friend class PitchStream;
    void setRange_D(std::int64_t minIndex, std::int64_t maxIndex);
};

} // namespace quorval
