#include "options/dialog/OptionsMenu.h"

#include "options/FollowUps.h"
#include "options/OptionStore.h"
#include "options/Parameters.h"
#include "options/dialog/ParameterControls.h"
#include "options/dialog/ParmViewController.h"
#include "options/dialog/tests/support/DialogTest.h"

#include <QAction>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>

namespace quorval {
namespace {

// The menu of a window whose file panels answer with the path the test names.
class OptionsMenuTest : public DialogTest
{
protected:
    void SetUp() override
    {
        DialogTest::SetUp();
        ASSERT_TRUE(dir.isValid());
        OptionsHost host;
        host.chooseFileToRead = [this](const QString &folder) {
            readFolders.append(folder);
            return chosen;
        };
        host.chooseFileToWrite = [this] { return chosen; };
        menu = new OptionsMenu(parameters, std::move(host), &window);
    }

    QStringList checkedPresets() const
    {
        QStringList checked;
        for (const QAction *item : menu->presetsMenu()->actions()) {
            if (item->isChecked())
                checked.append(item->text());
        }
        return checked;
    }

    QAction *presetItem(const char *name) const
    {
        for (QAction *item : menu->presetsMenu()->actions()) {
            if (item->text() == QLatin1String(name))
                return item;
        }
        return nullptr;
    }

    Parameters parameters;
    QWidget window;
    OptionsMenu *menu = nullptr;
    QTemporaryDir dir;
    std::optional<QString> chosen;
    QStringList readFolders;
};

TEST_F(OptionsMenuTest, presetItemsAreCheckedExactlyWhileTheirValuesHold)
{
    QSignalSpy changes(menu, &OptionsMenu::optionsChanged);
    EXPECT_EQ(checkedPresets(),
              (QStringList{QStringLiteral("Violin 3 octaves"), QStringLiteral("74 Minute loop")}));

    presetItem("Cello 3 octaves")->trigger();
    EXPECT_EQ(parameters.highestNote.value(), 72.0);
    EXPECT_EQ(checkedPresets(),
              (QStringList{QStringLiteral("Cello 3 octaves"), QStringLiteral("74 Minute loop")}));

    // A change made in the dialog unchecks it as soon as it is applied.
    ParmViewController &dialog = menu->dialog();
    menu->openOptionsAt(QStringLiteral("Highest Note"));
    typeInto(qobject_cast<QLineEdit *>(dialog.control(QStringLiteral("Highest Note"))),
             QStringLiteral("73"));
    QTest::mouseClick(dialog.applyButton(), Qt::LeftButton);
    EXPECT_EQ(checkedPresets(), QStringList{QStringLiteral("74 Minute loop")});

    // A change made elsewhere shows when the menu is next opened.
    ASSERT_TRUE(parameters.maxAudioFileLength.setValue(1.0));
    emit menu->presetsMenu()->aboutToShow();
    EXPECT_EQ(checkedPresets(), QStringList{QStringLiteral("1 Minute loop")});

    // Defaults bring back the presets that match them, and the open dialog shows them.
    menu->defaultsAction()->trigger();
    EXPECT_EQ(checkedPresets(),
              (QStringList{QStringLiteral("Violin 3 octaves"), QStringLiteral("74 Minute loop")}));
    EXPECT_EQ(qobject_cast<QLineEdit *>(dialog.control(QStringLiteral("Highest Note")))->text(),
              QStringLiteral("91.0000"));
    EXPECT_EQ(changes.count(), 3);
    EXPECT_TRUE(messages.isEmpty());
}

TEST_F(OptionsMenuTest, optionsWrittenAndReadBackThroughAFile)
{
    ASSERT_TRUE(parameters.aFrequency.setValue(442.0));
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("E\u266D")));
    ASSERT_TRUE(parameters.minor.setValue(true));
    ASSERT_TRUE(parameters.frameOverlap.setValue(0.75));
    const QMap<QString, QString> written = parameters.exportOptions();

    // A cancelled panel writes nothing.
    menu->writeOptionsAction()->trigger();
    EXPECT_TRUE(QDir(dir.path()).isEmpty());
    chosen = dir.filePath(QStringLiteral("mine.plist"));
    menu->writeOptionsAction()->trigger();
    ASSERT_TRUE(QFile::exists(*chosen));

    menu->defaultsAction()->trigger();
    EXPECT_EQ(parameters.aFrequency.value(), 440.0);
    EXPECT_EQ(parameters.key.choices(), Parameters::majorKeyNames());

