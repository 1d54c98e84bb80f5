// A world repeats from its seed, its invariants hold, and each of them finds the fault that is
// planted for it.
#include "World.h"

#include <cstdlib>
#include <fstream>
#include <regex>
#include <vector>

#include <Mox/EventLog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Reduce.h"
#include "Report.h"

namespace Sim {
namespace {

constexpr U64 worlds = 300;

class SimWorldTest : public testing::Test {
 protected:
  SimWorldTest() {
    Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
  }
  ~SimWorldTest() override { Mox::eventLogSinkIs({}); }

  static std::string logOf(const Story& story) {
    std::string all;
    World world(story);
    world.log = [&](const std::string& line) { all += line + "\n"; };
    world.run();
    return all;
  }
};

TEST_F(SimWorldTest, invariantsHoldInWorldsFromManySeeds) {
  Counts counts;
  for (U64 seed = 1; seed <= worlds; ++seed) {
    const Story story = makeStory(seed);
    const Findings found = World(story).run();
    counts.add(found.counts);
    ASSERT_FALSE(found.breach) << textOf(*found.breach) << "\n" << textOf(story);
  }
  EXPECT_GT(counts.packets, 10000U);
  EXPECT_GT(counts.elections, 1000U);
  EXPECT_GT(counts.losses, 1000U);
  EXPECT_GT(counts.restarts, 100U);
}

TEST_F(SimWorldTest, invariantsHoldWhereRoutersAreKilledAndBeginOnKeptState) {
  Counts counts;
  for (U64 seed = 1; seed <= worlds; ++seed) {
    const Story story = makeKillStory(seed);
    const Findings found = World(story).run();
    counts.add(found.counts);
    ASSERT_FALSE(found.breach) << textOf(*found.breach) << "\n" << textOf(story);
  }
  EXPECT_GT(counts.takeOvers, worlds);
  EXPECT_GT(counts.losses, 1000U);
}

TEST_F(SimWorldTest, aRouterThatDoesNotReadItsStoreIsFound) {
  unsigned found = 0;
  for (U64 seed = 1; seed <= worlds; ++seed) {
    const Findings findings = World(makeKillStory(seed), Canary::forgetsOnRestart).run();
    if (!findings.breach) continue;
    ++found;
    EXPECT_EQ(findings.breach->invariant, Invariant::restartKeeps) << seed;
  }
  EXPECT_GT(found, 0U);
}

TEST_F(SimWorldTest, aWorldRepeatsFromItsStory) {
  for (U64 seed = 1; seed <= 20; ++seed) {
    const Story story = makeStory(seed);
    EXPECT_EQ(logOf(story), logOf(storyOf(textOf(story)))) << seed;
  }
}

TEST_F(SimWorldTest, aReducedStoryBreaksTheSameInvariant) {
  const Story story = makeStory(2);
  const Findings found = World(story, Canary::muteHost).run();
  ASSERT_TRUE(found.breach);
  const Story shorter = reduced(story, found.breach->invariant, Canary::muteHost);
  EXPECT_LT(shorter.lines.size(), story.lines.size());
  const Findings again = World(shorter, Canary::muteHost).run();
  ASSERT_TRUE(again.breach);
  EXPECT_EQ(again.breach->invariant, found.breach->invariant);
}

// The table of the document has a row for each known behaviour: name, seeds, what it breaks.
TEST_F(SimWorldTest, theSeedsOfTheDocumentShowItsKnownBehaviour) {
  std::ifstream document(SIM_KNOWN_BEHAVIOUR);
  std::array<std::vector<U64>, knownNames.size()> seeds;
  const std::regex row(R"(\| `(\w+)` \| (\d+)(?:, (\d+))? \|.*)");
  for (std::string line; std::getline(document, line);) {
    std::smatch found;
    if (!std::regex_match(line, found, row)) continue;
    const auto* name = std::ranges::find(knownNames, found[1].str());
    ASSERT_NE(name, knownNames.end()) << found[1];
    auto& seedsOfName = seeds[static_cast<size_t>(name - knownNames.begin())];
    seedsOfName.push_back(std::stoull(found[2].str()));
    if (found[3].matched) seedsOfName.push_back(std::stoull(found[3].str()));
  }
  for (size_t at = 0; at < seeds.size(); ++at) {
    EXPECT_FALSE(seeds[at].empty()) << knownNames[at];
    for (const U64 seed : seeds[at]) {
      const Findings findings = World(makeStory(seed)).run();
      EXPECT_NE(findings.counts.known[at], 0U) << knownNames[at] << " " << seed;
      EXPECT_FALSE(findings.breach) << knownNames[at] << " " << seed;
    }
  }
}

class SimCanaryTest : public SimWorldTest, public testing::WithParamInterface<CanaryName> {};

TEST_P(SimCanaryTest, onlyItsInvariantFindsIt) {
  const CanaryName canary = GetParam();
  unsigned found = 0;
  const char* fewer = std::getenv("SIM_CANARY_WORLDS");
  const U64 seeds = fewer != nullptr ? std::stoull(fewer) : 2 * worlds;
  for (U64 seed = 1; seed <= seeds; ++seed) {
    const Story story = makeStory(seed);
    const Findings findings = World(story, canary.canary).run();
    if (!findings.breach) continue;
    ++found;
    EXPECT_EQ(findings.breach->invariant, canary.finds) << seed << ": " << textOf(*findings.breach);
  }
  EXPECT_GT(found, 0U);
}

INSTANTIATE_TEST_SUITE_P(all, SimCanaryTest, testing::ValuesIn(canaries),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace Sim
