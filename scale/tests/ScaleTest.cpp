#include "scale/Scale.h"

#include "options/Parameters.h"
#include "options/tests/support/OptionsTestStore.h"
#include "scale/ScalaTuning.h"

#include <QFile>
#include <QTemporaryDir>

#include <cmath>

namespace quorval {
namespace {

constexpr double kCent = 0.01;

int index(const QStringList &list, const char16_t *name)
{
    return int(list.indexOf(QString::fromUtf16(name)));
}

Scale::Settings settings(int key, bool minor, const char16_t *temperament, int level,
                         double tuningOffset = 0.0)
{
    Scale::Settings s;
    s.keyPitchClass = key;
    s.minor = minor;
    s.temperament = index(Parameters::temperamentNames(), temperament);
    s.completenessLevel = level;
    s.tuningOffset = tuningOffset;
    return s;
}

TEST(Scale, noteNumbersAndFrequenciesConvertBothWays)
{
    EXPECT_DOUBLE_EQ(Scale::noteNumber(440.0, 440.0), 69.0);
    EXPECT_NEAR(Scale::noteNumber(880.0, 440.0), 81.0, 1e-12);
    EXPECT_NEAR(Scale::frequency(57.0, 442.0), 221.0, 1e-9);
    for (double n : {-3.25, 21.0, 60.5, 108.0})
        EXPECT_NEAR(Scale::noteNumber(Scale::frequency(n, 415.0), 415.0), n, 1e-9);
}

TEST(Scale, keyNamesOfBothSpellingsNameTheSamePitchClass)
{
    const QStringList &major = Parameters::majorKeyNames();
    const QStringList &minor = Parameters::minorKeyNames();
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(Scale::keyPitchClass(major[i]), Scale::keyPitchClass(minor[i])) << i;
        // The lists run down by semitones from C.
        EXPECT_EQ(Scale::keyPitchClass(major[i]), (12 - i) % 12) << i;
        // Typed with ASCII accidentals, the names mean the same.
        QString typed = minor[i];
        typed.replace(QChar(0x266F), QLatin1Char('#')).replace(QChar(0x266D), QLatin1Char('b'));
        EXPECT_EQ(Scale::keyPitchClass(typed.toLower()), Scale::keyPitchClass(minor[i])) << i;
    }
    for (const char *unknown : {"H", "", "C$", "Bx"})
        EXPECT_EQ(Scale::keyPitchClass(QString::fromLatin1(unknown)), 9) << unknown;
}

TEST(Scale, degreesWrapAndCompletenessChoosesTheLines)
{
    const Scale inA(settings(9, false, u"Equal", 0));
    EXPECT_EQ(inA.degree(8), 11);
    EXPECT_EQ(inA.degree(-3), 0);
    EXPECT_EQ(inA.degree(-4), 11);
    EXPECT_EQ(inA.degree(69), 0);

    const int expectedShown[3] = {12, 9, 7};
    for (bool minor : {false, true}) {
        for (int level = 0; level < 3; ++level) {
            const Scale scale(settings(2, minor, u"Equal", level));
            int shown = 0;
            for (qint64 n = -12; n < 0; ++n)
                shown += scale.isShown(n) ? 1 : 0;
            EXPECT_EQ(shown, expectedShown[level]) << minor << level;
            // The most important line is always there.
            EXPECT_EQ(scale.rank(minor ? 5 : 2), 0);
        }
    }
}

TEST(Scale, deviationSearchesOnlyShownLinesAndTiesGoDown)
{
    const Scale diatonic(settings(0, false, u"Equal", 2));
    EXPECT_DOUBLE_EQ(diatonic.deviation(61.5), -0.5);
    EXPECT_DOUBLE_EQ(diatonic.deviation(61.0), 1.0);
    EXPECT_DOUBLE_EQ(diatonic.deviation(64.25), 0.25);
    EXPECT_DOUBLE_EQ(diatonic.deviation(64.75), -0.25);
    EXPECT_DOUBLE_EQ(diatonic.deviation(-10.5), -0.5); // B below C, D below that
    EXPECT_DOUBLE_EQ(diatonic.deviation(60.0), 0.0);

    const Scale chromatic(settings(0, false, u"Equal", 0));
    EXPECT_DOUBLE_EQ(chromatic.deviation(61.5), 0.5);
    EXPECT_DOUBLE_EQ(chromatic.deviation(61.0), 0.0);
}

TEST(Scale, tuningOffsetMovesEveryLineExceptInEqual)
{
    const Scale equal(settings(0, false, u"Equal", 0, 0.3));
    EXPECT_EQ(equal.gridPitch(64), 64.0);

    const auto &cents = Scale::temperamentCents();
    const int just = index(Parameters::temperamentNames(), u"Just");
    const Scale plain(settings(0, false, u"Just", 0));
    const Scale tuned(settings(0, false, u"Just", 0, 0.3));
    for (qint64 n = 55; n < 67; ++n) {
        EXPECT_NEAR(tuned.gridPitch(n) - plain.gridPitch(n), 0.3, 1e-12);
        EXPECT_NEAR(plain.gridPitch(n), double(n) + cents[just][plain.degree(n)] * kCent, 1e-12);
    }
    // E is 13.7 cents flat in just intonation; with the offset its line sits at 64.163.
    EXPECT_NEAR(tuned.gridPitch(64), 64.163, 1e-12);
    EXPECT_NEAR(tuned.deviation(64.0), -0.163, 1e-12);
    // 64.6: E's line at 64.163 is nearer than F's at 65.28.
    EXPECT_NEAR(tuned.deviation(64.6), 64.6 - 64.163, 1e-12);

    // In minor the tables are read nine degrees on: in A, C takes the tonic's entry.
    const Scale minor(settings(9, true, u"Just", 0, 0.3));
    EXPECT_NEAR(minor.gridPitch(60), 60.3, 1e-12);
    EXPECT_NEAR(minor.gridPitch(69), 69.3 - 0.156, 1e-12);
    EXPECT_EQ(minor.rank(60), 0);
    EXPECT_EQ(minor.rank(67), 1);
}

TEST(Scale, namesFollowTheKeysSpelling)
{
    const Scale aFlat(settings(8, false, u"Equal", 0));
    const Scale gSharpMinor(settings(8, true, u"Equal", 0));
    EXPECT_EQ(aFlat.noteName(68), QStringLiteral("A♭"));
    EXPECT_EQ(gSharpMinor.noteName(68), QStringLiteral("G♯"));
    EXPECT_EQ(gSharpMinor.noteName(-1), QStringLiteral("B"));
    // Every entry of row k names the pitch class k + j, double accidentals included.
    const QString letters = QStringLiteral("C D EF G A B");
    for (int key = 0; key < 12; ++key) {
        for (int j = 0; j < 12; ++j) {
            const QString name = Scale::noteNameInKey(key, j);
            const int pitchClass = int(letters.indexOf(name.front())) + int(name.count(u'\u266F')) -
                                   int(name.count(u'\u266D'));
            EXPECT_EQ((pitchClass + 12) % 12, (key + j) % 12) << key << " " << j;
        }
    }
}

TEST(Scale, gridLinesBetweenTwoPitches)
{
    const Scale cMajor(settings(0, false, u"Equal", 2));
    const std::vector<GridLine> lines = cMajor.gridLines(59.5, 72.0);
    QStringList names;
    for (const GridLine &line : lines) {
        names.append(line.name);
        EXPECT_EQ(line.pitch, cMajor.gridPitch(qint64(line.pitch)));
        EXPECT_EQ(line.rank, cMajor.rank(qint64(line.pitch)));
    }
    EXPECT_EQ(names.join(u' '), QStringLiteral("C D E F G A B C"));
    EXPECT_EQ(lines.front().rank, 0);
    EXPECT_TRUE(cMajor.gridLines(61.2, 61.8).empty());
    EXPECT_TRUE(cMajor.gridLines(70.0, 60.0).empty());

    // A line moved across the edge by its temperament and offset counts where it is drawn.
    const Scale shifted(settings(0, false, u"Just", 0, 0.45));
    std::vector<GridLine> near = shifted.gridLines(64.0, 64.5);
    ASSERT_EQ(near.size(), 1u);
    EXPECT_EQ(near.front().name, QStringLiteral("E"));
    near = shifted.gridLines(59.5, 60.4);
    EXPECT_TRUE(near.empty());
}

// A B♭ clarinet's written D sounds C: names, keys and octaves follow the written pitch, while
// lines and degrees stay where the sound is.
TEST(Scale, transposingInstrumentsReadWrittenNames)
{
    const auto transposed = [](int key, int transposition) {
        Scale::Settings s = settings(key, false, u"Equal", 0);
        s.transposition = transposition;
        return Scale(s);
    };
    const Scale clarinet = transposed(0, 2);
    EXPECT_EQ(clarinet.noteName(60), QStringLiteral("D"));
    EXPECT_EQ(clarinet.noteNameWithOctave(60), QStringLiteral("D4"));
    EXPECT_EQ(clarinet.keyName(2, false), QStringLiteral("E")); // concert D major
    EXPECT_EQ(clarinet.soundingNote(62), 60);
    EXPECT_EQ(clarinet.gridPitch(60), 60.0);
    EXPECT_EQ(clarinet.degree(60), 0);
    // In concert E♭ major the part is in F, so concert A♭ reads B♭, not A♯.
    const Scale inEFlat = transposed(3, 2);
    EXPECT_EQ(inEFlat.noteName(68), QStringLiteral("B♭"));
    EXPECT_EQ(inEFlat.keyName(3, false), QStringLiteral("F"));

    // An alto saxophone in E♭ reads concert C as A, concert E♭ major as C major.
    const Scale alto = transposed(3, 9);
    EXPECT_EQ(alto.noteNameWithOctave(60), QStringLiteral("A4"));
    EXPECT_EQ(alto.keyName(3, false), QStringLiteral("C"));
    EXPECT_EQ(alto.keyName(0, true), QStringLiteral("A")); // concert C minor
    // A guitar is written an octave above its sound; a piccolo an octave below.
    EXPECT_EQ(transposed(0, 12).noteNameWithOctave(60), QStringLiteral("C5"));
    EXPECT_EQ(transposed(0, -12).noteNameWithOctave(60), QStringLiteral("C3"));
    // The octave goes with the letter: E major's B♯ below middle C, D♭ major's C♭ above B4.
    EXPECT_EQ(transposed(4, 0).noteNameWithOctave(60), QStringLiteral("B♯3"));
    EXPECT_EQ(transposed(1, 0).noteNameWithOctave(71), QStringLiteral("C♭5"));
    EXPECT_EQ(transposed(0, 0).noteNameWithOctave(-1), QStringLiteral("B-2"));
}

using ScaleOptionsTest = StoreTest;

TEST_F(ScaleOptionsTest, transpositionAndScaleFileComeFromTheOptions)
{
    Parameters parameters;
    const std::pair<const char *, int> written[] = {{"Bb", 2},
                                                    {"E♭", 9},
                                                    {"F", 7},
                                                    {"A", 3},
                                                    {"G", 5},
                                                    {"d", -2},
                                                    {"Octave up", -12},
                                                    {"Octave down", 12},
                                                    {"Concert pitch", 0}};
    for (const auto &[text, semitones] : written) {
        ASSERT_TRUE(parameters.transposition.setFromText(QString::fromUtf8(text))) << text;
        EXPECT_EQ(Scale::currentSettings(parameters).transposition, semitones) << text;
    }
    EXPECT_FALSE(parameters.transposition.setFromText(QStringLiteral("C#")));

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("pelog.scl"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("Five notes\n5\n120.0\n270.0\n540.0\n670.0\n2/1\n");
    file.close();
    ASSERT_TRUE(parameters.key.setFromText(QStringLiteral("C")));
    ASSERT_TRUE(parameters.temperament.setFromText(Parameters::scalaTemperamentName()));
    ASSERT_TRUE(parameters.scalaFile.setFromText(path));
    const Scale::Settings read = Scale::currentSettings(parameters);
    ASSERT_NE(read.tuning, nullptr);
    EXPECT_EQ(read.tuning->size(), 5);
    EXPECT_EQ(read.temperament, 0);
    EXPECT_NEAR(Scale(read).deviation(61.25), 0.05, 1e-9); // the line at 120 cents above C
    // A file gone since it was chosen leaves equal temperament, and says why.
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_EQ(Scale::currentSettings(parameters).tuning, nullptr);
    EXPECT_EQ(Scale::currentSettings(parameters).temperament, 0);
    // A temperament is taken by name, wherever the list offered puts it.
    ASSERT_TRUE(parameters.temperament.setFromText(QStringLiteral("Salinas")));
    EXPECT_EQ(Scale::currentSettings(parameters).temperament, 3);
    QString error;
    EXPECT_EQ(Scale::tuningFromFiles(path, QString(), error), nullptr);
    EXPECT_TRUE(error.startsWith(path + QStringLiteral(": can't read"))) << error.toStdString();
}

TEST_F(ScaleOptionsTest, currentScaleReadsTheOptions)
{
    Parameters parameters;
    ASSERT_TRUE(parameters.minor.setValue(true));
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("F♯")));
    ASSERT_TRUE(parameters.temperament.setValue(QStringLiteral("Pythagorean")));
    ASSERT_TRUE(parameters.completeness.setValue(QStringLiteral("Diatonic+2")));
    ASSERT_TRUE(parameters.aFrequency.setValue(415.0));
    const Scale::Settings s = Scale::currentSettings(parameters);
    EXPECT_EQ(s.keyPitchClass, 6);
    EXPECT_TRUE(s.minor);
    EXPECT_EQ(s.temperament, 2);
    EXPECT_EQ(s.completenessLevel, 1);
    EXPECT_EQ(s.aFrequency, 415.0);
    EXPECT_DOUBLE_EQ(Scale::current(parameters).noteNumber(415.0), 69.0);
}

} // namespace
} // namespace quorval
