#include <Report/GroupReport.h>

#include <utility>

#include "StateTables.h"

namespace Agent {

std::string interfaceJson(const InterfaceView& view, Mox::Seconds now) {
  std::string json;
  interfaceTable({&view, 1}, now).appendJsonRow(json, 0);
  return json + '\n';
}

std::optional<std::string> groupJson(const InterfaceView& view, Ilvo::IpAddr group,
                                     Mox::Seconds now) {
  const Table table = oneGroupTable(view, group, now);
  if (table.rows() == 0) return std::nullopt;
  std::string json;
  table.appendJsonRow(json, 0);
  return json + '\n';
}

GroupPage groupPage(const InterfaceView& view, Ilvo::IpAddr from, size_t groups, Mox::Seconds now) {
  GroupWindow window{.groups = groups, .group = from};
  GroupPage page;
  groupTable({&view, 1}, now, window).appendJson(page.json, Table::Lines::each);
  page.json += '\n';
  if (window.interface == 0) page.next = window.group;
  return page;
}

std::string GroupParts::next(Mox::Seconds now) {
  if (ended_) return {};
  std::string json;
  if (!std::exchange(begun_, true)) json += '[';
  GroupWindow window{.rows = rowsOfPart, .group = group_};
  const Table table = groupTable({&view_, 1}, now, window);
  table.appendJsonRows(json, isEmpty_);
  isEmpty_ = isEmpty_ && table.rows() == 0;
  group_ = window.group;
  ended_ = window.interface != 0;
  if (ended_) json += isEmpty_ ? "]\n" : "\n]\n";
  return json;
}

}  // namespace Agent
