#include "streams/PitchStream.h"

#include "analysis/Check.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorval {

namespace {

// log2(segLength / 2) for a power of two >= 4; 0 otherwise.
int logNFor(std::int64_t segLength)
{
    const std::int64_t half = segLength / 2;
    if (segLength < 2 || half % 2 != 0)
        return 0;
    int logN = 0;
    while ((std::int64_t{1} << logN) < half)
        ++logN;
    return logN;
}

double noteFrequency(double note)
{
    return Parameters::shared().aFrequency.value() * std::exp((note - 69.0) * kSemitoneLog);
}

std::int64_t checkedProduct(std::int64_t a, std::int64_t b)
{
    std::int64_t product = 0;
    QUORVAL_CHECK(!__builtin_mul_overflow(a, b, &product));
    return product;
}

} // namespace

PitchStream::PitchStream(const std::shared_ptr<WavStream> &wav, std::int64_t segLength,
                         std::int64_t segSpacing, std::int64_t ringSize)
    : ResultStream(
          ringSize, wav->xScale * static_cast<double>(segSpacing), 0.0,
          Parameters::shared().lowestNote.value() - Parameters::shared().scaleExtension.value(),
          Parameters::shared().highestNote.value() + Parameters::shared().scaleExtension.value()),
      wavStream(wav), segLength(segLength), segSpacing(segSpacing), nFreqs(segLength / 2 + 1),
      fftLogN(logNFor(segLength)), fft(std::make_unique<FFTOC>()),
      peakDataSet(std::make_unique<PeakDataSetOC>()),
      pitchResult(std::make_unique<PitchResultOC>()), refiner(std::make_unique<PitchRefinerOC>())
{
    QUORVAL_CHECK(segSpacing > 0 && segLength > 0);
    QUORVAL_CHECK(nFreqs <= std::numeric_limits<int>::max());
    (void)fft->setupWithLogN(fftLogN);
    // The shared transform belongs to the crunch queue: it follows this size there.
    const int sharedLogN = fftLogN;
    Quorval::crunchQueue().async(
        [sharedLogN] { (void)Quorval::sharedFFT().setupWithLogN(sharedLogN); });
    minIndex_D = 0;
    maxIndex_D = segmentsHeld_D();
    setFrequencyRange();
    const SearchSettings search = searchSettings();
    setUpPeaks(*fft, *peakDataSet, search);
    peaksGeneration = search.generation;
    // Segments under eight samples are left as the search finds them.
    (void)refiner->setupWithNFrames(static_cast<int>(segLength), search.hzPerBin);
}

void PitchStream::setUpPeaks(FFTOC &transform, PeakDataSetOC &peaks,
                             const SearchSettings &search) const
{
    (void)peaks.setupWithN(static_cast<int>(nFreqs), transform.getResult(), search.minPeakThreshold,
                           search.hzPerBin, search.peakLowFreq, search.thresholdIncrement);
}

std::unique_ptr<PitchStream::Scratch> PitchStream::makeScratch() const
{
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    auto scratch = std::make_unique<Scratch>();
    (void)scratch->fft.setupWithLogN(fftLogN);
    const SearchSettings search = searchSettings();
    setUpPeaks(scratch->fft, scratch->peakDataSet, search);
    scratch->peaksGeneration = search.generation;
    (void)scratch->refiner.setupWithNFrames(static_cast<int>(segLength), search.hzPerBin);
    return scratch;
}

void PitchStream::attachGoodnessStream(std::shared_ptr<GoodnessStream> goodnessStream)
{
    goodness = std::move(goodnessStream);
}

GoodnessStream &PitchStream::requireGoodness() const
{
    QUORVAL_CHECK(goodness != nullptr);
    return *goodness;
}

