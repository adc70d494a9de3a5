#include "options/OptionsFile.h"

#include "options/Messages.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "options/PropertyList.h"
#include "options/tests/support/OptionsTestStore.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorval {
namespace {

// Collects the messages shown during a test instead of printing them.
class OptionsFileTest : public StoreTest
{
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        ASSERT_TRUE(dir.isValid());
        previous =
            setMessageHandler([this](const QString &title, const QString &text, const QString &) {
                messages.append(title + QStringLiteral(" | ") + text);
            });
    }
    void TearDown() override { setMessageHandler(previous); }

    QString path(const QString &name) const { return dir.filePath(name); }

    void writeFile(const QString &name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    QTemporaryDir dir;
    QStringList messages;
    MessageHandler previous;
};

TEST_F(OptionsFileTest, writtenFileReadsBackUnchangedWithoutFollowUps)
{
    Parameters parameters;
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("E\u266D")));
    ASSERT_TRUE(parameters.temperament.setValue(QStringLiteral("Just")));
    ASSERT_TRUE(parameters.lowestNote.setValue(40.25));
    ASSERT_TRUE(parameters.numberOfInclusivePeaks.setValue(3));
    ASSERT_TRUE(parameters.automaticGainControl.setValue(false));
    ASSERT_TRUE(parameters.lastversion.setValue(QStringLiteral("9.9")));
    const QMap<QString, QString> written = parameters.exportOptions();
    ASSERT_TRUE(OptionsFile::writeOptions(parameters, path(QStringLiteral("options.plist"))));

    resetFollowUpCounts();
    ASSERT_TRUE(OptionsFile::readOptions(parameters, path(QStringLiteral("options.plist"))));
    EXPECT_EQ(followUpCounts(), FollowUpCounts{});
    EXPECT_EQ(parameters.exportOptions(), written);

    // After changes, reading restores every written value, the defaults' extra digits aside.
    ASSERT_TRUE(parameters.highestNote.setValue(100.0));
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("C")));
    clearTestStore();
    ASSERT_TRUE(OptionsFile::readOptions(parameters, path(QStringLiteral("options.plist"))));
    EXPECT_EQ(parameters.exportOptions(), written);
    // The hidden page is not part of the file.
    EXPECT_EQ(parameters.lastversion.value(), QString());
    EXPECT_TRUE(messages.isEmpty());
}

