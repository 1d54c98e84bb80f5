// What the state model makes known to the type registry when it is loaded.
#include <Mox/ModelTypes.h>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/GroupList.h>
#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/IgmpReport.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierGroupStatus.h>
#include <GmpIgmpQuerier/QuerierSourceStatus.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <GmpIgmpQuerier/RecordType.h>

namespace Gmp::Igmp {

namespace {

// Never returns: a value that holds a collection is not made of text.
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
