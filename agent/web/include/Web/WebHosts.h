// Which names a request may call this server by (RFC 9110 section 7.2).
//
// A page of another origin can give its own name the address of this machine and then read what is
// served here in the name of its user. Its requests carry that name, so only names are accepted
// that nobody else can give away: addresses, "localhost", and those that the operator lists.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace Agent {

class WebHosts {
 public:
  // Names in any case, without ports.
  explicit WebHosts(const std::set<std::string>& names = {});

  // The value of the field, which may have a port: "localhost:9645", "[::1]", "10.0.0.1:80".
  bool isAccepted(std::string_view host) const;

 private:
  std::set<std::string> names_;
};

}  // namespace Agent
