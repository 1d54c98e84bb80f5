#include <Events/Event.h>

#include <gtest/gtest.h>

#include <Ilvo/IgmpHdr.h>
#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Ilvo::Pkt;
using Mox::Ptr;

Ptr<Pkt> message(size_t bytes) {
  Ptr<Pkt> pkt = Mox::makePtr<Pkt>(bytes);
  pkt->reserveHead(bytes);
  pkt->u8Is(0, Ilvo::igmpMembershipQuery);
  return pkt;
}

TEST(QuerySentEvent, ofVersion1IsKnownByItsCodeAndAnsweredWithinTenSeconds) {
  const Event event = querySentEvent("eth0", IpAddr(), message(8));
  EXPECT_EQ(event.kind, Event::querySent);
  EXPECT_EQ(event.interface, "eth0");
  EXPECT_EQ(event.version, 1u);
  EXPECT_EQ(event.maxResponse, 10.0);
}

TEST(QuerySentEvent, hasTheResponseTimeOfVersion2) {
  const Ptr<Pkt> pkt = message(8);
  pkt->u8Is(1, 25);
  const Event event = querySentEvent("eth0", IpAddr(239, 1, 1, 1), pkt);
  EXPECT_EQ(event.group, IpAddr(239, 1, 1, 1));
  EXPECT_EQ(event.version, 2u);
  EXPECT_EQ(event.maxResponse, 2.5);
}

TEST(QuerySentEvent, hasTheSourcesOfVersion3InTheirOrder) {
  const Ptr<Pkt> pkt = message(20);
  pkt->u8Is(1, 10);
  pkt->u16Is(10, 2);
  pkt->ipAddrIs(12, IpAddr(10, 0, 0, 9));
  pkt->ipAddrIs(16, IpAddr(10, 0, 0, 8));
  const Event event = querySentEvent("eth0", IpAddr(239, 1, 1, 1), pkt);
  EXPECT_EQ(event.version, 3u);
  EXPECT_EQ(event.maxResponse, 1.0);
  EXPECT_EQ(event.sources, (std::vector{IpAddr(10, 0, 0, 9), IpAddr(10, 0, 0, 8)}));
}

TEST(QuerySentEvent, hasTheTimeOfTheActivityClock) {
  Mox::virtualTimeIs(77.5);
  EXPECT_EQ(querySentEvent("eth0", IpAddr(), message(8)).time, 77.5);
  Mox::realTimeIs();
}

}  // namespace
}  // namespace Agent
