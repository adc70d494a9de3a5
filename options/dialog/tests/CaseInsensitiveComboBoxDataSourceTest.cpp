#include "options/dialog/CaseInsensitiveComboBoxDataSource.h"

#include "options/Parameters.h"
#include "options/dialog/ChoiceComboBox.h"
#include "options/dialog/tests/support/DialogTest.h"

namespace quorval {
namespace {

using CaseInsensitiveComboBoxDataSourceTest = DialogTest;

TEST_F(CaseInsensitiveComboBoxDataSourceTest, completesAndFindsInAnyCaseAndSpelling)
{
    const CaseInsensitiveComboBoxDataSource major(Parameters::majorKeyNames(),
                                                  Parameters::minorKeyNames());
    const CaseInsensitiveComboBoxDataSource temperaments(Parameters::temperamentNames());
    const CaseInsensitiveComboBoxDataSource shortTemperaments(Parameters::shortTemperamentNames(),
                                                              Parameters::temperamentNames());
    struct Case
    {
        const CaseInsensitiveComboBoxDataSource &source;
        const char16_t *typed;
        const char16_t *completion; // empty: none
        const char16_t *item;       // the entry typed names exactly; empty: none
    };
    const Case cases[] = {
        {major, u"g", u"G", u"G"},
        // The first entry that begins with it: "B" comes before "B♭".
        {major, u"b", u"B", u"B"},
        {major, u"b\u266D", u"B\u266D", u"B\u266D"},
        {major, u"bb", u"B\u266D", u"B\u266D"},
        {major, u"EB", u"E\u266D", u"E\u266D"},
        // A minor spelling typed among the major names finds the same pitch class.
        {major, u"g#", u"G\u266F", u"A\u266D"},
        {major, u"h", u"", u""},
        {major, u"", u"", u""},
        {temperaments, u"mean", u"Mean Tone", u""},
        {temperaments, u"MEAN TONE", u"Mean Tone", u"Mean Tone"},
        {temperaments, u"b", u"Bagpipes", u""},
        // The temperaments hidden outside developer mode are not found behind the short list.
        {shortTemperaments, u"mean", u"", u""},
        {shortTemperaments, u"p", u"Pythagorean", u""},
    };
    for (const Case &c : cases) {
        const QString typed = QString::fromUtf16(c.typed);
        SCOPED_TRACE(typed.toStdString());
        EXPECT_EQ(c.source.completedString(typed), QString::fromUtf16(c.completion));
        const QString item = QString::fromUtf16(c.item);
        EXPECT_EQ(c.source.indexOfItem(typed),
                  item.isEmpty() ? -1 : int(c.source.choices().indexOf(item)));
    }
    EXPECT_EQ(major.numberOfItems(), 12);
    EXPECT_EQ(shortTemperaments.rowCount(), 3);
}

TEST_F(CaseInsensitiveComboBoxDataSourceTest, typingCompletesInPlaceAndDeletingDoesNot)
{
    ChoiceComboBox box;
    box.dataSource().setChoices(Parameters::temperamentNames());
    QLineEdit *field = box.lineEdit();

    typeInto(field, QStringLiteral("mean"));
    EXPECT_EQ(field->text(), QStringLiteral("Mean Tone"));
    EXPECT_EQ(field->selectedText(), QStringLiteral(" Tone"));
    // The completed tail goes with one key and does not come back.
    QTest::keyClick(field, Qt::Key_Backspace);
    EXPECT_EQ(field->text(), QStringLiteral("Mean"));
    QTest::keyClick(field, Qt::Key_Backspace);
    EXPECT_EQ(field->text(), QStringLiteral("Mea"));
    typeInto(field, QStringLiteral("k"));
    EXPECT_EQ(field->text(), QStringLiteral("Kirnberger"));
    EXPECT_EQ(box.indexOfText(), 7);

    // Typed text that names nothing is kept as typed, and never added to the list.
    typeInto(field, QStringLiteral("Quarter comma"));
    EXPECT_EQ(field->text(), QStringLiteral("Quarter comma"));
    EXPECT_EQ(box.indexOfText(), -1);
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(box.count(), Parameters::temperamentNames().size());
}

} // namespace
} // namespace quorval
