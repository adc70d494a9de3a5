#include "streams/NoteReport.h"

#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/tests/OpenedSound.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace quorval {
namespace {

using test::joined;
using test::toneAt;

struct Played
{
    double note;  // equal-tempered note number
    double cents; // how far off it is played
    double seconds;
    double vibratoCents = 0.0; // depth of a 6 Hz vibrato
};

// The notes one after another, each followed by 50 ms of silence.
std::vector<double> melodyOf(const std::vector<Played> &played)
{
    std::vector<double> samples;
    for (const Played &p : played) {
        samples = joined(samples, toneAt(p.note + p.cents / 100.0, p.seconds,
                                         {.vibratoHz = p.vibratoCents > 0.0 ? 6.0 : 0.0,
                                          .vibratoDepthCents = p.vibratoCents}));
        samples = joined(samples, testsignals::silence(static_cast<int>(0.05 * 44100)));
    }
    return samples;
}

// Equal temperament, every line shown, in the key of the pitch class given.
Scale::Settings equalIn(int keyPitchClass)
{
    Scale::Settings settings;
    settings.keyPitchClass = keyPitchClass;
    return settings;
}

NoteReport reportOf(const test::OpenedSound &sound)
{
    const std::atomic<bool> canceled{false};
    const std::optional<NoteReport> report = NoteReport::compute(*sound.music, 0.0, 0.0, canceled);
    EXPECT_TRUE(report.has_value());
    return report.value_or(NoteReport{});
}

// Sets options for one test and puts them back to their defaults after it.
class NoteReportTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        Parameters &options = Parameters::shared();
        options.key.resetToDefault();
        options.temperament.resetToDefault();
        options.transposition.resetToDefault();
    }
};

// C major: C in tune, D 12 cents sharp, E 15 flat, F 8 sharp with a wide vibrato, G 5 flat,
// then C again 20 cents sharp.
const std::vector<Played> kMelody = {{60, 0, 0.5},     {62, 12, 0.5}, {64, -15, 0.5},
                                     {65, 8, 1.0, 25}, {67, -5, 0.5}, {60, 20, 0.5}};

TEST_F(NoteReportTest, findsEachNoteWithItsDetuneAndGathersThemByDegree)
{
    ASSERT_TRUE(Parameters::shared().key.setFromText("C"));
    const test::OpenedSound sound(melodyOf(kMelody));
    const NoteReport report = reportOf(sound);

    ASSERT_EQ(report.notes.size(), kMelody.size());
    for (std::size_t k = 0; k < kMelody.size(); ++k) {
        const NoteReport::Note &note = report.notes[k];
        EXPECT_EQ(note.noteNumber, static_cast<qint64>(kMelody[k].note)) << k;
        EXPECT_NEAR(note.meanCents, kMelody[k].cents, 1.0) << k;
        EXPECT_LT(note.endSeconds - note.startSeconds, kMelody[k].seconds + 0.03) << k;
        EXPECT_GT(note.endSeconds - note.startSeconds, kMelody[k].seconds - 0.06) << k;
        EXPECT_GT(note.meanGoodness, Parameters::shared().qualityThreshold.value());
    }
    // The vibrato swings about its centre; a steady tone hardly spreads.
    EXPECT_GT(report.notes[3].spreadCents, 10.0);
    EXPECT_LT(report.notes[0].spreadCents, 2.0);
    EXPECT_EQ(report.notes[1].name, "D");

    // C, D, E, F, G: the tonic first.
    ASSERT_EQ(report.degrees.size(), 5u);
    const int expectedDegrees[] = {0, 2, 4, 5, 7};
    const char *expectedNames[] = {"C", "D", "E", "F", "G"};
    const char *expectedNumbers[] = {"1", "2", "3", "4", "5"};
    for (std::size_t k = 0; k < 5; ++k) {
        EXPECT_EQ(report.degrees[k].degree, expectedDegrees[k]);
        EXPECT_EQ(report.degrees[k].name, expectedNames[k]);
        EXPECT_EQ(report.degrees[k].number, expectedNumbers[k]);
    }
    EXPECT_NE(report.text().find("  3 E "), std::string::npos) << report.text();
    const NoteReport::Degree &tonic = report.degrees[0];
    EXPECT_EQ(tonic.notes, 2);
    EXPECT_EQ(tonic.worstNote, 5u);
    EXPECT_NEAR(tonic.totalSeconds, 1.0, 0.1);
    EXPECT_NEAR(tonic.meanCents, 10.0, 1.0); // two equally long notes, 0 and +20
    EXPECT_NEAR(tonic.spreadCents, 10.0, 1.5);
    EXPECT_EQ(report.degrees[1].notes, 1);
}

TEST_F(NoteReportTest, findsNoNotesInSilenceOrNoise)
{
    const test::OpenedSound silent(testsignals::silence(44100));
    EXPECT_TRUE(reportOf(silent).notes.empty());
    const test::OpenedSound noise(testsignals::whiteNoise(8000.0, 44100, 3));
    const NoteReport noiseReport = reportOf(noise);
    EXPECT_TRUE(noiseReport.notes.empty());
    EXPECT_TRUE(noiseReport.degrees.empty());
}