void PitchStream::setFrequencyRange()
{
    Parameters &options = Parameters::shared();
    SearchSettings read;
    const auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    const double lowest = usableLowestNote(wav->sampleRate(), wav->maxFrames).used;
    const double extension = options.scaleExtension.value();
    read.freqMin = noteFrequency(lowest - extension);
    read.freqMax = noteFrequency(options.highestNote.value() + extension);
    const std::int64_t nHighest = options.numberOfInclusivePeaks.value();
    QUORVAL_CHECK(nHighest >= std::numeric_limits<int>::min() &&
                  nHighest <= std::numeric_limits<int>::max());
    read.nHighest = static_cast<int>(nHighest);
    read.goodnessThreshold = options.inclusiveGoodnessThreshold.value();
    read.dbLimit = options.dbNoiseLimit.value();
    read.aFrequency = options.aFrequency.value();
    read.minPeakThreshold = options.minimumPeakThreshold.value();
    read.thresholdIncrement = options.peakThresholdIncrement.value();
    read.refinePitch = options.refinePitch.value();
    // A × 2^((L − E − 69) / 12) in this form: low notes then get the same bits wherever the
    // wanted peak spacing is computed.
    read.peakLowFreq = read.aFrequency * std::exp2((lowest - extension - 69.0) / 12.0);
    read.hzPerBin = 1.0 / (wav->xScale * static_cast<double>(segLength));
    freqMin = read.freqMin;
    freqMax = read.freqMax;
    std::lock_guard lock(settingsMutex);
    read.generation = settings.generation + 1;
    settings = read;
}

PitchStream::SearchSettings PitchStream::searchSettings() const
{
    std::lock_guard lock(settingsMutex);
    return settings;
}

bool PitchStream::segmentInside_D(std::int64_t i) const
{
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    const std::int64_t start = checkedProduct(i, segSpacing);
    std::int64_t end = 0;
    QUORVAL_CHECK(!__builtin_add_overflow(start, segLength, &end));
    return start >= wav->minimumIndex_D() && end <= wav->maximumIndex_D();
}

std::int64_t PitchStream::segmentsHeld_D() const
{
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    const std::int64_t frames = wav->maximumIndex_D();
    if (wav->isWholeFile_D())
        return frames / segSpacing;
    return std::max<std::int64_t>(0, (frames - (segLength - segSpacing)) / segSpacing);
}

PitchStream::LowestNote PitchStream::usableLowestNote(double sampleRate, std::int64_t ringFrames)
{
    Parameters &options = Parameters::shared();
    const double aFrequency = options.aFrequency.value();
    const double response = options.response.value();
    LowestNote note;
    note.requested = options.lowestNote.value();
    note.used = note.requested;
    std::int64_t longest = kMaxSegLength;
    while (longest > kMinSegLength && longest > ringFrames)
        longest /= 2;
    // The segment length is the least power of two not below `wanted` frames.
    const auto wanted = [&](double lowest) {
        return response / (aFrequency * std::exp((lowest - 69.0) * kSemitoneLog)) * sampleRate;
    };
    // The note whose wanted length is `frames`: lower notes want longer segments.
    const auto noteFor = [&](double frames) {
        return 69.0 + std::log(response * sampleRate / (aFrequency * frames)) / kSemitoneLog;
    };
    if (!(wanted(note.requested) <= static_cast<double>(longest))) {
        note.used = std::ceil(noteFor(static_cast<double>(longest)) * 100.0) / 100.0;
        for (int step = 0; step < 100 && !(wanted(note.used) <= static_cast<double>(longest));
             ++step)
            note.used += 0.01;
    } else if (!(wanted(note.requested) > static_cast<double>(kMinSegLength / 2))) {
        note.used = std::floor(noteFor(static_cast<double>(kMinSegLength / 2)) * 100.0) / 100.0;
        for (int step = 0;
             step < 100 && !(wanted(note.used) > static_cast<double>(kMinSegLength / 2)); ++step)
            note.used -= 0.01;
    }
    return note;
}

PitchStream::SegmentResult PitchStream::computeSegment(std::int64_t i)
{
    // The scratch lock is never taken on the data queue, so waiting for it there cannot happen.
    std::lock_guard scratch(scratchMutex);
    return computeSegment(i, *fft, *peakDataSet, peaksGeneration, *pitchResult, *refiner, beside,
                          nullptr);
}

