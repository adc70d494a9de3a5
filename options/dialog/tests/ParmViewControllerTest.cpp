#include "options/dialog/ParmViewController.h"

#include "options/OptionStore.h"
#include "options/dialog/ChoiceComboBox.h"
#include "options/dialog/tests/support/DialogTest.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QTabWidget>

#include <memory>

namespace quorval {
namespace {

class ParmViewControllerTest : public DialogTest
{
protected:
    std::unique_ptr<ParmViewController> makeDialog(ParmViewController::OpenHelp openHelp = {})
    {
        return std::make_unique<ParmViewController>(parameters.dialogPages(),
                                                    QStringLiteral("Options"), false, topicsOf(),
                                                    std::move(openHelp));
    }

    QStringList topicsOf() const
    {
        QStringList topics;
        for (const Parameters::Page &page : parameters.dialogPages())
            topics.append(page.tabIdentifier);
        return topics;
    }

    QLineEdit *field(ParmViewController &dialog, const char *label)
    {
        return qobject_cast<QLineEdit *>(dialog.control(QString::fromLatin1(label)));
    }

    ChoiceComboBox *box(ParmViewController &dialog, const char *label)
    {
        return qobject_cast<ChoiceComboBox *>(dialog.control(QString::fromLatin1(label)));
    }

    // Whether the keyboard is in control (an editable combo box passes it to its line edit).
    static bool hasKeyboard(QWidget *control)
    {
        QWidget *focus = QApplication::focusWidget();
        return focus && (focus == control || control->isAncestorOf(focus));
    }

    Parameters parameters;
};

TEST_F(ParmViewControllerTest, rowsFollowThePagesAndDeveloperModeInKeyboardOrder)
{
    const auto dialog = makeDialog();
    for (const bool developer : {false, true}) {
        setDeveloperMode(developer);
        dialog->openAtPage(0);
        ASSERT_TRUE(QTest::qWaitForWindowActive(dialog.get()));
        const std::vector<Parameters::Page> pages = parameters.dialogPages();
        ASSERT_EQ(dialog->tabView()->count(), int(pages.size()));
        QList<QWidget *> rowOrder;
        for (std::size_t i = 0; i < pages.size(); ++i) {
            EXPECT_EQ(dialog->tabView()->widget(int(i))->objectName(), pages[i].tabIdentifier);
            for (const Parameter *p : pages[i].parameters) {
                QWidget *control = dialog->control(p->name);
                EXPECT_EQ(control != nullptr, developer || !p->debug) << p->name.toStdString();
                if (control && i == 0)
                    rowOrder.append(control);
            }
        }

        // Tab walks the rows of the page in order (a path's Choose... button within its row).
        ASSERT_TRUE(hasKeyboard(rowOrder.front()));
        QWidget *row = rowOrder.front();
        for (QWidget *next : rowOrder.mid(1)) {
            for (int within = 0; within < 2 && hasKeyboard(row); ++within)
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            EXPECT_TRUE(hasKeyboard(next)) << next->objectName().toStdString();
            row = next;
        }

        // The largest page fits a 1366 x 768 screen with room for a title bar and a panel, and
        // each page shows all its rows unclipped.
        dialog->adjustSize();
        EXPECT_LE(dialog->width(), 1366);
        EXPECT_LE(dialog->height(), 768 - 100);
        for (int i = 0; i < dialog->tabView()->count(); ++i) {
            dialog->tabView()->setCurrentIndex(i);
            QWidget *page = dialog->tabView()->widget(i);
            for (QWidget *control : page->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
                const QRect inDialog(control->mapTo(dialog.get(), QPoint()), control->size());
                EXPECT_TRUE(dialog->rect().contains(inDialog))
                    << control->objectName().toStdString();
            }
            const QString folder = qEnvironmentVariable("QUORVAL_TEST_PICTURES");
            if (!folder.isEmpty()) {
                const QString name =
                    page->objectName() + (developer ? QStringLiteral("-developer") : QString());
                dialog->grab().save(QDir(folder).filePath(name + QStringLiteral(".png")));
            }
        }
    }
}

TEST_F(ParmViewControllerTest, refusedValuesSnapBackAndKeepTheDialogOpen)
{
    const auto dialog = makeDialog();
    dialog->openAtPage(0);
    QLineEdit *frequency = field(*dialog, "A Frequency");
    QLineEdit *lowest = field(*dialog, "Lowest Note");
    ASSERT_TRUE(frequency && lowest);
    EXPECT_EQ(frequency->text(), QStringLiteral("440.0000"));

    for (const char *refused : {"600", "fast"}) {
        SCOPED_TRACE(refused);
        typeInto(frequency, QString::fromLatin1(refused));
        typeInto(lowest, QStringLiteral("95")); // not below "Highest Note"
        QTest::mouseClick(dialog->okButton(), Qt::LeftButton);
        EXPECT_TRUE(dialog->isVisible());
        EXPECT_FALSE(dialog->applyOK());
        EXPECT_EQ(frequency->text(), QStringLiteral("440.0000"));
        EXPECT_EQ(lowest->text(), QStringLiteral("55.0000"));
    }
    EXPECT_FALSE(OptionStore::text(QStringLiteral("A Frequency")));
    EXPECT_TRUE(messages.isEmpty());
    EXPECT_EQ(followUpCounts(), FollowUpCounts{});

    // An accepted value is stored as its format gives it and asks only for its own follow-up;
    // the untouched rows store nothing.
    typeInto(frequency, QStringLiteral(" 442.5 "));
    QTest::keyClick(frequency, Qt::Key_Return);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(OptionStore::text(QStringLiteral("A Frequency")), QStringLiteral("442.5000"));
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{.recompute = 1}));
    EXPECT_EQ(OptionStore::text(QStringLiteral("Key")), std::nullopt);
}

