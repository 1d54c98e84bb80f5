// What the state machines set up when their library is loaded, besides their types: the trace
// handle, the event-log message and two constants. With it, their model file.
#pragma once

#include <GmpIgmpQuerier/Types.h>
#include <Mox/EventLog.h>
#include <Mox/Trace.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

// Traces of the state machines.
extern MOX_PUBLIC const Mox::ModelTrace machineTrace;

// GMP_IGMP_QUERY_VERSION_CONFIGURED_DISCREPANCY(query version, interface, configured version).
extern MOX_PUBLIC Mox::EventLogHandle gmpIgmpQueryVersionConfiguredDiscrepancy;

// Fields of a query that is being built, in network order.
extern MOX_PUBLIC const U16 queryNoSources;
extern MOX_PUBLIC const U16 queryNoChecksum;

// The model file that the machines' fatal assertions name.
inline constexpr const char* machineModelFile = "GmpIgmpQuerierSm.tin";

}  // namespace Gmp::Igmp
