// What the rules of the intake make of captures of real networks. Where the captures lie is said in
// CaptureCollectionTest.cpp.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Intake/Intake.h>
#include <Mox/ActivityClock.h>
#include <Obel/TimerWheel.h>
#include <Replay/CaptureFile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::Pair;
using testing::UnorderedElementsAre;

std::filesystem::path captureFolder() {
  const char* named = std::getenv("QUERIER_CAPTURES");
  return named != nullptr ? named : QUERIER_CAPTURES_DEFAULT;
}

// Replays each capture through an intake of its own with the defaults; the subnets of the captured
// networks are not known.
class CaptureIntakeTest : public testing::Test, private IntakeWatcher {
 protected:
  void SetUp() override {
    if (!std::filesystem::is_directory(captureFolder())) {
      GTEST_SKIP() << "no captures in " << captureFolder();
    }
  }
  void TearDown() override { Mox::realTimeIs(); }

  void replayAll() {
    for (const auto& entry : std::filesystem::directory_iterator(captureFolder())) {
      if (entry.path().extension().string().starts_with(".pcap")) replay(entry.path());
    }
  }

  size_t packets_ = 0;
  size_t changed_ = 0;
  std::map<std::string, size_t> refused_;  // packets, by "capture: rule sender"

 private:
  void onIntakeEvent(const IntakeEvent&) override {}

  void replay(const std::filesystem::path& path) {
    CaptureFile file(path);
    Mox::virtualTimeIs(0.0);
    const auto wheel = Mox::makePtr<Obel::TimerWheel>(0.0);
    const auto config = Gmp::Igmp::querierConfigFactory("capture");
    config->querierVersionIs(Gmp::Igmp::igmpVersion3);
    const auto status = Gmp::Igmp::querierStatusFactory();
    const auto querier = Gmp::Igmp::querierSmFactory(config, status, IpAddr(255, 255, 255, 254),
                                                     1500, 0, wheel, wheel, wheel, false);
    IntakeProcess process;
    IntakeWatcher& watcher = *this;
    Intake intake(process, Mox::makePtr<IntakeConfig>("capture"),
                  Mox::makePtr<IntakeStatus>("capture"), status, watcher);
    intake.querierIs(querier);
    Mox::Seconds start = -1.0;
    while (const auto frame = file.next()) {
      if (start < 0.0) start = frame->time;
      Mox::virtualTimeIs(std::max(Mox::now(), frame->time - start));
      wheel->turn(Mox::now());
      if (frame->content.skipped) continue;
      ++packets_;
      const IntakeVerdict verdict = intake.judge({.packet = frame->content.ipv4});
      if (verdict.isChanged()) ++changed_;
      if (!verdict.isRefused) {
        querier->doRxPkt(Mox::makePtr<Ilvo::Pkt>(verdict.packet));
      } else {
        const auto view = PacketView::of({.packet = frame->content.ipv4});
        ++refused_[path.filename().string() + ": " + nameOf(*verdict.rule).name + " " +
                   view->ip().src().stringValue()];
      }
    }
  }
};

// The refusals have their reasons. One capture begins in the middle of a conversation, before the
// first general query of its querier has made it the elected one. Two packets were made up by a
// program: queries for groups that no report has named.
TEST_F(CaptureIntakeTest, theDefaultsRefuseNothingOfAnElectedQuerierAndItsHosts) {
  replayAll();
  EXPECT_GT(packets_, 1000u);
  EXPECT_EQ(changed_, 0u);
  EXPECT_THAT(refused_, UnorderedElementsAre(
                            Pair("arkime-igmp.pcap: specificQuery 20.0.1.1", 18u),
                            Pair("pcapplusplus-igmpv3.pcap: specificQuery 127.0.0.1", 1u),
                            Pair("pcapplusplus-igmpv3-query2.pcap: specificQuery 127.0.0.1", 1u)));
}

}  // namespace
}  // namespace Agent
