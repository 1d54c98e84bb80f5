// The kinds of events in one table: name, priority, keys in JSON, and words of each.
#include <Events/Event.h>

#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <syslog.h>

#include <Text/Json.h>
#include <Text/Printable.h>
#include <Text/QuerierNames.h>

#include "EventLine.h"

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
void addSourcesJoined(JsonObject& json, const Event& e) { json.number("joined", e.sourcesJoined); }
void addSourcesExcluded(JsonObject& json, const Event& e) {
  json.number("excluded", e.sourcesExcluded);
}
void addSourcesLeft(JsonObject& json, const Event& e) { json.number("left", e.sourcesLeft); }
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
void addKind(JsonObject& json, const Event& e) { json.text("kind", e.attribute); }
void addCount(JsonObject& json, const Event& e) { json.number("count", e.count); }
void addGroups(JsonObject& json, const Event& e) { json.number("groups", e.count); }
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

// Each appends what stands in the words of an event for a placeholder.
template <class... Args>
void append(std::string& out, fmt::format_string<Args...> format, Args&&... args) {
  fmt::format_to(std::back_inserter(out), format, std::forward<Args>(args)...);
}

void electedText(std::string& out, const Event& e) {
  if (e.address.isZero()) return;
  out += " (elected ";
  Ilvo::appendText(out, e.address);
  out += ')';
}

void atAddressText(std::string& out, const Event& e) {
  if (e.address.isZero()) return;
  out += ", address ";
  Ilvo::appendText(out, e.address);
}

// Only version 3 hosts choose a filter mode; the mode of a group of older ones is of interest when
// it is INCLUDE, which only a specific query of another router brings about.
void modeText(std::string& out, const Event& e) {
  const bool mode = e.version == 3 || e.filterMode == Gmp::Igmp::filterModeInclude;
  append(out, "(version {}{}{})", e.version, mode ? ", " : "",
         mode ? filterModeName(e.filterMode) : "");
}

void groupsText(std::string& out, const Event& e) {
  if (e.group.isZero()) {
    out += "all groups";
  } else {
    Ilvo::appendText(out, e.group);
  }
}

void sourcesText(std::string& out, const Event& e) {
  const char* before = ", sources ";
  for (const Ilvo::IpAddr source : e.sources) {
    out += std::exchange(before, " ");
    Ilvo::appendText(out, source);
  }
}

void sourceCountsText(std::string& out, const Event& e) {
  append(out, "{} joined, {} excluded, {} left", e.sourcesJoined, e.sourcesExcluded, e.sourcesLeft);
}

void valueText(std::string& out, const Event& e) {
  if (const auto* flag = std::get_if<bool>(&e.value)) out += *flag ? "on" : "off";
  if (const auto* number = std::get_if<Mox::U64>(&e.value)) append(out, "{}", *number);
  if (const auto* seconds = std::get_if<Mox::Seconds>(&e.value)) append(out, "{}s", *seconds);
  if (const auto* text = std::get_if<std::string>(&e.value)) out += *text;
}

void senderText(std::string& out, const Event& e) {
  Ilvo::appendText(out, e.address);
  if (!e.mac.empty()) append(out, " ({})", e.mac);
}

void ofGroupText(std::string& out, const Event& e) {
  if (e.group.isZero()) return;
  out += ", group ";
  Ilvo::appendText(out, e.group);
}

void countersText(std::string& out, const Event& e) {
  const char* before = "";
  for (const auto& [name, count] : e.counts) {
    append(out, "{}{} {}", std::exchange(before, ", "), name, count);
  }
}

// What stands in the words of an event for {NAME}.
struct Placeholder {
  std::string_view name;
  void (*text)(std::string& out, const Event&);
};

