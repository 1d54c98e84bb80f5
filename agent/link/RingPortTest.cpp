#include <Link/RingPort.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <Link/QueryDatagram.h>
#include <Mox/ActivityClock.h>
#include "TestNetwork.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U8;
using Bytes = std::vector<U8>;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IpAddr group(239, 1, 1, 1);
constexpr IpAddr ourAddr(10, 9, 0, 1);

class RingPortTest : public TestNetwork, public FrameReceiver {
 protected:
  struct Received {
    Bytes packet;
    bool outgoing;
  };

  void open(const RingSize& size = ringSizeFor(1)) {
    port_ = std::make_unique<RingPort>(polls_, sender_, link("eth0"), *this, size);
  }
  // The kernel hands a block over within its timeout; a minute is for machines that are stuck.
  void read() {
    pollfd readable{.fd = polls_.fd(), .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&readable, 1, 60000), 1);
    polls_.readReady();
  }
  void readFrames(size_t frames) {
    while (received_.size() < frames && !HasFatalFailure()) read();
  }
  static Bytes frameOf(const Bytes& packet, const Bytes& tags = {}) {
    Bytes frame{0x01, 0x00, 0x5e, 0x01, 0x01, 0x01, 0x02, 0, 0, 0, 0, 0x02};
    frame.insert(frame.end(), tags.begin(), tags.end());
    frame.insert(frame.end(), {0x08, 0x00});
    frame.insert(frame.end(), packet.begin(), packet.end());
    return frame;
  }
  std::vector<Bytes> packets() const {
    std::vector<Bytes> all;
    for (const Received& each : received_) all.push_back(each.packet);
    return all;
  }

  void rxPacket(const RxPacket& packet) override {
    received_.push_back({{packet.packet.begin(), packet.packet.end()}, packet.outgoing});
  }
  void rxBatchEnd() override { ++batches_; }
  void portFailed(const std::string& why) override {
    failed_ = why;
    port_ = nullptr;
  }

  const Bytes report_ = Ilvo::buildV2Report(group, {.src = IpAddr(10, 9, 0, 11)});
  RingPolls polls_;
  QuerySocket sender_;
  std::unique_ptr<RingPort> port_;
  std::vector<Received> received_;
  int batches_ = 0;
  std::string failed_;
};

TEST_F(RingPortTest, receivesReportsForGroupsThatThisMachineIsNoMemberOf) {
  open();
  sendFrame(frameOf(report_));
  readFrames(1);
  EXPECT_THAT(packets(), ElementsAre(report_));
  EXPECT_FALSE(received_[0].outgoing);
  EXPECT_EQ(batches_, 1);
}

TEST_F(RingPortTest, knowsHowLongWhatItLeavesBehindHasBeenWaiting) {
  open();
  EXPECT_EQ(polls_.backlog(), 0.0);
  sendFrame(frameOf(report_));
  pollfd readable{.fd = polls_.fd(), .events = POLLIN, .revents = 0};
  ASSERT_EQ(poll(&readable, 1, 60000), 1);
  polls_.readReady(-1.0);  // has no time
  EXPECT_FALSE(polls_.isDrained());
  EXPECT_GT(polls_.backlog(), 0.0);
  EXPECT_THAT(packets(), IsEmpty());
  readFrames(1);
  EXPECT_EQ(polls_.backlog(), 0.0);
}

TEST_F(RingPortTest, handsOverWhatHasArrivedWhenItIsAskedTo) {
  open();
  port_->handOver();
  sendFrame(frameOf(report_));
  pollfd readable{.fd = polls_.fd(), .events = POLLIN, .revents = 0};
  ASSERT_EQ(poll(&readable, 1, 60000), 1);
  port_->handOver();
  EXPECT_THAT(packets(), ElementsAre(report_));
  polls_.readReady();
  EXPECT_EQ(batches_, 1);
}

TEST_F(RingPortTest, leavesOtherProtocolsOut) {
  open();
  Bytes udp = report_;
  udp[9] = 17;
  sendFrame(frameOf(udp));
  sendFrame(frameOf(report_));
  readFrames(1);
  EXPECT_THAT(packets(), ElementsAre(report_));
}

TEST_F(RingPortTest, countsFramesOfVlansWhicheverWayTheirTagsCome) {
  open();
  sendFrame(frameOf(report_, {0x81, 0x00, 0xe0, 0x07}));
  sendFrame(frameOf(report_, {0x81, 0x00, 0xe0, 0x00, 0x81, 0x00, 0x00, 0x07}));
  sendFrame(frameOf(report_, {0x81, 0x00, 0xe0, 0x00}));
  readFrames(1);
  EXPECT_THAT(packets(), ElementsAre(report_));
  EXPECT_EQ(port_->counts().otherVlans, 2u);
}

