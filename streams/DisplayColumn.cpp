#include "streams/DisplayColumn.h"

#include "analysis/Check.h"
#include "streams/DisplayColumnStream.h"
#include "streams/PitchStream.h"
#include "streams/WavStream.h"

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

std::int64_t checkedFloor(double value)
{
    const double floored = std::floor(value);
    QUORVAL_CHECK(std::isfinite(floored) && floored >= -0x1p63 && floored < 0x1p63);
    return static_cast<std::int64_t>(floored);
}

} // namespace

Rgba traceColor(double deviation, bool tuning, double goodness, double goodnessThreshold)
{
    if (tuning)
        deviation *= 5.0;
    double red = 1.0;
    double green = 1.0;
    double blue = 1.0;
    if (deviation > 0.0) {
        green = std::max(0.0, 1.0 - 2.0 * deviation);
        blue = green;
    } else if (deviation < 0.0) {
        red = std::max(0.0, 1.0 + 2.0 * deviation);
        green = red;
    }
    if (goodness < goodnessThreshold) {
        const double f = goodness / goodnessThreshold;
        red *= f;
        green *= f;
        blue *= f;
    }
    return {static_cast<float>(red), static_cast<float>(green), static_cast<float>(blue), 1.0f};
}

ColumnLayout ColumnLayout::of(std::int64_t k, double columnSeconds, const DataStream &pitch,
                              const DataStream &wav)
{
    ColumnLayout layout;
    layout.leftX = columnSeconds * static_cast<double>(k);
    layout.midX = layout.leftX + columnSeconds / 2.0;
    layout.rightX = layout.leftX + columnSeconds;

    const double t = layout.midX / pitch.xScale - pitch.overlap;
    layout.pitchIndex = std::max<std::int64_t>(0, checkedFloor(t));
    layout.highEnd = t - static_cast<double>(layout.pitchIndex) > 0.5;

    layout.leftWavIndex =
        std::max<std::int64_t>(0, checkedFloor(layout.leftX / wav.xScale - wav.overlap));
    layout.rightWavIndex =
        std::max<std::int64_t>(0, checkedFloor(layout.rightX / wav.xScale - wav.overlap));
    layout.wavSamples = std::max<std::int64_t>(layout.rightWavIndex - layout.leftWavIndex, 1);
    return layout;
}

std::array<std::int64_t, 8> neighbourSearchOrder(std::int64_t pitchIndex, bool highEnd)
{
    const std::int64_t lean = highEnd ? 1 : -1;
    std::array<std::int64_t, 8> order{};
    for (std::int64_t d = 1; d <= 4; ++d) {
        order[static_cast<std::size_t>(2 * d - 2)] = pitchIndex + lean * d;
        order[static_cast<std::size_t>(2 * d - 1)] = pitchIndex - lean * d;
    }
    return order;
}

DisplayColumn::DisplayColumn(std::weak_ptr<DisplayColumnStream> parent) : parent(std::move(parent))
{
}

std::shared_ptr<DisplayColumnStream> DisplayColumn::requireParent() const
{
    std::shared_ptr<DisplayColumnStream> stream = parent.lock();
    QUORVAL_CHECK(stream != nullptr);
    return stream;
}

void DisplayColumn::reaim_D(std::int64_t k)
{
    const std::shared_ptr<DisplayColumnStream> stream = requireParent();
    QUORVAL_CHECK(stream->pitch_D != nullptr);
    index_D = k;
    displayPitch_D = 0.0;
    goodness_D = 0.0;
    pitch_D = 0.0;
    // Volumes 0 too: a column beyond the sound's end must not keep an earlier aim's extremes.
    minVolume_D = 0.0;
    maxVolume_D = 0.0;
    rmsVolume_D = -1.0;
    color_D.reset();

    const ColumnLayout layout =
        ColumnLayout::of(k, stream->xScale, *stream->pitch_D, *stream->wavStream);
    leftX = layout.leftX;
    midX = layout.midX;
    rightX = layout.rightX;
    pitchIndex_D = layout.pitchIndex;
    highEnd = layout.highEnd;
    leftWavIndex = layout.leftWavIndex;
    rightWavIndex = layout.rightWavIndex;
    wavSamples = layout.wavSamples;
}

void DisplayColumn::measureVolume_D()
{
    const std::shared_ptr<DisplayColumnStream> stream = requireParent();
    WavStream &wav = *stream->wavStream;
    if (leftWavIndex < wav.minimumIndex_D() || rightWavIndex >= wav.maximumIndex_D())
        return;
    const VolumeResultOC volume = wav.volume_D(leftWavIndex, wavSamples);
    minVolume_D = volume.getMin();
    maxVolume_D = volume.getMax();
    rmsVolume_D = volume.getRMS();
}

void DisplayColumn::lookUpPitch_D()
{
    if (pitch_D > 0.0)
        return;
    const std::shared_ptr<DisplayColumnStream> stream = requireParent();
    const PitchStream *pitch = stream->pitch_D.get();
    const GoodnessStream *goodness = stream->goodness_D.get();
    QUORVAL_CHECK(pitch != nullptr && goodness != nullptr);

    const double own = pitch->valueAt_D(pitchIndex_D);
    if (own > 0.0) {
        pitch_D = own;
        displayPitch_D = own;
        goodness_D = goodness->valueAt_D(pitchIndex_D);
        color_D.reset();
        return;
    }
    pitch_D = -1.0;
    if (!fillAdjacentPitches)
        return;
    const std::int64_t first = pitch->minimumIndex_D();
    const std::int64_t end = pitch->maximumIndex_D();
    for (const std::int64_t j : neighbourSearchOrder(pitchIndex_D, highEnd)) {
        if (j < first || j >= end)
            continue;
        const double borrowed = pitch->valueAt_D(j);
        if (borrowed <= 0.0)
            continue;
        if (borrowed != displayPitch_D)
            color_D.reset();
        displayPitch_D = borrowed;
        goodness_D = goodness->valueAt_D(j);
        return;
    }
}

std::optional<Rgba> DisplayColumn::computeColor_D()
{
    if (color_D)
        return color_D;
    const double colored = pitch_D > 0.0 ? pitch_D : displayPitch_D;
    if (!(colored > 0.0))
        return std::nullopt;
    const std::shared_ptr<DisplayColumnStream> stream = requireParent();
    // Keyed by the pitch alone: equal pitches share a colour even when their goodness differs.
    if (stream->cachedPitch_D == colored) {
        color_D = stream->cachedColor_D;
        return color_D;
    }
    const ColumnSettings &settings = stream->settings_D;
    color_D = traceColor(settings.scale.deviation(colored), settings.tuning, goodness_D,
                         goodnessThreshold);
    stream->cachedPitch_D = colored;
    stream->cachedColor_D = *color_D;
    return color_D;
}

} // namespace quorval
