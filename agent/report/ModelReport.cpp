#include <Report/ModelReport.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <Text/Json.h>
#include <Text/QuerierNames.h>

namespace Agent {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSourceStatus;
using Gmp::Igmp::QuerierStatus;
using Mox::Seconds;
using Mox::U64;

namespace {

// Type uint32 with the unit seconds, rounded down.
void addSeconds(JsonObject& json, const char* key, Seconds seconds) {
  constexpr double most = std::numeric_limits<Mox::U32>::max();
  json.number(key, static_cast<U64>(std::clamp(seconds, 0.0, most)));
}

// Of a timer that does not run, 0.
void addExpiry(JsonObject& json, bool runs, Seconds expiry, Seconds now) {
  addSeconds(json, "expire", runs && std::isfinite(expiry) ? expiry - now : 0.0);
}

void addInRange(JsonObject& json, const char* key, double value, double least, double most) {
  if (value != std::floor(value) || value < least || value > most) return;
  json.number(key, static_cast<U64>(value));
}

// 64 bits are a text, since JSON readers have numbers of fewer bits (RFC 7951 section 6.1).
void addCounter(JsonObject& json, const char* key, U64 count) {
  json.text(key, std::to_string(count));
}

class List {
 public:
  void add(JsonObject json) {
    text_ += text_.empty() ? "" : ",";
    text_ += std::move(json).line();
  }
  // An empty list has no member.
  void addTo(JsonObject& json, const char* key) const {
    if (!text_.empty()) json.value(key).append("[").append(text_).append("]");
  }

 private:
  std::string text_;
};

JsonObject sourceEntry(const QuerierSourceStatus& source, bool runs, Seconds now) {
  JsonObject json;
  json.address("source-address", source.sourceAddr());
  addExpiry(json, runs && !source.expired(), source.expiryTime(), now);
  addSeconds(json, "up-time", now - source.creationTime());
  return json;
}

JsonObject groupEntry(const QuerierGroupStatus& group, bool runs, Seconds now) {
  JsonObject json;
  json.address("group-address", group.groupAddr());
  addExpiry(json, runs, group.expiryTime(), now);
  json.text("filter-mode", filterModeName(group.filterMode()));
  addSeconds(json, "up-time", now - group.creationTime());
  if (!group.lastReporter().isZero()) json.address("last-reporter", group.lastReporter());
  std::vector<Ilvo::IpAddr> keys = group.source().keys();
  std::ranges::sort(keys);
  List sources;
  for (const Ilvo::IpAddr key : keys) sources.add(sourceEntry(*group.source(key), runs, now));
  sources.addTo(json, "source");
  return json;
}

// 0.0.0.0 is the querier while none is known: the model demands an address.
JsonObject interfaceEntry(const InterfaceView& view, Seconds now) {
  const QuerierStatus& status = *view.status;
  JsonObject json;
  json.text("interface-name", view.name);
  if (view.intake) {
    json.flag("require-router-alert", view.intake->requireRouterAlert());
    json.number("max-groups", view.intake->maxGroups());
    json.number("max-group-sources", view.intake->maxGroupSources());
  }
  addInRange(json, "query-interval", status.queryInterval(), 1, 31744);
  addInRange(json, "query-max-response-time", status.queryResponseInterval(), 1, 1023);
  addInRange(json, "robustness-variable", status.robustness(), 1, 7);
  addInRange(json, "version", status.querierVersion(), 1, 3);
  json.text("oper-status", view.running ? "up" : "down");
  json.address("querier", status.electedQuerierAddr());
  List groups;
  for (auto at = status.group().begin(); at != status.group().end(); ++at) {
    groups.add(groupEntry(**at, view.running, now));
  }
  groups.addTo(json, "group");
  return json;
}

struct MessageCounts {
  JsonObject json() const {
    JsonObject json;
    addCounter(json, "total", queries + reports + leaves);
    addCounter(json, "query", queries);
    addCounter(json, "report", reports);
    addCounter(json, "leave", leaves);
    return json;
  }

  U64 queries = 0;
  U64 reports = 0;
  U64 leaves = 0;
};

// A querier never sends reports or leaves.
JsonObject statisticsOf(std::span<const InterfaceView> interfaces) {
  U64 errors = 0;
  MessageCounts received;
  MessageCounts sent;
  for (const InterfaceView& each : interfaces) {
    const QuerierStatus& status = *each.status;
    errors += status.errorPacketReceived();
    received.queries +=
        U64{status.v1QueriesReceived()} + status.v2QueriesReceived() + status.v3QueriesReceived();
    received.reports +=
        U64{status.v1ReportReceived()} + status.v2ReportReceived() + status.v3ReportReceived();
    received.leaves += status.v2LeaveReceived();
    sent.queries += U64{status.v1QueriesSent()} + status.v2QueriesSent() + status.v3QueriesSent() +
                    status.v3GSSQueriesSent();
  }
  JsonObject error;
  addCounter(error, "total", errors);
  JsonObject json;
  json.object("error", error).object("received", received.json()).object("sent", sent.json());
  return json;
}

JsonObject globalOf(std::span<const InterfaceView> interfaces,
                    const Mox::Ptr<IntakeProcessConfig>& process) {
  U64 groups = 0;
  for (const InterfaceView& each : interfaces) groups += each.status->group().size();
  JsonObject json;
  if (process) json.number("max-groups", process->maxProcessGroups());
  json.number("groups-count", groups);
  json.object("statistics", statisticsOf(interfaces));
  return json;
}

}  // namespace

std::string modelJson(std::span<const InterfaceView> all, std::span<const InterfaceView> shown,
                      const Mox::Ptr<IntakeProcessConfig>& process, Seconds now) {
  List entries;
  for (const InterfaceView& each : shown) entries.add(interfaceEntry(each, now));
  JsonObject interfaces;
  entries.addTo(interfaces, "interface");
  JsonObject igmp;
  igmp.object("global", globalOf(all, process)).object("interfaces", interfaces);
  JsonObject protocol;
  protocol.text("type", "ietf-igmp-mld:igmp").text("name", "igmpq");
  protocol.object("ietf-igmp-mld:igmp", igmp);
  List protocols;
  protocols.add(std::move(protocol));
  JsonObject container;
  protocols.addTo(container, "control-plane-protocol");
  JsonObject routing;
  routing.object("control-plane-protocols", container);
  JsonObject json;
  json.object("ietf-routing:routing", routing);
  return std::move(json).line() + '\n';
}

}  // namespace Agent