TEST_F(RingPortTest, countsFragmentsAndFramesThatCannotBeParsed) {
  open();
  Bytes fragment = report_;
  fragment[6] = 0x20;
  sendFrame(frameOf(fragment));
  sendFrame(frameOf({0x46, 0xc0, 0, 32, 0, 0, 0x40, 0, 1, 2}));
  sendFrame(frameOf(report_));
  readFrames(1);
  EXPECT_EQ(port_->counts().fragments, 1u);
  EXPECT_EQ(port_->counts().unparsable, 1u);
}

TEST_F(RingPortTest, countsWhatFoundNoPlaceAndGoesOnAfterwards) {
  open({.bytes = 32 << 10});
  constexpr int sent = 600;
  sendFrame(frameOf(report_), sent);
  const Mox::U64 lost = port_->counts().lost;
  EXPECT_GT(lost, 0u);
  readFrames(sent - lost);
  EXPECT_EQ(received_.size(), sent - lost);
  EXPECT_EQ(port_->counts().lost, lost);
  EXPECT_THAT(packets(), Each(report_));
  sendFrame(frameOf(report_), sent);
  EXPECT_GT(port_->counts().lost, lost);
  received_.clear();
  readFrames(1);
}

TEST_F(RingPortTest, seesItsOwnQueriesOnTheirWayOut) {
  open();
  const Bytes query = queryDatagram(ourAddr, IpAddr(), Bytes{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0});
  EXPECT_FALSE(port_->send(query));
  readFrames(1);
  ASSERT_EQ(received_.size(), 1u);
  EXPECT_TRUE(received_[0].outgoing);
  Bytes seen = received_[0].packet;
  // The kernel numbers the packet and so changes the checksum.
  for (const size_t at : {size_t{4}, size_t{5}, size_t{10}, size_t{11}}) seen[at] = query[at];
  EXPECT_EQ(seen, query);
}

TEST_F(RingPortTest, sendsQueriesForGroupsWithoutARoute) {
  open();
  const Bytes igmp{0x11, 0x0a, 0xfe, 0xf2, 0xef, 0x01, 0x01, 0x01};
  EXPECT_FALSE(port_->send(queryDatagram(ourAddr, group, igmp)));
  readFrames(1);
  EXPECT_TRUE(received_[0].outgoing);
}

TEST_F(RingPortTest, reportsAQueryThatCouldNotBeSent) {
  open();
  ASSERT_TRUE(ip("link set eth0 down"));
  const Bytes query = queryDatagram(ourAddr, IpAddr(), Bytes{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0});
  EXPECT_EQ(port_->send(query), std::errc::network_unreachable);
}

TEST_F(RingPortTest, receivesAgainOnAnInterfaceThatWasDown) {
  open();
  ASSERT_TRUE(ip("link set eth0 down"));
  read();
  EXPECT_EQ(failed_, "");
  ASSERT_TRUE(ip("link set eth0 up"));
  // Until the kernel has noticed the carrier, the other end drops what it sends.
  for (int attempt = 0; received_.empty() && attempt < 6000; ++attempt) {
    sendFrame(frameOf(report_));
    pollfd readable{.fd = polls_.fd(), .events = POLLIN, .revents = 0};
    poll(&readable, 1, 10);
    polls_.readReady();
  }
  EXPECT_THAT(packets(), Contains(report_));
}

// Each block takes it two milliseconds of virtual time.
class SlowReceiver final : public FrameReceiver {
 public:
  SlowReceiver(std::string& turns, char mark) : turns_(turns), mark_(mark) {}
  void rxPacket(const RxPacket&) override {}
  void rxBatchEnd() override {
    turns_ += mark_;
    Mox::virtualTimeIs(Mox::now() + 0.002);
  }
  void portFailed(const std::string&) override {}

 private:
  std::string& turns_;
  const char mark_;
};

TEST_F(RingPortTest, takeTurnsAndEndABatchEarlySoThatNoneWaitsForAnother) {
  std::string turns;
  SlowReceiver first(turns, 'a');
  SlowReceiver second(turns, 'b');
  Mox::virtualTimeIs(1000.0);
  RingPort port(polls_, sender_, link("eth0"), first, ringSizeFor(1));
  RingPort other(polls_, sender_, link("eth0"), second, ringSizeFor(1));
  sendFrame(frameOf(report_), 2000);  // more than ten blocks
  polls_.readReady();
  EXPECT_EQ(turns.size(), 3u);
  polls_.readReady();
  EXPECT_THAT(turns, testing::AnyOf("ababab", "bababa"));
  Mox::realTimeIs();
}

TEST_F(RingPortTest, isNotPolledAnyMoreOnceItHasGone) {
  open();
  port_ = nullptr;
  sendFrame(frameOf(report_));
  polls_.readReady();
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(RingPortTest, doesNotOpenWithoutAnInterface) {
  Link none = link("eth0");
  none.index = 4711;
  EXPECT_THROW(RingPort(polls_, sender_, none, *this, ringSizeFor(1)), std::runtime_error);
}

}  // namespace
}  // namespace Agent