TEST_F(ParmViewControllerTest, aRefusedValueSaysWhyBesideItsFieldUntilTheNextEdit)
{
    const auto dialog = makeDialog();
    dialog->openAtPage(0);
    QLineEdit *lowest = field(*dialog, "Lowest Note");
    QLineEdit *highest = field(*dialog, "Highest Note");
    QLabel *lowestWhy = dialog->refusal(QStringLiteral("Lowest Note"));
    QLabel *highestWhy = dialog->refusal(QStringLiteral("Highest Note"));
    ASSERT_TRUE(lowest && highest && lowestWhy && highestWhy);
    // While nothing is refused, the note range says which notes its numbers are.
    EXPECT_EQ(lowestWhy->text(), QStringLiteral("G3"));
    EXPECT_EQ(highestWhy->text(), QStringLiteral("G6"));
    typeInto(lowest, QStringLiteral("-1000"));
    typeInto(highest, QStringLiteral("1e308"));
    QTest::mouseClick(dialog->applyButton(), Qt::LeftButton);
    EXPECT_FALSE(dialog->applyOK());
    EXPECT_EQ(lowest->text(), QStringLiteral("55.0000"));
    EXPECT_EQ(highest->text(), QStringLiteral("91.0000"));
    EXPECT_EQ(lowestWhy->text(),
              QStringLiteral("Takes a number from 0 to 127 below \"Highest Note\", now 91"));
    EXPECT_TRUE(highestWhy->text().startsWith(QStringLiteral("Takes a number from 0 to 127")))
        << highestWhy->text().toStdString();
    EXPECT_TRUE(highestWhy->isVisible());
    EXPECT_TRUE(messages.isEmpty());

    // Editing one field clears its own reason only, and names the note as it is typed; an
    // accepted value leaves no reason either.
    typeInto(lowest, QStringLiteral("36"));
    EXPECT_EQ(lowestWhy->text(), QStringLiteral("C2"));
    EXPECT_TRUE(highestWhy->text().startsWith(QStringLiteral("Takes ")));
    QTest::mouseClick(dialog->applyButton(), Qt::LeftButton);
    EXPECT_TRUE(dialog->applyOK());
    EXPECT_EQ(parameters.lowestNote.value(), 36.0);
    EXPECT_EQ(lowestWhy->text(), QStringLiteral("C2"));
    // Opening again starts with no reasons shown; a B♭ instrument reads its written notes.
    ASSERT_TRUE(parameters.transposition.setFromText(QStringLiteral("Bb")));
    dialog->openAtPage(0);
    EXPECT_EQ(highestWhy->text(), QStringLiteral("A6"));
    EXPECT_EQ(lowestWhy->text(), QStringLiteral("D2"));
}

TEST_F(ParmViewControllerTest, minorSwitchesTheKeyListAndCancelPutsItBack)
{
    ASSERT_TRUE(parameters.key.setValue(QStringLiteral("A\u266D")));
    resetFollowUpCounts();
    const auto dialog = makeDialog();
    dialog->openAtOption(QStringLiteral("Key"));
    ChoiceComboBox *key = box(*dialog, "Key");
    auto *minor = qobject_cast<QCheckBox *>(dialog->control(QStringLiteral("Minor")));
    ASSERT_TRUE(key && minor);
    EXPECT_EQ(key->currentText(), QStringLiteral("A\u266D"));

    minor->click();
    EXPECT_EQ(key->currentText(), QStringLiteral("G\u266F"));
    QTest::mouseClick(dialog->cancelButton(), Qt::LeftButton);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_FALSE(parameters.minor.value());
    EXPECT_EQ(parameters.key.choices(), Parameters::majorKeyNames());
    EXPECT_EQ(key->currentText(), QStringLiteral("A\u266D"));

    // Applied, the box stores "Minor" and the list stays as the box set it; Escape after an
    // unapplied toggle returns to the stored minor list.
    dialog->openAtOption(QStringLiteral("Minor"));
    minor->click();
    QTest::mouseClick(dialog->applyButton(), Qt::LeftButton);
    EXPECT_TRUE(parameters.minor.value());
    EXPECT_EQ(parameters.key.value(), QStringLiteral("G\u266F"));
    EXPECT_EQ(followUpCounts().recolor, 1);
    minor->click();
    EXPECT_EQ(key->currentText(), QStringLiteral("A\u266D"));
    QTest::keyClick(dialog.get(), Qt::Key_Escape);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_TRUE(parameters.minor.value());
    EXPECT_EQ(key->currentText(), QStringLiteral("G\u266F"));
}

