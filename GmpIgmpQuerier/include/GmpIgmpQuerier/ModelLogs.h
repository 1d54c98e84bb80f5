// What the state model reports to operators and developers: its trace handle and its event-log
// message.
#pragma once

#include <Mox/EventLog.h>
#include <Mox/Trace.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

// Traces of packet code: parsing, reception, boundary.
extern MOX_PUBLIC const Mox::ModelTrace igmpPacketTrace;

// IGMP_MESSAGE_INVALID_SOURCE(source, group): a source list held an address that is not unicast.
extern MOX_PUBLIC Mox::EventLogHandle igmpMessageInvalidSource;

}  // namespace Gmp::Igmp
