// What the state machines set up when their library is loaded, in one step: their trace handle,
// their event-log message, two constants and their types.
#include <Mox/ModelTypes.h>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierGroupSourceSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

[[gnu::init_priority(1002)]] const Mox::ModelTrace machineTrace("GmpIgmpQuerierSm",
                                                                machineModelFile);

[[gnu::init_priority(1002)]] Mox::EventLogHandle gmpIgmpQueryVersionConfiguredDiscrepancy({
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

constinit const U16 queryNoSources = 0;
constinit const U16 queryNoChecksum = 0;

namespace {

[[gnu::init_priority(1002)]] const Mox::ModelTypes types(
    "GmpIgmpQuerierSm", {
                            Mox::entityType<QuerierSm>(),
                            Mox::enumerationType<QuerierSm::TimerId>(),
                            Mox::entityType<QuerierGroupSourceSm>(),
                            Mox::entityType<QuerierGroupSm>(),
                            Mox::enumerationType<QuerierGroupSm::TimerId>(),
                        });

}  // namespace

}  // namespace Gmp::Igmp
