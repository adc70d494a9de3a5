#include "options/BooleanParameter.h"
#include "options/ChoiceParameter.h"
#include "options/DoubleParameter.h"
#include "options/IntParameter.h"
#include "options/OptionStore.h"
#include "options/StringParameter.h"
#include "options/tests/support/OptionsTestStore.h"

#include <string>
#include <utility>

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

TEST_F(ParameterTest, everyFlagAsksForItsFollowUpOnARealChangeOfEveryKind)
{
    struct Case
    {
        const char *flagName;
        bool ParameterFlags::*flag;
        int FollowUpCounts::*count;
    };
    const Case cases[] = {
        {"resegment", &ParameterFlags::resegment, &FollowUpCounts::resegment},
        {"recompute", &ParameterFlags::recompute, &FollowUpCounts::recompute},
        {"recolor", &ParameterFlags::recolor, &FollowUpCounts::recolor},
        {"redisplay", &ParameterFlags::redisplay, &FollowUpCounts::redisplay},
    };
    for (const auto &[flagName, flag, count] : cases) {
        ParameterFlags given;
        given.*flag = true;
        FollowUpCounts once;
        once.*count = 1;
        BooleanParameter onOff(QStringLiteral("Test on/off"), false, given);
        DoubleParameter number(QStringLiteral("Test number"), 0.5, std::nullopt, given);
        ChoiceParameter choice(QStringLiteral("Test choice"),
                               {QStringLiteral("x"), QStringLiteral("y")}, std::nullopt,
                               std::nullopt, given);
        const std::pair<Parameter *, const char *> changes[] = {
            {&onOff, "true"}, {&number, "0.7"}, {&choice, "y"}};
        for (const auto &[p, text] : changes) {
            SCOPED_TRACE(p->name.toStdString() + " with " + flagName);
            clearTestStore();
            resetFollowUpCounts();
            // The value in force already, and text that is refused: nothing to do.
            EXPECT_TRUE(p->setFromText(p->valueText()));
            EXPECT_FALSE(p->setFromText(QStringLiteral("zz")));
            EXPECT_EQ(followUpCounts(), FollowUpCounts{});
            EXPECT_TRUE(p->setFromText(QString::fromLatin1(text)));
            EXPECT_TRUE(p->setFromText(QString::fromLatin1(text)));
            EXPECT_EQ(followUpCounts(), once);
        }
    }
    // A number that stores as the text already there is no change either.
    resetFollowUpCounts();
    DoubleParameter number(QStringLiteral("Test number"), 0.5, std::nullopt, {.recompute = true});
    EXPECT_TRUE(number.setValue(0.500001));
    EXPECT_EQ(followUpCounts(), FollowUpCounts{});
}

TEST_F(ParameterTest, installedHandlersReceiveTheRequests)
{
    int resegments = 0;
    int redisplays = 0;
    FollowUpHandlers handlers;
    handlers.resegment = [&] { ++resegments; };
    handlers.redisplay = [&] { ++redisplays; };
    setFollowUpHandlers(handlers);
    DoubleParameter p(QStringLiteral("Test lowest"), 55.0, std::nullopt,
                      {.resegment = true, .redisplay = true});
    EXPECT_TRUE(p.setValue(48.0));
    setFollowUpHandlers({});
    EXPECT_TRUE(p.setValue(36.0));
    EXPECT_EQ(resegments, 1);
    EXPECT_EQ(redisplays, 1);
    EXPECT_EQ(followUpCounts(), (FollowUpCounts{.resegment = 2, .redisplay = 2}));
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