TEST_F(OptionsFileTest, writtenFileIsAPlistForOtherReaders)
{
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    if (python.isEmpty())
        GTEST_SKIP() << "python3 is not installed";
    Parameters parameters;
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("B\u266D")));
    ASSERT_TRUE(OptionsFile::writeOptions(parameters, path(QStringLiteral("options.plist"))));

    // plistlib parses the file (DOCTYPE included) and prints it back as JSON.
    QProcess process;
    process.start(python, {QStringLiteral("-c"),
                           QStringLiteral("import json, plistlib, sys\n"
                                          "d = plistlib.load(open(sys.argv[1], 'rb'))\n"
                                          "sys.stdout.write(json.dumps(d))\n"),
                           path(QStringLiteral("options.plist"))});
    ASSERT_TRUE(process.waitForFinished(30000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    const QByteArray json = process.readAllStandardOutput();
    EXPECT_TRUE(json.contains("\"Key\": \"B\\u266d\""));
    EXPECT_TRUE(json.contains("\"A Frequency\": \"440.0000\""));
    EXPECT_TRUE(json.contains("\"One touch play/record\": \"true\""));
}

TEST_F(OptionsFileTest, foreignPlistsImportTheirUsableStrings)
{
    const QByteArray xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\r\n"
                           "<plist version=\"1.0\">\r\n<dict>\r\n"
                           "  <!-- written by another tool -->\r\n"
                           "  <key>Response</key><integer>7</integer>\r\n"
                           "  <key>Trace Height</key><real>3.5</real>\r\n"
                           "  <key>Tuning</key><true/>\r\n"
                           "  <key>Recent</key><array><string>a</string><dict/></array>\r\n"
                           "  <key>Window</key><dict>\r\n"
                           "    <key>Completeness</key><string>Diatonic</string>\r\n"
                           "    <key>Deeper</key><dict><key>Key</key><string>F</string></dict>\r\n"
                           "  </dict>\r\n"
                           "  <key>A Frequency</key><string>600</string>\r\n"
                           "  <key>No such option</key><string>1</string>\r\n"
                           "  <key>Zoom increment</key><string>1.5</string>\r\n"
                           "  <key>Highest Note</key><string>40</string>\r\n"
                           "  <key>Lowest Note</key><string>20</string>\r\n"
                           "  <key>Label Piano Keys</key><string>Num<!-- x -->bers</string>\r\n"
                           "  <key>Key</key><string>Zzz</string>\r\n"
                           "  <key>View type</key><string>" +
                           QByteArray(5000, 'x') +
                           "</string>\r\n"
                           "</dict>\r\n</plist>\r\n";
    writeFile(QStringLiteral("foreign.plist"), xml);
    Parameters parameters;
    ASSERT_TRUE(OptionsFile::readOptions(parameters, path(QStringLiteral("foreign.plist"))));
    EXPECT_EQ(parameters.completeness.value(), QStringLiteral("Diatonic"));
    EXPECT_EQ(parameters.key.value(), QStringLiteral("F"));
    EXPECT_EQ(parameters.zoomIncrement.value(), 1.5);
    EXPECT_EQ(parameters.labelPianoKeys.value(), QStringLiteral("Numbers"));
    // 40 is refused while the lowest note is 55, and taken once 20 is in.
    EXPECT_EQ(parameters.lowestNote.value(), 20.0);
    EXPECT_EQ(parameters.highestNote.value(), 40.0);
    // Not strings, out of range or unknown: left as they were.
    EXPECT_EQ(parameters.response.value(), parameters.response.defaultValue);
    EXPECT_EQ(parameters.traceHeight.value(), parameters.traceHeight.defaultValue);
    EXPECT_FALSE(parameters.tuning.value());
    EXPECT_FALSE(OptionStore::text(QStringLiteral("A Frequency")));
    EXPECT_FALSE(OptionStore::text(QStringLiteral("No such option")));

    // One message lists every refused entry of a known option with what it takes; unknown keys
    // pass in silence and a long value is cut.
    ASSERT_EQ(messages.size(), 1);
    const QStringList lines = messages.first().split('\n');
    EXPECT_TRUE(lines.first().startsWith(QStringLiteral("Options refused | ")));
    const auto lineOf = [&](const char *label) {
        const QStringList found = lines.filter(QLatin1Char('"') + QLatin1String(label) + '"');
        return found.size() == 1 ? found.first() : QString();
    };
    const QString frequency = lineOf("A Frequency");
    EXPECT_TRUE(frequency.contains(QStringLiteral("\"600\"")));
    EXPECT_TRUE(frequency.contains(QString::number(parameters.aFrequency.maxValue)));
    EXPECT_TRUE(lineOf("Key").contains(parameters.key.choices().join(QStringLiteral(", "))));
    for (const char *label : {"Response", "Trace Height", "Tuning"})
        EXPECT_TRUE(lineOf(label).contains(QStringLiteral("<string>"))) << label;
    EXPECT_LT(lineOf("View type").size(), 200);
    EXPECT_EQ(lines.size(), 1 + 6);

    const std::optional<QVariantMap> read = PropertyList::readDictionary(xml);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->value(QStringLiteral("Response")).toLongLong(), 7);
    EXPECT_EQ(read->value(QStringLiteral("Recent")).toList().size(), 2);
}

TEST_F(OptionsFileTest, noteRangeBeyondAnyInstrumentIsRefusedFromAFile)
{
    const QByteArray xml = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                           "<key>Highest Note</key><string>1e308</string>"
                           "<key>Lowest Note</key><string>-1000</string>"
                           "</dict></plist>";
    writeFile(QStringLiteral("wide.plist"), xml);
    Parameters parameters;
    ASSERT_TRUE(OptionsFile::readOptions(parameters, path(QStringLiteral("wide.plist"))));
    EXPECT_EQ(parameters.lowestNote.value(), parameters.lowestNote.defaultValue);
    EXPECT_EQ(parameters.highestNote.value(), parameters.highestNote.defaultValue);
    ASSERT_EQ(messages.size(), 1);
    const QStringList lines = messages.first().split('\n');
    ASSERT_EQ(lines.size(), 3) << messages.first().toStdString();
    for (const QString &line : lines.mid(1))
        EXPECT_TRUE(line.contains(QStringLiteral("from 0 to 127"))) << line.toStdString();
}

