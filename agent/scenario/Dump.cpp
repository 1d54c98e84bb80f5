#include "Dump.h"

#include <utility>

#include "AttrValues.h"

namespace Agent::Scenario {

using Gmp::Igmp::QuerierGroupSm;
using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;

namespace {

template <class E>
Json attributes(const E& entity) {
  Json json = Json::object();
  forEachValue(entity, [&](const char* name, Json value) { json[name] = std::move(value); });
  return json;
}

// Members of a collection and machines are found otherwise than by name.
template <class E>
Json withoutName(const E& entity) {
  Json json = attributes(entity);
  json.erase("name");
  return json;
}

Json groupStatus(const QuerierGroupStatus& group) {
  Json json = withoutName(group);
  Json& sources = json["source"] = Json::array();
  for (const IpAddr addr : sortedKeys(group.source())) {
    sources.push_back(withoutName(*group.source(addr)));
  }
  return json;
}

Json status(const QuerierStatus& entity) {
  Json json = attributes(entity);
  Json& groups = json["group"] = Json::array();
  for (auto at = entity.group().begin(); at != entity.group().end(); ++at) {
    groups.push_back(groupStatus(**at));
  }
  return json;
}

// No querier fills the last two of a group's three sets of sources; the format has no place for
// them.
Json groupSm(const QuerierGroupSm& sm) {
  Json json = withoutName(sm);
  json.erase("rexmitClrSource");
  json.erase("rexmitSetSource");
  Json& sources = json["source"] = Json::array();
  for (const IpAddr addr : sortedKeys(sm.source())) {
    sources.push_back(withoutName(*sm.source(addr)));
  }
  return json;
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
      .json("config", attributes(interface.config()))
      .json("status", status(interface.status()))
      .json("querier", sm != nullptr ? withoutName(*sm) : Json())
      .json("groupSm", sm != nullptr ? groupSms(*sm) : Json())
      .end();
}

}  // namespace Agent::Scenario
