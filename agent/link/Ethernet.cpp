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
constexpr U16 etherTypeIpv4 = 0x0800;
constexpr U16 etherTypeVlan = 0x8100;
constexpr U16 vlanIdMask = 0x0fff;
constexpr U8 protocolIgmp = 2;

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

std::span<const U8> ipv4Of(std::span<const U8> frame) {
  size_t header = ethernetHeaderBytes;
  if (frame.size() < header) return {};
  if (u16At(frame, header - 2) == etherTypeVlan) {
    if (frame.size() < header + vlanTagBytes) return {};
    if ((u16At(frame, header) & vlanIdMask) != 0) return {};
    header += vlanTagBytes;
  }
  if (u16At(frame, header - 2) != etherTypeIpv4) return {};
  return frame.subspan(header);
}

bool isQueryFrom(const MacAddr& mac, IpAddr addr, std::span<const U8> frame) {
  if (frame.size() < ethernetHeaderBytes) return false;
  if (!std::ranges::equal(frame.subspan(macBytes, macBytes), mac)) return false;
  const Ilvo::Pkt pkt(ipv4Of(frame));
  const std::optional<Ilvo::IpHdr> ip = Ilvo::IpHdr::of(pkt);
  if (!ip || ip->src() != addr || ip->protocol() != protocolIgmp) return false;
  return pkt.has(size_t{ip->headerBytes()} + 1) &&
         pkt.u8(ip->headerBytes()) == Ilvo::igmpMembershipQuery;
}

}  // namespace Agent
