#include <Events/Event.h>

#include <Text/JsonLine.h>
#include <Text/QuerierNames.h>

namespace Agent {

namespace {

const char* kindName(Event::Kind kind) {
  switch (kind) {
    case Event::role: return "role";
    case Event::groupJoined: return "groupJoined";
    case Event::groupChanged: return "groupChanged";
    case Event::groupLeft: return "groupLeft";
    case Event::sourceJoined: return "sourceJoined";
    case Event::sourceExcluded: return "sourceExcluded";
    case Event::sourceLeft: return "sourceLeft";
    case Event::querySent: return "querySent";
    case Event::versionMismatch: return "versionMismatch";
    case Event::invalidSource: return "invalidSource";
    case Event::interfaceUp: return "interfaceUp";
    case Event::interfaceDown: return "interfaceDown";
    case Event::interfaceGone: return "interfaceGone";
    case Event::addressChanged: return "addressChanged";
    case Event::configChanged: return "configChanged";
    case Event::counters: return "counters";
    case Event::agentLost: return "agentLost";
    case Event::agentBack: return "agentBack";
    case Event::error: return "error";
  }
  return "unknown";
}

void addGroupKind(Json& json, const Event& event) {
  json["compatibilityMode"] = event.version;
  json["filterMode"] = filterModeName(event.filterMode);
}

void addQuery(Json& json, const Event& event) {
  json["group"] = event.group.stringValue();
  json["version"] = event.version;
  json["maxResponseSeconds"] = secondsJson(event.maxResponse);
  json["sources"] = Json::array();
  for (const Ilvo::IpAddr source : event.sources) json["sources"].push_back(source.stringValue());
}

void addValue(Json& json, const Event& event) {
  json["attribute"] = event.attribute;
  if (const auto* flag = std::get_if<bool>(&event.value)) json["value"] = *flag;
  if (const auto* number = std::get_if<Mox::U64>(&event.value)) json["value"] = *number;
  if (const auto* seconds = std::get_if<Mox::Seconds>(&event.value)) {
    json["valueSeconds"] = secondsJson(*seconds);
  }
  if (const auto* text = std::get_if<std::string>(&event.value)) json["value"] = *text;
}

void addFields(Json& json, const Event& event) {
  switch (event.kind) {
    case Event::role:
      json["role"] = roleName(event.state);
      json["querier"] = knownAddressJson(event.address);
      return;
    case Event::groupJoined:
      json["group"] = event.group.stringValue();
      json["reporter"] = event.address.stringValue();
      addGroupKind(json, event);
      return;
    case Event::groupChanged:
      json["group"] = event.group.stringValue();
      addGroupKind(json, event);
      return;
    case Event::groupLeft: json["group"] = event.group.stringValue(); return;
    case Event::sourceJoined:
    case Event::sourceExcluded:
    case Event::sourceLeft:
      json["group"] = event.group.stringValue();
      json["source"] = event.source.stringValue();
      return;
    case Event::querySent: addQuery(json, event); return;
    case Event::versionMismatch:
      json["heardVersion"] = event.version;
      json["configuredVersion"] = event.configuredVersion;
      json["text"] = event.text;
      return;
    case Event::configChanged: addValue(json, event); return;
    case Event::counters:
      for (const auto& [name, count] : event.counts) json["counters"][name] = count;
      return;
    case Event::agentBack: return;
    case Event::agentLost:
    case Event::invalidSource:
    case Event::error: json["text"] = event.text; return;
    case Event::interfaceUp:
    case Event::interfaceDown:
    case Event::interfaceGone:
    case Event::addressChanged: json["address"] = knownAddressJson(event.address); return;
  }
}

class JsonSink final : public EventSink {
 public:
  explicit JsonSink(std::FILE* out) : out_(out) {}

  // Flushed at once: a reader at the other end of a pipe acts on the line.
  void event(const Event& event) override {
    std::fputs((eventJson(event) + "\n").c_str(), out_);
    std::fflush(out_);
  }

 private:
  std::FILE* out_;
};

}  // namespace

std::string eventJson(const Event& event) {
  Json json;
  json["time"] = secondsJson(event.time);
  json["event"] = kindName(event.kind);
  if (!event.interface.empty()) json["interface"] = event.interface;
  addFields(json, event);
  return jsonLine(json);
}

std::unique_ptr<EventSink> jsonEventSink(std::FILE* out) { return std::make_unique<JsonSink>(out); }

}  // namespace Agent
