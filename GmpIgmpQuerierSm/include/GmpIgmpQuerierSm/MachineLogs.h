// The trace handle and the event-log message of the state machines.
#pragma once

#include <Mox/EventLog.h>
#include <Mox/Trace.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

// Traces of the state machines.
extern MOX_PUBLIC Mox::TraceHandle& machineTrace;

// GMP_IGMP_QUERY_VERSION_CONFIGURED_DISCREPANCY(query version, interface, configured version).
extern MOX_PUBLIC Mox::EventLogHandle gmpIgmpQueryVersionConfiguredDiscrepancy;

// The model file that the machines' fatal assertions name.
inline constexpr const char* machineModelFile = "GmpIgmpQuerierSm.tin";

}  // namespace Gmp::Igmp
