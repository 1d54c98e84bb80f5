#include <GmpIgmpQuerier/IpAddrSet.h>

#include <algorithm>
#include <utility>

namespace Gmp::Igmp {

IpAddrSet::IpAddrSet(std::vector<IpAddr> addrs) : addrs_(std::move(addrs)) {
  if (!std::is_sorted(addrs_.begin(), addrs_.end())) std::sort(addrs_.begin(), addrs_.end());
  addrs_.erase(std::unique(addrs_.begin(), addrs_.end()), addrs_.end());
}

bool IpAddrSet::contains(IpAddr addr) const {
  return std::binary_search(addrs_.begin(), addrs_.end(), addr);
}

bool IpAddrSet::insert(IpAddr addr) {
  const auto at = std::lower_bound(addrs_.begin(), addrs_.end(), addr);
  if (at != addrs_.end() && *at == addr) return false;
  addrs_.insert(at, addr);
  return true;
}

bool IpAddrSet::erase(IpAddr addr) {
  const auto at = std::lower_bound(addrs_.begin(), addrs_.end(), addr);
  if (at == addrs_.end() || *at != addr) return false;
  addrs_.erase(at);
  return true;
}

std::string valueToStrep(const IpAddrSet& set) {
  std::string text = "{";
  for (const IpAddr addr : set) {
    if (text.size() > 1) text += ", ";
    text += valueToStrep(addr) + ": True";
  }
  return text + "}";
}

}  // namespace Gmp::Igmp
