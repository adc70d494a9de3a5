#include "analysis/tests/support/EndedProcess.h"
#include "analysis/tests/support/TestSignals.h"
#include "cli/Tool.h"
#include "streams/tests/Tones.h"

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quorval {
namespace {

using test::toneAt;
using testsignals::noteToHz;

constexpr double kRate = testsignals::kSampleRate;

struct Outcome
{
    int status = -1; // exit status; -1 when the tool did not exit normally (a crash)
    QString out;
    QString err;
};

// Runs the built tool (or program) in its own temporary folder, with the user's configuration
// folder there.
class QuorvalCli : public ::testing::Test
{
protected:
    Outcome run(const QStringList &arguments,
                const QString &program = QStringLiteral(QUORVAL_CLI_PATH))
    {
        QString command =
            QStringLiteral("cd %1 && XDG_CONFIG_HOME=%2 TMPDIR=%3 %4")
                .arg(quoted(dir.path()), quoted(configHome), quoted(temporary()), quoted(program));
        for (const QString &argument : arguments)
            command += " " + quoted(argument);
        command += " >" + quoted(dir.filePath("out")) + " 2>" + quoted(dir.filePath("err"));
        const int raw = std::system(command.toLocal8Bit().constData());
        Outcome result;
        result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        result.out = QString::fromUtf8(contents("out"));
        result.err = QString::fromUtf8(contents("err"));
        return result;
    }

    QString writeFile(const QString &name, const QByteArray &bytes) const
    {
        QFile file(dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return file.fileName();
    }

    QByteArray contents(const QString &name) const
    {
        QFile file(dir.filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // A mono 16-bit WAV file in the test's folder.
    QString wavOf(const QString &name, const std::vector<double> &samples)
    {
        testsignals::TempWav made(samples, {}, 2);
        EXPECT_TRUE(made.ok());
        const QString path = dir.filePath(name);
        EXPECT_TRUE(QFile::copy(QString::fromStdString(made.path()), path));
        return path;
    }

    // The tool's temporary folder.
    QString temporary() const
    {
        QDir(dir.path()).mkpath("tmp");
        return dir.filePath("tmp");
    }

    // What the tool left in its temporary folder.
    QStringList leftInTemporary() const
    {
        return QDir(temporary()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    }

    static QString quoted(const QString &text)
    {
        QString escaped = text;
        escaped.replace("'", "'\\''");
        return "'" + escaped + "'";
    }

    QTemporaryDir dir;
    QString configHome = dir.filePath("config");
};

std::vector<double> melody(const std::vector<double> &notes, double secondsEach)
{
    std::vector<double> samples;
    for (double note : notes)
        samples = test::joined(std::move(samples), toneAt(note, secondsEach));
    return samples;
}

QStringList linesOf(const QString &text)
{
    return text.split('\n', Qt::SkipEmptyParts);
}

TEST_F(QuorvalCli, pitchesAreTheSameOnAnyNumberOfThreads)
{
    // 60 in tune, 64 thirty cents sharp, 67 twenty cents flat, one second each.
    const QString file = wavOf("melody.wav", melody({60.0, 64.3, 66.8}, 1.0));
    const Outcome one = run({"pitches", file, "--jobs", "1"});
    const Outcome three = run({"--jobs", "3", "pitches", file});
    ASSERT_EQ(one.status, 0) << one.err.toStdString();
    ASSERT_EQ(three.status, 0) << three.err.toStdString();
    EXPECT_EQ(one.out, three.out);
    EXPECT_TRUE(one.err.isEmpty()) << "no progress lines when stderr is no terminal";

    // A segment of 1024 frames starting every 512, the last ones running past the end.
    const QStringList lines = linesOf(one.out);
    ASSERT_EQ(lines.size(), 3 * static_cast<int>(kRate) / 512);
    const struct
    {
        double seconds, note, cents;
    } expected[] = {{0.5, 60.0, 0.0}, {1.5, 64.3, 30.0}, {2.5, 66.8, -20.0}};
    for (const auto &probe : expected) {
        const QStringList fields = lines[static_cast<int>(probe.seconds * kRate / 512)].split(' ');
        ASSERT_EQ(fields.size(), 6);
        EXPECT_NEAR(fields[1].toDouble(), probe.seconds, 0.02);
        EXPECT_NEAR(fields[2].toDouble(), probe.note, 0.02);
        EXPECT_GT(fields[3].toDouble(), 0.0);
        EXPECT_NEAR(fields[4].toDouble(), noteToHz(probe.note), noteToHz(probe.note) * 0.002);
        EXPECT_NEAR(fields[5].toDouble(), probe.cents, 2.0);
    }
}

// The demo is the first sound a user sees: no segment drawn bright lies an octave or a twelfth
// away from the notes the violin plays, even where a slur holds two notes at once.
TEST_F(QuorvalCli, theDemoDrawsNoBrightSegmentFarFromItsNotes)
{
    const Outcome pitches = run({"pitches", QStringLiteral(QUORVAL_DEMO_WAV)});
    ASSERT_EQ(pitches.status, 0) << pitches.err.toStdString();
    const double played[] = {62.0, 64.0, 66.25, 67.0, 69.0, 71.15, 72.8, 73.0, 74.0, 68.7};
    int bright = 0;
    for (const QString &line : linesOf(pitches.out)) {
        const QStringList fields = line.split(' ');
        ASSERT_EQ(fields.size(), 6);
        const double note = fields[2].toDouble();
        if (!(note > 0.0) || fields[3].toDouble() < 100.0)
            continue;
        bright++;
        double nearest = 1e9;
        for (const double p : played)
            nearest = std::min(nearest, std::abs(note - p));
        EXPECT_LT(nearest, 1.5) << line.toStdString();
    }
    EXPECT_GT(bright, 900);
}

TEST_F(QuorvalCli, pitchTablesAgreeInEveryFormat)
{
    const QString file = wavOf("melody.wav", melody({60.0, 64.3}, 1.0));
    const Outcome text = run({"pitches", file});
    ASSERT_EQ(text.status, 0) << text.err.toStdString();
    const QStringList lines = linesOf(text.out);
    ASSERT_GT(lines.size(), 100);

    const Outcome csv = run({"pitches", file, "--csv"});
    ASSERT_EQ(csv.status, 0);
    const QStringList csvLines = linesOf(csv.out);
    ASSERT_EQ(csvLines.size(), lines.size() + 1);
    EXPECT_EQ(csvLines[0], "index,time_s,pitch,goodness,frequency_hz,deviation_cents");
    EXPECT_EQ(csvLines[100], QString(lines[99]).replace(' ', ','));

    const Outcome json = run({"pitches", file, "--json"});
    ASSERT_EQ(json.status, 0);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json.out.toUtf8(), &parseError);
    ASSERT_EQ(parseError.error, QJsonParseError::NoError) << parseError.errorString().toStdString();
    const QJsonArray segments = document.object().value("segments").toArray();
    ASSERT_EQ(segments.size(), lines.size());
    const QStringList fields = lines[99].split(' ');
    const QJsonObject segment = segments[99].toObject();
    EXPECT_EQ(segment.value("index").toInt(), fields[0].toInt());
    EXPECT_NEAR(segment.value("pitch").toDouble(), fields[2].toDouble(), 1e-6);
    EXPECT_NEAR(segment.value("deviation_cents").toDouble(), fields[5].toDouble(), 1e-6);
}

TEST_F(QuorvalCli, showsProgressOnATerminal)
{
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no script(1) to give the tool a terminal";
    const QString file = wavOf("long.wav", toneAt(69.0, 20.0));
    // script(1) runs the tool on a pseudo-terminal and copies what it shows into "out".
    const Outcome shown = run({"-qec",
                               QStringLiteral("%1 pitches %2 >/dev/null")
                                   .arg(quoted(QStringLiteral(QUORVAL_CLI_PATH)), quoted(file)),
                               "/dev/null"},
                              QStringLiteral("script"));
    ASSERT_EQ(shown.status, 0) << shown.err.toStdString();
    EXPECT_TRUE(shown.out.contains("Analysing")) << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains("100%")) << shown.out.toStdString();
}

TEST_F(QuorvalCli, reportsTheNotesPlayedAndTheirDegrees)
{
    // In C: E 20 cents flat, G in tune, then E again 10 cents sharp.
    const QString file = wavOf("notes.wav", melody({63.8, 67.0, 64.1}, 0.6));
    const Outcome json = run({"--set", "Key=C", "notes", file, "--json"});
    ASSERT_EQ(json.status, 0) << json.err.toStdString();
    const QJsonObject report = QJsonDocument::fromJson(json.out.toUtf8()).object();
    const QJsonArray notes = report.value("notes").toArray();
    ASSERT_EQ(notes.size(), 3);
    const double expectedCents[] = {-20.0, 0.0, 10.0};
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(notes[k].toObject().value("cents").toDouble(), expectedCents[k], 1.0);
    EXPECT_EQ(notes[1].toObject().value("note").toString(), "G");
    const QJsonArray degrees = report.value("degrees").toArray();
    ASSERT_EQ(degrees.size(), 2);
    EXPECT_EQ(degrees[0].toObject().value("degree").toInt(), 4);
    EXPECT_EQ(degrees[0].toObject().value("notes").toInt(), 2);
    EXPECT_NEAR(degrees[0].toObject().value("worst_note_start_s").toDouble(), 0.0, 0.05);

    const Outcome text = run({"--set", "Key=C", "notes", file, "--from", "0.7"});
    ASSERT_EQ(text.status, 0);
    EXPECT_TRUE(text.out.contains("Scale degrees"));
    const QRegularExpressionMatch sharpE =
        QRegularExpression(R"(\bE\s+64\s+([+-]\d+\.\d))").match(text.out);
    ASSERT_TRUE(sharpE.hasMatch()) << text.out.toStdString();
    EXPECT_NEAR(sharpE.captured(1).toDouble(), 10.0, 1.0);
    EXPECT_FALSE(text.out.contains("-20.0")) << "the first note lies before the stretch";
}

// A B♭ clarinettist reads the notes on the part: every command that names notes or keys names
// them in written pitch, and the tone's note is the written one. The analysis stays the same.
TEST_F(QuorvalCli, guessesTheKeyAndNamesNotesInWrittenPitch)
{
    const QString demo = QStringLiteral(QUORVAL_DEMO_WAV);
    const Outcome concert = run({"key", demo});
    ASSERT_EQ(concert.status, 0) << concert.err.toStdString();
    EXPECT_TRUE(concert.out.startsWith("D major, confidence ")) << concert.out.toStdString();
    const QRegularExpressionMatch confidence =
        QRegularExpression(R"(confidence (\d\.\d\d))").match(concert.out);
    ASSERT_TRUE(confidence.hasMatch());
    EXPECT_GT(confidence.captured(1).toDouble(), 0.5);
    EXPECT_LE(confidence.captured(1).toDouble(), 1.0);
    for (const char *clarinet : {"Transposition=Bb", "Transposition=B\u266D"}) {
        const Outcome written = run({"--set", clarinet, "key", demo});
        EXPECT_TRUE(written.out.startsWith("E major, ")) << written.out.toStdString();
    }

    // Concert C, E, G: the clarinet's D, F♯, A.
    const QString file = wavOf("c.wav", melody({60.0, 64.0, 67.0}, 0.6));
    const Outcome notes =
        run({"--set", "Key=C", "--set", "Transposition=Bb", "notes", file, "--json"});
    ASSERT_EQ(notes.status, 0) << notes.err.toStdString();
    const QJsonArray played =
        QJsonDocument::fromJson(notes.out.toUtf8()).object().value("notes").toArray();
    ASSERT_EQ(played.size(), 3);
    const char *expectedNames[] = {"D", "F\u266F", "A"};
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(played[k].toObject().value("note").toString(),
                  QString::fromUtf8(expectedNames[k]));
    const Outcome table = run({"--set", "Key=C", "--set", "Transposition=Bb", "notes", file});
    EXPECT_TRUE(table.out.contains(QString::fromUtf8("  1 D "))) << table.out.toStdString();

    // Written D4 sounds middle C, 261.626 Hz; said before the tone plays or the output fails.
    const Outcome tone =
        run({"--set", "Transposition=Bb", "--set", "Key=C", "tone", "D4", "--seconds", "0.05"});
    EXPECT_TRUE(tone.err.contains("D4 (sounding note 60): 261.626 Hz")) << tone.err.toStdString();

    const QString silent = wavOf("silent.wav", testsignals::silence(44100));
    const Outcome nothing = run({"key", silent});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_TRUE(nothing.err.contains("no notes to guess a key from")) << nothing.err.toStdString();
}

// A sound's own key comes from the options file beside it, named like it; --set still has the
// last word, an options file given instead takes its place, and a broken one is named while the
// command goes on.
TEST_F(QuorvalCli, takesTheKeyFromTheOptionsFileBesideTheSound)
{
    const auto plist = [](const char *key) {
        return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">"
                          "<dict><key>Key</key><string>") +
               key + "</string></dict></plist>\n";
    };
    const QString file = wavOf("ceg.wav", melody({60.0, 64.0, 67.0}, 0.6));
    const auto tonic = [this, &file](QStringList arguments) {
        arguments << "notes" << file;
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.err.toStdString();
        for (const char *name : {"C", "E", "G"})
            if (outcome.out.contains(QStringLiteral("  1 %1 ").arg(QLatin1String(name))))
                return QString::fromLatin1(name);
        return QString();
    };
    EXPECT_EQ(tonic({}), QString()); // A major, the factory key
    writeFile("ceg.plist", plist("C"));
    EXPECT_EQ(tonic({}), "C");
    EXPECT_EQ(tonic({"--set", "Key=G"}), "G");
    writeFile("other.plist", plist("E"));
    EXPECT_EQ(tonic({"--options", "other.plist"}), "E");

    writeFile("ceg.plist", "Key = C\n");
    const Outcome broken = run({"notes", file});
    EXPECT_EQ(broken.status, 0);
    EXPECT_TRUE(broken.err.contains("Can't take the key from") && broken.err.contains("ceg.plist"))
        << broken.err.toStdString();
    EXPECT_TRUE(broken.out.contains("Scale degrees"));
    EXPECT_FALSE(broken.out.contains("  1 C "));
}

TEST_F(QuorvalCli, tunesToScaleFilesAndSaysWhereOneIsBroken)
{
    // The just major scale on C: E at 386.3 cents, 13.7 below equal temperament's; G at 702.0.
    const QString just = writeFile("just.scl", "! just.scl\nJust major\n 7\n 9/8\n 5/4\n 4/3\n"
                                               " 3/2\n 5/3\n 15/8\n 2/1\n");
    const QString file = wavOf("ceg.wav", melody({60.0, 64.0, 67.0}, 0.6));
    const Outcome tuned = run({"--set", "Key=C", "--scala", "just.scl", "notes", file, "--json"});
    ASSERT_EQ(tuned.status, 0) << tuned.err.toStdString();
    const QJsonArray notes =
        QJsonDocument::fromJson(tuned.out.toUtf8()).object().value("notes").toArray();
    ASSERT_EQ(notes.size(), 3);
    const double expectedCents[] = {0.0, 13.7, -2.0};
    const char *expectedNames[] = {"C", "E-14", "G+2"};
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(notes[k].toObject().value("cents").toDouble(), expectedCents[k], 1.0) << k;
        EXPECT_EQ(notes[k].toObject().value("note").toString(), expectedNames[k]);
    }
    // A mapping that tunes A to 432 Hz lowers every line by 31.8 cents.
    writeFile("432.kbm", "! 432.kbm\n0\n0\n127\n60\n69\n432.0\n12\n");
    writeFile("12.scl", "12-tet\n12\n100.\n200.\n300.\n400.\n500.\n600.\n700.\n800.\n900.\n"
                        "1000.\n1100.\n2/1\n");
    const QString a440 = wavOf("a.wav", melody({69.0}, 0.6));
    const Outcome mapped = run({"--scala", "12.scl", "--kbm", "432.kbm", "notes", a440, "--json"});
    ASSERT_EQ(mapped.status, 0) << mapped.err.toStdString();
    const QJsonArray a =
        QJsonDocument::fromJson(mapped.out.toUtf8()).object().value("notes").toArray();
    ASSERT_EQ(a.size(), 1);
    EXPECT_NEAR(a[0].toObject().value("cents").toDouble(), 31.8, 1.0);

    writeFile("bad.scl", "Broken\n 2\n 9/x\n 2/1\n");
    const Outcome bad = run({"--scala", "bad.scl", "notes", file});
    EXPECT_EQ(bad.status, 1);
    EXPECT_TRUE(bad.err.contains("bad.scl: line 3: \"9/x\" is no ratio")) << bad.err.toStdString();
    EXPECT_TRUE(bad.out.isEmpty());
    const Outcome lonely = run({"--kbm", "432.kbm", "notes", file});
    EXPECT_EQ(lonely.status, 2);
    EXPECT_TRUE(lonely.err.contains("--kbm maps the keys of a scale")) << lonely.err.toStdString();
}

TEST_F(QuorvalCli, reportsDeviationsOfTheStretchAskedFor)
{
    const QString file = wavOf("two.wav", melody({69.1, 68.8}, 1.0));
    const Outcome sharp = run({"deviations", file, "--from", "0.1", "--to", "0.9"});
    ASSERT_EQ(sharp.status, 0) << sharp.err.toStdString();
    const QStringList lines = linesOf(sharp.out);
    ASSERT_EQ(lines.size(), 2);
    ASSERT_TRUE(lines[0].startsWith("Pitch = +0.1"));
    EXPECT_NEAR(lines[0].mid(8).toDouble(), 0.1, 0.003);
    EXPECT_TRUE(lines[1].startsWith(QString::fromUtf8("Deviation =  \u00b10.1")));

    const Outcome flat = run({"deviations", file, "--from", "1.1", "--to", "1.9", "--developer"});
    ASSERT_EQ(flat.status, 0);
    const QStringList flatLines = linesOf(flat.out);
    ASSERT_EQ(flatLines.size(), 4);
    EXPECT_NEAR(flatLines[0].mid(8).toDouble(), -0.2, 0.003);
    EXPECT_TRUE(flatLines[2].startsWith("Volume = 0."));
    EXPECT_TRUE(flatLines[3].startsWith("Coverage = "));

    // Stretches that are no part of the sound are refused with the sound's length, by every
    // command that takes one, before any sound is played.
    const QString length = QString::number(2.0, 'f', 3) + " s";
    for (const QString command : {"deviations", "play"}) {
        for (const QStringList &stretch :
             {QStringList{"--from", "1.5", "--to", "0.5"}, QStringList{"--from", "1", "--to", "1"},
              QStringList{"--from", "2.5"}, QStringList{"--from", "0.5", "--to", "7"}}) {
            const Outcome refused = run(QStringList{command, file} + stretch);
            EXPECT_EQ(refused.status, 2)
                << command.toStdString() << " " << stretch.join(' ').toStdString();
            EXPECT_TRUE(refused.err.contains(length)) << refused.err.toStdString();
            EXPECT_TRUE(refused.out.isEmpty());
        }
    }
}

// However many seconds are asked for, a recording keeps within its ring: never more frames
// than it holds, never a negative count.
TEST(RecordingLength, anyNumberOfSecondsGivesFramesTheRingHolds)
{
    constexpr std::int64_t kRing = 60 * 44100;
    EXPECT_EQ(Tool::framesToRecord(0.5, 44100.0, kRing), 22050);
    EXPECT_EQ(Tool::framesToRecord(std::nullopt, 44100.0, kRing), kRing);
    for (const double seconds : {65.0, 1e15, 1e300, std::numeric_limits<double>::max()})
        EXPECT_EQ(Tool::framesToRecord(seconds, 44100.0, kRing), kRing) << seconds;
    for (const double seconds : {1e-300, 0.0})
        EXPECT_EQ(Tool::framesToRecord(seconds, 44100.0, kRing), 0) << seconds;
}

TEST_F(QuorvalCli, takesOptionsFromTheCommandLineAndFilesWithoutTouchingTheUsersStore)
{
    const Outcome written = run({"--set", "A Frequency=442", "options", "--write", "opts.plist"});
    ASSERT_EQ(written.status, 0) << written.err.toStdString();
    EXPECT_TRUE(contents("opts.plist").contains("<string>442"));

    // An A of 440 Hz measured against A = 442 Hz is 7.85 cents flat.
    const QString file = wavOf("a.wav", toneAt(69.0, 1.0));
    const Outcome flat = run({"--options", dir.filePath("opts.plist"), "--json", "pitches", file});
    ASSERT_EQ(flat.status, 0) << flat.err.toStdString();
    const QJsonArray segments =
        QJsonDocument::fromJson(flat.out.toUtf8()).object().value("segments").toArray();
    ASSERT_GT(segments.size(), 40);
    EXPECT_NEAR(segments[40].toObject().value("deviation_cents").toDouble(), -7.85, 1.0);

    for (const QStringList &refused : {QStringList{"--set", "A Frequency=5", "info", file},
                                       QStringList{"--set", "No Such Option=1", "info", file},
                                       QStringList{"--set", "A Frequency", "info", file}}) {
        const Outcome outcome = run(refused);
        EXPECT_EQ(outcome.status, 2) << refused.join(' ').toStdString();
        EXPECT_EQ(linesOf(outcome.err).size(), 1) << outcome.err.toStdString();
        EXPECT_TRUE(outcome.out.isEmpty());
    }
    const Outcome missingOptions = run({"--options", dir.filePath("none.plist"), "info", file});
    EXPECT_EQ(missingOptions.status, 2);
    EXPECT_TRUE(missingOptions.err.contains("Can't import options: no such file"));

    // Nothing so far reached the user's store; --use-settings reads and writes it.
    EXPECT_FALSE(QDir(dir.filePath("config")).exists());
    ASSERT_EQ(run({"--use-settings", "--set", "A Frequency=445", "info", file}).status, 0);
    ASSERT_EQ(run({"--use-settings", "options", "--write", "kept.plist"}).status, 0);
    EXPECT_TRUE(contents("kept.plist").contains("<string>445"));
    ASSERT_EQ(run({"options", "--write", "fresh.plist"}).status, 0);
    EXPECT_TRUE(contents("fresh.plist").contains("<string>440"));
}

TEST_F(QuorvalCli, refusalsSayWhatAnOptionTakes)
{
    const Outcome range = run({"--set", "A Frequency=5", "options", "--write", "o.plist"});
    EXPECT_TRUE(range.err.contains("400") && range.err.contains("499")) << range.err.toStdString();
    const Outcome choice = run({"--set", "Key=H", "options", "--write", "o.plist"});
    EXPECT_TRUE(choice.err.contains(QString::fromUtf8("B\u266D, A"))) << choice.err.toStdString();
    const Outcome longValue =
        run({"--set", "Key=" + QString(5000, 'x'), "options", "--write", "o.plist"});
    EXPECT_EQ(longValue.status, 2);
    EXPECT_LT(longValue.err.size(), 400);

    // ASCII accidentals name the key; C sharp is D flat in the major spelling.
    ASSERT_EQ(run({"--set", "Key=C#", "options", "--write", "sharp.plist"}).status, 0);
    ASSERT_EQ(
        run({"--set", QString::fromUtf8("Key=D\u266D"), "options", "--write", "flat.plist"}).status,
        0);
    EXPECT_EQ(contents("sharp.plist"), contents("flat.plist"));

    // A file's refused entries are named, each with its value; the rest is imported.
    writeFile("mixed.plist", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                             "<key>A Frequency</key><string>abc</string>"
                             "<key>Key</key><string>Zzz</string>"
                             "<key>Response</key><string>5</string>"
                             "</dict></plist>");
    const Outcome mixed =
        run({"--options", dir.filePath("mixed.plist"), "options", "--write", "mixed-out.plist"});
    EXPECT_EQ(mixed.status, 0) << mixed.err.toStdString();
    EXPECT_TRUE(mixed.err.contains("\"A Frequency\" refused the value \"abc\""));
    EXPECT_TRUE(mixed.err.contains("\"Key\" refused the value \"Zzz\""));
    EXPECT_TRUE(contents("mixed-out.plist").contains("<string>5.0000</string>"));

    // A write failure is told once.
    const Outcome unwritable = run({"options", "--write", dir.filePath("no/such/o.plist")});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(linesOf(unwritable.err).size(), 1) << unwritable.err.toStdString();
}

TEST_F(QuorvalCli, answersVersionAndHelpWithoutAFile)
{
    const Outcome version = run({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^quorval-cli \\d+\\.\\d+\\.\\d+\n$"))
                    .match(version.out)
                    .hasMatch())
        << version.out.toStdString();
    EXPECT_TRUE(version.err.isEmpty());
    const Outcome help = run({"pitches", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.contains("--version"));
}

TEST_F(QuorvalCli, saysWhenTheUsersSettingsCannotBeSaved)
{
    // Below a regular file nothing can be made, whoever runs the test.
    writeFile("blocker", "x");
    configHome = dir.filePath("blocker/config");
    const Outcome set =
        run({"--use-settings", "--set", "A Frequency=445", "options", "--write", "o.plist"});
    EXPECT_NE(set.status, 0);
    EXPECT_TRUE(set.err.contains("cannot be saved")) << set.err.toStdString();
    // Reading alone needs no writable store.
    EXPECT_EQ(run({"--use-settings", "options", "--write", "o.plist"}).status, 0);
}

TEST_F(QuorvalCli, explainsFilesItCannotReadAndNeverCrashes)
{
    const QString good = wavOf("good.wav", toneAt(69.0, 1.0));
    // Half a second of the second's worth that the header promises.
    const QString truncated =
        writeFile("truncated.wav", contents("good.wav").left(44 + static_cast<int>(kRate)));
    writeFile("empty.wav", {});
    writeFile("garbage.wav", QByteArray(5000, 'x'));
    ASSERT_TRUE(QDir(dir.path()).mkdir("folder.wav"));

    const std::pair<const char *, const char *> unreadable[] = {{"missing.wav", "no such file"},
                                                                {"folder.wav", "folder"},
                                                                {"empty.wav", "empty"},
                                                                {"garbage.wav", "not a sound"}};
    for (const auto &[name, why] : unreadable) {
        for (const char *command : {"pitches", "info"}) {
            const Outcome bad = run({command, dir.filePath(name)});
            EXPECT_EQ(bad.status, 1) << command << " " << name;
            EXPECT_TRUE(bad.err.contains("Can't read sound file: ") && bad.err.contains(why))
                << bad.err.toStdString();
            EXPECT_EQ(linesOf(bad.err).size(), 1);
            EXPECT_TRUE(bad.out.isEmpty());
        }
    }
    // A file cut short is read as far as it goes, with a word about it.
    const Outcome cut = run({"pitches", truncated});
    EXPECT_EQ(cut.status, 0) << cut.err.toStdString();
    EXPECT_TRUE(cut.err.contains("ends before")) << cut.err.toStdString();
    EXPECT_EQ(linesOf(cut.out).size(), static_cast<int>(kRate) / 2 / 512);

    const Outcome info = run({"info", good});
    ASSERT_EQ(info.status, 0);
    EXPECT_TRUE(info.err.isEmpty());
    EXPECT_TRUE(info.out.startsWith("Number of channels 1\nBytes per sample 2\nFrame rate 44100"));

    EXPECT_EQ(run({"pitches"}).status, 2);
    EXPECT_EQ(run({"transcribe", good}).status, 2);
    EXPECT_EQ(run({"--jobs", "0", "pitches", good}).status, 2);
    // The audio commands' options are refused elsewhere and out of range.
    EXPECT_EQ(run({"record", good, "--seconds", "0"}).status, 2);
    EXPECT_EQ(run({"play", good, "--seconds", "1"}).status, 2);
    EXPECT_EQ(run({"--loop", "pitches", good}).status, 2);
}

TEST_F(QuorvalCli, rendersTheTraceAtAnyScaleAndRefusesStretchesOutsideTheSound)
{
    const QString file = wavOf("tone.wav", toneAt(69.0, 2.0));
    const QString png = dir.filePath("trace.png");
    const QString sharp = dir.filePath("trace2x.png");
    // Outside a desktop session (a console, a build) there is no runtime folder: the run is
    // quiet about it and leaves nothing behind.
    const Outcome one = run({"-u", "XDG_RUNTIME_DIR", QUORVAL_CLI_PATH, "render", file, "-o", png,
                             "--view", "pitch", "--width", "200", "--height", "100"},
                            "env");
    ASSERT_EQ(one.status, 0) << one.err.toStdString();
    EXPECT_EQ(one.err.toStdString(), "");
    EXPECT_EQ(leftInTemporary().join(' ').toStdString(), "");
    const Outcome two = run({"render", file, "--output", sharp, "--view", "pitch", "--width", "200",
                             "--height", "100", "--scale", "2", "--from", "0.5", "--to", "1.5"});
    ASSERT_EQ(two.status, 0) << two.err.toStdString();
    const QImage image(png);
    const QImage image2x(sharp);
    // The trace area and the keyboard and ruler around it, twice as many pixels at scale 2.
    EXPECT_GT(image.width(), 200);
    EXPECT_GT(image.height(), 100);
    EXPECT_EQ(image2x.size(), image.size() * 2);

    const Outcome svg = run({"render", file, "-o", dir.filePath("trace.svg"), "--view", "spectrum",
                             "--width", "300", "--height", "200"});
    ASSERT_EQ(svg.status, 0) << svg.err.toStdString();
    EXPECT_TRUE(contents("trace.svg").contains("<svg"));

    const Outcome outside = run({"render", file, "-o", png, "--from", "1", "--to", "3"});
    EXPECT_EQ(outside.status, 2);
    EXPECT_TRUE(outside.err.contains("outside the sound")) << outside.err.toStdString();
    EXPECT_EQ(run({"render", file}).status, 2);
    EXPECT_EQ(run({"render", file, "-o", png, "--view", "xylophone"}).status, 2);
    EXPECT_EQ(run({"render", file, "-o", png, "--scale", "0"}).status, 2);
    EXPECT_EQ(run({"render", dir.filePath("missing.wav"), "-o", png}).status, 1);
    EXPECT_EQ(run({"render", file, "-o", dir.filePath("no/such/folder/x.png")}).status, 1);
}

TEST_F(QuorvalCli, renderNeverWritesTheUsersOptionsAndDrawsAsWithoutThem)
{
    const QString file = wavOf("tone.wav", toneAt(57.0, 1.0));
    const QStringList render = {"render", file,       "--view", "spectrum", "--width",
                                "200",    "--height", "100",    "-o"};
    const QString bare = dir.filePath("bare.png");
    ASSERT_EQ(run(render + QStringList{bare}).status, 0);

    // The user's own store, holding another view.
    ASSERT_EQ(run({"--use-settings", "--set", "View type=Pitch", "info", file}).status, 0);
    struct Kept
    {
        QString path;
        QByteArray bytes;
        QDateTime modified;
    };
    std::vector<Kept> store;
    for (QDirIterator it(configHome, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        QFile stored(it.next());
        ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
        store.push_back({stored.fileName(), stored.readAll(), QFileInfo(stored).lastModified()});
    }
    ASSERT_FALSE(store.empty());
    ASSERT_TRUE(store.front().bytes.contains("Pitch"));

    // Read for the rest of the options, the store is left as it was, and the picture is the
    // one drawn without it.
    const QString withStore = dir.filePath("store.png");
    const Outcome used = run(QStringList{"--use-settings"} + render + QStringList{withStore});
    ASSERT_EQ(used.status, 0) << used.err.toStdString();
    for (const Kept &kept : store) {
        QFile stored(kept.path);
        ASSERT_TRUE(stored.open(QIODevice::ReadOnly)) << kept.path.toStdString();
        EXPECT_EQ(stored.readAll(), kept.bytes) << kept.path.toStdString();
        EXPECT_EQ(QFileInfo(stored).lastModified(), kept.modified) << kept.path.toStdString();
    }
    EXPECT_EQ(QImage(withStore), QImage(bare));
}

TEST_F(QuorvalCli, leavesNoWorkingFilesWhenStoppedOrCutOff)
{
    const QString sound = wavOf("long.wav", melody({60.0, 64.0, 67.0, 72.0}, 15.0));
    // A reader that stops after one line.
    const Outcome cut =
        run({"-c", quoted(QUORVAL_CLI_PATH) + " pitches " + quoted(sound) + " | head -n 1"},
            QStringLiteral("/bin/sh"));
    EXPECT_EQ(linesOf(cut.out).size(), 1);
    EXPECT_TRUE(cut.err.isEmpty()) << cut.err.toStdString();
    EXPECT_TRUE(leftInTemporary().isEmpty()) << leftInTemporary().join(' ').toStdString();

    // Stopped by a signal while it works: once its working copy exists.
    for (const int signal : {SIGTERM, SIGINT}) {
        const QString command = QStringLiteral("cd %1 && TMPDIR=%2 exec %3 --jobs 1 pitches %4 "
                                               ">/dev/null 2>&1")
                                    .arg(quoted(dir.path()), quoted(temporary()),
                                         quoted(QUORVAL_CLI_PATH), quoted(sound));
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::execl("/bin/sh", "sh", "-c", command.toLocal8Bit().constData(), nullptr);
            ::_exit(127);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (leftInTemporary().filter("quorval-copy-").isEmpty() &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        ::kill(child, signal);
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_TRUE(leftInTemporary().isEmpty()) << leftInTemporary().join(' ').toStdString();
    }

    // What a run killed outright left is removed by the next, but never a recording.
    const QString stale = QStringLiteral("quorval-copy-%1-0b5c3f1e-8d2a-4c6b-9e7f-1a2b3c4d5e6f.wav")
                              .arg(testsignals::endedProcess());
    const QString recording =
        QStringLiteral("quorval-recording-%1-0b5c3f1e-8d2a-4c6b-9e7f-1a2b3c4d5e6f.wav")
            .arg(testsignals::endedProcess());
    writeFile("tmp/" + stale, "RIFF");
    writeFile("tmp/" + recording, "RIFF");
    EXPECT_EQ(run({"info", sound}).status, 0);
    EXPECT_EQ(leftInTemporary(), QStringList{recording});
}

} // namespace
} // namespace quorval
