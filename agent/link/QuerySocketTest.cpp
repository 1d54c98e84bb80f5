#include <Link/QuerySocket.h>

#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include <Ilvo/Checksum.h>
#include <Link/QueryDatagram.h>
#include <Link/RingPort.h>
#include "TestNetwork.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U8;

// With a second cable, eth1 to peer1.
class QuerySocketTest : public TestNetwork, public FrameReceiver {
 protected:
  void SetUp() override {
    TestNetwork::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_TRUE(ip("link add name eth1 type veth peer name peer1"));
    ASSERT_TRUE(ip("address add 10.9.1.1/24 dev eth1"));
    ASSERT_TRUE(ip("link set eth1 up"));
    ASSERT_TRUE(ip("link set peer1 up"));
    awaitCarriers({"eth1", "peer1"});
    stuck_ = link("eth0").index;
    other_ = link("eth1").index;
  }
  // eth0 sends its first packets, and a byte a second of what follows. It has room for so many
  // bytes.
  static bool stickWithRoomFor(int bytes) {
    return run("tc qdisc add dev eth0 root tbf rate 8bit burst 1540 limit " +
               std::to_string(bytes));
  }
  std::error_code send(Mox::U32 interfaceIndex) { return socket_.send(interfaceIndex, query_); }

  void rxPacket(const RxPacket&) override { ++received_; }
  void rxBatchEnd() override {}
  void portFailed(const std::string&) override {}

  const std::vector<U8> query_ = queryDatagram(IpAddr(10, 9, 0, 1), IpAddr(),
                                               std::vector<U8>{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0});
  QuerySocket socket_;
  Mox::U32 stuck_ = 0;
  Mox::U32 other_ = 0;
  int received_ = 0;
};

// More queries than the buffers of several sockets hold.
TEST_F(QuerySocketTest, aDeviceThatIsStuckHoldsUpNoOther) {
  if (!stickWithRoomFor(10'000'000)) GTEST_SKIP() << "no token buckets here";
  RingPolls polls;
  RingPort peer(polls, socket_, link("peer1"), *this, ringSizeFor(1));
  constexpr int queries = 1500;
  for (int i = 0; i < queries; ++i) {
    ASSERT_EQ(send(stuck_), std::error_code()) << i;
    ASSERT_EQ(send(other_), std::error_code()) << i;
  }
  while (received_ < queries) {
    pollfd readable{.fd = polls.fd(), .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&readable, 1, 60000), 1);
    polls.readReady();
  }
  EXPECT_EQ(received_, queries);
}

TEST_F(QuerySocketTest, aQueryThatADeviceHasNoRoomForHasFailed) {
  if (!stickWithRoomFor(1600)) GTEST_SKIP() << "no token buckets here";
  int sent = 0;
  while (sent < 1000 && !send(stuck_)) ++sent;
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, 1000);
  EXPECT_EQ(send(stuck_), std::errc::no_buffer_space);
  EXPECT_EQ(send(other_), std::error_code());
}

// An ICMP message of another machine: it could not deliver the packet with that header.
std::vector<U8> unreachableFrame(const std::vector<U8>& packet) {
  std::vector<U8> icmp{3, 1, 0, 0, 0, 0, 0, 0};
  icmp.insert(icmp.end(), packet.begin(), packet.end());
  const auto length = static_cast<U8>(20 + icmp.size());
  std::vector<U8> header{0x45, 0, 0, length, 0, 0, 0, 0, 64, 1, 0, 0, 10, 9, 0, 11, 10, 9, 0, 1};
  const auto checksumIs = [](std::vector<U8>& bytes, size_t at) {
    const Ilvo::U16 sum = Ilvo::checksum(bytes);
    bytes[at] = static_cast<U8>(sum >> 8);
    bytes[at + 1] = static_cast<U8>(sum & 0xff);
  };
  checksumIs(icmp, 2);
  checksumIs(header, 10);
  std::vector<U8> frame{0x02, 0, 0, 0, 0, 0x01, 0x02, 0, 0, 0, 0, 0x02, 0x08, 0x00};
  frame.insert(frame.end(), header.begin(), header.end());
  frame.insert(frame.end(), icmp.begin(), icmp.end());
  return frame;
}

TEST_F(QuerySocketTest, aForgedIcmpErrorMakesNoQueryFail) {
  EXPECT_EQ(send(stuck_), std::error_code());
  sendFrame(unreachableFrame(query_), 3);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send(stuck_), std::error_code()) << i;
}

}  // namespace
}  // namespace Agent