PitchStream::SegmentResult
PitchStream::computeSegment(std::int64_t &i, FFTOC &transform, PeakDataSetOC &peaks,
                            std::uint64_t &peaksGenerationOf, PitchResultOC &probe,
                            PitchRefinerOC &refinerOf, std::vector<double> &besideOf,
                            const std::function<std::int64_t()> &chooseSegment_D)
{
    QUORVAL_CHECK(!Quorval::dataQueue().isCurrent());
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);

    SegmentResult result;
    SearchSettings search;
    bool setUp = false;
    Frames frames;
    Quorval::dataQueue().sync([&] {
        if (chooseSegment_D) {
            i = chooseSegment_D();
            if (i < 0)
                return;
        }
        // Taken here, after any reset posted before this visit has run.
        search = searchSettings();
        result.inside = segmentInside_D(i);
        if (!result.inside)
            return;
        if (!search.refinePitch) {
            setUp =
                probe.setupFromWavFile(wav->wavFile_D(), wav->byteLocOf(i * segSpacing), transform,
                                       &peaks, search.nHighest, search.freqMin, search.freqMax,
                                       search.goodnessThreshold, search.dbLimit);
            return;
        }
        // One read for the segment and the half segments beside it, which the refiner wants.
        const std::int64_t start = checkedProduct(i, segSpacing);
        frames = framesOf(readBeside_D(start, start + segLength, besideOf), besideOf, start);
        setUp = frames.samples != nullptr;
        if (setUp)
            probe.setupWithSamples(frames.samples, transform, &peaks, search.nHighest,
                                   search.freqMin, search.freqMax, search.goodnessThreshold,
                                   search.dbLimit);
    });
    if (setUp)
        finishSegment(probe, transform, peaks, peaksGenerationOf, search, refinerOf, frames,
                      result);
    return result;
}

PitchStream::Span PitchStream::readBeside_D(std::int64_t start, std::int64_t end,
                                            std::vector<double> &buffer) const
{
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    const std::int64_t half = segLength / 2;
    Span span;
    span.lowest = wav->minimumIndex_D();
    span.highest = wav->maximumIndex_D();
    span.from = std::max(span.lowest, start - half);
    const std::int64_t frames = std::min(span.highest, end + half) - span.from;
    QUORVAL_CHECK(frames <= std::numeric_limits<int>::max());
    buffer.resize(static_cast<std::size_t>(std::max<std::int64_t>(frames, 0)));
    span.read = frames > 0 && wav->wavFile_D().getSamples(buffer.data(), wav->byteLocOf(span.from),
                                                          static_cast<int>(frames));
    return span;
}

PitchStream::Frames PitchStream::framesOf(const Span &span, const std::vector<double> &buffer,
                                          std::int64_t start) const
{
    if (!span.read)
        return {};
    const std::int64_t half = segLength / 2;
    Frames frames;
    frames.samples = buffer.data() + (start - span.from);
    if (start - half >= span.lowest)
        frames.before = frames.samples - half;
    if (start + segLength + half <= span.highest)
        frames.after = frames.samples + segLength;
    return frames;
}

void PitchStream::finishSegment(PitchResultOC &probe, FFTOC &transform, PeakDataSetOC &peaks,
                                std::uint64_t &peaksGenerationOf, const SearchSettings &search,
                                PitchRefinerOC &refinerOf, const Frames &frames,
                                SegmentResult &result) const
{
    // A reset may have changed the peak thresholds: the peak set follows before it is used.
    if (search.generation != peaksGenerationOf) {
        setUpPeaks(transform, peaks, search);
        peaksGenerationOf = search.generation;
    }
    // The refiner reads the frames where they are: compute() weighs the probe's own copy.
    if (search.refinePitch)
        refinerOf.setSamples(frames.samples, frames.before, frames.after);
    // The refiner measures the pitch again: the search's decibels need not be the library's to
    // the last digit.
    probe.setQuickDecibels(search.refinePitch);
    probe.compute();
    double freq = probe.getFreq();
    double goodnessOf = probe.getGoodness();
    if (search.refinePitch && freq > 0.0) {
        freq = refinerOf.refine(freq, search.freqMin, search.freqMax);
        // The refinement's own goodness, on the search's scale, where it measured the pitch.
        if (refinerOf.getHarmonicsUsed() > 0)
            goodnessOf = refinerOf.getGoodness();
    }
    if (freq > 0.0) {
        result.pitch = std::log(freq / search.aFrequency) / kSemitoneLog + 69.0;
        result.goodness = goodnessOf;
    }
}

