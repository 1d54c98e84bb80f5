// Address prefixes of both families. Configuration names boundaries in either; only IPv4 ones can
// match an IGMP group, and a prefix of the other family never matches.
//
// Bits behind the length are cleared on construction, so that 10.1.2.3/8 and 10.0.0.0/8 are one
// key.
//
//   std::optional<IpGenPrefix> prefix = IpGenPrefix::parse("239.0.0.0/8");
//   if (prefix && prefix->contains(group)) drop();
#pragma once

#include <array>
#include <compare>
#include <optional>
#include <string>
#include <string_view>

#include <Ilvo/IpAddr.h>
#include <Ilvo/Types.h>
#include <MoxBase/Export.h>

namespace Ilvo {

// An IPv6 address, bytes in network order.
class MOX_PUBLIC Ip6Addr {
 public:
  using Bytes = std::array<U8, 16>;

  constexpr Ip6Addr() = default;
  explicit constexpr Ip6Addr(const Bytes& networkOrder) : bytes_(networkOrder) {}

  static std::optional<Ip6Addr> parse(std::string_view text);

  constexpr const Bytes& bytes() const { return bytes_; }
  std::string stringValue() const;

  // NOLINTNEXTLINE(modernize-use-nullptr)
  friend auto operator<=>(const Ip6Addr&, const Ip6Addr&) = default;

 private:
  Bytes bytes_{};
};

MOX_PUBLIC void appendText(std::string& out, const Ip6Addr& addr);

// Ordered: IPv4 before IPv6, then by address, then the shorter prefix first.
class MOX_PUBLIC IpGenPrefix {
 public:
  // 0.0.0.0/0
  IpGenPrefix() = default;
  // A length beyond that of the address is a fatal assertion.
  explicit IpGenPrefix(IpAddr addr, unsigned length = 32);
  explicit IpGenPrefix(const Ip6Addr& addr, unsigned length = 128);

  // "a.b.c.d/n" or an IPv6 text with "/n"; without "/n" a host prefix.
  static std::optional<IpGenPrefix> parse(std::string_view text);

  unsigned length() const { return length_; }

  bool contains(IpAddr addr) const;
  bool contains(const Ip6Addr& addr) const;

  // Always with its length.
  std::string stringValue() const;

  // NOLINTNEXTLINE(modernize-use-nullptr)
  friend auto operator<=>(const IpGenPrefix&, const IpGenPrefix&) = default;

 private:
  enum class Family : U8 { ipv4, ipv6 };

  Family family_ = Family::ipv4;
  Ip6Addr addr_;  // an IPv4 address stands in the first four bytes
  U8 length_ = 0;
};

MOX_PUBLIC void appendText(std::string& out, const IpGenPrefix& prefix);
MOX_PUBLIC std::string valueToStrep(const IpGenPrefix& prefix);

}  // namespace Ilvo