TEST_F(NoteReportTest, followsTheKeyAndTheTemperament)
{
    Parameters &options = Parameters::shared();
    ASSERT_TRUE(options.key.setFromText("G"));
    const test::OpenedSound sound(melodyOf(kMelody));
    const NoteReport inG = reportOf(sound);
    ASSERT_EQ(inG.notes.size(), kMelody.size());
    // In G the G is the tonic and the C the fourth (5 semitones up), and they come first.
    ASSERT_FALSE(inG.degrees.empty());
    EXPECT_EQ(inG.degrees[0].degree, 0);
    EXPECT_EQ(inG.degrees[0].name, "G");
    ASSERT_GE(inG.degrees.size(), 2u);
    EXPECT_EQ(inG.degrees[1].degree, 5);
    EXPECT_EQ(inG.degrees[1].name, "C");

    // Just intonation in C puts the E 13.7 cents low, so the E played 15 cents flat of equal
    // temperament is only 1.3 cents flat of it; the G's line moves up by 2 cents.
    ASSERT_TRUE(options.key.setFromText("C"));
    ASSERT_TRUE(options.temperament.setFromText("Just"));
    const NoteReport just = reportOf(sound);
    ASSERT_EQ(just.notes.size(), kMelody.size());
    EXPECT_NEAR(just.notes[2].meanCents, -15.0 + 13.7, 1.0);
    EXPECT_NEAR(just.notes[4].meanCents, -5.0 - 2.0, 1.0);
    EXPECT_NEAR(just.notes[0].meanCents, 0.0, 1.0);
}

TEST(NoteReport, cutsRunsAtLineChangesGapsAndShortRuns)
{
    const Scale scale(equalIn(0));
    auto segment = [](double pitch, bool counts = true) {
        NoteReport::Segment s;
        s.counts = counts;
        s.pitch = pitch;
        s.goodness = 500.0;
        return s;
    };
    // 60.2 x3, 60.4 x2 (same line: one note of five), a gap, 61.1 x2 (too short), 62.45 x3,
    // then 62.55 x3 (nearest line 63: a new note).
    std::vector<NoteReport::Segment> segments = {
        segment(60.2),     segment(60.2),  segment(60.2),  segment(60.4),  segment(60.4),
        segment(0, false), segment(61.1),  segment(61.1),  segment(62.45), segment(62.45),
        segment(62.45),    segment(62.55), segment(62.55), segment(62.55)};
    for (std::size_t k = 0; k < segments.size(); ++k)
        segments[k].timeSeconds = 0.01 * static_cast<double>(k);
    const NoteReport report = NoteReport::fromSegments(segments, 0.01, scale);
    ASSERT_EQ(report.notes.size(), 3u);
    EXPECT_EQ(report.notes[0].noteNumber, 60);
    EXPECT_EQ(report.notes[0].segments, 5);
    EXPECT_NEAR(report.notes[0].meanCents, 28.0, 1e-9);
    EXPECT_NEAR(report.notes[0].spreadCents, std::sqrt(0.6 * 8 * 8 + 0.4 * 12 * 12), 1e-9);
    EXPECT_NEAR(report.notes[0].endSeconds, 0.05, 1e-12);
    EXPECT_EQ(report.notes[1].noteNumber, 62);
    EXPECT_EQ(report.notes[2].noteNumber, 63);
    EXPECT_NEAR(report.notes[2].meanCents, -45.0, 1e-9);
    ASSERT_EQ(report.degrees.size(), 3u);
    EXPECT_EQ(report.degrees[2].name, "E\u266d");
    // E flat is no note of C major: a lowered third.
    EXPECT_EQ(report.degrees[2].number, "\u266D3");
}

// A held D slips an octave for one segment, wobbles over the half-way mark for two, and loses
// one segment: still one note, measured without those. Three segments of E are a note of their
// own, and the D after them a new one.
TEST(NoteReport, aHeldNoteBridgesWobblesSlipsAndDropouts)
{
    const Scale scale(equalIn(2));
    std::vector<NoteReport::Segment> segments;
    const auto add = [&segments](double pitch, int count, bool counts = true) {
        for (int i = 0; i < count; ++i) {
            NoteReport::Segment s;
            s.counts = counts;
            s.pitch = pitch;
            s.goodness = 500.0;
            s.timeSeconds = 0.01 * static_cast<double>(segments.size());
            segments.push_back(s);
        }
    };
    add(62.1, 4);
    add(74.1, 1); // an octave up
    add(62.2, 4);
    add(62.6, 2); // nearer to 63
    add(62.1, 3);
    add(0.0, 1, false);
    add(62.0, 3);
    add(64.0, 3);
    add(62.0, 3);
    const NoteReport report = NoteReport::fromSegments(segments, 0.01, scale);
    ASSERT_EQ(report.notes.size(), 3u);
    const NoteReport::Note &held = report.notes[0];
    EXPECT_EQ(held.noteNumber, 62);
    EXPECT_EQ(held.segments, 14);
    EXPECT_NEAR(held.meanCents, (4 * 10.0 + 4 * 20.0 + 3 * 10.0) / 14.0, 1e-9);
    EXPECT_NEAR(held.startSeconds, 0.0, 1e-12);
    EXPECT_NEAR(held.endSeconds, 0.18, 1e-12);
    EXPECT_EQ(report.notes[1].noteNumber, 64);
    EXPECT_EQ(report.notes[2].noteNumber, 62);
    EXPECT_EQ(report.notes[2].segments, 3);
    // The tonic's figures leave out the bridged segments too.
    ASSERT_FALSE(report.degrees.empty());
    EXPECT_NEAR(report.degrees[0].meanCents, (40.0 + 80.0 + 30.0) / 17.0, 1e-9);
}

