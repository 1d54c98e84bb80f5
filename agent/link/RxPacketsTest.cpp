#include "RxPackets.h"

#include <vector>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Mox::U16;
using Mox::U64;
using Mox::U8;
using Bytes = std::vector<U8>;

const Bytes report = Ilvo::buildV2Report(Ilvo::IpAddr(239, 1, 1, 1), {});

Bytes frameOf(const Bytes& packet, const Bytes& tags = {}) {
  Bytes frame(12, 0x02);
  frame.insert(frame.end(), tags.begin(), tags.end());
  frame.insert(frame.end(), {0x08, 0x00});
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

Bytes withFragmentField(U16 field) {
  Bytes packet = report;
  packet[6] = static_cast<U8>(field >> 8);
  packet[7] = static_cast<U8>(field);
  return packet;
}

TEST(RxPackets, areFramesWithAnIpv4Packet) {
  PortCounts counts;
  const Bytes frame = frameOf(report);
  const auto packet = rxPacketOf({.bytes = frame, .outgoing = true}, counts);
  ASSERT_TRUE(packet.has_value());
  EXPECT_EQ(Bytes(packet->packet.begin(), packet->packet.end()), report);
  EXPECT_EQ(packet->frame.data(), frame.data());
  EXPECT_TRUE(packet->outgoing);
}

TEST(RxPackets, mayHaveATagThatOnlyGivesAPriority) {
  PortCounts counts;
  const Bytes frame = frameOf(report, {0x81, 0x00, 0xe0, 0x00});
  EXPECT_TRUE(rxPacketOf({.bytes = frame}, counts).has_value());
}

struct LeftOutCase {
  const char* what;
  Bytes frame;
  U16 vlan;
  bool cut;
  U64 PortCounts::*count;
};

TEST(RxPackets, leaveOutAndCountTheOtherFrames) {
  const Bytes priority{0x81, 0x00, 0xe0, 0x00};
  const std::vector<LeftOutCase> cases{
      {"VLAN beside the frame", frameOf(report), 7, false, &PortCounts::otherVlans},
      {"VLAN in the frame", frameOf(report, {0x81, 0, 0, 7}), 0, false, &PortCounts::otherVlans},
      {"VLAN, cut", frameOf(report), 7, true, &PortCounts::otherVlans},
      {"no whole IPv4 header", frameOf(Bytes(19, 0x45)), 0, false, &PortCounts::unparsable},
      {"tag without a packet", frameOf({}, priority), 0, false, &PortCounts::unparsable},
      {"empty", {}, 0, false, &PortCounts::unparsable},
      {"cut", frameOf(report), 0, true, &PortCounts::unparsable},
  };
  for (const LeftOutCase& each : cases) {
    SCOPED_TRACE(each.what);
    PortCounts counts;
    EXPECT_FALSE(
        rxPacketOf({.bytes = each.frame, .vlan = each.vlan, .cut = each.cut}, counts).has_value());
    EXPECT_EQ(counts.*each.count, 1u);
    EXPECT_EQ(counts.lost + counts.unparsable + counts.fragments + counts.otherVlans, 1u);
  }
}

TEST(RxPackets, mayBeFragmentsWhichAreCounted) {
  for (const U16 field : {U16{0x2000}, U16{0x0001}, U16{0x1000}}) {
    PortCounts counts;
    const Bytes frame = frameOf(withFragmentField(field));
    EXPECT_TRUE(rxPacketOf({.bytes = frame}, counts).has_value());
    EXPECT_EQ(counts.fragments, 1u);
  }
}

TEST(RxPackets, mayForbidFragments) {
  PortCounts counts;
  const Bytes frame = frameOf(withFragmentField(0x4000));
  EXPECT_TRUE(rxPacketOf({.bytes = frame}, counts).has_value());
  EXPECT_EQ(counts.fragments, 0u);
}

}  // namespace
}  // namespace Agent
