// A set of addresses as a value: the source lists of parsed messages.
//
// Kept as a sorted vector: messages are read once, in order, and compared as a whole. Prints as the
// map from address to true that it stands for.
#pragma once

#include <concepts>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/Types.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC IpAddrSet {
 public:
  static constexpr const char* valueTypeName = "set of Ilvo::IpAddr";

  IpAddrSet() = default;
  IpAddrSet(std::initializer_list<IpAddr> addrs) : IpAddrSet(std::vector<IpAddr>(addrs)) {}
  // Takes any list: sorts it and drops repetitions.
  explicit IpAddrSet(std::vector<IpAddr> addrs);

  bool contains(IpAddr addr) const;
  // False when it was there already.
  bool insert(IpAddr addr);
  bool erase(IpAddr addr);
  void clear() { addrs_.clear(); }

  size_t size() const { return addrs_.size(); }
  bool empty() const { return addrs_.empty(); }
  auto begin() const { return addrs_.begin(); }
  auto end() const { return addrs_.end(); }

  friend bool operator==(const IpAddrSet&, const IpAddrSet&) = default;

 private:
  std::vector<IpAddr> addrs_;
};

// For instance "{'10.0.0.1': True, '10.0.0.2': True}".
MOX_PUBLIC std::string valueToStrep(const IpAddrSet& set);

// How a flag stands in a textual dump of values. A flag only: a number or a pointer that has no
// text of its own must not become "True" by conversion.
template <std::same_as<bool> T>
std::string valueToStrep(T value) {
  return value ? "True" : "False";
}

}  // namespace Gmp::Igmp
