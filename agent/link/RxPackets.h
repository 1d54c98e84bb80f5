// Sorts the frames of a link's ring: packets for the querier of the link itself, and counts of the
// others.
//
// A frame that is tagged for a VLAN belongs to another link. A querier for it would be found by the
// link and the number of the VLAN; there is none, so such frames are counted. A fragment is counted
// and handed over: whether it is refused is a rule that can be switched off.
#pragma once

#include <optional>

#include <Link/FramePort.h>
#include "RingBlock.h"

namespace Agent {

// The frame's packet, or nothing, with a step of the count that says why.
std::optional<RxPacket> rxPacketOf(const RingFrame& frame, PortCounts& counts);

}  // namespace Agent
