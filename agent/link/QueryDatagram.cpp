#include <Link/QueryDatagram.h>

#include <algorithm>

#include <Ilvo/Checksum.h>
#include <Ilvo/IgmpHdr.h>
#include <Ilvo/Pkt.h>

namespace Agent {

using Ilvo::IpAddr;
using Ilvo::Pkt;
using Mox::U16;
using Mox::U32;
using Mox::U8;

namespace {

constexpr size_t ipHeaderBytes = 24;
constexpr U8 version4Words6 = 0x46;
constexpr U8 tosInternetworkControl = 0xc0;
constexpr U16 dontFragment = 0x4000;  // so the identification may be 0 (RFC 6864 4.1)
constexpr U8 ttlThisLink = 1;
constexpr U32 routerAlert = 0x94040000;  // RFC 2113 2.1
constexpr size_t checksumAt = 10;
constexpr IpAddr allSystems(224, 0, 0, 1);

void append(std::vector<U8>& out, std::span<const U8> bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

}  // namespace

IpAddr queryDestination(IpAddr group) { return group.isZero() ? allSystems : group; }

std::vector<U8> queryDatagram(IpAddr src, IpAddr group, std::span<const U8> igmp) {
  Pkt header(ipHeaderBytes);
  header.reserveHead(ipHeaderBytes);
  header.u8Is(0, version4Words6);
  header.u8Is(1, tosInternetworkControl);
  header.u16Is(2, static_cast<U16>(ipHeaderBytes + igmp.size()));
  header.u16Is(6, dontFragment);
  header.u8Is(8, ttlThisLink);
  header.u8Is(9, Ilvo::igmpIpProtocol);
  header.ipAddrIs(12, src);
  header.ipAddrIs(16, queryDestination(group));
  header.u32Is(20, routerAlert);
  header.u16Is(checksumAt, Ilvo::checksum(header.data()));
  std::vector<U8> out;
  out.reserve(ipHeaderBytes + igmp.size());
  append(out, header.data());
  append(out, igmp);
  return out;
}

bool isQueryFrom(std::span<const IpAddr> addresses, std::span<const U8> packet) {
  constexpr size_t protocolAt = 9;
  constexpr size_t sourceAt = 12;
  if (packet.size() < sourceAt + 4 || packet[protocolAt] != Ilvo::igmpIpProtocol) return false;
  const size_t message = size_t{packet[0] & 0x0fU} * 4;
  if (message >= packet.size() || packet[message] != Ilvo::igmpMembershipQuery) return false;
  const IpAddr source(packet[sourceAt], packet[sourceAt + 1], packet[sourceAt + 2],
                      packet[sourceAt + 3]);
  return std::ranges::find(addresses, source) != addresses.end();
}

}  // namespace Agent
