// The network interfaces of the machine and their IPv4 addresses, as the kernel's rtnetlink
// messages report them.
//
// Messages are input from outside: a message that is too short, or an attribute of the wrong size,
// changes nothing; an attribute that is missing leaves the value that was known.
//
//   LinkTable table;
//   LinkTable::Former former;
//   table.apply(datagram, former);
//   if (const Link* link = table.find("eth0")) use(link->primaryAddress());
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <Link/Ethernet.h>
#include <MoxBase/Types.h>

struct nlmsghdr;

namespace Agent {

struct LinkAddress {
  Ilvo::IpAddr address;
  Mox::U8 prefixLength = 0;
  bool global = false;     // valid beyond this link and this machine
  bool secondary = false;  // not the first address of its subnet
  friend bool operator==(const LinkAddress&, const LinkAddress&) = default;
};

struct Link {
  Mox::U32 index = 0;
  std::string name = {};
  bool up = false;
  bool running = false;  // has a carrier
  bool ethernet = false;
  bool loopback = false;
  bool multicast = false;
  Mox::U32 mtu = 0;
  MacAddr mac = {};
  std::vector<LinkAddress> addresses = {};  // as the kernel orders them

  // The address of the interface's querier: the first global one of a subnet.
  std::optional<Ilvo::IpAddr> primaryAddress() const;

  friend bool operator==(const Link&, const Link&) = default;
};

// The MTU below which IPv4 is off: an IPv4 header with options and one more word (RFC 791 3.2).
inline constexpr Mox::U32 minIpv4Mtu = 68;

// Whether a querier can run on the interface in its present state.
bool isUsable(const Link& link);

// Why no querier can ever work on this interface; empty if one can.
std::string whyUnfit(const Link& link);

class LinkTable {
 public:
  using Links = std::map<Mox::U32, Link>;

  // Links before the first message that concerned them, by index; none for one that is new.
  using Former = std::map<Mox::U32, std::optional<Link>>;

  // Applies all messages of one datagram, which is aligned as the kernel aligns it. The links that
  // they concern, and no others, are added to `former`.
  void apply(std::span<const std::byte> datagram, Former& former);
  void apply(const nlmsghdr& message, Former& former);

  // By index, including links whose name is not known yet.
  const Links& links() const { return links_; }
  // Null when there is none of that name.
  const Link* find(std::string_view name) const;
  std::vector<std::string> names() const;

 private:
  void applyNewLink(const nlmsghdr& message, Former& former);
  void applyDelLink(const nlmsghdr& message, Former& former);
  void applyAddress(const nlmsghdr& message, Former& former);
  void keepFormer(Mox::U32 index, Former& former) const;

  Links links_;
};

}  // namespace Agent
