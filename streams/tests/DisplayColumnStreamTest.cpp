#include "streams/DisplayColumnStream.h"

#include "analysis/tests/support/TestSignals.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"
#include "streams/tests/RecordedSound.h"
#include "streams/tests/Tones.h"
#include "streams/tests/UnitLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

namespace quorval {
namespace {

using namespace std::chrono_literals;

constexpr double kRate = 44100.0;
constexpr std::int64_t kSpacing = 512; // frames between segments at the default options

// Equal temperament, every note shown; goodness below threshold darkens.
ColumnSettings plainSettings(double goodnessThreshold, bool tuning = false)
{
    ColumnSettings settings;
    settings.goodnessThreshold = goodnessThreshold;
    settings.tuning = tuning;
    return settings;
}

// A calculated sound whose segment values a test may then overwrite.
class Analysed
{
public:
    explicit Analysed(const std::vector<std::int16_t> &pcm)
        : pcm(pcm), music(MusicStream::create(test::recordedSound(pcm)))
    {
        EXPECT_TRUE(music->waitUntilCalculated(60s));
        EXPECT_EQ(music->segSpacing(), kSpacing);
    }

    void setSegment(std::int64_t i, double pitch, double goodness) const
    {
        const auto stream = music->pitchStream();
        Quorval::dataQueue().sync([&] {
            stream->store_D(pitch, i);
            stream->goodnessStream()->store_D(goodness, i);
        });
    }

    // Columns exactly perSegment to a segment, starting at column 0 on segment 0.
    std::shared_ptr<DisplayColumnStream> columns(std::int64_t size, int perSegment,
                                                 const ColumnSettings &settings) const
    {
        const double width = static_cast<double>(size * kSpacing) / (perSegment * kRate);
        return DisplayColumnStream::create(music, size, width, settings);
    }

