#include <Replay/CaptureFrame.h>

#include <algorithm>

#include <pcap/dlt.h>

#include <Ilvo/IgmpHdr.h>
#include <Link/Ethernet.h>

namespace Agent {

using Mox::U16;
using Mox::U32;
using Mox::U8;
using Bytes = std::span<const U8>;

namespace {

constexpr std::size_t ipv4HeaderBytes = 20;
constexpr std::size_t macsBytes = 12;

U16 u16At(Bytes bytes, std::size_t at) { return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]); }

CaptureContent skip(SkipReason reason) { return {.ipv4 = {}, .skipped = reason}; }

// A capture may be of a trunk: a packet is taken whatever VLAN its tags name.
CaptureContent contentOf(const EtherPayload& payload) {
  switch (payload.kind) {
    case EtherPayload::ipv4: return {.ipv4 = payload.ipv4Packet, .skipped = {}};
    case EtherPayload::other: return skip(SkipReason::notIpv4);
    case EtherPayload::tooShort: return skip(SkipReason::tooShort);
  }
  return skip(SkipReason::tooShort);
}

CaptureContent rawContent(Bytes frame) {
  if (frame.empty()) return skip(SkipReason::tooShort);
  if (frame[0] >> 4 != 4) return skip(SkipReason::notIpv4);
  return {.ipv4 = frame, .skipped = {}};
}

// The address family is written in the order of the machine that captured.
CaptureContent loopbackContent(Bytes frame) {
  constexpr U32 familyIpv4 = 2;
  if (frame.size() < 4) return skip(SkipReason::tooShort);
  const U32 family = U32{u16At(frame, 0)} << 16 | u16At(frame, 2);
  if (family != familyIpv4 && family != familyIpv4 << 24) return skip(SkipReason::notIpv4);
  return {.ipv4 = frame.subspan(4), .skipped = {}};
}

CaptureContent ipv4Behind(int linkType, Bytes frame) {
  switch (linkType) {
    case DLT_EN10MB: return contentOf(etherPayload(frame));
    case DLT_LINUX_SLL: return contentOf(etherPayload(frame, 14, 16));
    case DLT_LINUX_SLL2: return contentOf(etherPayload(frame, 0, 20));
    case DLT_RAW:
    case DLT_IPV4: return rawContent(frame);
    case DLT_NULL:
    case DLT_LOOP: return loopbackContent(frame);
    default: return skip(SkipReason::notIpv4);
  }
}

}  // namespace

bool isKnownLinkType(int linkType) {
  constexpr std::array known{DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                             DLT_IPV4,   DLT_NULL,      DLT_LOOP};
  return std::find(known.begin(), known.end(), linkType) != known.end();
}

CaptureContent igmpOf(int linkType, Bytes frame, std::size_t lengthOnLink) {
  const bool wasCut = frame.size() < lengthOnLink;
  CaptureContent found = ipv4Behind(linkType, frame);
  if (found.skipped == SkipReason::tooShort && wasCut) return skip(SkipReason::cutShort);
  if (found.skipped) return found;
  const Bytes ip = found.ipv4;
  if (ip.size() < ipv4HeaderBytes) {
    return skip(wasCut ? SkipReason::cutShort : SkipReason::tooShort);
  }
  if (ip[9] != Ilvo::igmpIpProtocol) return skip(SkipReason::notIgmp);
  constexpr U16 moreFragmentsAndOffset = 0x3fff;
  if ((u16At(ip, 6) & moreFragmentsAndOffset) != 0) return skip(SkipReason::fragment);
  if (u16At(ip, 2) > ip.size() && wasCut) return skip(SkipReason::cutShort);
  if (linkType == DLT_EN10MB) found.macs = frame.first(macsBytes);
  return found;
}

}  // namespace Agent
