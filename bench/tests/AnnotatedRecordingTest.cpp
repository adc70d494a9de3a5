#include "bench/AnnotatedRecording.h"

#include <gtest/gtest.h>

#include <sstream>

namespace quorval {
namespace {

// A segment is scored against the annotation at its centre: inside a note the pitch between two
// frames, nowhere between notes or outside the annotation, where two notes' pitches would blend.
TEST(AnnotatedRecording, pitchAtATimeIsInterpolatedWithinANoteOnly)
{
    std::istringstream text("0.023 60.0 0\n0.033 61.0 0\n0.043 61.0 0\n"
                            "0.063 72.0 1\n0.073 72.4 1\n");
    const auto frames = readAnnotatedPitch(text);
    ASSERT_TRUE(frames.has_value());
    ASSERT_EQ(frames->size(), 5u);

    const auto quarter = annotatedPitchAt(*frames, 0.0255);
    ASSERT_TRUE(quarter.has_value());
    EXPECT_NEAR(quarter->midi, 60.25, 1e-9);
    EXPECT_EQ(quarter->note, 0);
    const auto onFrame = annotatedPitchAt(*frames, 0.063); // a note's first frame
    ASSERT_TRUE(onFrame.has_value());
    EXPECT_DOUBLE_EQ(onFrame->midi, 72.0);
    EXPECT_EQ(onFrame->note, 1);
    const auto second = annotatedPitchAt(*frames, 0.068);
    ASSERT_TRUE(second.has_value());
    EXPECT_NEAR(second->midi, 72.2, 1e-9);
    EXPECT_EQ(second->note, 1);

    for (const double between : {0.0, 0.02, 0.05, 0.08})
        EXPECT_FALSE(annotatedPitchAt(*frames, between).has_value()) << between;
    EXPECT_FALSE(annotatedPitchAt({}, 0.03).has_value());
}

// A damaged pitch file is refused whole rather than scored in part.
TEST(AnnotatedRecording, damagedPitchFilesAreRefused)
{
    for (const char *text : {"0.023 60.0\n", "0.023 60.0 0\nabc 61 0\n", "0.023 60.0 -1\n",
                             "0.033 60.0 0\n0.023 60.0 0\n"}) {
        std::istringstream in(text);
        EXPECT_FALSE(readAnnotatedPitch(in).has_value()) << text;
    }
}

} // namespace
} // namespace quorval