double PitchStream::computePitch(std::int64_t i)
{
    const SegmentResult result = computeSegment(i);
    GoodnessStream *goodnessTarget = result.inside ? &requireGoodness() : nullptr;
    Quorval::dataQueue().sync([&] { storeResult_D(i, result, goodnessTarget); });
    return result.pitch;
}

void PitchStream::storeResult_D(std::int64_t i, const SegmentResult &result,
                                GoodnessStream *goodnessTarget)
{
    // While a recording wraps, the range may have moved past i since it was chosen: its slot now
    // belongs to a newer segment, which must not get this value.
    if (i < minIndex_D)
        return;
    store_D(result.pitch, i);
    if (goodnessTarget)
        goodnessTarget->store_D(result.goodness, i);
}

void PitchStream::computePitchInBackground(std::int64_t i)
{
    storeResultInBackground(i, computeSegment(i));
}

int PitchStream::computeBlockInBackground(std::int64_t first, std::int64_t end, Scratch &scratch)
{
    QUORVAL_CHECK(!Quorval::dataQueue().isCurrent() && first >= 0 && first <= end);
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    std::vector<std::int64_t> &todo = scratch.todo;
    todo.clear();
    SearchSettings search;
    bool read = false;
    Span span;
    Quorval::dataQueue().sync([&] {
        search = searchSettings();
        for (std::int64_t i = first; i < end; ++i)
            if (valueAt_D(i) == 0.0 && segmentInside_D(i))
                todo.push_back(i);
        if (todo.empty())
            return;
        // One read for the whole block: the frames each segment's own read would get, and to
        // refine, the half segments beside them.
        if (search.refinePitch) {
            span =
                readBeside_D(checkedProduct(todo.front(), segSpacing),
                             checkedProduct(todo.back(), segSpacing) + segLength, scratch.beside);
            read = span.read;
            return;
        }
        const std::int64_t frames =
            checkedProduct(todo.back() - todo.front(), segSpacing) + segLength;
        QUORVAL_CHECK(frames <= std::numeric_limits<int>::max());
        scratch.samples.resize(static_cast<std::size_t>(frames));
        read = wav->wavFile_D().getSamples(scratch.samples.data(),
                                           wav->byteLocOf(checkedProduct(todo.front(), segSpacing)),
                                           static_cast<int>(frames));
    });
    std::vector<std::pair<std::int64_t, SegmentResult>> results;
    results.reserve(todo.size());
    for (const std::int64_t i : todo) {
        SegmentResult result;
        result.inside = true;
        if (read) {
            const Frames frames =
                search.refinePitch
                    ? framesOf(span, scratch.beside, checkedProduct(i, segSpacing))
                    : Frames{scratch.samples.data() +
                             static_cast<std::size_t>((i - todo.front()) * segSpacing)};
            scratch.pitchResult.setupWithSamples(frames.samples, scratch.fft, &scratch.peakDataSet,
                                                 search.nHighest, search.freqMin, search.freqMax,
                                                 search.goodnessThreshold, search.dbLimit);
            finishSegment(scratch.pitchResult, scratch.fft, scratch.peakDataSet,
                          scratch.peaksGeneration, search, scratch.refiner, frames, result);
        }
        results.emplace_back(i, result);
    }
    if (!results.empty()) {
        GoodnessStream *goodnessTarget = &requireGoodness();
        Quorval::dataQueue().sync([&] {
            for (const auto &[i, result] : results)
                storeResult_D(i, result, goodnessTarget);
        });
    }
    return static_cast<int>(todo.size());
}

void PitchStream::storeResultInBackground(std::int64_t i, const SegmentResult &result)
{
    // One visit to the data queue for both values. A sync: from a work queue's thread it runs
    // there and then when the data queue is idle, where a post would wake the data queue's
    // thread for a few stores.
    GoodnessStream *goodnessTarget = result.inside ? &requireGoodness() : nullptr;
    Quorval::dataQueue().sync([&] { storeResult_D(i, result, goodnessTarget); });
}

