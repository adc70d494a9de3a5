#include "scale/ScalaTuning.h"

#include "scale/Scale.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace quorval {
namespace {

// Scale files written the way the archive writes them.
const char *const kEqual12 = "! 12-tet.scl\n"
                             "!\n"
                             "12 tone equal temperament\n"
                             " 12\n"
                             "!\n"
                             " 100.0\n 200.\n 300.0\n 400.0\n 500.0\n 600.0\n"
                             " 700.0\n 800.0\n 900.0\n 1000.0\n 1100.0\n 2/1\n";

// Quarter-comma meantone on C: each fifth a quarter of a syntonic comma narrow, so four of them
// make a pure 5/4 two octaves up. Cents of the fifth: 1200 log2(5) / 4 = 696.578; the major
// third 1200 log2(5/4) = 386.314; the whole tone half of that, 193.157.
const char *const kMeantone = "! meanquar.scl\r\n"
                              "1/4-comma meantone scale. Pietro Aaron's temp. (1523)\r\n"
                              " 12\r\n"
                              "!\r\n"
                              " 76.04900\r\n 193.15686\r\n 310.26471\r\n 5/4\r\n"
                              " 503.42157\r\n 579.47057\r\n 696.57843\r\n 772.62743\r\n"
                              " 889.73529\r\n 1006.84314\r\n 1082.89214\r\n 2/1\r\n";

// A just major scale: 9/8 203.910, 5/4 386.314, 4/3 498.045, 3/2 701.955, 5/3 884.359,
// 15/8 1088.269 cents.
const char *const kJust7 = "! ptolemy.scl\n"
                           "!\n"
                           "Ptolemy's Intense Diatonic, the just major scale\n"
                           " 7\n"
                           "!\n"
                           " 9/8\n 5/4 major third\n 4/3\n 3/2\n 5/3\n 15/8\n 2\n";

// 31 equal steps to the octave, 1200/31 = 38.710 cents each, written as the archive writes them.
std::string equal31()
{
    std::string text = "! 31-tet.scl\n31-tone equal temperament\n 31\n!\n";
    for (int step = 1; step < 31; ++step) {
        char line[32];
        std::snprintf(line, sizeof line, " %.5f\n", step * 1200.0 / 31.0);
        text += line;
    }
    return text + " 2/1\n";
}

ScalaTuning read(const std::string &text)
{
    std::string error;
    const std::optional<ScalaTuning> tuning = ScalaTuning::readScale(text, error);
    EXPECT_TRUE(tuning.has_value()) << error;
    return tuning.value_or(ScalaTuning{});
}

// The scale in C (pitch class 0), every line shown, with an optional mapping.
Scale inC(ScalaTuning tuning, double aFrequency = 440.0)
{
    Scale::Settings settings;
    settings.keyPitchClass = 0;
    settings.aFrequency = aFrequency;
    settings.tuning = std::make_shared<const ScalaTuning>(std::move(tuning));
    return Scale(settings);
}

// Cents of line n above middle C.
double centsAboveC(const Scale &scale, qint64 n)
{
    return (scale.gridPitch(n) - 60.0) * 100.0;
}

TEST(ScalaTuning, readsTheArchivesScalesAndLaysOutTheirLines)
{
    const Scale equal = inC(read(kEqual12));
    for (qint64 n = 40; n < 100; ++n)
        EXPECT_NEAR(equal.gridPitch(n), double(n), 1e-9) << n;
    EXPECT_NEAR(equal.deviation(64.3), 0.3, 1e-9);
    EXPECT_EQ(equal.noteName(66), QStringLiteral("F♯"));
    EXPECT_EQ(equal.degreeCount(), 12);

    const ScalaTuning meantoneTuning = read(kMeantone);
    EXPECT_EQ(meantoneTuning.description, "1/4-comma meantone scale. Pietro Aaron's temp. (1523)");
    const Scale meantone = inC(meantoneTuning);
    EXPECT_NEAR(centsAboveC(meantone, 67), 696.578, 1e-3); // G
    EXPECT_NEAR(centsAboveC(meantone, 64), 386.314, 1e-3); // E, the pure third
    EXPECT_NEAR(centsAboveC(meantone, 62), 193.157, 1e-3); // D
    EXPECT_NEAR(centsAboveC(meantone, 55), 696.578 - 1200.0, 1e-3);
    EXPECT_NEAR(centsAboveC(meantone, 88), 2 * 1200.0 + 386.314, 1e-3);
    // A G played in equal temperament is 3.4 cents sharp of the meantone G.
    EXPECT_NEAR(meantone.deviation(67.0) * 100.0, 3.422, 1e-3);
    EXPECT_EQ(meantone.noteName(67), QStringLiteral("G"));

    // 31 lines to the octave; the fifth is step 18 (696.774 cents), the third step 10 (387.097).
    const Scale tet31 = inC(read(equal31()));
    EXPECT_EQ(tet31.degreeCount(), 31);
    const std::vector<GridLine> octave = tet31.gridLines(60.0, 71.99);
    ASSERT_EQ(octave.size(), 31u);
    EXPECT_NEAR((octave[18].pitch - 60.0) * 100.0, 696.774, 1e-3);
    EXPECT_NEAR((octave[10].pitch - 60.0) * 100.0, 387.097, 1e-3);
    EXPECT_EQ(octave[0].rank, 0);
    // Each line named by its nearest equal-tempered note and the cents between.
    EXPECT_EQ(octave[18].name, QStringLiteral("G-3"));
    EXPECT_EQ(octave[1].name, QStringLiteral("C+39"));
    EXPECT_EQ(octave[2].name, QStringLiteral("C♯-23"));

    // Seven lines to the octave, at the just ratios; pitches between them go to the nearer.
    const Scale just = inC(read(kJust7));
    const std::vector<GridLine> lines = just.gridLines(59.99, 72.01);
    ASSERT_EQ(lines.size(), 8u);
    const double expectedCents[] = {0, 203.910, 386.314, 498.045, 701.955, 884.359, 1088.269, 1200};
    QStringList names;
    for (std::size_t k = 0; k < lines.size(); ++k) {
        EXPECT_NEAR((lines[k].pitch - 60.0) * 100.0, expectedCents[k], 1e-3) << k;
        names.append(lines[k].name);
    }
    EXPECT_EQ(names.join(u' '), QStringLiteral("C D+4 E-14 F-2 G+2 A-16 B-12 C"));
    // Half way from E (386.3) to F (498.0) lies at 442.2 cents.
    EXPECT_NEAR(just.deviation(64.40) * 100.0, 440.0 - 386.314, 1e-3);
    EXPECT_NEAR(just.deviation(64.45) * 100.0, 445.0 - 498.045, 1e-3);
}

TEST(ScalaTuning, keyboardMappingChoosesTheKeysAndTheirReference)
{
    std::string error;
    // The just scale on the white keys from middle C, the black keys left out, A (key 69, the
    // 5/3) at 440 Hz: C is then 440 * 3/5 = 264 Hz, 15.641 cents above equal-tempered C.
    const char *const whiteKeys = "! white.kbm\n12\n0\n127\n60\n69\n440.0\n7\n"
                                  "! the mapping\n0\nx\n1\nx\n2\n3\nx\n4\nx\n5\nx\n6\n";
    ScalaTuning tuning = read(kJust7);
    tuning.mapping = ScalaTuning::readMapping(whiteKeys, error);
    ASSERT_TRUE(tuning.mapping.has_value()) << error;
    const Scale mapped = inC(tuning);
    EXPECT_NEAR((mapped.gridPitch(60) - 60.0) * 100.0, 15.641, 1e-3);
    EXPECT_NEAR(mapped.gridPitch(69), 69.0, 1e-9);
    EXPECT_NEAR(mapped.gridPitch(72) - mapped.gridPitch(60), 12.0, 1e-9);
    EXPECT_NEAR((mapped.gridPitch(64) - mapped.gridPitch(60)) * 100.0, 386.314, 1e-3);
    EXPECT_FALSE(mapped.isShown(61));
    EXPECT_TRUE(std::isnan(mapped.gridPitch(61)));
    // C♯ is no line: a pitch there goes to C or D.
    EXPECT_EQ(mapped.nearestLine(61.0), 60);
    // E is 264 * 5/4 = 330 Hz, 1.955 cents above equal-tempered E.
    EXPECT_EQ(mapped.noteName(64), QStringLiteral("E+2"));

    // Twelve-tone equal, linear, with A at 432 Hz: every line 31.767 cents below 440's.
    const char *const at432 = "0\n0\n127\n60\n69\n432\n12\n";
    tuning = read(kEqual12);
    tuning.mapping = ScalaTuning::readMapping(at432, error);
    ASSERT_TRUE(tuning.mapping.has_value()) << error;
    const Scale low = inC(tuning);
    EXPECT_NEAR((low.gridPitch(60) - 60.0) * 100.0, -31.767, 1e-3);
    EXPECT_NEAR(low.frequency(low.gridPitch(69)), 432.0, 1e-9);
    // Outside the keys tuned there are no lines.
    tuning.mapping->firstKey = 21;
    EXPECT_TRUE(std::isnan(inC(tuning).gridPitch(20)));

    // Only the G♯ keys tuned, a degree the sparsest completeness hides in C: they are still
    // lines, and a pitch finds its way to one that is shown.
    const char *const onlyGSharp = "12\n56\n80\n60\n68\n415.3\n12\n"
                                   "x\nx\nx\nx\nx\nx\nx\nx\n8\nx\nx\nx\n";
    tuning = read(kEqual12);
    tuning.mapping = ScalaTuning::readMapping(onlyGSharp, error);
    ASSERT_TRUE(tuning.mapping.has_value()) << error;
    Scale::Settings sparse;
    sparse.completenessLevel = 2;
    sparse.tuning = std::make_shared<const ScalaTuning>(tuning);
    const Scale gSharps(sparse);
    EXPECT_EQ(gSharps.gridLines(0.0, 127.0).size(), 3u);
    for (const qint64 key : {56, 68, 80})
        EXPECT_TRUE(gSharps.isShown(key)) << key;
    EXPECT_FALSE(gSharps.isShown(69));
    EXPECT_EQ(gSharps.nearestLine(30.0), 56);
    EXPECT_EQ(gSharps.nearestLine(71.0), 68);
}

// Each fault is refused with the line that holds it and what is wrong there.
TEST(ScalaTuning, refusesBrokenFilesNamingTheLine)
{
    struct Broken
    {
        std::string text;
        const char *message;
    };
    const Broken broken[] = {
        {"short\n 3\n 9/8\n 5/4\n", "the file ends after 2 of the 3 pitches line 2 counts"},
        {"long\n 2\n 9/8\n 2/1\n 3/1\n", "line 5: more pitches than the 2 line 2 counts"},
        {"bad\n 2\n 9/x\n 2/1\n", "line 3: \"9/x\" is no ratio"},
        {"zero\n 2\n 0/1\n 2/1\n", "line 3: \"0/1\" has a zero in it"},
        {"zero\n 2\n 9/8\n 2/0\n", "line 4: \"2/0\" has a zero in it"},
        {"negative\n 2\n -9/8\n 2/1\n", "line 3: \"-9/8\" is a negative ratio"},
        {"huge\n 1000000000\n 2/1\n",
         "line 2: a count of 1000000000 pitches is more than the 2048"},
        {"no period\n 0\n", "line 2: the count is 0, but a scale needs at least its period"},
        {"period below\n 2\n 100.0\n 0.0\n", "line 4: the last pitch is the period"},
        {"cents\n 1\n 12x.5\n", "line 3: \"12x.5\" is no number of cents"},
        {"count\n twelve\n", "line 2: \"twelve\" is no count of pitches"},
        {"! only a comment\n", "the file holds no description line"},
        {"blank\n 2\n\n 2/1\n", "line 3: a pitch is missing"},
    };
    const auto refusedWithItsMessage = [](const Broken &b, auto read) {
        std::string error;
        EXPECT_FALSE(read(b.text, error).has_value()) << b.text;
        EXPECT_EQ(error.rfind(b.message, 0), 0u) << error;
    };
    for (const Broken &b : broken)
        refusedWithItsMessage(b, ScalaTuning::readScale);

    const Broken brokenMappings[] = {
        {"12\n0\n127\n60\n69\n440\n7\n0\nx\n1\nx\n2\n3\nx\n4\nx\nx\n",
         "the reference key 69 is left out"},
        {"0\n0\n200\n60\n69\n440\n12\n", "line 3: \"200\" is not the last key"},
        {"0\n0\n127\n60\n69\nfast\n12\n", "line 6: \"fast\" is no reference frequency"},
        {"2\n0\n127\n60\n60\n440\n0\n0\n1\n", "line 7: \"0\" is not the formal octave's degree"},
        {"2\n0\n127\n60\n60\n440\n7\n0\n1\n2\n", "line 10: more entries than the map size of 2"},
        {"2\n0\n127\n60\n60\n440\n7\n0\n-1\n", "line 9: \"-1\" is no scale degree"},
        {"0\n0\n127\n60\n", "the file ends before the reference key"},
        {"12\n0\n0\n60\n69\n440\n12\nx\nx\nx\nx\nx\nx\nx\nx\nx\n9\n",
         "no key from the first to the last is mapped"},
    };
    for (const Broken &b : brokenMappings)
        refusedWithItsMessage(b, ScalaTuning::readMapping);
}

} // namespace
} // namespace quorval
