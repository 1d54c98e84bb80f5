#include <Agent/StateReport.h>

#include <cmath>

#include <fmt/format.h>

#include "JsonLine.h"
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
  std::string json =
      "{\"time\":" + jsonLine(secondsJson(now)) + ",\"event\":\"state\",\"interfaces\":";
  everythingTable(interfaces, now).appendJson(json, Table::Lines::one);
  return json + "}\n";
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

// Two units at most: whoever wants more reads the JSON.
std::string durationText(Mox::Seconds seconds) {
  if (!std::isfinite(seconds)) return "-";
  const double tenths = std::round(std::max(seconds, 0.0) * 10.0);
  if (tenths < 100.0) return fmt::format("{:.1f}s", tenths / 10.0);
  const auto whole = static_cast<Mox::U64>(std::round(seconds));
  if (whole < 60) return fmt::format("{}s", whole);
  if (whole < 3600) return fmt::format("{}m{:02}s", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{}h{:02}m", whole / 3600, whole % 3600 / 60);
  return fmt::format("{}d{:02}h", whole / 86400, whole % 86400 / 3600);
}

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
