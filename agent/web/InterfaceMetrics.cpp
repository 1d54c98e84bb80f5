#include "InterfaceMetrics.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include <Intake/IntakeRule.h>
#include <Text/QuerierNames.h>

namespace Agent {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierStatus;
using Mox::Seconds;
using Mox::U32;
using Mox::U64;
using prometheus::MetricType;

namespace {

using Of = const MeasuredInterface&;

struct PacketType {
  U32 (QuerierStatus::*count)() const;
  const char* name;
};
constexpr std::array receivedTypes{PacketType{&QuerierStatus::v1QueriesReceived, "v1_query"},
                                   PacketType{&QuerierStatus::v2QueriesReceived, "v2_query"},
                                   PacketType{&QuerierStatus::v3QueriesReceived, "v3_query"},
                                   PacketType{&QuerierStatus::v1ReportReceived, "v1_report"},
                                   PacketType{&QuerierStatus::v2ReportReceived, "v2_report"},
                                   PacketType{&QuerierStatus::v2LeaveReceived, "v2_leave"},
                                   PacketType{&QuerierStatus::v3ReportReceived, "v3_report"}};
// Each query is in one of them: group-specific ones are in those of their version.
constexpr std::array sentTypes{PacketType{&QuerierStatus::v1QueriesSent, "v1_query"},
                               PacketType{&QuerierStatus::v2QueriesSent, "v2_query"},
                               PacketType{&QuerierStatus::v3QueriesSent, "v3_query"},
                               PacketType{&QuerierStatus::v3GSSQueriesSent, "v3_source_query"}};
// Reasons have the names of the counters of `igmpq show`.
constexpr std::array libraryReasons{
    PacketType{&QuerierStatus::errorPacketReceived, "errorPacketReceived"},
    PacketType{&QuerierStatus::otherPacketReceived, "otherPacketReceived"},
    PacketType{&QuerierStatus::mcastBoundaryPktReceived, "mcastBoundaryPktReceived"}};

struct FrameReason {
  U64 (InterfaceState::*count)() const;
  const char* by;
  const char* name;
};
constexpr std::array frameReasons{
    FrameReason{&InterfaceState::framesLost, "kernel", "framesLost"},
    FrameReason{&InterfaceState::framesUnparsable, "agent", "framesUnparsable"},
    FrameReason{&InterfaceState::fragmentsReceived, "agent", "fragmentsReceived"},
    FrameReason{&InterfaceState::otherVlanFrames, "agent", "otherVlanFrames"},
    FrameReason{&InterfaceState::deferredLost, "agent", "deferredLost"}};

struct Limit {
  U32 (IntakeConfig::*limit)() const;
  U64 (IntakeStatus::*most)() const;  // null for none
  const char* resource;
};
constexpr std::array limits{
    Limit{&IntakeConfig::maxGroups, &IntakeStatus::groupsMost, "groups"},
    Limit{&IntakeConfig::maxGroupSources, &IntakeStatus::groupSourcesMost, "groupSources"},
    Limit{&IntakeConfig::maxSources, &IntakeStatus::sourcesMost, "sources"},
    Limit{&IntakeConfig::maxGroupRecords, &IntakeStatus::groupRecordsMost, "groupRecords"},
    Limit{&IntakeConfig::maxQueryRate, nullptr, "queryRate"},
    Limit{&IntakeConfig::maxQueryBurst, &IntakeStatus::queryBurstMost, "queryBurst"}};

constexpr std::array<const char*, 4> versionNames{"unknown", "1", "2", "3"};

const char* versionName(size_t version) {
  return versionNames[version < versionNames.size() ? version : 0];
}

// Packets that reach the querier, perhaps with other times in them.
bool isNotice(const IntakeRuleName& rule) {
  return rule.isWarning || rule.rule == IntakeRule::querierTimes;
}

// 0.0.0.0 stands for none.
std::string addressText(Ilvo::IpAddr address) {
  return address.isZero() ? std::string() : address.stringValue();
}

std::string_view stateOf(const InterfaceView& view) {
  return view.running ? roleName(view.status->state()) : "stopped";
}

void addInfo(MetricsText& text, Of interface, Seconds) {
  const InterfaceView& view = interface.view;
  text.add({{"interface", interface.label},
            {"address", addressText(view.address)},
            {"querier", addressText(view.status->electedQuerierAddr())},
            {"version", versionName(view.status->querierVersion())}},
           1);
}

void addState(MetricsText& text, Of interface, Seconds) {
  const std::string_view now = stateOf(interface.view);
  for (const std::string_view state : {"initial", "querier", "nonQuerier", "stopped"}) {
    text.add({{"interface", interface.label}, {"state", state}}, state == now ? 1 : 0);
  }
}

void addExpiry(MetricsText& text, Of interface, Seconds now) {
  const Seconds expiry = interface.view.status->otherQuerierExpiryTime();
  if (!interface.view.running || expiry == 0.0 || !std::isfinite(expiry)) return;
  text.add({{"interface", interface.label}}, std::max(expiry - now, 0.0));
}

void addGroupCounts(MetricsText& text, Of interface, Seconds) {
  for (size_t at = 0; at < interface.counts.versions.size(); ++at) {
    text.add({{"interface", interface.label}, {"compatibility", versionName(at + 1)}},
             static_cast<double>(interface.counts.versions[at]));
  }
}

template <const auto& types>
void addPackets(MetricsText& text, Of interface, Seconds) {
  for (const PacketType& type : types) {
    text.add({{"interface", interface.label}, {"type", type.name}},
             ((*interface.view.status).*type.count)());
  }
}

void addDropped(MetricsText& text, Of interface, Seconds) {
  const InterfaceView& view = interface.view;
  const auto add = [&](std::string_view by, const char* reason, U64 count) {
    text.add({{"interface", interface.label}, {"by", by}, {"reason", reason}},
             static_cast<double>(count));
  };
  for (const PacketType& each : libraryReasons) {
    add("library", each.name, ((*view.status).*each.count)());
  }
  if (view.state) {
    for (const FrameReason& each : frameReasons) {
      add(each.by, each.name, ((*view.state).*each.count)());
    }
  }
  if (!view.intakeStatus) return;
  for (const IntakeRuleName& rule : intakeRules) {
    if (!isNotice(rule)) add("intake", rule.name, view.intakeStatus->counted(rule.rule));
  }
}

void addNotices(MetricsText& text, Of interface, Seconds) {
  if (!interface.view.intakeStatus) return;
  for (const IntakeRuleName& rule : intakeRules) {
    if (!isNotice(rule)) continue;
    text.add({{"interface", interface.label}, {"rule", rule.name}},
             static_cast<double>(interface.view.intakeStatus->counted(rule.rule)));
  }
}

void addLimits(MetricsText& text, Of interface, Seconds) {
  if (!interface.view.intake) return;
  for (const Limit& each : limits) {
    text.add({{"interface", interface.label}, {"resource", each.resource}},
             ((*interface.view.intake).*each.limit)());
  }
}

void addHighWater(MetricsText& text, Of interface, Seconds) {
  if (!interface.view.intakeStatus) return;
  for (const Limit& each : limits) {
    if (each.most == nullptr) continue;
    text.add({{"interface", interface.label}, {"resource", each.resource}},
             static_cast<double>(((*interface.view.intakeStatus).*each.most)()));
  }
}

template <U64 (InterfaceState::*count)() const>
void addOfState(MetricsText& text, Of interface, Seconds) {
  if (!interface.view.state) return;
  text.add({{"interface", interface.label}},
           static_cast<double>(((*interface.view.state).*count)()));
}

constexpr std::array allInterfaceMetrics{
    InterfaceMetric{{"igmp_querier_info", "Address, elected querier and version in effect"},
                    addInfo},
    InterfaceMetric{{"igmp_querier_state", "1 for the state that the querier is in"}, addState},
    InterfaceMetric{
        {"igmp_querier_transitions_total", "Changes of that state", MetricType::Counter},
        addOfState<&InterfaceState::roleChanges>},
    InterfaceMetric{
        {"igmp_other_querier_expiry_seconds", "Time until the elected querier is presumed gone"},
        addExpiry},
    InterfaceMetric{{"igmp_groups", "Groups with members, by the version of the oldest host"},
                    addGroupCounts},
    InterfaceMetric{
        {"igmp_sources", "Sources of all groups"},
        [](MetricsText& text, Of interface, Seconds) {
          text.add({{"interface", interface.label}}, static_cast<double>(interface.counts.sources));
        }},
    InterfaceMetric{{"igmp_group_joins_total", "Groups that were created", MetricType::Counter},
                    [](MetricsText& text, Of interface, Seconds) {
                      text.add({{"interface", interface.label}},
                               static_cast<double>(interface.view.status->joins()));
                    }},
    InterfaceMetric{{"igmp_packets_received_total", "Packets that the querier has handled",
                     MetricType::Counter},
                    addPackets<receivedTypes>},
    InterfaceMetric{
        {"igmp_packets_sent_total", "Queries that the querier has made", MetricType::Counter},
        addPackets<sentTypes>},
    InterfaceMetric{
        {"igmp_v3_group_queries_sent_total", "Those of version 3 that are for one group",
         MetricType::Counter},
        [](MetricsText& text, Of interface, Seconds) {
          text.add({{"interface", interface.label}}, interface.view.status->v3GSQueriesSent());
        }},
    InterfaceMetric{{"igmp_packets_dropped_total",
                     "Packets and records that were refused or lost, by the part that did so",
                     MetricType::Counter},
                    addDropped},
    InterfaceMetric{{"igmp_intake_notices_total", "Packets that were accepted and are worth a look",
                     MetricType::Counter},
                    addNotices},
    InterfaceMetric{
        {"igmp_send_failures_total", "Attempts to send a query that failed", MetricType::Counter},
        addOfState<&InterfaceState::sendFailures>},
    InterfaceMetric{{"igmp_queries_lost_total", "Queries that were given up", MetricType::Counter},
                    addOfState<&InterfaceState::queriesLost>},
    InterfaceMetric{{"igmp_limit", "The most that the interface may have"}, addLimits},
    InterfaceMetric{{"igmp_high_water", "The most that the interface has had"}, addHighWater}};

constexpr std::array allGroupMetrics{
    GroupMetric{{"igmp_group_info", "Mode, version of the oldest host, and last reporter"},
                [](MetricsText& text, const std::string& interface, const QuerierGroupStatus& group,
                   Seconds) {
                  text.add({{"interface", interface},
                            {"group", group.groupAddr().stringValue()},
                            {"filter_mode", filterModeName(group.filterMode())},
                            {"compatibility", versionName(group.compatibilityMode())},
                            {"last_reporter", addressText(group.lastReporter())}},
                           1);
                }},
    GroupMetric{{"igmp_group_sources", "Sources of the group"},
                [](MetricsText& text, const std::string& interface, const QuerierGroupStatus& group,
                   Seconds) {
                  text.add({{"interface", interface}, {"group", group.groupAddr().stringValue()}},
                           static_cast<double>(group.source().size()));
                }},
    GroupMetric{{"igmp_group_expiry_seconds", "Time until the group ends without a report"},
                [](MetricsText& text, const std::string& interface, const QuerierGroupStatus& group,
                   Seconds now) {
                  const Seconds expiry = group.expiryTime();
                  if (expiry == 0.0 || !std::isfinite(expiry)) return;
                  text.add({{"interface", interface}, {"group", group.groupAddr().stringValue()}},
                           std::max(expiry - now, 0.0));
                }}};

}  // namespace

void GroupCounts::add(const QuerierGroupStatus& group) {
  const size_t version = std::clamp<size_t>(group.compatibilityMode(), 1, versions.size());
  ++versions[version - 1];
  sources += group.source().size();
}

std::span<const InterfaceMetric> interfaceMetrics() { return allInterfaceMetrics; }

std::span<const GroupMetric> groupMetrics() { return allGroupMetrics; }

}  // namespace Agent