constexpr std::array placeholders{
    Placeholder{"address",
                [](std::string& out, const Event& e) { Ilvo::appendText(out, e.address); }},
    Placeholder{"atAddress", atAddressText},
    Placeholder{"attribute", [](std::string& out, const Event& e) { out += e.attribute; }},
    Placeholder{"count", [](std::string& out, const Event& e) { append(out, "{}", e.count); }},
    Placeholder{"counters", countersText},
    Placeholder{"elected", electedText},
    Placeholder{"group", [](std::string& out, const Event& e) { Ilvo::appendText(out, e.group); }},
    Placeholder{"groups", groupsText},
    Placeholder{"maxResponse",
                [](std::string& out, const Event& e) { append(out, "{}", e.maxResponse); }},
    Placeholder{"mode", modeText},
    Placeholder{"ofGroup", ofGroupText},
    Placeholder{"role", [](std::string& out, const Event& e) { out += roleName(e.state); }},
    Placeholder{"sender", senderText},
    Placeholder{"source",
                [](std::string& out, const Event& e) { Ilvo::appendText(out, e.source); }},
    Placeholder{"sourceCounts", sourceCountsText},
    Placeholder{"sources", sourcesText},
    Placeholder{"text", [](std::string& out, const Event& e) { out += e.text; }},
    Placeholder{"value", valueText},
    Placeholder{"version", [](std::string& out, const Event& e) { append(out, "{}", e.version); }},
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

// The journal has an address of an event under that name where JSON has it, too.
struct JournalField {
  Field field;
  std::string_view name;
  Ilvo::IpAddr Event::*address;
};

constexpr std::array journalFields{
    JournalField{addGroup, "IGMP_GROUP", &Event::group},
    JournalField{addKnownGroup, "IGMP_GROUP", &Event::group},
    JournalField{addReporter, "IGMP_HOST", &Event::address},
    JournalField{addSender, "IGMP_HOST", &Event::address},
    JournalField{addSource, "IGMP_SOURCE", &Event::source},
    JournalField{addQuerier, "IGMP_QUERIER", &Event::address},
};

struct Row {
  Event::Kind kind;
  const char* name;             // "event" in JSON
  int priority;                 // in the journal
  std::array<Field, 5> fields;  // what follows the interface in JSON, in that order
  std::string_view words;       // what follows the interface in a line for people
};

constexpr std::array rows{
    Row{Event::role, "role", LOG_NOTICE, {addRole, addQuerier}, "role {role}{elected}"},
    Row{Event::groupJoined,
        "groupJoined",
        LOG_INFO,
        {addGroup, addReporter, addMode, addFilter},
        "joined {group} by {address} {mode}"},
    Row{Event::groupChanged,
        "groupChanged",
        LOG_INFO,
        {addGroup, addMode, addFilter},
        "changed {group} {mode}"},
    Row{Event::groupLeft, "groupLeft", LOG_INFO, {addGroup}, "left {group}"},
    Row{Event::sourceJoined,
        "sourceJoined",
        LOG_INFO,
        {addGroup, addSource},
        "joined {group} source {source}"},
    Row{Event::sourceExcluded,
        "sourceExcluded",
        LOG_INFO,
        {addGroup, addSource},
        "excluded {group} source {source}"},
    Row{Event::sourceLeft,
        "sourceLeft",
        LOG_INFO,
        {addGroup, addSource},
        "left {group} source {source}"},
    Row{Event::sourcesChanged,
        "sourcesChanged",
        LOG_INFO,
        {addGroup, addSourcesJoined, addSourcesExcluded, addSourcesLeft},
        "changed {group} sources: {sourceCounts}"},
    Row{Event::querySent,
        "querySent",
        LOG_DEBUG,
        {addGroup, addVersion, addMaxResponse, addSources},
        "query sent for {groups}, version {version}, answers within {maxResponse}s{sources}"},
    Row{Event::versionMismatch,
        "versionMismatch",
        LOG_WARNING,
        {addOtherVersion, addConfigured, addText},
        "{text}"},
    Row{Event::invalidSource, "invalidSource", LOG_WARNING, {addText}, "{text}"},
    Row{Event::interfaceUp, "interfaceUp", LOG_NOTICE, {addAddress}, "interface up{atAddress}"},
    Row{Event::interfaceDown,
        "interfaceDown",
        LOG_NOTICE,
        {addAddress},
        "interface down{atAddress}"},
    Row{Event::interfaceGone,
        "interfaceGone",
        LOG_NOTICE,
        {addAddress},
        "interface gone{atAddress}"},
    Row{Event::addressChanged,
        "addressChanged",
        LOG_NOTICE,
        {addAddress},
        "address changed{atAddress}"},
    Row{Event::takenOver,
        "takenOver",
        LOG_NOTICE,
        {addGroups},
        "state of the agent before taken over, with {count} groups"},
    Row{Event::configChanged,
        "configChanged",
        LOG_NOTICE,
        {addAttribute, addValue},
        "configured {attribute} {value}"},
    Row{Event::counters, "counters", LOG_INFO, {addCounters}, "counters {counters}"},
    Row{Event::eventsLost,
        "eventsLost",
        LOG_WARNING,
        {addCount},
        "{count} events were lost: the output did not take them"},
    Row{Event::eventsSummed,
        "eventsSummed",
        LOG_NOTICE,
        {addKind, addCount},
        "{count} more {attribute} events within a second"},
    Row{Event::agentLost, "agentLost", LOG_WARNING, {addText}, "{text}"},
    Row{Event::agentBack, "agentBack", LOG_NOTICE, {}, "the agent is back"},
    Row{Event::intake,
        "intake",
        LOG_NOTICE,
        {addRule, addSender, addKnownGroup, addCount, addText},
        "{text}, from {sender}{ofGroup}; {count} so far"},
    Row{Event::intakeWarning,
        "intakeWarning",
        LOG_WARNING,
        {addRule, addSender, addCount, addText},
        "warning: {text}: {sender}; {count} so far"},
    Row{Event::notice, "notice", LOG_NOTICE, {addText}, "{text}"},
    Row{Event::error, "error", LOG_ERR, {addText}, "error: {text}"},
};

consteval bool eachKindHasItsRow() {
  for (size_t at = 0; at < rows.size(); ++at) {
    if (rows[at].kind != at) return false;
  }
  return rows.size() == Event::kinds;
}
static_assert(eachKindHasItsRow());

// The words of a row, with each placeholder looked up.
struct Part {
  std::string_view words;
  void (*text)(std::string& out, const Event&);  // null at the end
};
using Parts = std::array<Part, 6>;

consteval Parts partsOf(std::string_view words) {
  Parts parts{};
  size_t count = 0;
  forEachPart(words, [&](std::string_view before, std::string_view name) {
    parts.at(count++) = {before, name.empty() ? nullptr : placeholder(name)->text};
  });
  return parts;
}

consteval std::array<Parts, rows.size()> allParts() {
  std::array<Parts, rows.size()> all{};
  for (size_t at = 0; at < rows.size(); ++at) all[at] = partsOf(rows[at].words);
  return all;
}
constexpr std::array<Parts, rows.size()> partsOfRows = allParts();

}  // namespace

