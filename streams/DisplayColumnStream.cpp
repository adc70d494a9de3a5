#include "streams/DisplayColumnStream.h"

#include "analysis/Check.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/WavStream.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace quorval {

ColumnSettings ColumnSettings::current()
{
    Parameters &options = Parameters::shared();
    ColumnSettings settings;
    settings.scale = Scale::current(options);
    settings.tuning = options.tuning.value();
    settings.goodnessThreshold = options.qualityThreshold.value();
    return settings;
}

DisplayColumnStream::DisplayColumnStream(std::shared_ptr<MusicStream> music, std::int64_t size,
                                         double timeWidth, ColumnSettings settings)
    : DataStream(size > 0 ? timeWidth / static_cast<double>(size) : timeWidth, 0.0), size(size),
      timeWidth(timeWidth), musicStream(std::move(music)), wavStream(musicStream->wavStream),
      volumes(static_cast<std::size_t>(size)), settings_D(std::move(settings))
{
}

std::shared_ptr<DisplayColumnStream> DisplayColumnStream::create(std::shared_ptr<MusicStream> music,
                                                                 std::int64_t size,
                                                                 double timeWidth,
                                                                 ColumnSettings settings)
{
    QUORVAL_CHECK(music != nullptr && music->wavStream != nullptr);
    QUORVAL_CHECK(size >= 0 && std::isfinite(timeWidth) && timeWidth > 0.0);
    auto stream = std::shared_ptr<DisplayColumnStream>(
        new DisplayColumnStream(std::move(music), size, timeWidth, std::move(settings)));
    stream->columns_D.reserve(static_cast<std::size_t>(size));
    for (std::int64_t i = 0; i < size; ++i) {
        DisplayColumn &column = stream->columns_D.emplace_back(stream);
        column.fillAdjacentPitches = stream->settings_D.fillAdjacentPitches;
        column.goodnessThreshold = stream->settings_D.goodnessThreshold;
    }
    return stream;
}

std::shared_ptr<DisplayColumnStream>
DisplayColumnStream::create(std::shared_ptr<MusicStream> music, std::int64_t size, double timeWidth)
{
    return create(std::move(music), size, timeWidth, ColumnSettings::current());
}

std::int64_t DisplayColumnStream::minimumIndex_D() const
{
    return windowFirst_D.value_or(0);
}

std::int64_t DisplayColumnStream::maximumIndex_D() const
{
    return windowFirst_D ? *windowFirst_D + size : 0;
}

DisplayColumn &DisplayColumnStream::column_D(std::int64_t k)
{
    QUORVAL_CHECK(size > 0);
    const std::int64_t slot = ((k % size) + size) % size;
    return columns_D[static_cast<std::size_t>(slot)];
}

bool DisplayColumnStream::adoptPitchStream_D()
{
    std::shared_ptr<PitchStream> present = musicStream->pitchStream();
    if (!present)
        return false;
    if (present == pitch_D && present->serial == pitchSerial_D)
        return true;
    QUORVAL_CHECK(present->goodnessStream() != nullptr);
    pitch_D = std::move(present);
    goodness_D = pitch_D->goodnessStream();
    pitchSerial_D = pitch_D->serial;
    dropColumnIndices_D();
    startPass_D();
    return true;
}

void DisplayColumnStream::startPass_D()
{
    ++resumeSeed;
    resumeIndex = windowFirst_D.value_or(0);
    allPitchesCalculated_D = false;
}

void DisplayColumnStream::dropColumnIndices_D()
{
    for (DisplayColumn &column : columns_D)
        column.index_D = -1;
}

double DisplayColumnStream::fill_D(std::int64_t firstIndex)
{
    QUORVAL_CHECK(adoptPitchStream_D());
    if (firstIndex != windowFirst_D) {
        windowFirst_D = firstIndex;
        startPass_D();
    }
    std::int64_t pitched = 0;
    for (std::int64_t k = firstIndex; k < firstIndex + size; ++k) {
        DisplayColumn &column = column_D(k);
        if (column.index_D != k)
            column.reaim_D(k);
        if (column.rmsVolume_D < 0.0)
            column.measureVolume_D();
        column.lookUpPitch_D();
        if (column.displayPitch_D > 0.0) {
            ++pitched;
            (void)column.computeColor_D();
        }
    }
    return pitched > 0 ? referenceVolume_D() : -1.0;
}

DisplayColumnStream::Fill DisplayColumnStream::fill(std::int64_t firstIndex)
{
    return Quorval::dataQueue().sync([this, firstIndex] { return fillAndCopy_D(firstIndex); });
}

