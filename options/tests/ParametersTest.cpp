#include "options/Parameters.h"

#include "options/DeveloperMode.h"
#include "options/OptionStore.h"
#include "options/tests/support/OptionsTestStore.h"

#include <memory>
#include <set>

namespace quorval {
namespace {

using ParametersTest = StoreTest;

TEST_F(ParametersTest, everyLabelIsUniqueAndTheDialogLeavesOutTheHiddenPage)
{
    Parameters parameters;
    std::set<QString> labels;
    std::size_t count = 0;
    for (const Parameters::Page &page : parameters.allPages()) {
        for (const Parameter *p : page.parameters) {
            labels.insert(p->name);
            ++count;
            EXPECT_EQ(parameters.findForKey(p->name), p);
        }
    }
    EXPECT_EQ(labels.size(), count);

    const std::vector<Parameters::Page> dialog = parameters.dialogPages();
    ASSERT_EQ(dialog.size(), parameters.allPages().size() - 1);
    for (const Parameter *hidden : parameters.allPages().back().parameters)
        EXPECT_FALSE(parameters.exportOptions().contains(hidden->name));
    EXPECT_EQ(parameters.exportOptions().size(),
              qsizetype(count - parameters.allPages().back().parameters.size()));
    EXPECT_EQ(parameters.findForKey(QStringLiteral("key")), nullptr);
}

TEST_F(ParametersTest, minorSwapsTheKeySpellingsAndKeepsThePitchClass)
{
    Parameters parameters;
    Parameters::KeyParameter &key = parameters.key;
    ASSERT_TRUE(key.setValue(QStringLiteral("A\u266D")));
    const int index = key.index();

    parameters.minor.minorButtonPushed(true);
    EXPECT_EQ(key.choices(), Parameters::minorKeyNames());
    EXPECT_EQ(key.index(), index);
    EXPECT_EQ(key.value(), QStringLiteral("G\u266F"));
    EXPECT_EQ(key.altChoices(), Parameters::majorKeyNames());
    // The box alone stores nothing; the dialog applies it.
    EXPECT_FALSE(parameters.minor.value());

    parameters.minor.minorButtonPushed(false);
    EXPECT_EQ(key.value(), QStringLiteral("A\u266D"));

    // ASCII accidentals name the same entries.
    EXPECT_TRUE(key.setFromText(QStringLiteral("Bb")));
    EXPECT_EQ(key.value(), QStringLiteral("B\u266D"));
    EXPECT_TRUE(key.setFromText(QStringLiteral("g#")));
    EXPECT_EQ(key.index(), index);
    EXPECT_FALSE(key.setFromText(QStringLiteral("H#")));

    // A minor value set from a file brings the minor spellings, here and in a set made later.
    EXPECT_TRUE(parameters.minor.setFromText(QStringLiteral("true")));
    EXPECT_EQ(key.value(), QStringLiteral("G\u266F"));
    Parameters later;
    EXPECT_EQ(later.key.choices(), Parameters::minorKeyNames());
    EXPECT_EQ(later.currentKey().index, index);
    EXPECT_TRUE(later.currentKey().minor);
}

// Records what the parameter asks of its control.
struct FakeView : ParameterView
{
    int *changes;
    bool answer;
    FakeView(int *changes, bool answer) : changes(changes), answer(answer) {}
    void load() override {}
    bool apply() override { return answer; }
    void choicesChanged() override { ++*changes; }
};

TEST_F(ParametersTest, attachedControlHearsOfNewChoiceLists)
{
    Parameters parameters;
    int changes = 0;
    EXPECT_TRUE(parameters.key.applyView());
    parameters.key.setView(std::make_unique<FakeView>(&changes, false));
    parameters.minor.minorButtonPushed(true);
    parameters.minor.minorButtonPushed(true);
    EXPECT_EQ(changes, 1);
    parameters.minor.minorButtonPushed(false);
    EXPECT_EQ(changes, 2);
    EXPECT_FALSE(parameters.key.applyView());
}

TEST_F(ParametersTest, temperamentListDependsOnStoredIndexAndDeveloperMode)
{
    struct Case
    {
        const char *stored;
        bool developer;
        bool shortList;
    };
    const Case cases[] = {
        {nullptr, false, true},      {"Pythagorean", false, true},   {"Salinas", false, true},
        {"Mean Tone", false, false}, {"Bagpipes", false, false},     {"Unknown", false, true},
        {nullptr, true, false},      {"Scala file...", false, true},
    };
    for (const Case &c : cases) {
        clearTestStore();
        if (c.stored)
            OptionStore::setText(QStringLiteral("Temperament"), QString::fromUtf8(c.stored));
        setDeveloperMode(c.developer);
        Parameters parameters;
        setDeveloperMode(false);
        const auto &temperament = parameters.temperament;
        SCOPED_TRACE(c.stored ? c.stored : "absent");
        if (c.shortList) {
            // The short list with a tuning file; every name is still accepted.
            QStringList offered = Parameters::shortTemperamentNames();
            offered.append(Parameters::scalaTemperamentName());
            EXPECT_EQ(temperament.choices(), offered);
            ASSERT_TRUE(temperament.altChoices());
            QStringList all = *temperament.altChoices();
            EXPECT_EQ(all.mid(0, offered.size()), offered);
            all.sort();
            QStringList every = Parameters::temperamentNames();
            every.sort();
            EXPECT_EQ(all, every);
        } else {
            EXPECT_EQ(temperament.choices(), Parameters::temperamentNames());
            EXPECT_FALSE(temperament.altChoices());
        }
    }
    // A stored temperament outside the short list is still in force.
    OptionStore::setText(QStringLiteral("Temperament"), QStringLiteral("Salinas"));
    Parameters parameters;
    EXPECT_EQ(parameters.temperament.value(), QStringLiteral("Salinas"));
    // The tuning file's entry in the ordinary list is that, and no temperament beyond it.
    ASSERT_TRUE(parameters.temperament.setIndex(3));
    EXPECT_EQ(parameters.temperament.value(), Parameters::scalaTemperamentName());
}

TEST_F(ParametersTest, noteRangeEndsAreCheckedAgainstEachOther)
{
    Parameters parameters;
    EXPECT_FALSE(parameters.lowestNote.setValue(91.0));
    EXPECT_FALSE(parameters.highestNote.setValue(55.0));
    EXPECT_EQ(followUpCounts(), FollowUpCounts{});
    EXPECT_TRUE(parameters.lowestNote.setValue(90.0));
    EXPECT_FALSE(parameters.highestNote.setValue(89.0));
    EXPECT_TRUE(parameters.highestNote.setValue(100.0));
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{.resegment = 1, .recompute = 1}));
    // Values that pass only until they are stored with four decimals.
    EXPECT_FALSE(parameters.lowestNote.setFromText(QStringLiteral("99.99999")));
    EXPECT_FALSE(parameters.highestNote.setFromText(QStringLiteral("90.00001")));
    EXPECT_EQ(parameters.lowestNote.value(), 90.0);
    EXPECT_EQ(parameters.highestNote.value(), 100.0);
    // Both ends stay within the note range an instrument can need, bounds included.
    EXPECT_FALSE(parameters.highestNote.setValue(127.0001));
    EXPECT_FALSE(parameters.highestNote.setFromText(QStringLiteral("1e308")));
    EXPECT_TRUE(parameters.highestNote.setValue(127.0));
    EXPECT_FALSE(parameters.lowestNote.setValue(-0.0001));
    EXPECT_FALSE(parameters.lowestNote.setFromText(QStringLiteral("-1000")));
    EXPECT_TRUE(parameters.lowestNote.setValue(0.0));
    EXPECT_EQ(parameters.highestNote.value(), 127.0);
    (void)parameters.lowestNote.setValue(90.0);
    (void)parameters.highestNote.setValue(100.0);

