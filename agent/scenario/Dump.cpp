#include "Dump.h"

#include <algorithm>

#include "AttrValues.h"

namespace Agent::Scenario {

using Gmp::Igmp::QuerierGroupSm;
using Gmp::Igmp::QuerierGroupSourceSm;
using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;

namespace {

template <class Map>
std::vector<IpAddr> sortedKeys(const Map& map) {
  std::vector<IpAddr> keys = map.keys();
  std::sort(keys.begin(), keys.end());
  return keys;
}

template <class Map>
Json addresses(const Map& map) {
  Json list = Json::array();
  for (const IpAddr addr : sortedKeys(map)) list.push_back(addr.stringValue());
  return list;
}

// Members of a collection are found by their keys; their names are always empty.
template <class E>
Json member(const E& entity) {
  Json json = Json::object();
  forEachValue(entity, [&](const char* name, Json value) { json[name] = std::move(value); });
  json.erase("name");
  return json;
}

Json groupStatus(const QuerierGroupStatus& group) {
  Json json = member(group);
  Json sources = Json::array();
  for (const IpAddr addr : sortedKeys(group.source())) {
    sources.push_back(member(*group.source(addr)));
  }
  json["source"] = std::move(sources);
  return json;
}

Json config(const Gmp::Igmp::QuerierConfig& entity) {
  Json json = Json::object();
  forEachValue(entity, [&](const char* name, Json value) { json[name] = std::move(value); });
  return json;
}

Json status(const QuerierStatus& entity) {
  Json json = Json::object();
  forEachValue(entity, [&](const char* name, Json value) { json[name] = std::move(value); });
  Json groups = Json::array();
  for (auto at = entity.group().begin(); at != entity.group().end(); ++at) {
    groups.push_back(groupStatus(**at));
  }
  json["group"] = std::move(groups);
  return json;
}

Json querier(const QuerierSm& sm) {
  return {{"ipAddr", jsonOf(sm.ipAddr())},
          {"mtu", sm.mtu()},
          {"startupQueryIntervalDefault", sm.startupQueryIntervalDefault()},
          {"otherQuerierTimerState", jsonOf(sm.otherQuerierTimerState())},
          {"transitionToNonQuerier", sm.transitionToNonQuerier()},
          {"pendingRexmit", addresses(sm.pendingRexmit())},
          {"initialQuerySent", sm.initialQuerySent()},
          {"dstGroup", jsonOf(sm.dstGroup())},
          {"writableCount", sm.writableCount()},
          {"queryIntervalTimerState", jsonOf(sm.queryIntervalTimerState())},
          {"initGroupStatusBookmark", jsonOf(sm.initGroupStatusBookmark())},
          {"debugYieldAfterOne", sm.debugYieldAfterOne()},
          {"pktSrc", jsonOf(sm.pktSrc())},
          {"initialized", sm.initialized()}};
}

Json sourceSm(const QuerierGroupSourceSm& sm) {
  return {{"addr", jsonOf(sm.addr())},
          {"sourceTimerExpiry", jsonOf(sm.sourceTimerExpiry())},
          {"sourceTimerState", jsonOf(sm.sourceTimerState())},
          {"rexmits", sm.rexmits()},
          {"initialized", sm.initialized()}};
}

Json groupSm(const QuerierGroupSm& sm) {
  Json sources = Json::array();
  for (const IpAddr addr : sortedKeys(sm.source())) sources.push_back(sourceSm(*sm.source(addr)));
  return {{"group", jsonOf(sm.group())},
          {"membershipTimerExpiry", jsonOf(sm.membershipTimerExpiry())},
          {"membershipTimerState", jsonOf(sm.membershipTimerState())},
          {"v1MembershipTimerState", jsonOf(sm.v1MembershipTimerState())},
          {"v2MembershipTimerState", jsonOf(sm.v2MembershipTimerState())},
          {"rexmitTimerExpiry", jsonOf(sm.rexmitTimerExpiry())},
          {"rexmitTimerState", jsonOf(sm.rexmitTimerState())},
          {"rexmitSource", addresses(sm.rexmitSource())},
          {"rexmitGroupQuery", sm.rexmitGroupQuery()},
          {"initialized", sm.initialized()},
          {"source", std::move(sources)}};
}

Json groupSms(const QuerierSm& sm) {
  Json list = Json::array();
  for (const IpAddr addr : sortedKeys(sm.groupSm())) list.push_back(groupSm(*sm.groupSm(addr)));
  return list;
}

}  // namespace

void writeDump(World& world, const Interface& interface) {
  const QuerierSm* sm = interface.querier();
  world.observations()
      .begin("dump")
      .text("interface", interface.name())
      .json("config", config(interface.config()))
      .json("status", status(interface.status()))
      .json("querier", sm != nullptr ? querier(*sm) : Json())
      .json("groupSm", sm != nullptr ? groupSms(*sm) : Json())
      .end();
}

}  // namespace Agent::Scenario
