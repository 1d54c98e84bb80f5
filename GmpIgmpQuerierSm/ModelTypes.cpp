// What the state machines make known to the type registry when they are loaded.
#include <Mox/ModelTypes.h>

#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierGroupSourceSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

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
