// For tests: an Ethernet link that can carry a querier.
#pragma once

#include <Ilvo/IpAddr.h>
#include <Link/LinkTable.h>

namespace Agent {

inline Link runningLink(Ilvo::IpAddr address, const MacAddr& mac) {
  return {.index = 2,
          .name = "eth0",
          .up = true,
          .running = true,
          .ethernet = true,
          .multicast = true,
          .mtu = 1500,
          .mac = mac,
          .addresses = {{.address = address, .prefixLength = 24, .global = true}}};
}

}  // namespace Agent
