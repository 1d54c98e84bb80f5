// A list of IPv4 prefixes as a value that can be set: "10.0.0.0/8,192.0.2.1/32". An empty list
// stands for no restriction. Its text fits into a frame of the attribute log.
//
//   const PrefixList permitted("10.0.0.0/8");
//   if (!permitted.allows(query.source)) refuse();
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/Frame.h>

namespace Agent {

class PrefixList {
 public:
  static constexpr std::size_t longestText = Mox::NboAttrLog::longestText;

  PrefixList() = default;
  // Prefixes between commas; an address alone is a prefix of 32 bits. A Mox::RangeError names the
  // text that is no prefix, or says that the list is too long.
  explicit PrefixList(std::string_view text);
  // Of the address, so many bits; nothing for a prefix that is in the list already. The list may
  // become longer than one that can be set.
  void add(Ilvo::IpAddr addr, unsigned bits);

  bool empty() const { return prefixes_.empty(); }
  // True in an empty list, too.
  bool allows(Ilvo::IpAddr addr) const { return empty() || contains(addr); }
  bool contains(Ilvo::IpAddr addr) const {
    for (const Prefix& prefix : prefixes_) {
      if ((addr.value() & prefix.mask) == prefix.bits) return true;
    }
    return false;
  }
  // In one of the prefixes, and neither its network's address nor its broadcast address.
  bool containsHost(Ilvo::IpAddr addr) const;

  std::string string() const;
  friend bool operator==(const PrefixList&, const PrefixList&) = default;

 private:
  struct Prefix {
    Mox::U32 bits;
    Mox::U32 mask;
    bool operator==(const Prefix&) const = default;
  };
  std::vector<Prefix> prefixes_;
};

void appendText(std::string& out, const PrefixList& list);

}  // namespace Agent
