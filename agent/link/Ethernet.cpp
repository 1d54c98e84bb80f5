#include <Link/Ethernet.h>

#include <algorithm>

namespace Agent {

using Mox::U16;
using Mox::U8;

namespace {

constexpr U16 etherTypeIpv4 = 0x0800;
constexpr std::array<U16, 3> vlanTagTypes{0x8100, 0x88a8, 0x9100};
constexpr U16 vlanIdMask = 0x0fff;

U16 u16At(std::span<const U8> bytes, size_t at) {
  return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]);
}

}  // namespace

EtherPayload etherPayload(std::span<const U8> frame, size_t typeAt, size_t headerBytes) {
  EtherPayload payload;
  while (frame.size() >= std::max(typeAt + 2, headerBytes)) {
    const U16 type = u16At(frame, typeAt);
    if (type == etherTypeIpv4) {
      payload.kind = EtherPayload::ipv4;
      payload.ipv4Packet = frame.subspan(headerBytes);
      return payload;
    }
    if (std::ranges::find(vlanTagTypes, type) == vlanTagTypes.end()) {
      payload.kind = EtherPayload::other;
      return payload;
    }
    if (frame.size() < headerBytes + vlanTagBytes) return payload;
    if (payload.vlan == 0) payload.vlan = u16At(frame, headerBytes) & vlanIdMask;
    typeAt = headerBytes + 2;
    headerBytes += vlanTagBytes;
  }
  return payload;
}

}  // namespace Agent
