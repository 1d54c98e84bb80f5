#include <Link/LinkTable.h>

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace Agent {

using Ilvo::IpAddr;
using Mox::U32;
using Mox::U8;

namespace {

// Calls use(attribute) for each attribute behind a message's fixed part.
template <class F>
void forEachAttr(const nlmsghdr& message, size_t fixedPart, F&& use) {
  mnl_attr_parse(
      &message, static_cast<unsigned>(fixedPart),
      [](const nlattr* attr, void* data) {
        (*static_cast<std::remove_reference_t<F>*>(data))(*attr);
        return MNL_CB_OK;
      },
      &use);
}

bool hasPayload(const nlmsghdr& message, size_t bytes) {
  return mnl_nlmsg_get_payload_len(&message) >= bytes;
}

void readName(const nlattr& attr, Link& link) {
  if (mnl_attr_validate(&attr, MNL_TYPE_NUL_STRING) == 0) link.name = mnl_attr_get_str(&attr);
}

void readMtu(const nlattr& attr, Link& link) {
  if (mnl_attr_validate(&attr, MNL_TYPE_U32) == 0) link.mtu = mnl_attr_get_u32(&attr);
}

void readMac(const nlattr& attr, Link& link) {
  if (mnl_attr_get_payload_len(&attr) != link.mac.size()) return;
  std::memcpy(link.mac.data(), mnl_attr_get_payload(&attr), link.mac.size());
}

}  // namespace

std::optional<IpAddr> Link::primaryAddress() const {
  const auto primary = std::ranges::find_if(
      addresses, [](const LinkAddress& a) { return a.global && !a.secondary; });
  if (primary == addresses.end()) return std::nullopt;
  return primary->address;
}

bool isUsable(const Link& link) {
  return link.up && link.running && link.mtu >= minIpv4Mtu && whyUnfit(link).empty() &&
         link.primaryAddress().has_value();
}

std::string whyUnfit(const Link& link) {
  if (link.loopback) return "is a loopback interface, which has no neighbours to ask";
  if (!link.ethernet) return "is not an Ethernet interface";
  if (!link.multicast) return "cannot do multicast; `ip link set " + link.name + " multicast on`";
  return {};
}

// libmnl's own loop over messages stops at those that end a dump or acknowledge a request, which
// are none of this table's. Its check of a length takes one of 2^31 or more for a negative number,
// which fits into any datagram.
void LinkTable::apply(std::span<const std::byte> datagram, Former& former) {
  while (datagram.size() >= sizeof(nlmsghdr)) {
    const auto& message = *reinterpret_cast<const nlmsghdr*>(datagram.data());
    if (message.nlmsg_len < sizeof(nlmsghdr) || message.nlmsg_len > datagram.size()) return;
    apply(message, former);
    const size_t used = MNL_ALIGN(size_t{message.nlmsg_len});
    datagram = datagram.subspan(std::min(used, datagram.size()));
  }
}

// The kernel pads its messages. libmnl relies on that and would read past the end of another one.
void LinkTable::apply(const nlmsghdr& message, Former& former) {
  if (message.nlmsg_len % MNL_ALIGNTO != 0) return;
  switch (message.nlmsg_type) {
    case RTM_NEWLINK: applyNewLink(message, former); return;
    case RTM_DELLINK: applyDelLink(message, former); return;
    case RTM_NEWADDR:
    case RTM_DELADDR: applyAddress(message, former); return;
    default: return;
  }
}

void LinkTable::keepFormer(U32 index, Former& former) const {
  if (former.contains(index)) return;
  const auto found = links_.find(index);
  former.emplace(index, found == links_.end() ? std::nullopt : std::optional(found->second));
}

// A bridge reports its ports with link messages, too, in a family of their own: a port that leaves
// its bridge is still an interface.
void LinkTable::applyNewLink(const nlmsghdr& message, Former& former) {
  if (!hasPayload(message, sizeof(ifinfomsg))) return;
  const auto& info = *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
  if (info.ifi_family != AF_UNSPEC || info.ifi_index <= 0) return;
  keepFormer(static_cast<U32>(info.ifi_index), former);
  Link& link = links_[static_cast<U32>(info.ifi_index)];
  link.index = static_cast<U32>(info.ifi_index);
  link.up = (info.ifi_flags & IFF_UP) != 0;
  link.running = (info.ifi_flags & IFF_RUNNING) != 0;
  link.loopback = (info.ifi_flags & IFF_LOOPBACK) != 0;
  link.multicast = (info.ifi_flags & IFF_MULTICAST) != 0;
  link.ethernet = info.ifi_type == ARPHRD_ETHER;
  forEachAttr(message, sizeof(ifinfomsg), [&](const nlattr& attr) {
    switch (mnl_attr_get_type(&attr)) {
      case IFLA_IFNAME: readName(attr, link); return;
      case IFLA_MTU: readMtu(attr, link); return;
      case IFLA_ADDRESS: readMac(attr, link); return;
      default: return;
    }
  });
}

void LinkTable::applyDelLink(const nlmsghdr& message, Former& former) {
  if (!hasPayload(message, sizeof(ifinfomsg))) return;
  const auto& info = *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
  if (info.ifi_family != AF_UNSPEC) return;
  keepFormer(static_cast<U32>(info.ifi_index), former);
  links_.erase(static_cast<U32>(info.ifi_index));
}

void LinkTable::applyAddress(const nlmsghdr& message, Former& former) {
  if (!hasPayload(message, sizeof(ifaddrmsg))) return;
  const auto& info = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message));
  const auto found = links_.find(info.ifa_index);
  if (info.ifa_family != AF_INET || found == links_.end()) return;
  LinkAddress addr{.address = {},
                   .prefixLength = info.ifa_prefixlen,
                   .global = info.ifa_scope == RT_SCOPE_UNIVERSE,
                   .secondary = (info.ifa_flags & IFA_F_SECONDARY) != 0};
  bool isThere = false;
  forEachAttr(message, sizeof(ifaddrmsg), [&](const nlattr& attr) {
    // On a point-to-point link, IFA_ADDRESS is the neighbour's.
    if (mnl_attr_get_type(&attr) != IFA_LOCAL) return;
    if (mnl_attr_validate(&attr, MNL_TYPE_U32) != 0) return;
    addr.address = IpAddr(ntohl(mnl_attr_get_u32(&attr)));
    isThere = true;
  });
  if (!isThere) return;
  keepFormer(info.ifa_index, former);
  std::vector<LinkAddress>& all = found->second.addresses;
  const auto old = std::ranges::find_if(all, [&](const LinkAddress& a) {
    return a.address == addr.address && a.prefixLength == addr.prefixLength;
  });
  if (message.nlmsg_type == RTM_DELADDR) {
    if (old != all.end()) all.erase(old);
  } else if (old != all.end()) {
    *old = addr;
  } else {
    all.push_back(addr);
  }
}

const Link* LinkTable::find(std::string_view name) const {
  const auto found =
      std::ranges::find_if(links_, [&](const auto& entry) { return entry.second.name == name; });
  return found == links_.end() ? nullptr : &found->second;
}

std::vector<std::string> LinkTable::names() const {
  std::vector<std::string> all;
  for (const auto& [index, link] : links_) {
    if (!link.name.empty()) all.push_back(link.name);
  }
  return all;
}

}  // namespace Agent
