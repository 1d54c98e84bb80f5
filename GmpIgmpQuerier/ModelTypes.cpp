// The set-up of the state model when its library is loaded, in one step: its trace handle, its
// event-log message and its types.
#include <Mox/ModelTypes.h>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/GroupList.h>
#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/IgmpReport.h>
#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierGroupStatus.h>
#include <GmpIgmpQuerier/QuerierSourceStatus.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerier/RecordType.h>

namespace Gmp::Igmp {

[[gnu::init_priority(1001)]] const Mox::ModelTrace igmpPacketTrace("IgmpPacket",
                                                                   "GmpIgmpQuerierSm.tin");

[[gnu::init_priority(1001)]] Mox::EventLogHandle igmpMessageInvalidSource({
    .name = "IGMP_MESSAGE_INVALID_SOURCE",
    .severity = 3,
    .format = "Received invalid source %s for group %s.",
    .explanation = "Source sent by host is not a unicast address.",
    .recommendedAction = "Capture the packet using tcpdump and contact support.",
    .interval = 0.0,
    .burst = 1.0,
    .flag = 0,
});

namespace {

// Never returns: a value that holds a collection cannot be read from text.
template <auto instance>
U32 refuse(std::string_view text) {
  static_cast<void>(instance(text));
  return 0;
}

[[gnu::init_priority(1001)]] const Mox::ModelTypes types(
    "GmpIgmpQuerier", {
                          Mox::entityType<QuerierSourceStatus>(),
                          Mox::entityType<QuerierGroupStatus>(),
                          Mox::valueType<GroupList>(),
                          Mox::valueType<IgmpGroupRecord>(&refuse<&IgmpGroupRecordInstance>),
                          Mox::valueType<IgmpQuery>(&refuse<&IgmpQueryInstance>),
                          Mox::enumerationType<IgmpVersion>(),
                          Mox::enumerationType<IgmpFilterMode>(),
                          Mox::entityType<QuerierConfig>(),
                          Mox::valueType<RecordType>(),
                          Mox::valueType<IgmpReport>(&refuse<&IgmpReportInstance>),
                          Mox::enumerationType<TimerState>(),
                          Mox::entityType<QuerierStatus>(),
                          Mox::enumerationType<QuerierStatus::QuerierState>(),
                      });

}  // namespace

}  // namespace Gmp::Igmp