DisplayColumnStream::Fill DisplayColumnStream::fillAndCopy_D(std::int64_t firstIndex)
{
    Fill result;
    result.referenceVolume = fill_D(firstIndex);
    result.columns.reserve(static_cast<std::size_t>(size));
    for (std::int64_t k = firstIndex; k < firstIndex + size; ++k) {
        const DisplayColumn &column = column_D(k);
        result.columns.push_back({k, column.displayPitch_D, column.goodness_D, column.minVolume_D,
                                  column.maxVolume_D, column.rmsVolume_D, column.color_D});
    }
    return result;
}

double DisplayColumnStream::referenceVolume_D()
{
    double total = 0.0;
    for (std::size_t i = 0; i < columns_D.size(); ++i) {
        const DisplayColumn &column = columns_D[i];
        volumes[i] = {column.rmsVolume_D, column.goodness_D};
        if (column.goodness_D > 0.0 && column.rmsVolume_D > 0.0)
            total += column.goodness_D;
    }
    if (!(total > 1.0))
        return 0.0;
    // NaN volumes sort below every number, so the order stays a strict weak one.
    std::sort(volumes.begin(), volumes.end(),
              [](const VolumeAndGoodness &a, const VolumeAndGoodness &b) {
                  if (std::isnan(a.volume))
                      return !std::isnan(b.volume);
                  return a.volume < b.volume;
              });
    // Walk down from the loudest until a tenth of the goodness lies above.
    double remaining = total * 0.1;
    for (std::size_t i = volumes.size() - 1; i > 0; --i) {
        remaining -= volumes[i].goodness;
        if (remaining <= 0.0)
            return volumes[i].volume;
    }
    return volumes.front().volume;
}

void DisplayColumnStream::invalidateAll_D()
{
    dropColumnIndices_D();
    startPass_D();
}

void DisplayColumnStream::invalidateAll()
{
    auto self = std::static_pointer_cast<DisplayColumnStream>(shared_from_this());
    Quorval::dataQueue().async([self] { self->invalidateAll_D(); });
}

void DisplayColumnStream::recolor_D(const ColumnSettings &settings)
{
    settings_D = settings;
    cachedPitch_D.reset();
    for (DisplayColumn &column : columns_D) {
        column.color_D.reset();
        column.goodnessThreshold = settings.goodnessThreshold;
        column.fillAdjacentPitches = settings.fillAdjacentPitches;
    }
}

void DisplayColumnStream::recolor(ColumnSettings settings)
{
    auto self = std::static_pointer_cast<DisplayColumnStream>(shared_from_this());
    Quorval::dataQueue().async(
        [self, settings = std::move(settings)] { self->recolor_D(settings); });
}

std::string DisplayColumnStream::description_D() const
{
    const auto volumesMeasured = std::count_if(columns_D.begin(), columns_D.end(),
                                               [](const auto &c) { return c.rmsVolume_D > 0.0; });
    const auto pitches = std::count_if(columns_D.begin(), columns_D.end(),
                                       [](const auto &c) { return c.pitch_D > 0.0; });
    char text[128];
    std::snprintf(text, sizeof text, "%d display columns with %d volumes, %d pitches",
                  static_cast<int>(size), static_cast<int>(volumesMeasured),
                  static_cast<int>(pitches));
    return text;
}

std::string DisplayColumnStream::description() const
{
    return Quorval::dataQueue().sync([this] { return description_D(); });
}

std::int64_t DisplayColumnStream::segmentWanted_D(std::int64_t k) const
{
    const PitchStream &pitch = *pitch_D;
    const ColumnLayout layout = ColumnLayout::of(k, xScale, pitch, *wavStream);
    const std::int64_t first = pitch.minimumIndex_D();
    const std::int64_t end = pitch.maximumIndex_D();
    const auto inRange = [first, end](std::int64_t j) { return j >= first && j < end; };
    if (!inRange(layout.pitchIndex))
        return -1;
    const double own = pitch.valueAt_D(layout.pitchIndex);
    if (own == 0.0)
        return layout.pitchIndex;
    if (own > 0.0 || !settings_D.fillAdjacentPitches)
        return -1;
    for (const std::int64_t j : neighbourSearchOrder(layout.pitchIndex, layout.highEnd)) {
        if (!inRange(j))
            continue;
        const double neighbour = pitch.valueAt_D(j);
        if (neighbour == 0.0)
            return j;
        if (neighbour > 0.0)
            return -1;
    }
    return -1;
}

std::int64_t DisplayColumnStream::nextVisibleSegment_D(const PitchStream &pitchStream)
{
    if (!windowFirst_D || !adoptPitchStream_D() || pitch_D.get() != &pitchStream)
        return -1;
    if (allPitchesCalculated_D)
        return -1;
    for (; resumeIndex < *windowFirst_D + size; ++resumeIndex) {
        if (const std::int64_t wanted = segmentWanted_D(resumeIndex); wanted >= 0)
            return wanted;
    }
    allPitchesCalculated_D = true;
    return -1;
}

void DisplayColumnStream::pitchStreamGrew_D()
{
    startPass_D();
}

} // namespace quorval
