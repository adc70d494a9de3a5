#include "analysis/WavFileOC.h"
#include "analysis/tests/support/TestSignals.h"
#include "audio/Recorder.h"
#include "audio/tests/SoundServer.h"
#include "streams/tests/Wait.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <optional>
#include <vector>

namespace quorval {
namespace {

const QString kCli = QStringLiteral(QUORVAL_CLI_PATH);

// RMS of a 16-bit mono WAV file's samples, 0..1 of full scale; -1 when it has none.
double rmsOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1.0;
    const QByteArray data = file.readAll().mid(WavFileOC::kHeaderLength);
    const qsizetype n = data.size() / 2;
    if (n == 0)
        return -1.0;
    double sum = 0.0;
    for (qsizetype i = 0; i < n; ++i) {
        std::int16_t sample = 0;
        std::memcpy(&sample, data.constData() + 2 * i, 2);
        sum += (sample / 32768.0) * (sample / 32768.0);
    }
    return std::sqrt(sum / static_cast<double>(n));
}

// A second sink, and its monitor as an input, for as long as it lives.
class SecondDevice
{
public:
    SecondDevice()
    {
        sinkModule = load({"module-null-sink", "sink_name=second",
                           "sink_properties=device.description=SecondSink"});
        inputModule =
            load({"module-remap-source", "master=second.monitor", "source_name=second_input",
                  "source_properties=device.description=SecondInput"});
    }
    ~SecondDevice()
    {
        for (const QString &module : {inputModule, sinkModule})
            if (!module.isEmpty())
                QProcess::execute("pactl", {"unload-module", module});
    }
    SecondDevice(const SecondDevice &) = delete;
    SecondDevice &operator=(const SecondDevice &) = delete;

    [[nodiscard]] bool ok() const { return !sinkModule.isEmpty() && !inputModule.isEmpty(); }

private:
    static QString load(const QStringList &arguments)
    {
        QProcess pactl;
        pactl.start("pactl", QStringList{"load-module"} + arguments);
        if (!pactl.waitForFinished() || pactl.exitCode() != 0)
            return {};
        return QString::fromLatin1(pactl.readAllStandardOutput()).trimmed();
    }

    QString sinkModule;
    QString inputModule;
};

// quorval-cli devices answers with each of lines.
void expectDevicesListed(std::initializer_list<const char *> lines)
{
    const test::ChildResult listed = test::runChild(kCli, {"devices"});
    EXPECT_EQ(listed.exitCode, 0) << listed.errorText.toStdString();
    for (const char *line : lines)
        EXPECT_TRUE(listed.outputText.contains(QLatin1String(line)))
            << line << " in\n"
            << listed.outputText.toStdString();
}

// A loud 20 s tone played into the second sink, for as long as it lives.
class ToneIntoSecond
{
public:
    ToneIntoSecond()
    {
        player.start("paplay", {"-d", "second", QString::fromStdString(tone.path())});
    }
    ~ToneIntoSecond()
    {
        player.kill();
        player.waitForFinished();
    }
    ToneIntoSecond(const ToneIntoSecond &) = delete;
    ToneIntoSecond &operator=(const ToneIntoSecond &) = delete;

    [[nodiscard]] bool ok() { return tone.ok() && player.waitForStarted(); }

private:
    testsignals::TempWav tone{testsignals::sine(440.0, 16384.0, 20 * 44100), {}, 2};
    QProcess player;
};

// A tone played into the second sink reaches a recording from its input only; a chosen input
// that is not there gives the default input and a word about it.
TEST(SoundServer, recordsFromTheChosenInputAndFallsBackWhenItIsGone)
{
    QUORVAL_NEED_SOUND_SERVER();
    const SecondDevice second;
    ASSERT_TRUE(second.ok());

    expectDevicesListed({"* QuorvalInput", "  SecondInput", "* QuorvalSink", "  SecondSink"});

    QTemporaryDir dir;
    std::optional<ToneIntoSecond> tone(std::in_place);
    ASSERT_TRUE(tone->ok());

    const QString chosen = dir.filePath("chosen.wav");
    const test::ChildResult fromSecond =
        test::runChild(kCli, {"record", chosen, "--device", "SecondInput", "--seconds", "1"});
    EXPECT_EQ(fromSecond.exitCode, 0) << fromSecond.errorText.toStdString();
    const QString usual = dir.filePath("default.wav");
    const test::ChildResult fromDefault = test::runChild(kCli, {"record", usual, "--seconds", "1"});
    EXPECT_EQ(fromDefault.exitCode, 0) << fromDefault.errorText.toStdString();
    tone.reset();
    // A sine at half of full scale has an RMS of 0.35; the default input hears silence.
    EXPECT_GT(rmsOf(chosen), 0.1);
    EXPECT_GE(rmsOf(usual), 0.0);
    EXPECT_LT(rmsOf(usual), 0.001);

    const test::ChildResult refused =
        test::runChild(kCli, {"record", dir.filePath("x.wav"), "--device", "Nowhere"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_TRUE(refused.errorText.contains("SecondInput")) << refused.errorText.toStdString();

    const QString gone = dir.filePath("gone.wav");
    const test::ChildResult fellBack = test::runChild(
        kCli, {"--set", "Input device=Unplugged Mic", "record", gone, "--seconds", "0.5"});
    EXPECT_EQ(fellBack.exitCode, 0) << fellBack.errorText.toStdString();
    EXPECT_EQ(fellBack.errorText.count("\"Unplugged Mic\" is not connected"), 1)
        << fellBack.errorText.toStdString();
    EXPECT_GE(rmsOf(gone), 0.0);
}

// The server's default input, as the server says at the time, is the one starred and recorded
// from; when it goes away mid-take the recording stops with a word rather than carry on from
// another input.
TEST(SoundServer, followsTheServersDefaultInputAndStopsWhenItGoes)
{
    QUORVAL_NEED_SOUND_SERVER();
    std::optional<SecondDevice> second(std::in_place);
    ASSERT_TRUE(second->ok());
    // Whatever happens below, the next tests find the server's usual default.
    struct RestoreDefault
    {
        ~RestoreDefault() { QProcess::execute("pactl", {"set-default-source", "quorval_input"}); }
    } restore;
    ASSERT_EQ(QProcess::execute("pactl", {"set-default-source", "second_input"}), 0);

    expectDevicesListed({"* SecondInput", "  QuorvalInput"});

    QTemporaryDir dir;
    ToneIntoSecond tone;
    ASSERT_TRUE(tone.ok());
    const QString usual = dir.filePath("default.wav");
    const test::ChildResult fromDefault = test::runChild(kCli, {"record", usual, "--seconds", "1"});
    EXPECT_EQ(fromDefault.exitCode, 0) << fromDefault.errorText.toStdString();
    EXPECT_GT(rmsOf(usual), 0.1);

    const QString cut = dir.filePath("cut.wav");
    QProcess recording;
    recording.start(kCli, {"record", cut});
    ASSERT_TRUE(recording.waitForStarted());
    ASSERT_TRUE(test::waitUntil([&] { return QFileInfo(cut).size() > 44100; }, 20000));
    second.reset();
    ASSERT_TRUE(recording.waitForFinished(20000));
    const QString said = QString::fromLocal8Bit(recording.readAllStandardError());
    EXPECT_EQ(recording.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(recording.exitCode(), 1) << said.toStdString();
    EXPECT_TRUE(said.contains(Recorder::inputGoneMessage("SecondInput"))) << said.toStdString();
    EXPECT_GT(rmsOf(cut), 0.1);
}

} // namespace
} // namespace quorval
