// Replays captures of real networks. They are not part of the source tree: the environment variable
// QUERIER_CAPTURES names their folder, or else the build, which looks beside the source tree.
#include <Replay/CaptureReplay.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

#include <AgentTestSupport/EventRecorder.h>

namespace Agent {
namespace {

using Gmp::Igmp::IgmpVersion;
using Ilvo::IpAddr;

std::filesystem::path folder() {
  const char* named = std::getenv("QUERIER_CAPTURES");
  return named != nullptr ? named : QUERIER_CAPTURES_DEFAULT;
}

class CaptureCollectionTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::is_directory(folder())) {
      GTEST_SKIP() << "no captures in " << folder() << "; QUERIER_CAPTURES may name another folder";
    }
  }
  void TearDown() override { Mox::realTimeIs(); }

  void replay(const std::filesystem::path& path, IgmpVersion version,
              IpAddr address = IpAddr(10, 0, 0, 5)) {
    const auto config = Gmp::Igmp::querierConfigFactory("capture");
    config->querierVersionIs(version);
    events_ = std::make_unique<EventRecorder>();
    CaptureFile file(path);
    replay_ = std::make_unique<CaptureReplay>(ReplayOptions{.address = address}, config, nullptr,
                                              *events_);
    replay_->run(file);
  }
  void replay(const char* name, IgmpVersion version) { replay(folder() / name, version); }

  const Gmp::Igmp::QuerierStatus& status() { return *replay_->interfaces().at(0).status; }
  const ReplaySummary& summary() { return replay_->summary(); }
  size_t count(Event::Kind kind) {
    const auto& events = events_->events();
    return static_cast<size_t>(std::count_if(
        events.begin(), events.end(), [&](const Event& event) { return event.kind == kind; }));
  }

  std::unique_ptr<EventRecorder> events_;
  std::unique_ptr<CaptureReplay> replay_;
};

TEST_F(CaptureCollectionTest, everyFrameOfEveryCaptureIsAccountedFor) {
  size_t captures = 0;
  Mox::U64 igmp = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder())) {
    if (!entry.path().extension().string().starts_with(".pcap")) continue;
    ++captures;
    for (const IgmpVersion version :
         {Gmp::Igmp::igmpVersion1, Gmp::Igmp::igmpVersion2, Gmp::Igmp::igmpVersion3}) {
      replay(entry.path(), version);
      EXPECT_GT(summary().frames, 0u) << entry.path();
      EXPECT_EQ(summary().frames, summary().igmp + summary().skippedInAll()) << entry.path();
    }
    igmp += summary().igmp;
  }
  EXPECT_GT(captures, 0u);
  EXPECT_GT(igmp, 0u);
}

TEST_F(CaptureCollectionTest, joinsLessLeavesAreTheGroupsAtTheEnd) {
  for (const auto& entry : std::filesystem::directory_iterator(folder())) {
    if (!entry.path().extension().string().starts_with(".pcap")) continue;
    replay(entry.path(), Gmp::Igmp::igmpVersion3);
    EXPECT_EQ(count(Event::groupJoined) - count(Event::groupLeft), status().group().size())
        << entry.path();
  }
}

// Nine of the 24 reports name groups of 224.0.0.0/24, which no router learns.
TEST_F(CaptureCollectionTest, aVersion1LanHasTheMembersThatItsReportsName) {
  replay("tcpdump-igmp-v1.pcap", Gmp::Igmp::igmpVersion1);
  EXPECT_EQ(summary().igmp, 27u);
  EXPECT_EQ(status().v1QueriesReceived(), 3u);
  EXPECT_EQ(status().v1ReportReceived(), 15u);
}

TEST_F(CaptureCollectionTest, twoLeavesInAVersion2LanAreAskedAboutAndLeave) {
  replay("tcpdump-igmp-v2.pcap", Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(summary().igmp, 18u);
  EXPECT_EQ(status().v2QueriesReceived(), 4u);
  EXPECT_EQ(status().v2ReportReceived(), 12u);
  EXPECT_EQ(status().v2LeaveReceived(), 2u);
  EXPECT_EQ(count(Event::groupLeft), 2u);
}

TEST_F(CaptureCollectionTest, aHundredAndFiftyGroupsJoinWithinOneBurst) {
  replay("zeek-igmp-many-groups.pcap", Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(summary().igmp, 450u);
  EXPECT_EQ(count(Event::groupJoined), 150u);
  EXPECT_EQ(status().group().size(), 150u);
}

TEST_F(CaptureCollectionTest, aMixedLanCountsItsForeignMessages) {
  replay("wireshark-wiki-igmp-dataset.pcap", Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(summary().igmp, 147u);
  EXPECT_EQ(status().v2QueriesReceived(), 10u);
  EXPECT_EQ(status().otherPacketReceived(), 19u);
}

TEST_F(CaptureCollectionTest, allRecordTypesOfAVersion3LanAreUnderstood) {
  replay("packetnet-igmpv3-multihost.pcap", Gmp::Igmp::igmpVersion3);
  EXPECT_EQ(summary().igmp, 79u);
  EXPECT_EQ(status().v3QueriesReceived(), 33u);
  EXPECT_EQ(status().errorPacketReceived(), 11u);  // of the capturing host, without checksums
  EXPECT_EQ(count(Event::sourceJoined), 2u);
  EXPECT_EQ(count(Event::sourceLeft), 2u);
}

TEST_F(CaptureCollectionTest, aWrongChecksumIsCounted) {
  replay("zeek-igmp-bad-checksum.pcap", Gmp::Igmp::igmpVersion3);
  EXPECT_EQ(status().errorPacketReceived(), 1u);
}

TEST_F(CaptureCollectionTest, packetsInsideATunnelAreNotReceived) {
  replay("zeek-vxlan-encapsulated-igmp-v2.pcap", Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(summary().igmp, 0u);
}

TEST_F(CaptureCollectionTest, aFileThatEndsInTheMiddleOfAPacketIsReplayedUpToThere) {
  replay("pcapplusplus-fuzz-igmplayer.pcap", Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(summary().frames, 2u);
  EXPECT_NE(summary().damage, "");
}

}  // namespace
}  // namespace Agent
