// An IPv4 address: four bytes that are copied like a number. The value is in host order, so that
// addresses sort the way they are read.
//
//   IpAddr group(239, 1, 1, 1);
//   if (group.isMulticast() && !group.isReservedMulticast()) learn(group);
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <Ilvo/Types.h>
#include <MoxBase/Export.h>

namespace Ilvo {

class MOX_PUBLIC IpAddr {
 public:
  static constexpr const char* valueTypeName = "Ilvo::IpAddr";

  constexpr IpAddr() = default;
  explicit constexpr IpAddr(U32 hostOrder) : value_(hostOrder) {}
  constexpr IpAddr(U8 a, U8 b, U8 c, U8 d)
      : value_(U32{a} << 24 | U32{b} << 16 | U32{c} << 8 | U32{d}) {}
  static constexpr IpAddr ipAddrZero() { return IpAddr(); }

  // Exactly four decimal octets without leading zeros: "010" is eight to some readers and ten to
  // others, so it is nothing here.
  static std::optional<IpAddr> parse(std::string_view text);

  constexpr U32 value() const { return value_; }
  constexpr bool isZero() const { return value_ == 0; }
  // 224.0.0.0/4
  constexpr bool isMulticast() const { return value_ >> 28 == 0xe; }
  // 224.0.0.0/24: never forwarded, so no router learns it.
  constexpr bool isReservedMulticast() const { return value_ >> 8 == 0xe00000; }
  // Neither 224.0.0.0/4 nor 240.0.0.0/4. 0.0.0.0 passes: hosts without an address report from it.
  constexpr bool isUnicast() const { return value_ >> 28 < 0xe; }

  std::string stringValue() const;

  friend constexpr auto operator<=>(IpAddr, IpAddr) = default;  // NOLINT(modernize-use-nullptr)

 private:
  U32 value_ = 0;
};

MOX_PUBLIC void appendText(std::string& out, IpAddr addr);

// The address as it stands in a textual value dump: "'10.0.0.1'".
MOX_PUBLIC std::string valueToStrep(IpAddr addr);

}  // namespace Ilvo

template <>
struct std::hash<Ilvo::IpAddr> {
  std::size_t operator()(Ilvo::IpAddr addr) const { return std::hash<Ilvo::U32>()(addr.value()); }
};