// Melodies whose key a musician would not doubt, each in tune, the notes' lengths in beats of
// 0.1 s. The C major and A minor ones use the same seven notes and differ only in which of them
// last: C, E and G in the first; A, C and E in the second, which also starts and ends on A.
struct KnownKey
{
    const char *key;
    std::vector<std::pair<double, int>> notes; // note number, beats
};

const KnownKey kKnownKeys[] = {
    {"C major",
     {{60, 4},
      {62, 1},
      {64, 3},
      {65, 1},
      {67, 4},
      {69, 1},
      {71, 1},
      {72, 4},
      {67, 2},
      {64, 2},
      {60, 4}}},
    {"A minor",
     {{57, 4},
      {59, 1},
      {60, 3},
      {62, 1},
      {64, 4},
      {65, 1},
      {67, 1},
      {69, 4},
      {64, 2},
      {60, 2},
      {57, 4}}},
    // E flat major: E♭ G B♭ long, with A♭ and the leading note D.
    {"E\u266D major",
     {{63, 4},
      {65, 1},
      {67, 3},
      {68, 1},
      {70, 4},
      {72, 1},
      {74, 1},
      {75, 4},
      {70, 2},
      {67, 2},
      {63, 4}}},
    // F sharp harmonic minor: its raised seventh E♯ (F) leads back to the tonic.
    {"F\u266F minor",
     {{66, 4},
      {68, 1},
      {69, 3},
      {71, 1},
      {73, 4},
      {74, 1},
      {77, 2},
      {78, 4},
      {73, 2},
      {69, 2},
      {77, 1},
      {66, 4}}},
};

TEST_F(NoteReportTest, guessesTheKeyOfMajorAndMinorMelodiesWhateverKeyIsSet)
{
    // A key far from all of them, in a temperament that moves lines, must not sway the guess.
    ASSERT_TRUE(Parameters::shared().key.setFromText("D\u266D"));
    ASSERT_TRUE(Parameters::shared().temperament.setFromText("Just"));
    for (const KnownKey &known : kKnownKeys) {
        std::vector<Played> played;
        for (const auto &[note, beats] : known.notes)
            played.push_back({note, 0.0, 0.1 * beats});
        const test::OpenedSound sound(melodyOf(played));
        const std::atomic<bool> canceled{false};
        const std::optional<KeyGuess::Result> guess =
            NoteReport::guessKey(*sound.music, 0.0, 0.0, canceled);
        ASSERT_TRUE(guess.has_value()) << known.key;
        const Scale scale = Scale::current();
        EXPECT_EQ(scale.keyAndMode(guess->best.tonicPitchClass, guess->best.minor).toStdString(),
                  known.key);
        EXPECT_GT(guess->confidence, 0.5) << known.key;
        EXPECT_LE(guess->confidence, 1.0) << known.key;
    }
    // Nothing played, nothing to go by.
    const test::OpenedSound silent(testsignals::silence(44100));
    const std::atomic<bool> canceled{false};
    EXPECT_FALSE(NoteReport::guessKey(*silent.music, 0.0, 0.0, canceled).has_value());
}

// Every semitone of the octave has its number in both modes, the scale's own notes 1 to 7 in
// order.
TEST(NoteReport, degreeNumbersFollowTheMode)
{
    std::vector<std::string> major;
    std::vector<std::string> minor;
    for (int semitones = 0; semitones < 12; ++semitones) {
        major.push_back(NoteReport::degreeNumber(semitones, false));
        minor.push_back(NoteReport::degreeNumber(semitones, true));
    }
    const auto plain = [](const std::vector<std::string> &numbers) {
        std::string found;
        for (const std::string &n : numbers)
            if (n.size() == 1)
                found += n;
        return found;
    };
    EXPECT_EQ(plain(major), "1234567");
    EXPECT_EQ(plain(minor), "1234567");
    EXPECT_EQ(major[4], "3");
    EXPECT_EQ(minor[3], "3");        // the minor third is the minor key's own
    EXPECT_EQ(minor[11], "\u266E7"); // the leading note, raised
    EXPECT_EQ(major[10], "\u266D7");
    EXPECT_EQ(NoteReport::degreeNumber(-1, false), major[11]);
}

} // namespace
} // namespace quorval
