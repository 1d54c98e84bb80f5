// A MAC address as text: "02:00:00:00:00:01".
#pragma once

#include <string>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Link/Ethernet.h>

namespace Agent {

inline std::string macText(const MacAddr& mac) {
  return fmt::format("{:02x}", fmt::join(mac, ":"));
}

}  // namespace Agent
