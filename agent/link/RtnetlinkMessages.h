// For tests: the kernel's messages about interfaces.
//
//   table.apply(linkMessage({.index = 2, .name = "eth0"}));
#pragma once

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <string>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <Link/Ethernet.h>
#include <MoxBase/Types.h>

namespace Agent {

using Datagram = std::vector<std::byte>;

struct LinkMessage {
  Mox::U16 type = RTM_NEWLINK;
  int index = 2;
  const char* name = "eth0";  // null: the attribute is missing, as an MTU of 0
  unsigned flags = IFF_UP | IFF_RUNNING | IFF_MULTICAST;
  Mox::U32 mtu = 1500;
  MacAddr mac = {0x02, 0, 0, 0, 0, 1};
  bool hasMac = true;
  Mox::U8 family = AF_UNSPEC;
  Mox::U16 hardware = ARPHRD_ETHER;
};

inline Datagram datagramOf(const nlmsghdr* message) {
  const auto* const bytes = reinterpret_cast<const std::byte*>(message);
  return {bytes, bytes + message->nlmsg_len};
}

inline Datagram linkMessage(const LinkMessage& link) {
  alignas(nlmsghdr) std::byte buffer[512] = {};
  nlmsghdr* const message = mnl_nlmsg_put_header(buffer);
  message->nlmsg_type = link.type;
  auto& info = *static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  info.ifi_family = link.family;
  info.ifi_type = link.hardware;
  info.ifi_index = link.index;
  info.ifi_flags = link.flags;
  if (link.name != nullptr) mnl_attr_put_strz(message, IFLA_IFNAME, link.name);
  if (link.mtu != 0) mnl_attr_put_u32(message, IFLA_MTU, link.mtu);
  if (link.hasMac) mnl_attr_put(message, IFLA_ADDRESS, link.mac.size(), link.mac.data());
  return datagramOf(message);
}

struct AddressMessage {
  Mox::U16 type = RTM_NEWADDR;
  unsigned index = 2;
  Ilvo::IpAddr local = Ilvo::IpAddr(10, 0, 0, 1);
  Mox::U8 prefixLength = 24;
  Mox::U8 scope = RT_SCOPE_UNIVERSE;
  Mox::U8 flags = 0;
};

inline Datagram addressMessage(const AddressMessage& address) {
  alignas(nlmsghdr) std::byte buffer[512] = {};
  nlmsghdr* const message = mnl_nlmsg_put_header(buffer);
  message->nlmsg_type = address.type;
  auto& info = *static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg)));
  info.ifa_family = AF_INET;
  info.ifa_prefixlen = address.prefixLength;
  info.ifa_flags = address.flags;
  info.ifa_scope = address.scope;
  info.ifa_index = address.index;
  mnl_attr_put_u32(message, IFA_ADDRESS, htonl(address.local.value() + 1));  // the neighbour's
  mnl_attr_put_u32(message, IFA_LOCAL, htonl(address.local.value()));
  return datagramOf(message);
}

}  // namespace Agent
