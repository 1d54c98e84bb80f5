#include <Report/StateReport.h>

#include <utility>

#include <Text/Json.h>
#include "StateTables.h"

namespace Agent {

namespace {

std::string everythingText(InterfaceViews interfaces, Mox::Seconds now) {
  if (interfaces.empty()) return "no interfaces\n";
  return stateText(StatePart::interfaces, interfaces, now) + "\n" +
         stateText(StatePart::groups, interfaces, now) + "\n" +
         stateText(StatePart::counters, interfaces, now);
}

// One line, as an event.
std::string everythingJson(InterfaceViews interfaces, Mox::Seconds now) {
  JsonObject json;
  json.times(now).text("event", "state");
  everythingTable(interfaces, now).appendJson(json.value("interfaces"), Table::Lines::one);
  return std::move(json).line() + '\n';
}

std::string rowsText(const Table& table, const char* none) {
  if (table.rows() == 0) return none;
  std::string text;
  table.appendText(text);
  return text;
}

std::string turnedText(const Table& table) {
  if (table.rows() == 0) return "no interfaces\n";
  std::string text;
  table.appendTurnedText(text);
  return text;
}

Table partTable(StatePart part, InterfaceViews interfaces, Mox::Seconds now) {
  switch (part) {
    case StatePart::everything: return everythingTable(interfaces, now);
    case StatePart::interfaces: return interfaceTable(interfaces, now);
    case StatePart::groups: return groupTable(interfaces, now);
    case StatePart::sources: return sourceTable(interfaces, now);
    case StatePart::counters: return counterTable(interfaces);
    case StatePart::config: return configTable(interfaces);
  }
  return everythingTable(interfaces, now);
}

}  // namespace

std::string stateText(StatePart part, InterfaceViews interfaces, Mox::Seconds now) {
  switch (part) {
    case StatePart::everything: return everythingText(interfaces, now);
    case StatePart::counters:
    case StatePart::config: return turnedText(partTable(part, interfaces, now));
    case StatePart::interfaces:
      return rowsText(partTable(part, interfaces, now), "no interfaces\n");
    case StatePart::groups: return rowsText(partTable(part, interfaces, now), "no groups\n");
    case StatePart::sources: return rowsText(partTable(part, interfaces, now), "no sources\n");
  }
  return {};
}

std::string stateJson(StatePart part, InterfaceViews interfaces, Mox::Seconds now) {
  if (part == StatePart::everything) return everythingJson(interfaces, now);
  std::string json;
  partTable(part, interfaces, now).appendJson(json, Table::Lines::each);
  return json + "\n";
}

void printState(std::FILE* out, StatePart part, InterfaceViews interfaces, Mox::Seconds now,
                Format format) {
  const std::string text =
      format == Format::json ? stateJson(part, interfaces, now) : stateText(part, interfaces, now);
  std::fwrite(text.data(), 1, text.size(), out);
  std::fflush(out);
}

}  // namespace Agent
