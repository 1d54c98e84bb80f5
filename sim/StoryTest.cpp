#include "Story.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Sim {
namespace {

TEST(SimStoryTest, textOfAStoryReadsBackTheSame) {
  for (U64 seed = 1; seed < 200; ++seed) {
    const std::string text = textOf(makeStory(seed));
    EXPECT_EQ(textOf(storyOf(text)), text) << seed;
  }
}

TEST(SimStoryTest, commentsAndBlankLinesAreSkipped) {
  const Story story = storyOf("# a story\n\nseed 7\nrouter 10.0.0.9 robustness=3\nhost 2\n");
  EXPECT_EQ(story.seed, 7U);
  EXPECT_EQ(story.routers.at(0).settings.robustness, 3);
  EXPECT_THAT(story.hosts, testing::ElementsAre(2U));
}

TEST(SimStoryTest, wrongLineIsNamed) {
  for (const char* wrong : {"10 jump r0", "10 want r0 g0 all", "router nowhere", "10 set all x 1",
                            "router 10.0.0.1 speed=3"}) {
    try {
      storyOf(std::string("seed 1\n") + wrong);
      FAIL() << wrong;
    } catch (const StoryError& error) {
      EXPECT_THAT(error.what(), testing::StartsWith("line 2: ")) << wrong;
    }
  }
}

}  // namespace
}  // namespace Sim