    std::vector<std::int16_t> pcm;
    std::shared_ptr<MusicStream> music;
};

void expectColor(const std::optional<Rgba> &color, float r, float g, float b, const char *what)
{
    ASSERT_TRUE(color.has_value()) << what;
    EXPECT_NEAR(color->r, r, 1e-6) << what;
    EXPECT_NEAR(color->g, g, 1e-6) << what;
    EXPECT_NEAR(color->b, b, 1e-6) << what;
    EXPECT_EQ(color->a, 1.0f) << what;
}

const ColumnValues &at(const DisplayColumnStream::Fill &fill, std::int64_t index)
{
    const std::int64_t first = fill.columns.front().index;
    return fill.columns.at(static_cast<std::size_t>(index - first));
}

TEST(DisplayColumnLayout, placesTheMiddleInItsSegmentAndTheEdgesInTheSound)
{
    const DataStream pitch(0.5, 0.0);     // half-second segments
    const DataStream wav(1.0 / 8.0, 0.0); // eight frames a second
    // Column 0 of half a second: its middle, 0.25 s, is exactly half a segment cell in.
    ColumnLayout layout = ColumnLayout::of(0, 0.5, pitch, wav);
    EXPECT_EQ(layout.pitchIndex, 0);
    EXPECT_FALSE(layout.highEnd);

    layout = ColumnLayout::of(3, 0.25, pitch, wav); // 0.75 .. 1.0 s, middle 0.875 s
    EXPECT_EQ(layout.leftX, 0.75);
    EXPECT_EQ(layout.midX, 0.875);
    EXPECT_EQ(layout.rightX, 1.0);
    EXPECT_EQ(layout.pitchIndex, 1);
    EXPECT_TRUE(layout.highEnd);
    EXPECT_EQ(layout.leftWavIndex, 6);
    EXPECT_EQ(layout.rightWavIndex, 8);
    EXPECT_EQ(layout.wavSamples, 2);

    // Narrower than a frame: still one frame measured.
    layout = ColumnLayout::of(1, 1.0 / 64.0, pitch, wav);
    EXPECT_EQ(layout.wavSamples, 1);
    // An overlap moves the segment index back.
    const DataStream shifted(0.5, 1.0);
    EXPECT_EQ(ColumnLayout::of(3, 0.5, shifted, wav).pitchIndex, 2);
    EXPECT_EQ(ColumnLayout::of(0, 0.5, shifted, wav).pitchIndex, 0);
}

TEST(DisplayColumnStream, fillMeasuresEveryColumnOfAGeneratedSound)
{
    const std::vector<double> samples =
        test::joined(test::joined(test::toneAt(60.3, 1.0, {.amplitude = 8000.0}),
                                  testsignals::silence(static_cast<int>(0.5 * kRate))),
                     test::toneAt(71.8, 1.0, {.amplitude = 3000.0}));
    const Analysed sound(test::toPCM(samples));
    const std::vector<MusicStream::SegmentValue> segments = sound.music->segmentValues();
    const auto frames = static_cast<std::int64_t>(sound.pcm.size());

    // 10 ms columns over 3 s: the last half second lies beyond the sound's end.
    const auto stream = DisplayColumnStream::create(sound.music, 300, 3.0, plainSettings(100.0));
    const DisplayColumnStream::Fill fill = stream->fill(0);
    ASSERT_EQ(fill.columns.size(), 300u);

    double loudLeast = 1e300;
    double loudMost = 0.0;
    double quietMost = 0.0;
    int volumesMeasured = 0;
    int ownPitches = 0;
    for (const ColumnValues &column : fill.columns) {
        const std::int64_t k = column.index;
        const auto [leftWav, wavSamples] = Quorval::dataQueue().sync([&] {
            const DisplayColumn &held = stream->column_D(k);
            return std::make_pair(held.leftWavIndex, held.wavSamples);
        });
        EXPECT_NEAR(static_cast<double>(leftWav), static_cast<double>(k * 441), 1.0) << k;
        EXPECT_NEAR(static_cast<double>(wavSamples), 441.0, 1.0) << k;
        if (leftWav + wavSamples >= frames) {
            EXPECT_EQ(column.rmsVolume, -1.0) << k;
        } else {
            double sumOfSquares = 0.0;
            double least = 1e300;
            double most = -1e300;
            for (std::int64_t f = leftWav; f < leftWav + wavSamples; ++f) {
                const double v = sound.pcm[static_cast<std::size_t>(f)];
                sumOfSquares += v * v;
                least = std::min(least, v);
                most = std::max(most, v);
            }
            const double rms = std::sqrt(sumOfSquares / static_cast<double>(wavSamples));
            EXPECT_NEAR(column.rmsVolume, rms, 1e-9 * (1.0 + rms)) << k;
            EXPECT_EQ(column.minVolume, least) << k;
            EXPECT_EQ(column.maxVolume, most) << k;
            volumesMeasured += column.rmsVolume > 0.0 ? 1 : 0;
            if (k < 100) {
                loudLeast = std::min(loudLeast, column.rmsVolume);
                loudMost = std::max(loudMost, column.rmsVolume);
            }
            if (k >= 155 && k < 245)
                quietMost = std::max(quietMost, column.rmsVolume);
        }

        // The segment under the middle, (441 k + 220.5) frames in.
        const auto segment = static_cast<std::int64_t>(std::floor((441.0 * k + 220.5) / kSpacing));
        const double own = segment < static_cast<std::int64_t>(segments.size())
                               ? segments[static_cast<std::size_t>(segment)].pitch
                               : -1.0;
        if (own > 0.0) {
            ++ownPitches;
            EXPECT_EQ(column.displayPitch, own) << k;
            EXPECT_EQ(column.goodness, segments[static_cast<std::size_t>(segment)].goodness) << k;
        }
        if (k >= 5 && k < 95) {
            EXPECT_NEAR(column.displayPitch, 60.3, 0.05) << k;
        }
        if (k >= 155 && k < 245) {
            EXPECT_NEAR(column.displayPitch, 71.8, 0.05) << k;
        }
        // Digital silence more than four segments from any tone: nothing to draw.
        if (segment >= 92 && segment <= 122) {
            EXPECT_EQ(column.displayPitch, 0.0) << k;
            EXPECT_FALSE(column.color.has_value()) << k;
        }
        EXPECT_EQ(column.color.has_value(), column.displayPitch > 0.0) << k;
    }
    // The loudest tenth of the goodness lies in the loud tone.
    EXPECT_GE(fill.referenceVolume, loudLeast);
    EXPECT_LE(fill.referenceVolume, loudMost);
    EXPECT_GT(fill.referenceVolume, 2.0 * quietMost);
    EXPECT_EQ(stream->description(), "300 display columns with " + std::to_string(volumesMeasured) +
                                         " volumes, " + std::to_string(ownPitches) + " pitches");

    // A canvas without width: no columns, nothing to draw.
    const auto empty = DisplayColumnStream::create(sound.music, 0, 3.0, plainSettings(100.0));
    const DisplayColumnStream::Fill none = empty->fill(0);
    EXPECT_TRUE(none.columns.empty());
    EXPECT_EQ(none.referenceVolume, -1.0);
    EXPECT_EQ(empty->description(), "0 display columns with 0 volumes, 0 pitches");
}

TEST(DisplayColumnStream, referenceVolumeIsTheLoudestTenthOfTheGoodness)
{
    // Ten silent segments, then segments of a sine, each a little louder than the one before.
    std::vector<double> samples = testsignals::silence(static_cast<int>(10 * kSpacing));
    for (int i = 0; i < 31; ++i) // up to 40 whole segments
        samples = test::joined(std::move(samples), testsignals::sine(440.0, 300.0 * (i + 1),
                                                                     static_cast<int>(kSpacing)));
    const Analysed sound(test::toPCM(samples));
    const auto stream = sound.columns(40, 1, plainSettings(100.0));

    // Goodness 50 for every column but the two loudest. The silent ones stay out of the total:
    // a tenth of 28 × 50 is 140, used up at the fifth loudest. The two loudest use up nothing.
    for (std::int64_t i = 0; i < 40; ++i)
        sound.setSegment(i, 60.0, i >= 38 ? 0.0 : 50.0);
    DisplayColumnStream::Fill fill = stream->fill(0);
    std::vector<double> rms;
    for (const ColumnValues &column : fill.columns)
        rms.push_back(column.rmsVolume);
    std::sort(rms.begin(), rms.end());
    ASSERT_EQ(rms[9], 0.0);
    ASSERT_GT(rms[10], 0.0);
    EXPECT_EQ(fill.referenceVolume, rms[rms.size() - 5]);

    // Goodness adding up to exactly 1 is not enough for a reference.
    for (std::int64_t i = 0; i < 40; ++i)
        sound.setSegment(i, 60.0, i < 4 ? 0.25 : 0.0);
    stream->invalidateAll();
    fill = stream->fill(0);
    EXPECT_EQ(fill.referenceVolume, 0.0);

    // No column with a pitch: no reference at all.
    for (std::int64_t i = 0; i < 40; ++i)
        sound.setSegment(i, -1.0, 0.0);
    stream->invalidateAll();
    EXPECT_EQ(stream->fill(0).referenceVolume, -1.0);
}

TEST(DisplayColumnStream, columnsWithoutAPitchBorrowTheNearestWithinFourSegments)
{
    const Analysed sound(test::toPCM(test::toneAt(57.0, 1.5, {.amplitude = 8000.0})));
    for (std::int64_t i = 0; i <= 80; ++i)
        sound.setSegment(i, -1.0, 0.0);
    sound.setSegment(29, 61.0, 500.0); // one away on either side of 30
    sound.setSegment(31, 62.0, 750.0);
    sound.setSegment(38, 64.0, 400.0); // two away on either side of 40
    sound.setSegment(42, 63.0, 300.0);
    sound.setSegment(54, 65.0, 200.0); // four after 50
    sound.setSegment(75, 66.0, 100.0); // five after 70
    sound.setSegment(1, 67.0, 100.0);  // column 0 leans before the first segment

    // Four columns to a segment: column 4s sits early in segment s, column 4s + 3 late.
    const auto stream = sound.columns(400, 4, plainSettings(100.0));
    DisplayColumnStream::Fill fill = stream->fill(0);
    const auto early = [&](std::int64_t s) -> const ColumnValues & { return at(fill, 4 * s); };
    const auto late = [&](std::int64_t s) -> const ColumnValues & { return at(fill, 4 * s + 3); };

    EXPECT_EQ(early(30).displayPitch, 61.0);
    EXPECT_EQ(early(30).goodness, 500.0);
    EXPECT_EQ(late(30).displayPitch, 62.0);
    EXPECT_EQ(late(30).goodness, 750.0);
    EXPECT_EQ(early(40).displayPitch, 64.0);
    EXPECT_EQ(late(40).displayPitch, 63.0);
    EXPECT_EQ(early(50).displayPitch, 65.0);
    EXPECT_EQ(late(50).displayPitch, 65.0);
    EXPECT_EQ(early(71).displayPitch, 66.0);
    EXPECT_EQ(early(70).displayPitch, 0.0);
    EXPECT_EQ(late(70).displayPitch, 0.0);
    EXPECT_FALSE(late(70).color.has_value());
    EXPECT_EQ(early(0).displayPitch, 67.0);
    EXPECT_EQ(Quorval::dataQueue().sync([&] { return stream->column_D(4 * 30).pitch_D; }), -1.0);

    // The borrowed pitch stays while no neighbour has one; a new neighbour replaces it, with a
    // new colour.
    sound.setSegment(29, -1.0, 0.0);
    sound.setSegment(31, -1.0, 0.0);
    fill = stream->fill(0);
    EXPECT_EQ(early(30).displayPitch, 61.0);
    expectColor(early(30).color, 1.0f, 1.0f, 1.0f, "61 is in tune");
    sound.setSegment(31, 62.5, 500.0);
    fill = stream->fill(0);
    EXPECT_EQ(early(30).displayPitch, 62.5);
    expectColor(early(30).color, 1.0f, 0.0f, 0.0f, "62.5 is half a semitone sharp");
    // Once the column's own segment has a pitch, that is drawn.
    sound.setSegment(30, 60.25, 500.0);
    fill = stream->fill(0);
    EXPECT_EQ(early(30).displayPitch, 60.25);
    EXPECT_EQ(late(30).displayPitch, 60.25);

    // Without borrowing, a column without a pitch of its own draws nothing.
    ColumnSettings keepOwn = plainSettings(100.0);
    keepOwn.fillAdjacentPitches = false;
    const auto ownOnly = sound.columns(400, 4, keepOwn);
    fill = ownOnly->fill(0);
    EXPECT_EQ(early(40).displayPitch, 0.0);
    EXPECT_EQ(early(30).displayPitch, 60.25);
}

TEST(DisplayColumnStream, colorsShowDeviationAndGoodnessAndFollowRecolorAndInvalidate)
{
    const Analysed sound(test::toPCM(test::toneAt(57.0, 1.0, {.amplitude = 8000.0})));
    sound.setSegment(10, 68.9, 1000.0); // 0.1 flat
    sound.setSegment(11, 62.25, 1000.0);
    sound.setSegment(12, 63.75, 1000.0);
    sound.setSegment(13, 64.6, 1000.0); // 0.4 flat of 65
    sound.setSegment(14, 66.7, 250.0);  // 0.3 flat, half the threshold
    sound.setSegment(15, 67.1, 500.0);  // exactly the threshold
    sound.setSegment(16, 67.1, 50.0);   // the same pitch, far less sure
    sound.setSegment(17, 60.0, 1000.0);
    sound.setSegment(18, 68.9, 1000.0); // the same as the first column
    const auto stream = sound.columns(9, 1, plainSettings(500.0));
    DisplayColumnStream::Fill fill = stream->fill(10);

    expectColor(at(fill, 17).color, 1.0f, 1.0f, 1.0f, "in tune: white");
    expectColor(at(fill, 11).color, 1.0f, 0.5f, 0.5f, "a quarter sharp");
    expectColor(at(fill, 12).color, 0.5f, 0.5f, 1.0f, "a quarter flat");
    expectColor(at(fill, 13).color, 0.2f, 0.2f, 1.0f, "0.4 flat");
    expectColor(at(fill, 14).color, 0.2f, 0.2f, 0.5f, "0.3 flat at half brightness");
    expectColor(at(fill, 15).color, 1.0f, 0.8f, 0.8f, "0.1 sharp at the threshold");
    expectColor(at(fill, 16).color, 1.0f, 0.8f, 0.8f, "same pitch as its neighbour");
    expectColor(at(fill, 10).color, 0.8f, 0.8f, 1.0f, "0.1 flat");
    expectColor(at(fill, 18).color, 0.8f, 0.8f, 1.0f, "0.1 flat");

    // "Tuning" counts deviations five times; a higher threshold darkens more. The first column
    // has the pitch the last one coloured: the cache must not hand back the old colour.
    stream->recolor(plainSettings(1000.0, true));
    fill = stream->fill(10);
    expectColor(at(fill, 10).color, 0.0f, 0.0f, 1.0f, "0.1 flat, tuning");
    expectColor(at(fill, 15).color, 0.5f, 0.0f, 0.0f, "0.1 sharp, tuning, half sure");
    expectColor(at(fill, 16).color, 0.5f, 0.0f, 0.0f, "same pitch as its neighbour");
    expectColor(at(fill, 17).color, 1.0f, 1.0f, 1.0f, "in tune, tuning");

    // A new pitch reaches the columns only through invalidation.
    sound.setSegment(12, 63.0, 1000.0);
    sound.setSegment(13, 64.5, 1000.0);
    stream->invalidateAll();
    fill = stream->fill(10);
    EXPECT_EQ(at(fill, 12).displayPitch, 63.0);
    expectColor(at(fill, 12).color, 1.0f, 1.0f, 1.0f, "in tune after invalidation");
    expectColor(at(fill, 13).color, 1.0f, 0.0f, 0.0f, "halfway takes the lower line");
    expectColor(at(fill, 10).color, 0.0f, 0.0f, 1.0f, "unchanged after invalidation");

    // Another temperament and key move the lines: 64.6 in just A major (E at +2.0 cents).
    Scale::Settings just;
    just.temperament = 1;
    ColumnSettings justSettings = plainSettings(0.0);
    justSettings.scale = Scale(just);
    sound.setSegment(13, 64.0, 1000.0);
    stream->invalidateAll();
    stream->recolor(justSettings);
    fill = stream->fill(10);
    expectColor(at(fill, 13).color, 0.96f, 0.96f, 1.0f, "2 cents flat of a just fifth");
}

TEST(DisplayColumnStream, columnSettingsFollowTheOptions)
{
    Parameters &options = Parameters::shared();
    ASSERT_TRUE(options.tuning.setValue(true));
    ASSERT_TRUE(options.qualityThreshold.setValue(250.0));
    const ColumnSettings settings = ColumnSettings::current();
    options.tuning.resetToDefault();
    options.qualityThreshold.resetToDefault();
    EXPECT_TRUE(settings.tuning);
    EXPECT_EQ(settings.goodnessThreshold, 250.0);
    EXPECT_FALSE(ColumnSettings::current().tuning);
}

bool sameValues(const ColumnValues &a, const ColumnValues &b)
{
    return a.index == b.index && a.displayPitch == b.displayPitch && a.goodness == b.goodness &&
           a.minVolume == b.minVolume && a.maxVolume == b.maxVolume && a.rmsVolume == b.rmsVolume &&
           a.color == b.color;
}

TEST(DisplayColumnStream, scrollingAndResegmentingReaimTheColumns)
{
    const Analysed sound(test::toPCM(test::joined(test::toneAt(60.0, 1.5, {.amplitude = 8000.0}),
                                                  test::toneAt(64.0, 1.5, {.amplitude = 4000.0}))));
    const auto stream = DisplayColumnStream::create(sound.music, 100, 1.0, plainSettings(100.0));

    // Each fill of the scrolled ring must match a fresh stream filled once at the same place.
    for (const std::int64_t first : {0, 37, 250, 180, 181, 120}) {
        const DisplayColumnStream::Fill scrolled = stream->fill(first);
        const auto fresh = DisplayColumnStream::create(sound.music, 100, 1.0, plainSettings(100.0));
        const DisplayColumnStream::Fill once = fresh->fill(first);
        EXPECT_EQ(scrolled.referenceVolume, once.referenceVolume) << first;
        for (std::size_t i = 0; i < once.columns.size(); ++i)
            EXPECT_TRUE(sameValues(scrolled.columns[i], once.columns[i])) << first << " " << i;
        EXPECT_EQ(Quorval::dataQueue().sync([&] { return stream->minimumIndex_D(); }), first);
    }

    // Shorter segments: the columns follow the new pitch stream.
    Parameters &options = Parameters::shared();
    ASSERT_TRUE(options.response.setValue(2.0));
    sound.music->resegment();
    // Back to the default only once the calculation, which reads the options, is done.
    const bool calculated = sound.music->waitUntilCalculated(60s);
    options.response.resetToDefault();
    ASSERT_TRUE(calculated);
    const std::int64_t spacing = sound.music->segSpacing();
    ASSERT_EQ(spacing, kSpacing / 2);
    const std::vector<MusicStream::SegmentValue> segments = sound.music->segmentValues();
    const DisplayColumnStream::Fill fill = stream->fill(120);
    for (const ColumnValues &column : fill.columns) {
        // 10 ms columns: the middle lies 441 k + 220.5 frames in.
        const auto segment =
            static_cast<std::int64_t>(std::floor((441.0 * column.index + 220.5) / spacing));
        const double own = segments.at(static_cast<std::size_t>(segment)).pitch;
        if (own > 0.0) {
            EXPECT_EQ(column.displayPitch, own) << column.index;
        }
        EXPECT_EQ(
            Quorval::dataQueue().sync([&] { return stream->column_D(column.index).pitchIndex_D; }),
            segment);
    }
}

// Leaves no column stream behind for the calculations of other tests.
struct VisibleSourceReset
{
    ~VisibleSourceReset() { Quorval::setVisibleSegmentSource(nullptr); }
};

TEST(DisplayColumnStream, theCalculationComputesTheVisibleColumnsFirst)
{
    const Analysed sound(test::toPCM(test::toneAt(62.0, 8.0, {.amplitude = 8000.0})));
    VisibleSourceReset reset;
    // 10 ms columns from 5 s to 6 s.
    const auto stream = DisplayColumnStream::create(sound.music, 100, 1.0, plainSettings(100.0));
    Quorval::setVisibleSegmentSource(stream);
    (void)stream->fill(500);

    auto log = std::make_shared<test::UnitLog>();
    sound.music->setUnitObserver([log](std::int64_t code) { (*log)(code); });
    // Every segment back to "not computed yet", then the calculation goes through them again.
    const auto pitch = sound.music->pitchStream();
    Quorval::dataQueue().sync([&] {
        for (std::int64_t i = pitch->minimumIndex_D(); i < pitch->maximumIndex_D(); ++i)
            pitch->store_D(0.0, i);
        pitch->allPitchesCalculatedTo = -1;
    });
    sound.music->requestCalculation();
    ASSERT_TRUE(sound.music->waitUntilCalculated(60s));
    sound.music->setUnitObserver(nullptr);

    std::vector<std::int64_t> visible;
    for (std::int64_t k = 500; k < 600; ++k) {
        const auto segment = static_cast<std::int64_t>(std::floor((441.0 * k + 220.5) / kSpacing));
        if (visible.empty() || visible.back() != segment)
            visible.push_back(segment);
    }
    const std::vector<std::int64_t> codes = log->snapshot();
    ASSERT_GT(codes.size(), visible.size());
    EXPECT_EQ(std::vector<std::int64_t>(codes.begin(), codes.begin() + visible.size()), visible);
    EXPECT_EQ(codes[visible.size()], 0) << "then the rest from the start";

    EXPECT_TRUE(Quorval::dataQueue().sync([&] { return stream->allPitchesCalculated_D; }));
    for (const ColumnValues &column : stream->fill(500).columns)
        EXPECT_NEAR(column.displayPitch, 62.0, 0.05) << column.index;
    // A grown pitch stream starts a new pass.
    Quorval::dataQueue().sync([&] { stream->pitchStreamGrew_D(); });
    EXPECT_FALSE(Quorval::dataQueue().sync([&] { return stream->allPitchesCalculated_D; }));
}

} // namespace
} // namespace quorval