    auto &length = parameters.maxAudioFileLength;
    EXPECT_TRUE(length.setFromText(QStringLiteral("1.0")));
    EXPECT_TRUE(length.setFromText(QStringLiteral("209")));
    EXPECT_FALSE(length.setFromText(QStringLiteral("0.5")));
    EXPECT_FALSE(length.setFromText(QStringLiteral("210")));
    EXPECT_EQ(length.value(), 209.0);
}

TEST_F(ParametersTest, refinePitchShowsOnTheProcessPageAndRecomputesOnlyOnAChange)
{
    Parameters parameters;
    EXPECT_TRUE(parameters.refinePitch.value());
    QStringList shown;
    const std::vector<Parameters::Page> pages = parameters.dialogPages();
    ASSERT_EQ(pages[2].tabIdentifier, QStringLiteral("ProcessTab"));
    for (const Parameter *p : pages[2].parameters)
        if (!p->debug)
            shown << p->name;
    EXPECT_EQ(shown, (QStringList{QStringLiteral("Response"), QStringLiteral("Refine pitch")}));

    EXPECT_TRUE(parameters.refinePitch.setValue(true));
    EXPECT_FALSE(parameters.refinePitch.setFromText(QStringLiteral("no")));
    EXPECT_EQ(followUpCounts(), FollowUpCounts{});
    EXPECT_TRUE(parameters.refinePitch.setFromText(QStringLiteral("false")));
    EXPECT_TRUE(parameters.refinePitch.setValue(false));
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{.recompute = 1}));
    EXPECT_FALSE(Parameters().refinePitch.value());
    parameters.refinePitch.resetToDefault();
    EXPECT_TRUE(parameters.refinePitch.value());
}

TEST_F(ParametersTest, sharedLookupsReadTheStore)
{
    Parameters parameters;
    EXPECT_EQ(parameters.viewTypeLetter(), QLatin1Char('C'));
    EXPECT_TRUE(parameters.setViewType(QStringLiteral("RMS Amplitude")));
    EXPECT_EQ(OptionStore::text(QStringLiteral("View type")), QStringLiteral("RMS Amplitude"));
    EXPECT_EQ(parameters.viewTypeLetter(), QLatin1Char('R'));
    EXPECT_FALSE(parameters.setViewType(QStringLiteral("R")));
    OptionStore::setText(QStringLiteral("View type"), QStringLiteral("Xylophone"));
    EXPECT_TRUE(parameters.viewTypeLetter().isNull());
    // Even a text starting with a view letter selects nothing unless it is a choice.
    OptionStore::setText(QStringLiteral("View type"), QStringLiteral("Pitchy"));
    EXPECT_TRUE(parameters.viewTypeLetter().isNull());

    EXPECT_EQ(parameters.pianoKeyLabelling(), QStringLiteral("Letters"));
    EXPECT_EQ(parameters.currentKey().index, Parameters::majorKeyNames().indexOf(u"A"));
    OptionStore::setText(QStringLiteral("Key"), QStringLiteral("H"));
    EXPECT_EQ(parameters.currentKey().index, -1);
}

} // namespace
} // namespace quorval
