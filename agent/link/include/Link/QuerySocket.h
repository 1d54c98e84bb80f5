// Sends queries on all interfaces of the machine, through its IP stack: programs on this machine
// that are members of a group receive the queries as well, and answer like any other host.
//
// It never waits for a device, and it receives nothing. Needs CAP_NET_RAW.
//
//   QuerySocket socket;
//   const std::error_code failed = socket.send(link.index, queryDatagram(addr, group, igmp));
#pragma once

#include <span>
#include <system_error>

#include <Local/Descriptor.h>
#include <MoxBase/Types.h>

namespace Agent {

class QuerySocket {
 public:
  // The packet has its IPv4 header. Returns the reason why it was not sent, or none.
  std::error_code send(Mox::U32 interfaceIndex, std::span<const Mox::U8> packet);

 private:
  Descriptor socket_;  // opened by the first query
};

}  // namespace Agent
