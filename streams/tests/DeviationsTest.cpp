#include "streams/Deviations.h"

#include "analysis/tests/support/TestSignals.h"
#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/WavStream.h"
#include "streams/tests/OpenedSound.h"
#include "streams/tests/Wait.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <optional>

namespace quorval {
namespace {

using namespace std::chrono_literals;

constexpr double kRate = testsignals::kSampleRate;

// Deviations over [t0, t1) seconds of an opened sound.
std::optional<Deviations::Results> over(const test::OpenedSound &sound, double t0, double t1)
{
    const std::atomic<bool> canceled{false};
    return Deviations::compute(*sound.music, t0, t1, canceled);
}

TEST(Deviations, measuresTheSelectedStretchAndTheWholeSoundWhenNoneIsSelected)
{
    // One second 10 cents sharp of A4, then one second 15 cents flat.
    const test::OpenedSound sound(test::joined(test::toneAt(69.1, 1.0), test::toneAt(68.85, 1.0)));

    const auto sharp = over(sound, 0.1, 0.9);
    ASSERT_TRUE(sharp);
    EXPECT_NEAR(sharp->pitch, 0.1, 0.002);
    EXPECT_NEAR(sharp->deviation, 0.1, 0.002);
    EXPECT_DOUBLE_EQ(sharp->coverage, 1.0);
    const auto flat = over(sound, 1.1, 1.9);
    ASSERT_TRUE(flat);
    EXPECT_NEAR(flat->pitch, -0.15, 0.002);

    // A selection of zero width, wherever it lies, means the whole sound.
    const auto whole = over(sound, 0.7, 0.7);
    const auto explicitWhole = over(sound, 0.0, 2.0);
    ASSERT_TRUE(whole && explicitWhole);
    EXPECT_EQ(whole->pitch, explicitWhole->pitch);
    EXPECT_EQ(whole->deviation, explicitWhole->deviation);
    EXPECT_EQ(whole->coverage, explicitWhole->coverage);
    EXPECT_GT(whole->pitch, flat->pitch);
    EXPECT_LT(whole->pitch, sharp->pitch);
    // The tone's RMS relative to full scale.
    EXPECT_GT(whole->volume, 0.05);
    EXPECT_LT(whole->volume, 0.3);

    EXPECT_FALSE(over(sound, 1.5, 0.5)) << "a stretch running backwards is not measured";
}

TEST(Deviations, countsEverySegmentAboveTheFloorWhetherPitchedOrNot)
{
    const test::OpenedSound sound(test::toneAt(69.0, 1.0));
    const std::shared_ptr<PitchStream> pitch = sound.music->pitchStream();
    const std::int64_t end = pitch->maximumIndex();
    ASSERT_GT(end, 20);
    // An even count of segments, all inside the calculated range.
    const std::int64_t count = (end - 1) / 2 * 2;
    const double t1 = (static_cast<double>(count) + 0.5) * pitch->xScale;

    for (std::int64_t i = 0; i < end; ++i)
        pitch->store(i % 2 == 0 ? 69.1 : 68.9, i);
    const auto alternating = over(sound, 0.0, t1);
    ASSERT_TRUE(alternating);
    EXPECT_NEAR(alternating->pitch, 0.0, 1e-9);
    EXPECT_NEAR(alternating->deviation, 0.1, 1e-9);

    // A loud segment without a pitch counts, with the deviation of note number -1 (0 in Equal).
    for (std::int64_t i = 1; i < end; i += 2)
        pitch->store(-1.0, i);
    const auto halfUnpitched = over(sound, 0.0, t1);
    ASSERT_TRUE(halfUnpitched);
    EXPECT_DOUBLE_EQ(halfUnpitched->coverage, 1.0);
    EXPECT_NEAR(halfUnpitched->pitch, 0.05, 1e-9);
    EXPECT_NEAR(halfUnpitched->deviation, std::sqrt(0.01 / 2.0), 1e-9);
}

TEST(Deviations, givesFourZerosWhenNoSegmentIsLoudEnough)
{
    // Quiet noise, then a loud burst after the last whole segment: the burst lifts the floor
    // above every segment's own volume.
    std::vector<double> samples = testsignals::whiteNoise(10.0, static_cast<int>(kRate), 7);
    const std::vector<double> burst = test::toneAt(69.0, 300.0 / kRate);
    const test::OpenedSound quietThenBurst(test::joined(samples, burst));
    const test::OpenedSound silent(testsignals::silence(static_cast<int>(kRate)));

    for (const test::OpenedSound *sound : {&quietThenBurst, &silent}) {
        const auto results = over(*sound, 0.0, 0.0);
        ASSERT_TRUE(results);
        EXPECT_EQ(results->pitch, 0.0);
        EXPECT_EQ(results->deviation, 0.0);
        EXPECT_EQ(results->volume, 0.0);
        EXPECT_EQ(results->coverage, 0.0);
    }

    // Without the burst the same noise counts.
    const test::OpenedSound quiet(samples);
    const auto noise = over(quiet, 0.0, 0.0);
    ASSERT_TRUE(noise);
    EXPECT_GT(noise->coverage, 0.5);
}

TEST(Deviations, tellsTheShareWithAClearPitchApartFromTheLoudShare)
{
    // Loud noise counts, but it has no clear pitch: a tone after as much noise is half the
    // stretch.
    const test::OpenedSound noiseThenTone(test::joined(
        testsignals::whiteNoise(8000.0, static_cast<int>(kRate), 7), test::toneAt(69.0, 1.0)));
    const auto half = over(noiseThenTone, 0.0, 0.0);
    ASSERT_TRUE(half);
    EXPECT_GT(half->coverage, 0.75);
    EXPECT_NEAR(half->clearPitch, 0.5, 0.05);
    EXPECT_DOUBLE_EQ(over(noiseThenTone, 1.1, 1.9)->clearPitch, 1.0);
}

TEST(Deviations, reportsInTheSystemsWordsWithDebugLinesOnRequest)
{
    Deviations::Results results;
    results.pitch = -0.0423;
    results.deviation = 0.1;
    results.volume = 0.25;
    results.coverage = 0.875;
    EXPECT_EQ(Deviations::report(results, false), "Pitch = -0.042\nDeviation =  \u00b10.100");
    EXPECT_EQ(Deviations::report(results, true),
              "Pitch = -0.042\nDeviation =  \u00b10.100\nVolume = 0.250\nCoverage = 0.875");
    EXPECT_EQ(Deviations::report(results), Deviations::report(results, false));
    results.clearPitch = 0.5;
    EXPECT_EQ(Deviations::centsReport(results),
              "In cents: -4.2, spread \u00b110.0\nClear pitch: 50% "
              "of the stretch\nNote by note: the note table");
    results.pitch = -0.0004;
    EXPECT_TRUE(Deviations::centsReport(results).starts_with("In cents: +0.0,"));
    setDeveloperMode(true);
    EXPECT_EQ(Deviations::report(results), Deviations::report(results, true));
    setDeveloperMode(false);
}

TEST(Deviations, runsAwayFromTheMainThreadAndStaysSilentWhenCanceled)
{
    const test::OpenedSound sound(test::toneAt(69.2, 1.0));
    const std::atomic<bool> canceled{true};
    EXPECT_FALSE(Deviations::compute(*sound.music, 0.0, 0.0, canceled));

    std::optional<Deviations::Results> delivered;
    Deviations deviations;
    deviations.start(sound.music, 0.0, 0.0,
                     [&delivered](const Deviations::Results &results) { delivered = results; });
    EXPECT_TRUE(deviations.isRunning());
    ASSERT_TRUE(test::waitUntil([&] { return delivered.has_value(); }));
    EXPECT_FALSE(deviations.isRunning());
    EXPECT_EQ(delivered->pitch, over(sound, 0.0, 0.0)->pitch);

    bool called = false;
    {
        Deviations canceledRun;
        canceledRun.start(sound.music, 0.0, 0.0,
                          [&called](const Deviations::Results &) { called = true; });
        canceledRun.cancel();
        EXPECT_FALSE(canceledRun.isRunning());
    }
    // The worker has been joined: whatever it posted is delivered now, or never.
    QCoreApplication::processEvents();
    EXPECT_FALSE(called);
}

} // namespace
} // namespace quorval
