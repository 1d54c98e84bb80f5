#include <GmpIgmpQuerierSm/MachineLogs.h>

namespace Gmp::Igmp {

Mox::TraceHandle& machineTrace = Mox::TraceHandle::named("GmpIgmpQuerierSm", machineModelFile);

Mox::EventLogHandle gmpIgmpQueryVersionConfiguredDiscrepancy({
    .name = "GMP_IGMP_QUERY_VERSION_CONFIGURED_DISCREPANCY",
    .severity = 4,
    .format = "IGMP version %d query heard on vlan %d by a querier configured to version %d.",
    .explanation = "The switch detected an IGMP query message of a different version than the "
                   "version that is currently configured.",
    .recommendedAction = "Configure all queriers on the network to use the same querier version",
    .interval = 60.0,
    .burst = 1.0,
    .flag = 0,
});

}  // namespace Gmp::Igmp
