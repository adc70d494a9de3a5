#include "streams/Deviations.h"

#include "analysis/Check.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace quorval {

namespace {

// Segments measured per visit to the data queue: few visits, yet short enough that the data
// queue keeps serving the display.
constexpr std::int64_t kSegmentsPerVisit = 256;
// Frames per volume read of the whole stretch, for the same reason.
constexpr std::int64_t kFramesPerVolumeRead = std::int64_t{1} << 20;

std::int64_t floorIndex(double x)
{
    const double floored = std::floor(x);
    QUORVAL_CHECK(std::isfinite(floored) && floored >= -0x1p63 && floored < 0x1p63);
    return std::max<std::int64_t>(0, static_cast<std::int64_t>(floored));
}

// RMS of frames [first, end) of the sound, read piecewise; 0 for none. Data queue.
double rmsOf_D(WavStream &wav, std::int64_t first, std::int64_t end)
{
    if (end <= first)
        return 0.0;
    double sumOfSquares = 0.0;
    for (std::int64_t from = first; from < end; from += kFramesPerVolumeRead) {
        const std::int64_t n = std::min(kFramesPerVolumeRead, end - from);
        const double rms = wav.volume_D(from, n).getRMS();
        sumOfSquares += rms * rms * static_cast<double>(n);
    }
    return std::sqrt(sumOfSquares / static_cast<double>(end - first));
}

} // namespace

std::optional<Deviations::Stretch>
Deviations::walk(MusicStream &music, double t0, double t1, const std::atomic<bool> &canceled,
                 const std::function<void(const Segment &)> &visit)
{
    WavStream &wav = *music.wavStream;
    const std::shared_ptr<PitchStream> pitch = music.pitchStream();
    QUORVAL_CHECK(pitch != nullptr);
    const std::shared_ptr<GoodnessStream> goodness = pitch->goodnessStream();
    QUORVAL_CHECK(goodness != nullptr);
    if (t0 == t1) {
        const MusicStream::TimeRange whole = music.timeRange();
        t0 = whole.start;
        t1 = whole.end;
    }
    const double s = wav.xScale;
    const double q = wav.overlap;
    const double p = pitch->xScale;
    const double o = pitch->overlap;

    Stretch stretch;
    const std::int64_t w0 = floorIndex(t0 / s - q);
    const std::int64_t w1 = floorIndex(t1 / s - q);
    SerialQueue &data = Quorval::dataQueue();
    stretch.rms = data.sync([&] { return rmsOf_D(wav, w0, w1); });
    const double floorRMS = stretch.rms * Parameters::shared().volumeThreshold.value();

    stretch.firstSegment = floorIndex(t0 / p - o);
    stretch.endSegment = floorIndex(t1 / p - o);
    if (stretch.endSegment < stretch.firstSegment)
        return std::nullopt;

    std::vector<Segment> segments;
    for (std::int64_t block = stretch.firstSegment; block < stretch.endSegment;
         block += kSegmentsPerVisit) {
        const std::int64_t blockEnd = std::min(stretch.endSegment, block + kSegmentsPerVisit);
        segments.assign(static_cast<std::size_t>(blockEnd - block), {});
        data.sync([&] {
            for (std::int64_t j = block; j < blockEnd; ++j) {
                const std::int64_t a = floorIndex(p * static_cast<double>(j) / s - q);
                const std::int64_t b = floorIndex(p * static_cast<double>(j + 1) / s - q);
                Segment &segment = segments[static_cast<std::size_t>(j - block)];
                segment.index = j;
                segment.timeSeconds = p * static_cast<double>(j);
                segment.rms = rmsOf_D(wav, a, b);
                segment.pitch = pitch->valueAt_D(j);
                segment.goodness = goodness->valueAt_D(j);
            }
        });
        for (Segment &segment : segments) {
            if (canceled)
                return std::nullopt;
            // Pure silence never counts, so that silence gives nothing even where the floor
            // itself is 0.
            segment.loud = segment.rms >= floorRMS && segment.rms > 0.0;
            if (segment.loud && segment.pitch == 0.0) {
                segment.pitch = pitch->computePitch(segment.index);
                segment.goodness = goodness->valueAt(segment.index);
            }
            visit(segment);
        }
    }
    return stretch;
}

std::optional<Deviations::Results> Deviations::compute(MusicStream &music, double t0, double t1,
                                                       const std::atomic<bool> &canceled)
{
    const Scale scale = Scale::current();
    const double goodnessFloor = Parameters::shared().qualityThreshold.value();
    std::int64_t n = 0;
    std::int64_t clear = 0;
    double sum = 0.0;
    double sumOfSquares = 0.0;
    const std::optional<Stretch> stretch =
        walk(music, t0, t1, canceled, [&](const Segment &segment) {
            if (!segment.loud)
                return;
            // No pitch (-1) counts like any other value: a loud segment without a pitch is a
            // note that did not speak clearly, and leaving it out would flatter the figures.
            const double d = scale.deviation(segment.pitch);
            ++n;
            if (segment.pitch > 0.0 && segment.goodness >= goodnessFloor)
                ++clear;
            sum += d;
            sumOfSquares += d * d;
        });
    if (!stretch)
        return std::nullopt;
    if (n == 0)
        return Results{};
    Results results;
    results.pitch = sum / static_cast<double>(n);
    results.deviation = std::sqrt(sumOfSquares / static_cast<double>(n));
    results.volume = stretch->rms / music.wavStream->maxNominalY;
    const auto segments = static_cast<double>(stretch->endSegment - stretch->firstSegment);
    results.coverage = static_cast<double>(n) / segments;
    results.clearPitch = static_cast<double>(clear) / segments;
    return results;
}

std::string Deviations::report(const Results &results, bool debugLines)
{
    // A mean that rounds to zero reads "+0.000", never "-0.000".
    const double pitch = std::abs(results.pitch) < 0.0005 ? 0.0 : results.pitch;
    char text[160];
    std::snprintf(text, sizeof text, "Pitch = %+.3f\nDeviation =  \u00b1%.3f", pitch,
                  results.deviation);
    std::string report = text;
    if (debugLines) {
        std::snprintf(text, sizeof text, "\nVolume = %.3f\nCoverage = %.3f", results.volume,
                      results.coverage);
        report += text;
    }
    return report;
}

std::string Deviations::centsReport(const Results &results)
{
    // A mean that rounds to zero reads "+0.0", never "-0.0".
    const double cents = std::abs(results.pitch) < 0.0005 ? 0.0 : results.pitch * 100.0;
    char text[200];
    std::snprintf(text, sizeof text,
                  "In cents: %+.1f, spread \u00b1%.1f\nClear pitch: %.0f%% of the stretch\n"
                  "Note by note: the note table",
                  cents, results.deviation * 100.0, results.clearPitch * 100.0);
    return text;
}

Deviations::~Deviations()
{
    cancel();
}

void Deviations::start(std::shared_ptr<MusicStream> music, double t0, double t1,
                       std::function<void(const Results &)> done)
{
    QUORVAL_CHECK(music != nullptr);
    run.start([music = std::move(music), t0,
               t1](const std::atomic<bool> &canceled) { return compute(*music, t0, t1, canceled); },
              std::move(done));
}

void Deviations::cancel()
{
    run.cancel();
}

bool Deviations::isRunning() const
{
    return run.isRunning();
}

} // namespace quorval
