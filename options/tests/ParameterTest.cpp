#include "options/BooleanParameter.h"
#include "options/ChoiceParameter.h"
#include "options/DoubleParameter.h"
#include "options/IntParameter.h"
#include "options/OptionStore.h"
#include "options/StringParameter.h"
#include "options/tests/support/OptionsTestStore.h"

namespace quorval {
namespace {

using ParameterTest = StoreTest;

TEST_F(ParameterTest, doubleRangeIsClosedAndRefusalsStoreNothing)
{
    DoubleParameter p(QStringLiteral("Test double"), 74.0, DoubleParameter::Range{1.0, 209.0});
    EXPECT_TRUE(p.setValue(1.0));
    EXPECT_EQ(p.value(), 1.0);
    EXPECT_TRUE(p.setValue(209.0));
    EXPECT_EQ(OptionStore::text(p.name), QStringLiteral("209.0000"));
    EXPECT_FALSE(p.setValue(0.5));
    EXPECT_FALSE(p.setValue(210.0));
    EXPECT_FALSE(p.setFromText(QStringLiteral("abc")));
    EXPECT_FALSE(p.setFromText(QStringLiteral("nan")));
    EXPECT_EQ(p.value(), 209.0);

    DoubleParameter unbounded(QStringLiteral("Test unbounded"), 0.5, std::nullopt);
    EXPECT_TRUE(unbounded.setFromText(QStringLiteral(" -102.35 ")));
    EXPECT_EQ(unbounded.valueText(), QStringLiteral("-102.3500"));

    IntParameter whole(QStringLiteral("Test int"), 2, IntParameter::Range{1, 4});
    EXPECT_TRUE(whole.setFromText(QStringLiteral("4")));
    EXPECT_FALSE(whole.setValue(5));
    EXPECT_FALSE(whole.setFromText(QStringLiteral("2.5")));
    EXPECT_EQ(OptionStore::text(whole.name), QStringLiteral("4"));
}

TEST_F(ParameterTest, valuesComeFromTheStoreEachTime)
{
    DoubleParameter d(QStringLiteral("Test double"), 440.0, DoubleParameter::Range{400.0, 499.0});
    IntParameter i(QStringLiteral("Test int"), 2, IntParameter::Range{1, 4});
    BooleanParameter b(QStringLiteral("Test bool"), true);
    StringParameter s(QStringLiteral("Test string"));
    EXPECT_EQ(d.value(), 440.0);
    EXPECT_EQ(i.value(), 2);
    EXPECT_TRUE(b.value());
    EXPECT_EQ(s.value(), QString());

    OptionStore::setText(d.name, QStringLiteral("441.5"));
    OptionStore::setText(i.name, QStringLiteral("3"));
    OptionStore::setText(b.name, QStringLiteral("false"));
    OptionStore::setText(s.name, QStringLiteral("1.2.3"));
    EXPECT_EQ(d.value(), 441.5);
    EXPECT_EQ(i.value(), 3);
    EXPECT_FALSE(b.value());
    EXPECT_EQ(s.value(), QStringLiteral("1.2.3"));

    // Texts that do not parse fall back on the default; only the exact "true" is true.
    OptionStore::setText(d.name, QStringLiteral("loud"));
    OptionStore::setText(i.name, QStringLiteral("2.5"));
    EXPECT_EQ(d.value(), 440.0);
    EXPECT_EQ(i.value(), 2);
    for (const char *text : {"True", "1", "yes"}) {
        OptionStore::setText(b.name, QString::fromLatin1(text));
        EXPECT_FALSE(b.value()) << text;
    }

    d.resetToDefault();
    i.resetToDefault();
    EXPECT_EQ(d.value(), 440.0);
    EXPECT_EQ(i.value(), 2);
    EXPECT_FALSE(OptionStore::text(d.name));
}

TEST_F(ParameterTest, onlyRealChangesAskForFollowUps)
{
    DoubleParameter both(QStringLiteral("Test both"), 0.5, DoubleParameter::Range{0.1, 0.9},
                         {.resegment = true, .recompute = true});
    IntParameter peaks(QStringLiteral("Test peaks"), 2, IntParameter::Range{1, 4},
                       {.recompute = true});
    BooleanParameter colour(QStringLiteral("Test colour"), false, {.recolor = true});
    ChoiceParameter choice(QStringLiteral("Test choice"),
                           {QStringLiteral("x"), QStringLiteral("y")}, std::nullopt, std::nullopt,
                           {.recompute = true, .recolor = true});

    EXPECT_TRUE(both.setValue(0.7));
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{1, 1, 0, 0}));
    // Same value, and a value that stores as the same text: nothing.
    EXPECT_TRUE(both.setValue(0.7));
    EXPECT_TRUE(both.setValue(0.700001));
    EXPECT_FALSE(both.setValue(0.95));
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{1, 1, 0, 0}));

    EXPECT_TRUE(peaks.setValue(2));
    EXPECT_TRUE(colour.setValue(false));
    EXPECT_TRUE(choice.setValue(QStringLiteral("x")));
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{1, 1, 0, 0}));
    EXPECT_FALSE(OptionStore::text(peaks.name));

    EXPECT_TRUE(peaks.setValue(4));
    EXPECT_TRUE(colour.setValue(true));
    EXPECT_TRUE(choice.setValue(QStringLiteral("y")));
    // Without a temperament option the tuning offset is never refreshed.
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{1, 3, 2, 0}));
}

TEST_F(ParameterTest, installedHandlersReceiveTheRequests)
{
    int resegments = 0;
    int recomputes = 0;
    setFollowUpHandlers({[&] { ++resegments; }, [&] { ++recomputes; }, nullptr, nullptr});
    DoubleParameter p(QStringLiteral("Test lowest"), 55.0, std::nullopt, {.resegment = true});
    EXPECT_TRUE(p.setValue(48.0));
    setFollowUpHandlers({});
    EXPECT_TRUE(p.setValue(36.0));
    EXPECT_EQ(resegments, 1);
    EXPECT_EQ(recomputes, 0);
    EXPECT_EQ(followUpCounts().resegment, 2);
}

TEST_F(ParameterTest, choicesAreFoundInEitherSpelling)
{
    ChoiceParameter p(QStringLiteral("Test choice"),
                      {QStringLiteral("one"), QStringLiteral("two"), QStringLiteral("three")},
                      QStringList{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")},
                      QStringLiteral("two"));
    EXPECT_EQ(p.index(), 1);
    EXPECT_TRUE(p.setFromText(QStringLiteral("3")));
    EXPECT_EQ(p.value(), QStringLiteral("three"));
    EXPECT_EQ(OptionStore::text(p.name), QStringLiteral("three"));
    EXPECT_FALSE(p.setFromText(QStringLiteral("four")));
    EXPECT_FALSE(p.setIndex(3));
    EXPECT_EQ(p.index(), 2);

    OptionStore::setText(p.name, QStringLiteral("1"));
    EXPECT_EQ(p.value(), QStringLiteral("one"));
    OptionStore::setText(p.name, QStringLiteral("ONE"));
    EXPECT_EQ(p.index(), -1);
    EXPECT_EQ(p.value(), QString());
    EXPECT_TRUE(p.setIndex(0));
    EXPECT_EQ(p.valueText(), QStringLiteral("one"));
}

} // namespace
} // namespace quorval
