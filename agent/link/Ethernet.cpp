#include <Link/Ethernet.h>

#include <algorithm>

#include <Ilvo/IgmpHdr.h>
#include <Ilvo/IpHdr.h>
#include <Ilvo/Pkt.h>

namespace Agent {

using Ilvo::IpAddr;
using Mox::U16;
using Mox::U32;
using Mox::U8;

namespace {

constexpr size_t macBytes = 6;
constexpr std::array<U16, 3> vlanTagTypes{0x8100, 0x88a8, 0x9100};
constexpr U16 vlanIdMask = 0x0fff;

U16 u16At(std::span<const U8> bytes, size_t at) {
  return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]);
}

}  // namespace

MacAddr multicastMac(IpAddr group) {
  const U32 low = group.value();
  return {0x01,
          0x00,
          0x5e,
          static_cast<U8>((low >> 16) & 0x7f),
          static_cast<U8>(low >> 8),
          static_cast<U8>(low)};
}

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

std::span<const U8> ipv4Of(std::span<const U8> frame) {
  const EtherPayload payload = etherPayload(frame);
  return payload.vlan == 0 ? payload.ipv4Packet : std::span<const U8>();
}

bool isQueryFrom(const MacAddr& mac, IpAddr addr, std::span<const U8> frame) {
  if (frame.size() < ethernetHeaderBytes) return false;
  if (!std::ranges::equal(frame.subspan(macBytes, macBytes), mac)) return false;
  const Ilvo::Pkt pkt(ipv4Of(frame));
  const std::optional<Ilvo::IpHdr> ip = Ilvo::IpHdr::of(pkt);
  if (!ip || ip->src() != addr || ip->protocol() != Ilvo::igmpIpProtocol) return false;
  return pkt.has(size_t{ip->headerBytes()} + 1) &&
         pkt.u8(ip->headerBytes()) == Ilvo::igmpMembershipQuery;
}

}  // namespace Agent