    menu->optionsAction()->trigger();
    ParmViewController &dialog = menu->dialog();
    EXPECT_TRUE(dialog.isVisible());
    EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Options"));
    EXPECT_EQ(dialog.tabView()->currentIndex(), 0);
    menu->readOptionsAction()->trigger();
    EXPECT_EQ(readFolders, QStringList{QString()});
    EXPECT_EQ(parameters.exportOptions(), written);
    EXPECT_EQ(parameters.key.choices(), Parameters::minorKeyNames());
    // The open dialog shows what was read.
    EXPECT_EQ(qobject_cast<QLineEdit *>(dialog.control(QStringLiteral("A Frequency")))->text(),
              QStringLiteral("442.0000"));
    EXPECT_EQ(qobject_cast<QComboBox *>(dialog.control(QStringLiteral("Key")))->currentText(),
              QStringLiteral("E\u266D"));
    EXPECT_TRUE(messages.isEmpty());

    // A file that is no options file changes nothing and says so.
    QFile junk(dir.filePath(QStringLiteral("junk.plist")));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("not a property list");
    junk.close();
    chosen = junk.fileName();
    menu->readOptionsMenuItemSelected(dir.path());
    EXPECT_EQ(readFolders.last(), dir.path());
    EXPECT_EQ(parameters.exportOptions(), written);
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.front().startsWith(QStringLiteral("Error | Can't import options: line ")))
        << messages.front().toStdString();
}

// The Scala file options are chosen in a file panel; a change of either redraws the grid, and a
// file that cannot be read says which line is at fault once the dialog applies it.
TEST_F(OptionsMenuTest, scalaFilesAreChosenInAPanelAndABadOneSaysWhichLine)
{
    const auto write = [this](const char *name, const QByteArray &text) {
        QFile file(dir.filePath(QString::fromLatin1(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
        return file.fileName();
    };
    const QString good = write(
        "just.scl", "! just.scl\nJust major\n 7\n 9/8\n 5/4\n 4/3\n 3/2\n 5/3\n 15/8\n 2/1\n");
    const QString bad = write("bad.scl", "! bad.scl\nBroken\n 2\n 9/8\n banana\n");
    QStringList asked;
    QString answer;
    const FileChooser previous = setFileChooser(
        [&](QWidget *, const QString &label, const QString &filter, const QString &current) {
            asked.append(label + QStringLiteral(" | ") + filter + QStringLiteral(" | ") + current);
            return answer;
        });
    ASSERT_TRUE(parameters.temperament.setFromText(Parameters::scalaTemperamentName()));
    ParmViewController &dialog = menu->dialog();
    dialog.openAtPage(0);
    QWidget *scala = dialog.control(QStringLiteral("Scala file"));
    QWidget *mapping = dialog.control(QStringLiteral("Keyboard mapping file"));
    ASSERT_TRUE(scala && mapping);
    auto *field = scala->findChild<QLineEdit *>();
    auto *choose = scala->findChild<QPushButton *>(QStringLiteral("choose"));
    ASSERT_TRUE(field && choose);
    EXPECT_NE(mapping->findChild<QPushButton *>(QStringLiteral("choose")), nullptr);

    answer = good;
    QTest::mouseClick(choose, Qt::LeftButton);
    EXPECT_EQ(field->text(), good);
    EXPECT_EQ(asked, QStringList{QStringLiteral("Scala file | Scala scale files (*.scl);;All "
                                                "files (*) | ")});
    resetFollowUpCounts();
    QTest::mouseClick(dialog.applyButton(), Qt::LeftButton);
    EXPECT_EQ(parameters.scalaFile.value(), good);
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{.recolor = 1}));
    EXPECT_TRUE(messages.isEmpty()) << messages.join('\n').toStdString();

    // Cancelled, the panel leaves the field as it was; it starts from the file in it.
    answer.clear();
    QTest::mouseClick(choose, Qt::LeftButton);
    EXPECT_EQ(field->text(), good);
    EXPECT_TRUE(asked.last().endsWith(QStringLiteral(" | ") + good));

    answer = bad;
    QTest::mouseClick(choose, Qt::LeftButton);
    QTest::mouseClick(dialog.applyButton(), Qt::LeftButton);
    EXPECT_EQ(parameters.scalaFile.value(), bad);
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages[0].contains(QStringLiteral("bad.scl")) &&
                messages[0].contains(QStringLiteral("line 5")))
        << messages[0].toStdString();

    // Said once: other options changing while it stays chosen say nothing more; choosing it
    // again after a good tuning says it again.
    ASSERT_TRUE(parameters.aFrequency.setValue(442.0));
    menu->changed();
    menu->changed();
    EXPECT_EQ(messages.size(), 1);
    ASSERT_TRUE(parameters.scalaFile.setValue(good));
    menu->changed();
    ASSERT_TRUE(parameters.scalaFile.setValue(bad));
    menu->changed();
    EXPECT_EQ(messages.size(), 2);
    (void)setFileChooser(previous);
}

} // namespace
} // namespace quorval
