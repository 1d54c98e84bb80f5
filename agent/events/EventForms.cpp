// The kinds of events in one table: the name of each, its keys in JSON, and its words.
#include <Events/Event.h>

#include <array>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <Text/Json.h>
#include <Text/QuerierNames.h>

namespace Agent {

namespace {

// Adds one key to the object; which one may depend on the value.
using Field = void (*)(JsonObject&, const Event&);

void addRole(JsonObject& json, const Event& e) { json.text("role", roleName(e.state)); }
void addQuerier(JsonObject& json, const Event& e) { json.knownAddress("querier", e.address); }
void addGroup(JsonObject& json, const Event& e) { json.address("group", e.group); }
void addReporter(JsonObject& json, const Event& e) { json.address("reporter", e.address); }
void addMode(JsonObject& json, const Event& e) { json.number("compatibilityMode", e.version); }
void addFilter(JsonObject& json, const Event& e) {
  json.text("filterMode", filterModeName(e.filterMode));
}
void addSource(JsonObject& json, const Event& e) { json.address("source", e.source); }
void addVersion(JsonObject& json, const Event& e) { json.number("version", e.version); }
void addMaxResponse(JsonObject& json, const Event& e) {
  json.seconds("maxResponseSeconds", e.maxResponse);
}
void addSources(JsonObject& json, const Event& e) { json.addresses("sources", e.sources); }
void addOtherVersion(JsonObject& json, const Event& e) { json.number("heardVersion", e.version); }
void addConfigured(JsonObject& json, const Event& e) {
  json.number("configuredVersion", e.configuredVersion);
}
void addRule(JsonObject& json, const Event& e) { json.text("rule", e.attribute); }
void addSender(JsonObject& json, const Event& e) {
  json.address("sender", e.address);
  if (!e.mac.empty()) json.text("mac", e.mac);
}
void addKnownGroup(JsonObject& json, const Event& e) { json.knownAddress("group", e.group); }
void addCount(JsonObject& json, const Event& e) { json.number("count", e.count); }
void addText(JsonObject& json, const Event& e) { json.text("text", e.text); }
void addAddress(JsonObject& json, const Event& e) { json.knownAddress("address", e.address); }
void addAttribute(JsonObject& json, const Event& e) { json.text("attribute", e.attribute); }
void addValue(JsonObject& json, const Event& e) {
  if (const auto* flag = std::get_if<bool>(&e.value)) json.flag("value", *flag);
  if (const auto* number = std::get_if<Mox::U64>(&e.value)) json.number("value", *number);
  if (const auto* seconds = std::get_if<Mox::Seconds>(&e.value)) {
    json.seconds("valueSeconds", *seconds);
  }
  if (const auto* text = std::get_if<std::string>(&e.value)) json.text("value", *text);
}
void addCounters(JsonObject& json, const Event& e) {
  JsonObject counts;
  for (const auto& [name, count] : e.counts) counts.number(name, count);
  json.object("counters", counts);
}

std::string electedText(const Event& e) {
  return e.address.isZero() ? "" : fmt::format(" (elected {})", e.address.stringValue());
}

std::string atAddressText(const Event& e) {
  return e.address.isZero() ? "" : fmt::format(", address {}", e.address.stringValue());
}

// Only version 3 hosts choose a filter mode; the mode of a group of older ones is of interest when
// it is INCLUDE, which only a specific query of another router brings about.
std::string modeText(const Event& e) {
  const bool mode = e.version == 3 || e.filterMode == Gmp::Igmp::filterModeInclude;
  return fmt::format("(version {}{}{})", e.version, mode ? ", " : "",
                     mode ? filterModeName(e.filterMode) : "");
}

std::string groupsText(const Event& e) {
  return e.group.isZero() ? "all groups" : e.group.stringValue();
}

std::string sourcesText(const Event& e) {
  std::string text;
  const char* before = ", sources ";
  for (const Ilvo::IpAddr source : e.sources) {
    text += std::exchange(before, " ") + source.stringValue();
  }
  return text;
}

std::string valueText(const Event& e) {
  if (const auto* flag = std::get_if<bool>(&e.value)) return *flag ? "on" : "off";
  if (const auto* number = std::get_if<Mox::U64>(&e.value)) return fmt::to_string(*number);
  if (const auto* seconds = std::get_if<Mox::Seconds>(&e.value)) {
    return fmt::format("{}s", *seconds);
  }
  const auto* text = std::get_if<std::string>(&e.value);
  return text == nullptr ? std::string() : *text;
}

std::string senderText(const Event& e) {
  return e.address.stringValue() + (e.mac.empty() ? "" : fmt::format(" ({})", e.mac));
}

std::string ofGroupText(const Event& e) {
  return e.group.isZero() ? "" : fmt::format(", group {}", e.group.stringValue());
}

std::string countersText(const Event& e) {
  std::string text;
  const char* before = "";
  for (const auto& [name, count] : e.counts) {
    text += fmt::format("{}{} {}", std::exchange(before, ", "), name, count);
  }
  return text;
}

// What stands in the words of an event for {NAME}.
struct Placeholder {
  std::string_view name;
  std::string (*text)(const Event&);
};

constexpr std::array placeholders{
    Placeholder{"address", [](const Event& e) { return e.address.stringValue(); }},
    Placeholder{"atAddress", atAddressText},
    Placeholder{"attribute", [](const Event& e) { return std::string(e.attribute); }},
    Placeholder{"count", [](const Event& e) { return fmt::to_string(e.count); }},
    Placeholder{"counters", countersText},
    Placeholder{"elected", electedText},
    Placeholder{"group", [](const Event& e) { return e.group.stringValue(); }},
    Placeholder{"groups", groupsText},
    Placeholder{"maxResponse", [](const Event& e) { return fmt::to_string(e.maxResponse); }},
    Placeholder{"mode", modeText},
    Placeholder{"ofGroup", ofGroupText},
    Placeholder{"role", [](const Event& e) { return std::string(roleName(e.state)); }},
    Placeholder{"sender", senderText},
    Placeholder{"source", [](const Event& e) { return e.source.stringValue(); }},
    Placeholder{"sources", sourcesText},
    Placeholder{"text", [](const Event& e) { return e.text; }},
    Placeholder{"value", valueText},
    Placeholder{"version", [](const Event& e) { return fmt::to_string(e.version); }},
};

constexpr const Placeholder* placeholder(std::string_view name) {
  for (const Placeholder& each : placeholders) {
    if (each.name == name) return &each;
  }
  return nullptr;
}

// Calls f(text, name) for each placeholder, with the text ahead of it, and at the end with no name.
template <class F>
constexpr void forEachPart(std::string_view words, F f) {
  while (true) {
    const size_t open = words.find('{');
    if (open == std::string_view::npos) return f(words, std::string_view());
    const size_t close = words.find('}', open);
    f(words.substr(0, open), words.substr(open + 1, close - open - 1));
    words.remove_prefix(close + 1);
  }
}

struct Row {
  Event::Kind kind;
  const char* name;             // "event" in JSON
  std::array<Field, 5> fields;  // what follows the interface in JSON, in that order
  std::string_view words;       // what follows the interface in a line for people
};

constexpr std::array rows{
    Row{Event::role, "role", {addRole, addQuerier}, "role {role}{elected}"},
    Row{Event::groupJoined,
        "groupJoined",
        {addGroup, addReporter, addMode, addFilter},
        "joined {group} by {address} {mode}"},
    Row{Event::groupChanged,
        "groupChanged",
        {addGroup, addMode, addFilter},
        "changed {group} {mode}"},
    Row{Event::groupLeft, "groupLeft", {addGroup}, "left {group}"},
    Row{Event::sourceJoined,
        "sourceJoined",
        {addGroup, addSource},
        "joined {group} source {source}"},
    Row{Event::sourceExcluded,
        "sourceExcluded",
        {addGroup, addSource},
        "excluded {group} source {source}"},
    Row{Event::sourceLeft, "sourceLeft", {addGroup, addSource}, "left {group} source {source}"},
    Row{Event::querySent,
        "querySent",
        {addGroup, addVersion, addMaxResponse, addSources},
        "query sent for {groups}, version {version}, answers within {maxResponse}s{sources}"},
    Row{Event::versionMismatch,
        "versionMismatch",
        {addOtherVersion, addConfigured, addText},
        "{text}"},
    Row{Event::invalidSource, "invalidSource", {addText}, "{text}"},
    Row{Event::interfaceUp, "interfaceUp", {addAddress}, "interface up{atAddress}"},
    Row{Event::interfaceDown, "interfaceDown", {addAddress}, "interface down{atAddress}"},
    Row{Event::interfaceGone, "interfaceGone", {addAddress}, "interface gone{atAddress}"},
    Row{Event::addressChanged, "addressChanged", {addAddress}, "address changed{atAddress}"},
    Row{Event::configChanged,
        "configChanged",
        {addAttribute, addValue},
        "configured {attribute} {value}"},
    Row{Event::counters, "counters", {addCounters}, "counters {counters}"},
    Row{Event::agentLost, "agentLost", {addText}, "{text}"},
    Row{Event::agentBack, "agentBack", {}, "the agent is back"},
    Row{Event::intake,
        "intake",
        {addRule, addSender, addKnownGroup, addCount, addText},
        "{text}, from {sender}{ofGroup}; {count} so far"},
    Row{Event::intakeWarning,
        "intakeWarning",
        {addRule, addSender, addCount, addText},
        "warning: {text}: {sender}; {count} so far"},
    Row{Event::error, "error", {addText}, "error: {text}"},
};

consteval bool eachKindHasItsRow() {
  for (size_t at = 0; at < rows.size(); ++at) {
    if (rows[at].kind != at) return false;
  }
  return rows.size() == Event::kinds;
}
static_assert(eachKindHasItsRow());

consteval bool allPlaceholdersAreKnown() {
  bool all = true;
  for (const Row& row : rows) {
    forEachPart(row.words, [&](std::string_view, std::string_view name) {
      all = all && (name.empty() || placeholder(name) != nullptr);
    });
  }
  return all;
}
static_assert(allPlaceholdersAreKnown());

}  // namespace

std::string eventText(const Event& event) {
  std::string text;
  forEachPart(rows.at(event.kind).words, [&](std::string_view words, std::string_view name) {
    text += words;
    if (!name.empty()) text += placeholder(name)->text(event);
  });
  return text;
}

std::string eventJson(const Event& event) {
  const Row& row = rows.at(event.kind);
  JsonObject json;
  json.times(event.time).text("event", row.name);
  if (!event.interface.empty()) json.text("interface", event.interface);
  for (const Field add : row.fields) {
    if (add != nullptr) add(json, event);
  }
  return json.line();
}

}  // namespace Agent
