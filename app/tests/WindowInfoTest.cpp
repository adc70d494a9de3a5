#include "app/tests/WindowTest.h"
#include "display/DisplayView.h"

#include <QAction>
#include <QFileInfo>
#include <QKeySequence>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QRegularExpression>
#include <QStatusBar>

namespace quorval {
namespace {

using Answer = AskViewController::Answer;

// Help > About names the program, this build's version and the licence.
TEST_F(WindowTest, aboutNamesTheVersionAndTheLicence)
{
    window->aboutMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(
        dialogs[0].startsWith(QStringLiteral("About Quorval | Quorval " QUORVAL_VERSION "\n")))
        << dialogs[0].toStdString();
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral("GNU General Public License")));
}

// Every menu of the bar has its own mnemonic, and alt with that letter, pressed on the window,
// opens that menu.
TEST_F(WindowTest, altWithEachMenusLetterOpensThatMenu)
{
    QMenuBar *bar = window->menuBar();
    QStringList letters;
    for (QAction *action : bar->actions()) {
        QMenu *menu = action->menu();
        if (!menu || !action->isVisible())
            continue;
        SCOPED_TRACE(action->text().toStdString());
        const QKeySequence mnemonic = QKeySequence::mnemonic(action->text());
        ASSERT_FALSE(mnemonic.isEmpty());
        const QString letter = mnemonic.toString().right(1);
        EXPECT_FALSE(letters.contains(letter));
        letters.append(letter);
        key(static_cast<Qt::Key>(mnemonic[0].key()), Qt::AltModifier);
        EXPECT_TRUE(QTest::qWaitFor([menu] { return menu->isVisible(); }, 2000));
        QTest::keyClick(menu, Qt::Key_Escape);
        EXPECT_TRUE(QTest::qWaitFor([menu] { return !menu->isVisible(); }, 2000));
        // Escape leaves the bar with the focus; the next letter is pressed on the trace.
        QTest::keyClick(bar, Qt::Key_Escape);
        delegate->mainView->setFocus();
    }
    EXPECT_TRUE(letters.contains(QStringLiteral("O")));
    EXPECT_GE(letters.size(), 5);
}

// File > Properties gives the file's full path, or says it was never saved, and its length as
// minutes and seconds too.
TEST_F(WindowTest, propertiesGiveThePathAndTheLengthInMinutesAndSeconds)
{
    dialogs.clear();
    window->propertiesMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("File Properties | File ") +
                                      QFileInfo(demoPath).absoluteFilePath() + QLatin1Char('\n')))
        << dialogs[0].toStdString();
    // 16-bit mono: the length follows from the file's size, to the tenth of a second.
    const QRegularExpressionMatch length =
        QRegularExpression(QStringLiteral(" minutes \\((\\d+):(\\d\\d)\\.(\\d)\\)"))
            .match(dialogs[0]);
    ASSERT_TRUE(length.hasMatch()) << dialogs[0].toStdString();
    EXPECT_NEAR(length.captured(1).toInt() * 60 + length.captured(2).toInt() +
                    length.captured(3).toInt() / 10.0,
                static_cast<double>(QFileInfo(demoPath).size() - 44) / (2 * 44100.0), 0.05);

    // A take never saved has no path (where a saved one is, the document says).
    document->newRecording();
    dialogs.clear();
    window->propertiesMenuItem->trigger();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].startsWith(QStringLiteral("File Properties | Not saved yet\n")))
        << dialogs[0].toStdString();
}

// Options > Guess Key works on the sound while the window stays usable, and sets Key and Minor
// only when the user says yes.
TEST_F(WindowTest, guessKeyFindsTheDemoInDMajorAndSetsItOnlyOnYes)
{
    Parameters &parameters = Parameters::shared();
    ASSERT_TRUE(parameters.minor.setValue(true));
    ASSERT_TRUE(parameters.key.setFromText(QStringLiteral("G")));
    const QRegularExpression question(QStringLiteral(
        R"(^Guess Key \| This sound seems to be in D major \(confidence (0\.\d\d|1\.00)\)\. )"
        R"(Set the key to D major\?$)"));

    answers = {Answer::no};
    window->guessKeyMenuItem->trigger();
    // Off the main thread: the command waits its turn meanwhile.
    EXPECT_FALSE(window->guessKeyMenuItem->isEnabled());
    WAIT_FOR(dialogs.size() == 1, 60000);
    EXPECT_TRUE(question.match(dialogs[0]).hasMatch()) << dialogs[0].toStdString();
    EXPECT_EQ(parameters.key.value(), QStringLiteral("G"));
    EXPECT_TRUE(parameters.minor.value());

    WAIT_FOR(window->guessKeyMenuItem->isEnabled(), 5000);
    window->guessKeyMenuItem->trigger();
    WAIT_FOR(dialogs.size() == 2, 60000);
    EXPECT_TRUE(question.match(dialogs[1]).hasMatch()) << dialogs[1].toStdString();
    EXPECT_EQ(parameters.key.value(), QStringLiteral("D"));
    EXPECT_FALSE(parameters.minor.value());
    EXPECT_EQ(controller->keyLabel->text(), QStringLiteral("D Major"));
}