std::int64_t
PitchStream::computeChosenInBackground(const std::function<std::int64_t()> &chooseSegment_D)
{
    std::unique_lock scratch(scratchMutex);
    std::int64_t chosen = -1;
    const SegmentResult result = computeSegment(chosen, *fft, *peakDataSet, peaksGeneration,
                                                *pitchResult, *refiner, beside, chooseSegment_D);
    scratch.unlock();
    if (chosen >= 0)
        storeResultInBackground(chosen, result);
    return chosen;
}

std::int64_t PitchStream::nextUncalculatedIndex_D()
{
    if (minIndex_D >= allPitchesCalculatedTo)
        allPitchesCalculatedTo = minIndex_D - 1;
    for (std::int64_t i = allPitchesCalculatedTo + 1; i < maxIndex_D; ++i) {
        if (valueAt_D(i) == 0.0) {
            allPitchesCalculatedTo = i - 1;
            return i;
        }
    }
    allPitchesCalculatedTo = maxIndex_D - 1;
    return -1;
}

void PitchStream::extendRange_D(std::int64_t n)
{
    if (n > maxIndex_D) {
        const std::int64_t from = std::max(maxIndex_D, n - size);
        for (std::int64_t j = from; j < n; ++j)
            data_D[static_cast<std::size_t>(slotOf(j))] = 0.0;
    }
    maxIndex_D = n;
    minIndex_D = std::max<std::int64_t>(0, n - size);
    if (goodness)
        goodness->setRange_D(minIndex_D, maxIndex_D);
}

void PitchStream::reset_D()
{
    setFrequencyRange();
    if (size != 0)
        std::fill(data_D.begin(), data_D.end(), 0.0);
    allPitchesCalculatedTo = minIndex_D - 1;
    ++serial;
}

std::string PitchStream::description_D() const
{
    return "serial " + std::to_string(serial.load()) + " min " + std::to_string(minIndex_D) +
           " max " + std::to_string(maxIndex_D);
}

std::string PitchStream::description() const
{
    return Quorval::dataQueue().sync([this] { return description_D(); });
}

std::vector<double> PitchStream::lastSpectrum()
{
    std::lock_guard scratch(scratchMutex);
    const double *values = fft->getResult();
    return {values, values + nFreqs};
}

std::vector<double> PitchStream::spectrumOf(std::int64_t i, FFTOC &sharedTransform)
{
    QUORVAL_CHECK(Quorval::crunchQueue().isCurrent());
    auto wav = wavStream.lock();
    QUORVAL_CHECK(wav != nullptr);
    const SearchSettings search = searchSettings();
    // A newer segmentation may have resized the shared transform since.
    if (sharedTransform.getN() != (fftLogN > 0 ? 1 << fftLogN : 1))
        (void)sharedTransform.setupWithLogN(fftLogN);
    const bool ready = Quorval::dataQueue().sync([&] {
        return segmentInside_D(i) &&
               spectrumResult.setupFromWavFile(wav->wavFile_D(), wav->byteLocOf(i * segSpacing),
                                               sharedTransform, nullptr, 0, search.freqMin,
                                               search.freqMax, 0.0, search.dbLimit);
    });
    if (!ready)
        return {};
    spectrumResult.compute();
    const double *values = spectrumResult.getFFTResult();
    return {values, values + spectrumResult.getFFTSize()};
}

GoodnessStream::GoodnessStream(const PitchStream &pitch)
    : ResultStream(pitch.size, pitch.xScale, pitch.overlap, 0.0, 1.0)
{
    setRange_D(pitch.minimumIndex_D(), pitch.maximumIndex_D());
}

void GoodnessStream::setRange_D(std::int64_t minIndex, std::int64_t maxIndex)
{
    if (maxIndex > maxIndex_D) {
        const std::int64_t from = std::max(maxIndex_D, maxIndex - size);
        for (std::int64_t j = from; j < maxIndex; ++j)
            data_D[static_cast<std::size_t>(slotOf(j))] = 0.0;
    }
    minIndex_D = minIndex;
    maxIndex_D = maxIndex;
}

} // namespace quorval
