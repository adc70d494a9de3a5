#include "options/dialog/CaseInsensitiveComboBoxDataSource.h"

#include "options/Parameters.h"

#include <gtest/gtest.h>

namespace quorval {
namespace {

TEST(CaseInsensitiveComboBoxDataSource, completesAndFindsInAnyCaseAndSpelling)
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
        {major, u"EB", u"E\u266D", u"E\u266D"},
        // A minor spelling typed among the major names finds the same pitch class.
        {major, u"g#", u"G\u266F", u"A\u266D"},
        {major, u"h", u"", u""},
        {temperaments, u"mean", u"Mean Tone", u""},
        {temperaments, u"MEAN TONE", u"Mean Tone", u"Mean Tone"},
        // The temperaments hidden outside developer mode are not found behind the short list.
        {shortTemperaments, u"mean", u"", u""},
    };
    for (const Case &c : cases) {
        const QString typed = QString::fromUtf16(c.typed);
        SCOPED_TRACE(typed.toStdString());
        EXPECT_EQ(c.source.completedString(typed), QString::fromUtf16(c.completion));
        const QString item = QString::fromUtf16(c.item);
        EXPECT_EQ(c.source.indexOfItem(typed),
                  item.isEmpty() ? -1 : int(c.source.choices().indexOf(item)));
    }
}

} // namespace
} // namespace quorval