const char* eventName(Event::Kind kind) { return rows.at(kind).name; }

void appendEventText(std::string& out, const Event& event) {
  for (const Part& part : partsOfRows.at(event.kind)) {
    out += part.words;
    if (part.text == nullptr) return;
    part.text(out, event);
  }
}

std::string eventText(const Event& event) {
  std::string text;
  appendEventText(text, event);
  return text;
}

// Values of more than a line would have another form, so interface and words are made printable.
std::string eventJournalEntry(const Event& event) {
  const Row& row = rows.at(event.kind);
  std::string entry = "MESSAGE=";
  if (!event.interface.empty()) appendPrintable(entry, event.interface + ": ");
  appendPrintable(entry, eventText(event));
  append(entry, "\nPRIORITY={}\nSYSLOG_IDENTIFIER=igmpq\nIGMP_EVENT={}\n", row.priority, row.name);
  if (!event.interface.empty()) {
    append(entry, "IGMP_INTERFACE={}\n", printable(event.interface));
  }
  for (const Field field : row.fields) {
    for (const JournalField& each : journalFields) {
      if (each.field != field || (event.*each.address).isZero()) continue;
      append(entry, "{}=", each.name);
      Ilvo::appendText(entry, event.*each.address);
      entry += '\n';
    }
  }
  return entry;
}

std::string eventJson(const Event& event, std::string memory) {
  const Row& row = rows.at(event.kind);
  JsonObject json(std::move(memory));
  json.times(event.time).text("event", row.name);
  if (!event.interface.empty()) json.text("interface", event.interface);
  for (const Field add : row.fields) {
    if (add != nullptr) add(json, event);
  }
  return std::move(json).line();
}

}  // namespace Agent
