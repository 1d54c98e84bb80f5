// Finds the IPv4 packet with IGMP in a captured frame, after the link-layer header and VLAN tags.
//
//   const CaptureContent content = igmpOf(DLT_EN10MB, frame, lengthOnLink);
//   if (!content.skipped) querier->doRxPkt(makePtr<Ilvo::Pkt>(content.ipv4));
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>

#include <MoxBase/Types.h>

namespace Agent {

// Why a frame is not handed to the querier. Malformed IGMP packets are handed in: the querier
// checks and counts them.
enum class SkipReason {
  notIpv4,
  notIgmp,
  tooShort,  // ends before the end of its headers
  fragment,  // the rest of its message is in other packets
  cutShort,  // the capture kept too little of it
};

struct SkipReasonName {
  SkipReason reason;
  const char* name;  // in JSON
  const char* text;  // for people
};
inline constexpr std::array skipReasons{
    SkipReasonName{SkipReason::notIpv4, "notIpv4", "not IPv4"},
    SkipReasonName{SkipReason::notIgmp, "notIgmp", "not IGMP"},
    SkipReasonName{SkipReason::tooShort, "tooShort", "too short"},
    SkipReasonName{SkipReason::fragment, "fragment", "a fragment"},
    SkipReasonName{SkipReason::cutShort, "cutShort", "cut short by the capture"},
};

struct CaptureContent {
  std::span<const Mox::U8> ipv4;  // includes the bytes after it in the frame; empty when skipped
  std::optional<SkipReason> skipped;
  std::span<const Mox::U8> macs = {};  // destination and source; empty where the link has none
};

// Ethernet, raw IP, Linux cooked capture 1 and 2, BSD loopback.
bool isKnownLinkType(int linkType);

// The IGMP packet of a frame that had `lengthOnLink` bytes before the capture cut it. The link type
// must be a known one.
CaptureContent igmpOf(int linkType, std::span<const Mox::U8> frame, std::size_t lengthOnLink);

}  // namespace Agent