TEST_F(OptionsFileTest, unreadableFilesChangeNothing)
{
    const QByteArray head = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    const QByteArray bad[] = {
        head + "<array><string>x</string></array></plist>",
        head + "<string>Key</string></plist>",
        head + "<dict><key>Key</key><string>F</string>",
        head + "<dict><key>Key</key><key>Minor</key></dict></plist>",
        head + "<dict><key>Key</key><string>F</string></dict><dict/></plist>",
        head + "<dict><key>Response</key><integer>seven</integer></dict></plist>",
        "<dict><key>Key</key><string>F</string></dict>",
        "not xml at all",
        "",
    };
    Parameters parameters;
    int n = 0;
    for (const QByteArray &bytes : bad) {
        const QString name = QStringLiteral("bad%1.plist").arg(n++);
        writeFile(name, bytes);
        EXPECT_FALSE(OptionsFile::readOptions(parameters, path(name))) << bytes.toStdString();
    }
    EXPECT_FALSE(OptionsFile::readOptions(parameters, path(QStringLiteral("missing.plist"))));
    // Nesting deep enough to exhaust the stack if followed is refused with a reason.
    const int depth = 20000;
    writeFile(QStringLiteral("deep.plist"),
              head + "<dict>" + QByteArray("<key>k</key><dict>").repeated(depth) +
                  QByteArray("</dict>").repeated(depth + 1) + "</plist>");
    EXPECT_FALSE(OptionsFile::readOptions(parameters, path(QStringLiteral("deep.plist"))));
    ASSERT_EQ(messages.size(), n + 2);
    const QString prefix = QStringLiteral("Error | Can't import options: ");
    for (const QString &message : messages)
        EXPECT_GT(message.size(), prefix.size() + 5) << message.toStdString();
    EXPECT_TRUE(messages[n].startsWith(prefix + QStringLiteral("no such file")));
    EXPECT_TRUE(messages[n + 1].contains(QStringLiteral("nested deeper")));
    EXPECT_EQ(parameters.key.value(), QStringLiteral("A"));
    EXPECT_FALSE(OptionStore::text(QStringLiteral("Key")));
}

TEST_F(OptionsFileTest, writeFailureTellsTheReasonAndKeepsTheOldFile)
{
    Parameters parameters;
    EXPECT_FALSE(
        OptionsFile::writeOptions(parameters, path(QStringLiteral("no/such/options.plist"))));
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.first().startsWith(QStringLiteral("Error | Can't write options file: ")));
    EXPECT_GT(messages.first().size(), QStringLiteral("Error | Can't write options file: ").size());

    // A directory where the file should be cannot be replaced; it is left as it is.
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("taken.plist")));
    EXPECT_FALSE(OptionsFile::writeOptions(parameters, path(QStringLiteral("taken.plist"))));
    EXPECT_EQ(messages.size(), 2);
    EXPECT_TRUE(QFileInfo(path(QStringLiteral("taken.plist"))).isDir());
}

