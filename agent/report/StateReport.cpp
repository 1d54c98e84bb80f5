#include <Report/StateReport.h>

#include <utility>

#include <Text/Json.h>
#include "StateTables.h"

namespace Agent {

namespace {

// One line, as an event.
std::string stateLine(const Table& table, Mox::Seconds now, bool first, bool last) {
  JsonObject json;
  json.times(now).text("event", "state");
  if (!first) json.flag("continued", true);
  if (!last) json.flag("more", true);
  table.appendJson(json.value("interfaces"), Table::Lines::one);
  return std::move(json).line() + '\n';
}

// Columns of one width throughout.
std::string everythingText(InterfaceViews interfaces, Mox::Seconds now) {
  constexpr size_t all = GroupWindow::allRows;
  StateParts parts({interfaces.begin(), interfaces.end()}, now, Format::text,
                   {.rows = all, .interfaces = all});
  return parts.next();
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
  GroupWindow window;
  switch (part) {
    case StatePart::everything: return everythingTable(interfaces, now, window);
    case StatePart::interfaces: return interfaceTable(interfaces, now);
    case StatePart::groups: return groupTable(interfaces, now, window);
    case StatePart::sources: return sourceTable(interfaces, now);
    case StatePart::counters: return counterTable(interfaces);
  }
  return everythingTable(interfaces, now, window);
}

}  // namespace

std::string stateText(StatePart part, InterfaceViews interfaces, Mox::Seconds now) {
  switch (part) {
    case StatePart::everything: return everythingText(interfaces, now);
    case StatePart::counters: return turnedText(partTable(part, interfaces, now));
    case StatePart::interfaces:
      return rowsText(partTable(part, interfaces, now), "no interfaces\n");
    case StatePart::groups: return rowsText(partTable(part, interfaces, now), "no groups\n");
    case StatePart::sources: return rowsText(partTable(part, interfaces, now), "no sources\n");
  }
  return {};
}

std::string stateJson(StatePart part, InterfaceViews interfaces, Mox::Seconds now) {
  if (part == StatePart::everything) {
    GroupWindow all;
    return stateLine(everythingTable(interfaces, now, all), now, true, true);
  }
  std::string json;
  partTable(part, interfaces, now).appendJson(json, Table::Lines::each);
  return json + "\n";
}

StateParts::StateParts(std::vector<InterfaceView> interfaces, Mox::Seconds now, Format format,
                       PartSize size)
    : interfaces_(std::move(interfaces)), now_(now), format_(format), size_(size) {}

std::string StateParts::next() {
  if (ended_) return {};
  return format_ == Format::json ? nextJson() : nextText();
}

// The next of them; none after the last.
InterfaceRange StateParts::rangeFrom(size_t& done) const {
  const size_t first = done;
  done += std::min(size_.interfaces, interfaces_.size() - done);
  return {.first = first, .end = done};
}

// Tables of interfaces, groups and counters, with an empty line between them.
std::string StateParts::nextText() {
  if (interfaces_.empty()) {
    ended_ = true;
    return "no interfaces\n";
  }
  std::string text;
  if (described_ < interfaces_.size()) {
    interfaceTable(interfaces_, now_, rangeFrom(described_)).appendText(text, interfaceWidths_);
    if (described_ < interfaces_.size()) return text;
    text += '\n';
  }
  if (interface_ < interfaces_.size()) {
    appendGroups(text);
    if (interface_ < interfaces_.size()) return text;
  }
  text += '\n' + turnedText(counterTable(interfaces_, rangeFrom(counted_)));
  ended_ = counted_ == interfaces_.size();
  return text;
}

void StateParts::appendGroups(std::string& text) {
  GroupWindow window{.rows = size_.rows, .interface = interface_, .group = group_};
  const Table groups = groupTable(interfaces_, now_, window);
  interface_ = window.interface;
  group_ = window.group;
  if (groups.rows() != 0) {
    groups.appendText(text, widths_);
  } else if (widths_.empty()) {
    text += "no groups\n";
  }
}

std::string StateParts::nextJson() {
  GroupWindow window{.rows = size_.rows, .interface = interface_, .group = group_};
  const bool first = !std::exchange(begun_, true);
  const bool describes = first || described_ < interfaces_.size();
  const Table table = describes ? everythingTable(interfaces_, now_, window, rangeFrom(described_))
                                : moreGroupsTable(interfaces_, now_, window);
  interface_ = window.interface;
  group_ = window.group;
  ended_ = described_ == interfaces_.size() && interface_ == interfaces_.size();
  return stateLine(table, now_, first, ended_);
}

void printState(std::FILE* out, StatePart part, InterfaceViews interfaces, Mox::Seconds now,
                Format format) {
  const std::string text =
      format == Format::json ? stateJson(part, interfaces, now) : stateText(part, interfaces, now);
  std::fwrite(text.data(), 1, text.size(), out);
  std::fflush(out);
}

}  // namespace Agent
