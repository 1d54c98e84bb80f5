// The state for programs.
#include <Agent/StateReport.h>

#include "EventNames.h"
#include "JsonLine.h"
#include "StateWalk.h"

namespace Agent {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierStatus;

namespace {

Json groupJson(const InterfaceView& view, const QuerierGroupStatus& group, Mox::Seconds now) {
  Json json;
  json["group"] = group.groupAddr().stringValue();
  json["filterMode"] = filterModeName(group.filterMode());
  json["compatibilityMode"] = static_cast<unsigned>(group.compatibilityMode());
  json["lastReporter"] = group.lastReporter().stringValue();
  json["upSeconds"] = secondsJson(now - group.creationTime());
  json["timeLeftSeconds"] = secondsJson(timeLeft(view, group.expiryTime(), now));
  json["sources"] = Json::array();
  for (const auto& source : sourcesOf(group)) {
    Json& added = json["sources"].emplace_back();
    added["source"] = source->sourceAddr().stringValue();
    added["excluded"] = isExcluded(group, *source);
    added["timeLeftSeconds"] = secondsJson(timeLeft(view, source->expiryTime(), now));
  }
  return json;
}

Json interfaceJson(const InterfaceView& view, Mox::Seconds now) {
  const QuerierStatus& status = *view.status;
  Json json;
  json["interface"] = view.name;
  json["address"] = knownAddressJson(view.address);
  json["running"] = view.running;
  json["role"] = roleName(status.state());
  json["querier"] = knownAddressJson(status.electedQuerierAddr());
  json["querierVersion"] = static_cast<unsigned>(status.querierVersion());
  json["robustness"] = status.robustness();
  json["queryIntervalSeconds"] = secondsJson(status.queryInterval());
  json["queryResponseIntervalSeconds"] = secondsJson(status.queryResponseInterval());
  json["nextQuerySeconds"] = secondsJson(timeLeft(view, status.generalQueryExpiryTime(), now));
  json["otherQuerierExpirySeconds"] =
      secondsJson(timeLeft(view, status.otherQuerierExpiryTime(), now));
  json["counters"] = Json::object();
  forEachCounter(status, [&](const char* name, Mox::U64 value) { json["counters"][name] = value; });
  json["groups"] = Json::array();
  const QuerierStatus::GroupMap& groups = status.group();
  for (auto at = groups.begin(); at != groups.end(); ++at) {
    json["groups"].push_back(groupJson(view, **at, now));
  }
  return json;
}

}  // namespace

std::string stateJson(std::span<const InterfaceView> interfaces, Mox::Seconds now) {
  Json json;
  json["time"] = secondsJson(now);
  json["event"] = "state";
  json["interfaces"] = Json::array();
  for (const InterfaceView& view : interfaces) {
    json["interfaces"].push_back(interfaceJson(view, now));
  }
  return jsonLine(json);
}

}  // namespace Agent
