#include "Interfaces.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Verb.h"

namespace Igmpq {

using Agent::Link;
using Agent::LinkTable;

void checkFit(const LinkTable& links, const std::string& name) {
  const Link* link = links.find(name);
  if (link == nullptr) {
    throw BadUse(fmt::format("there is no interface {}; this machine has: {}", name,
                             fmt::join(links.names(), ", ")));
  }
  const std::string unfit = whyUnfit(*link);
  if (!unfit.empty()) throw BadUse(fmt::format("interface {} {}", name, unfit));
  if (link->mtu < Agent::minIpv4Mtu) {
    throw BadUse(
        fmt::format("interface {0} has an MTU of {1}, but IPv4 needs at least {2}; "
                    "`ip link set {0} mtu 1500`",
                    name, link->mtu, Agent::minIpv4Mtu));
  }
}

std::vector<std::string> usableNames(const LinkTable& links) {
  std::vector<std::string> names;
  for (const auto& [index, link] : links.links()) {
    if (isUsable(link)) names.push_back(link.name);
  }
  return names;
}

std::vector<std::string> fitNames(const LinkTable& links) {
  std::vector<std::string> names;
  for (const auto& [index, link] : links.links()) {
    if (whyUnfit(link).empty()) names.push_back(link.name);
  }
  return names;
}

}  // namespace Igmpq