TEST_F(OptionsFileTest, writesThroughAFifoInsteadOfReplacingIt)
{
    const QByteArray fifo = QFile::encodeName(path(QStringLiteral("pipe.plist")));
    ASSERT_EQ(mkfifo(fifo.constData(), 0600), 0);
    // A reader waiting already, so that opening the FIFO for writing does not block.
    const int reader = ::open(fifo.constData(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    Parameters parameters;
    EXPECT_TRUE(OptionsFile::writeOptions(parameters, QFile::decodeName(fifo)));
    QByteArray received(1 << 16, '\0');
    const ssize_t n = ::read(reader, received.data(), received.size());
    ::close(reader);
    struct stat status = {};
    ASSERT_EQ(::stat(fifo.constData(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    ASSERT_GT(n, 0);
    EXPECT_EQ(PropertyList::readDictionary(received.left(n)).value_or(QVariantMap()).size(),
              parameters.exportOptions().size());
    EXPECT_TRUE(messages.isEmpty());
}

TEST_F(OptionsFileTest, factoryOptionsAreTheDefaults)
{
    Parameters parameters;
    clearTestStore();
    const QMap<QString, QString> defaults = parameters.exportOptions();
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("D")));
    ASSERT_TRUE(parameters.lowestNote.setValue(20.0));
    ASSERT_TRUE(parameters.oneTouchPlayRecord.setValue(false));
    ASSERT_TRUE(parameters.analyzeStereoChannel.setValue(QStringLiteral("Left")));
    ASSERT_TRUE(parameters.dbNoiseLimit.setValue(-90.0));
    ASSERT_TRUE(parameters.refinePitch.setValue(false));
    ASSERT_TRUE(parameters.presetSelected(QStringLiteral("1 Minute loop")));

    ASSERT_TRUE(OptionsFile::defaultOptions(parameters));
    EXPECT_EQ(parameters.exportOptions(), defaults);
    QStringList matching;
    for (const Preset &preset : parameters.presets()) {
        if (Parameters::matches(preset))
            matching.append(preset.name);
    }
    EXPECT_EQ(matching,
              (QStringList{QStringLiteral("Violin 3 octaves"), QStringLiteral("74 Minute loop")}));

    EXPECT_FALSE(OptionsFile::defaultOptions(parameters, path(QStringLiteral("none.plist"))));
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(
        messages.first().startsWith(QStringLiteral("Error | Can't import default options")));
}

TEST_F(OptionsFileTest, presetsApplyTheirValuesInOrder)
{
    Parameters parameters;
    auto notes = [&] {
        return std::pair(parameters.lowestNote.value(), parameters.highestNote.value());
    };
    const auto find = [&](const char *name) -> const Preset & {
        for (const Preset &preset : parameters.presets()) {
            if (preset.name == QLatin1String(name))
                return preset;
        }
        throw std::logic_error(name);
    };
    ASSERT_TRUE(parameters.lowestNote.setValue(36.0));
    ASSERT_TRUE(parameters.presetSelected(QStringLiteral("Violin 4 octaves")));
    EXPECT_EQ(notes(), std::pair(55.0, 103.0));
    EXPECT_TRUE(Parameters::matches(find("Violin 4 octaves")));
    EXPECT_FALSE(Parameters::matches(find("Violin 3 octaves")));

    ASSERT_TRUE(parameters.presetSelected(QStringLiteral("Cello 3 octaves")));
    EXPECT_EQ(notes(), std::pair(36.0, 72.0));
    EXPECT_EQ(OptionStore::text(QStringLiteral("Lowest Note")), QStringLiteral("36.0000"));
    EXPECT_TRUE(Parameters::matches(find("Cello 3 octaves")));

    // From 36..50 the violin's lowest note is refused (not below 50) before its highest is set.
    ASSERT_TRUE(parameters.highestNote.setValue(50.0));
    ASSERT_TRUE(parameters.presetSelected(QStringLiteral("Violin 4 octaves")));
    EXPECT_EQ(notes(), std::pair(36.0, 103.0));
    EXPECT_FALSE(Parameters::matches(find("Violin 4 octaves")));

    EXPECT_FALSE(parameters.presetSelected(QStringLiteral("Double bass")));
    EXPECT_EQ(notes(), std::pair(36.0, 103.0));
}

TEST_F(OptionsFileTest, earlierPreferencesAreImportedOnce)
{
    const QString system = path(QStringLiteral("system"));
    const QString user = path(QStringLiteral("user"));
    ASSERT_TRUE(QDir().mkpath(system) && QDir().mkpath(user));
    const auto plist = [](const char *key) {
        return QByteArray("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Key</key>"
                          "<string>") +
               key + "</string></dict></plist>";
    };
    writeFile(QStringLiteral("user/") + OptionsFile::kEarlierPreferencesName, plist("E"));
    Parameters parameters;
    EXPECT_TRUE(OptionsFile::importEarlierPreferences(parameters, {system, user}));
    EXPECT_EQ(parameters.key.value(), QStringLiteral("E"));
    EXPECT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.first().startsWith(QStringLiteral("Imported | ")));

    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("G")));
    EXPECT_FALSE(OptionsFile::importEarlierPreferences(parameters, {system, user}));
    EXPECT_EQ(parameters.key.value(), QStringLiteral("G"));
    EXPECT_EQ(messages.size(), 1);

    // A fresh user: the system-wide file comes first.
    clearTestStore();
    writeFile(QStringLiteral("system/") + OptionsFile::kEarlierPreferencesName, plist("B"));
    EXPECT_TRUE(OptionsFile::importEarlierPreferences(parameters, {system, user}));
    EXPECT_EQ(parameters.key.value(), QStringLiteral("B"));
}

} // namespace
} // namespace quorval
