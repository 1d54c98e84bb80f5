#include <Replay/CaptureFrame.h>

#include <algorithm>

#include <pcap/dlt.h>

namespace Agent {

using Mox::U16;
using Mox::U32;
using Mox::U8;
using Bytes = std::span<const U8>;

namespace {

constexpr U16 etherTypeIpv4 = 0x0800;
constexpr std::array<U16, 3> vlanTypes{0x8100, 0x88a8, 0x9100};
constexpr std::size_t ipv4HeaderBytes = 20;
constexpr U8 protocolIgmp = 2;

U16 u16At(Bytes bytes, std::size_t at) { return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]); }

CaptureContent skip(SkipReason reason) { return {{}, reason}; }

// What lies behind a link header, if that says IPv4. Whether a frame that is too short was cut by
// the capture, nobody asks here.
CaptureContent behind(Bytes frame, std::size_t header) {
  if (frame.size() < header) return skip(SkipReason::tooShort);
  return {frame.subspan(header), std::nullopt};
}

// `at` is where the type stands; the payload, or a tag with the next type, follows it at `header`.
CaptureContent behindEtherType(Bytes frame, std::size_t at, std::size_t header) {
  while (frame.size() >= std::max(at + 2, header)) {
    const U16 type = u16At(frame, at);
    if (type == etherTypeIpv4) return behind(frame, header);
    if (std::find(vlanTypes.begin(), vlanTypes.end(), type) == vlanTypes.end()) {
      return skip(SkipReason::notIpv4);
    }
    at = header + 2;  // behind the tag's number
    header += 4;
  }
  return skip(SkipReason::tooShort);
}

CaptureContent behindNothing(Bytes frame) {
  if (frame.empty()) return skip(SkipReason::tooShort);
  if (frame[0] >> 4 != 4) return skip(SkipReason::notIpv4);
  return {frame, std::nullopt};
}

// The address family is written in the order of the machine that captured.
CaptureContent behindLoopback(Bytes frame) {
  constexpr U32 familyIpv4 = 2;
  if (frame.size() < 4) return skip(SkipReason::tooShort);
  const U32 family = U32{u16At(frame, 0)} << 16 | u16At(frame, 2);
  if (family != familyIpv4 && family != familyIpv4 << 24) return skip(SkipReason::notIpv4);
  return behind(frame, 4);
}

CaptureContent ipv4Behind(int linkType, Bytes frame) {
  switch (linkType) {
    case DLT_EN10MB: return behindEtherType(frame, 12, 14);
    case DLT_LINUX_SLL: return behindEtherType(frame, 14, 16);
    case DLT_LINUX_SLL2: return behindEtherType(frame, 0, 20);
    case DLT_RAW:
    case DLT_IPV4: return behindNothing(frame);
    case DLT_NULL:
    case DLT_LOOP: return behindLoopback(frame);
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
  const CaptureContent found = ipv4Behind(linkType, frame);
  if (found.skipped == SkipReason::tooShort && wasCut) return skip(SkipReason::cutShort);
  if (found.skipped) return found;
  const Bytes ip = found.ipv4;
  if (ip.size() < ipv4HeaderBytes) {
    return skip(wasCut ? SkipReason::cutShort : SkipReason::tooShort);
  }
  if (ip[9] != protocolIgmp) return skip(SkipReason::notIgmp);
  constexpr U16 moreFragmentsAndOffset = 0x3fff;
  if ((u16At(ip, 6) & moreFragmentsAndOffset) != 0) return skip(SkipReason::fragment);
  if (u16At(ip, 2) > ip.size() && wasCut) return skip(SkipReason::cutShort);
  return found;
}

}  // namespace Agent