TEST_F(ParmViewControllerTest, typedChoicesCompleteInPlaceAndApplyInTheListsSpelling)
{
    const auto dialog = makeDialog();
    dialog->openAtOption(QStringLiteral("Key"));
    // A minor spelling in major is stored in the major one.
    QLineEdit *key = box(*dialog, "Key")->lineEdit();
    typeInto(key, QStringLiteral("g#"));
    EXPECT_EQ(key->text(), QStringLiteral("G\u266F"));
    QTest::mouseClick(dialog->applyButton(), Qt::LeftButton);
    EXPECT_EQ(OptionStore::text(QStringLiteral("Key")), QStringLiteral("A\u266D"));
    EXPECT_EQ(key->text(), QStringLiteral("A\u266D"));

    // Outside developer mode "Mean Tone" is not offered: typed, it is refused.
    ChoiceComboBox *temperament = box(*dialog, "Temperament");
    typeInto(temperament->lineEdit(), QStringLiteral("mean"));
    QTest::mouseClick(dialog->okButton(), Qt::LeftButton);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_EQ(temperament->currentText(), QStringLiteral("Equal"));

    // The list follows developer mode when the dialog opens again. The completed tail is
    // selected, goes with one key and does not come back.
    setDeveloperMode(true);
    dialog->openAtOption(QStringLiteral("Temperament"));
    QLineEdit *field = box(*dialog, "Temperament")->lineEdit();
    typeInto(field, QStringLiteral("mean"));
    EXPECT_EQ(field->text(), QStringLiteral("Mean Tone"));
    EXPECT_EQ(field->selectedText(), QStringLiteral(" Tone"));
    QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClick(field, Qt::Key_Backspace);
    EXPECT_EQ(field->text(), QStringLiteral("Mea"));
    typeInto(field, QStringLiteral("k"));
    EXPECT_EQ(field->text(), QStringLiteral("Kirnberger"));
    // Return in a choice box is OK, as in a field.
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(parameters.temperament.value(), QStringLiteral("Kirnberger"));
}

TEST_F(ParmViewControllerTest, entryOutsideTheOfferedListSurvivesOK)
{
    OptionStore::setText(QStringLiteral("Temperament"), QStringLiteral("Salinas"));
    Parameters fresh;
    const auto dialog = std::make_unique<ParmViewController>(
        fresh.dialogPages(), QStringLiteral("Options"), false, QStringList(), nullptr);
    dialog->openAtPage(0);
    EXPECT_EQ(box(*dialog, "Temperament")->currentText(), QStringLiteral("Salinas"));
    QTest::mouseClick(dialog->okButton(), Qt::LeftButton);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(OptionStore::text(QStringLiteral("Temperament")), QStringLiteral("Salinas"));
    EXPECT_TRUE(dialog->helpButton()->isHidden());
}

TEST_F(ParmViewControllerTest, opensAtAnOptionAndHelpsWithTheTabShown)
{
    QStringList asked;
    const auto dialog = makeDialog([&asked](const QString &topic) {
        asked.append(topic);
        return topic == QStringLiteral("ViewTab");
    });
    struct Case
    {
        const char *label;
        int tab;
        const char *focus;
    };
    // "Frame overlap" is a debug option: without developer mode its page opens.
    const Case cases[] = {{"Key", 0, "Key"},
                          {"Label Piano Keys", 1, "Label Piano Keys"},
                          {"Frame overlap", 2, "Response"}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        dialog->openAtOption(QString::fromLatin1(c.label));
        ASSERT_TRUE(QTest::qWaitForWindowActive(dialog.get()));
        EXPECT_EQ(dialog->tabView()->currentIndex(), c.tab);
        EXPECT_TRUE(hasKeyboard(dialog->control(QString::fromLatin1(c.focus))));
        dialog->helpButtonPushed();
    }
    // A field the dialog opens at is selected, so typing replaces its number.
    dialog->openAtOption(QStringLiteral("Response"));
    EXPECT_EQ(field(*dialog, "Response")->selectedText(), QStringLiteral("4.0000"));
    QTest::mouseClick(dialog->helpButton(), Qt::LeftButton);

    EXPECT_EQ(asked, (QStringList{QStringLiteral("ScaleTab"), QStringLiteral("ViewTab"),
                                  QStringLiteral("ProcessTab"), QStringLiteral("ProcessTab")}));
    EXPECT_EQ(messages, QStringList(3, QStringLiteral("Help | Help not available")));
}

} // namespace
} // namespace quorval
