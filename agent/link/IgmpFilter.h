// The frames that the kernel hands over: IGMP in IPv4 behind Ethernet and at most two VLAN tags. A
// tag that the kernel took out of the frame counts as none here.
#pragma once

namespace Agent {

// False, with errno set, when the socket does not take it.
bool igmpFilterIs(int socket);

// For a socket that only sends.
bool refuseAllFilterIs(int socket);

}  // namespace Agent
