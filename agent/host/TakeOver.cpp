#include "TakeOver.h"

#include <vector>

#include <fmt/format.h>

#include <Mox/TypeInfo.h>
#include <NboAttrLog/TreeIn.h>
#include <Settings/ConfigWrites.h>

#include "MacText.h"

namespace Agent {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSourceStatus;
using Gmp::Igmp::QuerierStatus;
using Mox::Seconds;

namespace {

// A source whose time was never published ends a whole membership interval after the agent was lost
// at the latest.
Seconds endOf(const QuerierSourceStatus& source, Seconds latest) {
  return source.expiryTime() != 0.0 ? source.expiryTime() : latest;
}

// Every machine sets the creation time of its entry: one without is all that came of an addition.
template <class Entity>
bool isWhole(const Entity& entity) {
  return entity.creationTime() != 0.0;
}

// Whether a source is left that somebody wants.
bool leavePassedSources(QuerierGroupStatus& group, const PassedTime& time, Seconds latest) {
  bool isWanted = false;
  for (const Ilvo::IpAddr addr : group.source().keys()) {
    const Mox::Ptr<QuerierSourceStatus> source = group.source(addr);
    if (!isWhole(*source)) {
      group.sourceDel(addr);
      continue;
    }
    if (endOf(*source, latest) + time.grace <= time.now) source->expiredIs(true);
    isWanted = isWanted || !source->expired();
  }
  return isWanted;
}

}  // namespace

std::string whyAnother(const InterfaceState& kept, const Link* link) {
  if (link == nullptr) return "there is no such interface now";
  if (kept.index() == 0) return "that agent had no such interface";
  if (kept.index() != link->index) {
    return fmt::format("the interface is another one: its index is {}, not {}", link->index,
                       kept.index());
  }
  const std::string mac = macText(link->mac);
  if (kept.mac() != mac) {
    return fmt::format("the interface is another one: its MAC address is {}, not {}", mac,
                       kept.mac());
  }
  return {};
}

void leavePassed(QuerierStatus& status, const PassedTime& time) {
  const Seconds latest = time.lost + status.groupMembershipInterval();
  const QuerierStatus::GroupMap& groups = status.group();
  for (auto at = groups.begin(); at != groups.end();) {
    const Mox::Ptr<QuerierGroupStatus> group = *at;
    ++at;
    if (!isWhole(*group)) {
      status.groupDel(group->groupAddr());
      continue;
    }
    const bool isWanted = leavePassedSources(*group, time, latest);
    // A query for the group gives it a time in INCLUDE mode, too, where that means nothing.
    const bool isExclude =
        group->filterMode() == filterModeExclude && group->expiryTime() > time.now;
    if (!isExclude) group->filterModeIs(Gmp::Igmp::filterModeInclude);
    if (!isExclude && !isWanted) status.groupDel(group->groupAddr());
  }
}

std::string returnSettings(const Mox::EntityBase& kept, const Mox::EntityBase& keptConfigured,
                           const Mox::EntityBase& configured, Mox::EntityBase& present) {
  std::vector<Mox::NboAttrLog::Written> values;
  for (const Mox::AttrInfo& attr : kept.type().attrs) {
    if (attr.set == nullptr) continue;
    const Mox::Value before = attr.get(keptConfigured);
    const Mox::Value value = attr.get(kept);
    if (value != before && before == attr.get(configured)) values.push_back({&attr, value});
  }
  std::string why = whyConfigRefused(present, values);
  if (!why.empty()) return why;
  for (const auto& [attr, value] : values) attr->set(present, value);
  return {};
}

}  // namespace Agent
