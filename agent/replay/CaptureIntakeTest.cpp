// What the rules of the intake make of captures of real networks. Where the captures lie is said in
// CaptureCollectionTest.cpp.
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include <Mox/ActivityClock.h>
#include <Replay/CaptureReplay.h>
#include <Text/WallClock.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <AgentTestSupport/EventRecorder.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::Pair;
using testing::UnorderedElementsAre;

std::filesystem::path captureFolder() {
  const char* named = std::getenv("QUERIER_CAPTURES");
  return named != nullptr ? named : QUERIER_CAPTURES_DEFAULT;
}

// Replays each capture through an intake of its own with the defaults.
class CaptureIntakeTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::is_directory(captureFolder())) {
      GTEST_SKIP() << "no captures in " << captureFolder();
    }
  }
  void TearDown() override {
    Mox::realTimeIs();
    wallClockDifferenceIs({});
  }

  void replayAll() {
    for (const auto& entry : std::filesystem::directory_iterator(captureFolder())) {
      if (entry.path().extension().string().starts_with(".pcap")) replay(entry.path());
    }
  }

  size_t packets_ = 0;
  size_t changed_ = 0;
  std::map<std::string, size_t> refused_;  // packets, by "capture: rule sender"

 private:
  void replay(const std::filesystem::path& path) {
    CaptureFile file(path);
    const auto config = Gmp::Igmp::querierConfigFactory("capture");
    config->querierVersionIs(Gmp::Igmp::igmpVersion3);
    EventRecorder events;
    CaptureReplay replay({.address = IpAddr(255, 255, 255, 254),
                          .intake = Mox::makePtr<IntakeConfig>("capture"),
                          .process = Mox::makePtr<IntakeProcessConfig>()},
                         config, nullptr, events);
    replay.run(file);
    packets_ += replay.summary().igmp;
    changed_ += replay.summary().changed;
    for (const Event& event : events.events()) {
      if (event.kind != Event::intake) continue;
      ++refused_[path.filename().string() + ": " + event.attribute + " " +
                 event.address.stringValue()];
    }
  }
};

// The refusals have their reasons. One capture begins in the middle of a conversation, before the
// first general query of its querier has made it the elected one. Two packets were made up by a
// program: queries for groups that no report has named, one of them sent to another group.
TEST_F(CaptureIntakeTest, theDefaultsRefuseNothingOfAnElectedQuerierAndItsHosts) {
  replayAll();
  EXPECT_GT(packets_, 1000u);
  EXPECT_EQ(changed_, 0u);
  EXPECT_THAT(refused_, UnorderedElementsAre(
                            Pair("arkime-igmp.pcap: specificQuery 20.0.1.1", 18u),
                            Pair("pcapplusplus-igmpv3.pcap: specificQuery 127.0.0.1", 1u),
                            Pair("pcapplusplus-igmpv3-query2.pcap: notMulticast 127.0.0.1", 1u)));
}

}  // namespace
}  // namespace Agent