// A sound opens in the key of the options file beside it, named like it: only the scale's
// options are taken from it and the status bar says so; a broken one is named in a message and
// the sound opens all the same.
TEST_F(WindowTest, aSoundOpensInTheKeyOfTheOptionsFileBesideIt)
{
    Parameters &parameters = Parameters::shared();
    ASSERT_TRUE(parameters.key.setFromText(QStringLiteral("G")));
    const auto copyDemoAs = [this](const QString &name) {
        const QString path = dir.filePath(name);
        EXPECT_TRUE(QFile::copy(demoPath, path));
        return path;
    };
    QString shipped = QStringLiteral(QUORVAL_DEMO_WAV);
    shipped.replace(QStringLiteral(".wav"), QStringLiteral(".plist"));
    ASSERT_TRUE(QFile::copy(shipped, dir.filePath(QStringLiteral("tune.plist"))));
    ASSERT_TRUE(document->openFile(copyDemoAs(QStringLiteral("tune.wav"))));
    EXPECT_TRUE(dialogs.isEmpty()) << dialogs.join('\n').toStdString();
    EXPECT_EQ(parameters.key.value(), QStringLiteral("D"));
    EXPECT_FALSE(parameters.minor.value());
    EXPECT_EQ(window->statusBar()->currentMessage(), QStringLiteral("Key D major from tune.plist"));
    EXPECT_EQ(controller->keyLabel->text(), QStringLiteral("D Major"));

    // The view and tuning in a saved options file stay the user's.
    const bool tuning = parameters.tuning.value();
    const QString view = parameters.viewType.value();
    QFile other(dir.filePath(QStringLiteral("other.plist")));
    ASSERT_TRUE(other.open(QIODevice::WriteOnly));
    other.write(QStringLiteral(
                    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
                    "<key>View type</key><string>Spectrum</string>\n"
                    "<key>Tuning</key><string>%1</string>\n"
                    "<key>Key</key><string>F</string>\n<key>Minor</key><string>true</string>\n"
                    "<key>Temperament</key><string>Just</string>\n"
                    "<key>A Frequency</key><string>442</string>\n</dict>\n</plist>\n")
                    .arg(tuning ? QStringLiteral("false") : QStringLiteral("true"))
                    .toUtf8());
    other.close();
    ASSERT_TRUE(document->openFile(copyDemoAs(QStringLiteral("other.wav"))));
    EXPECT_TRUE(dialogs.isEmpty()) << dialogs.join('\n').toStdString();
    EXPECT_EQ(parameters.key.value(), QStringLiteral("F"));
    EXPECT_TRUE(parameters.minor.value());
    EXPECT_EQ(parameters.temperament.value(), QStringLiteral("Just"));
    EXPECT_EQ(parameters.aFrequency.value(), 442.0);
    EXPECT_EQ(parameters.tuning.value(), tuning);
    EXPECT_EQ(parameters.viewType.value(), view);
    EXPECT_EQ(window->statusBar()->currentMessage(),
              QStringLiteral("Key F minor from other.plist"));

    QFile broken(dir.filePath(QStringLiteral("broken.plist")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly) && broken.write("Key = D\n") > 0);
    broken.close();
    ASSERT_TRUE(document->openFile(copyDemoAs(QStringLiteral("broken.wav"))));
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0].contains(QStringLiteral("Can't take the key from")) &&
                dialogs[0].contains(broken.fileName()))
        << dialogs[0].toStdString();
    EXPECT_TRUE(title().endsWith(QStringLiteral("broken.wav"))) << title().toStdString();
    EXPECT_EQ(parameters.key.value(), QStringLiteral("F"));
}

} // namespace
} // namespace quorval
