#include <Web/WebHosts.h>

#include <algorithm>
#include <cctype>

#include <arpa/inet.h>

namespace Agent {

namespace {

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(),
                         [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return lower;
}

bool isPort(std::string_view text) {
  return text.empty() || (text.size() <= 6 && text.front() == ':' &&
                          std::all_of(text.begin() + 1, text.end(),
                                      [](unsigned char byte) { return std::isdigit(byte) != 0; }));
}

bool isAddress(int family, const std::string& text) {
  in6_addr address{};
  return inet_pton(family, text.c_str(), &address) == 1;
}

}  // namespace

WebHosts::WebHosts(const std::set<std::string>& names) : names_{"localhost"} {
  for (const std::string& name : names) names_.insert(lowerCase(name));
}

bool WebHosts::isAccepted(std::string_view host) const {
  if (host.starts_with('[')) {
    const size_t end = host.find(']');
    return end != std::string_view::npos && isPort(host.substr(end + 1)) &&
           isAddress(AF_INET6, std::string(host.substr(1, end - 1)));
  }
  const size_t end = std::min(host.find(':'), host.size());
  if (!isPort(host.substr(end))) return false;
  const std::string name = lowerCase(host.substr(0, end));
  return names_.contains(name) || isAddress(AF_INET, name);
}

}  // namespace Agent
