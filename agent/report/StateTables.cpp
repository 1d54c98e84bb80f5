#include "StateTables.h"

#include <algorithm>
#include <deque>
#include <string>
#include <type_traits>
#include <vector>

#include <Mox/AttrTable.h>

#include <Text/QuerierNames.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSourceStatus;
using Gmp::Igmp::QuerierStatus;
using Mox::Ptr;
using Mox::Seconds;

namespace {

using Columns = std::vector<Table::Column>;
using Cells = std::vector<Cell>;

// Until an absolute time; nothing for one that is not set, or while no querier runs.
Duration timeLeft(const InterfaceView& view, Seconds expiry, Seconds now) {
  if (!view.running || expiry == 0.0) return {Mox::never};
  return {std::max(expiry - now, 0.0)};
}

// Since an absolute time; nothing for one that is not known, or while no querier runs.
Duration timePassed(const InterfaceView& view, Seconds since, Seconds now) {
  if (!view.running || since == 0.0) return {Mox::never};
  return {std::max(now - since, 0.0)};
}

// In address order: the collection itself has none.
std::vector<Ptr<const QuerierSourceStatus>> sourcesOf(const QuerierGroupStatus& group) {
  std::vector<Ilvo::IpAddr> keys = group.source().keys();
  std::sort(keys.begin(), keys.end());
  std::vector<Ptr<const QuerierSourceStatus>> sources;
  sources.reserve(keys.size());
  for (const Ilvo::IpAddr addr : keys) sources.emplace_back(group.source(addr));
  return sources;
}

Flag excludedFlag(const QuerierGroupStatus& group, const QuerierSourceStatus& source) {
  const bool excluded = group.filterMode() == Gmp::Igmp::filterModeExclude && source.expired();
  return {excluded, "excluded", "forwarded"};
}

// Calls f(view, group) for every group.
template <class F>
void forEachGroup(const InterfaceView& view, F f) {
  const QuerierStatus::GroupMap& groups = view.status->group();
  for (auto at = groups.begin(); at != groups.end(); ++at) f(view, **at);
}

const Columns interfaceColumns{{"interface", "INTERFACE"},
                               {"address", "ADDRESS"},
                               {"running"},
                               {"role"},
                               {nullptr, "ROLE"},
                               {"querier", "QUERIER"},
                               {"querierUpSeconds", "SINCE"},
                               {"querierVersion", "VERSION"},
                               {"robustness", "ROBUSTNESS"},
                               {"queryIntervalSeconds", "INTERVAL"},
                               {"queryResponseIntervalSeconds", "RESPONSE"},
                               {"nextQuerySeconds", "NEXT QUERY"},
                               {"otherQuerierExpirySeconds", "QUERIER LOST"},
                               {"groupCount", "GROUPS"}};

Cells interfaceCells(const InterfaceView& view, Seconds now) {
  const QuerierStatus& status = *view.status;
  const char* const role = roleName(status.state());
  return {view.name,
          knownAddress(view.address),
          view.isCopy ? Cell() : Cell(Flag{view.running, "yes", "no"}),
          role,
          view.running ? role : "stopped",
          knownAddress(status.electedQuerierAddr()),
          timePassed(view, view.electedTime, now),
          Mox::U64{status.querierVersion()},
          Mox::U64{status.robustness()},
          Duration{status.queryInterval()},
          Duration{status.queryResponseInterval()},
          timeLeft(view, status.generalQueryExpiryTime(), now),
          timeLeft(view, status.otherQuerierExpiryTime(), now),
          Mox::U64{status.group().size()}};
}

const Columns groupColumns{{"interface", "INTERFACE"},   {"group", "GROUP"},
                           {"filterMode", "MODE"},       {"compatibilityMode", "VERSION"},
                           {"lastReporter", "REPORTER"}, {"upSeconds", "UP"},
                           {"timeLeftSeconds", "LEFT"}};
const Columns groupSourceColumns{
    {"source", "GROUP"}, {"excluded", "MODE"}, {"upSeconds", "UP"}, {"timeLeftSeconds", "LEFT"}};

// Where no address can be known people are not shown a column of dashes.
Columns interfaceColumnsOf(InterfaceViews interfaces) {
  Columns columns = interfaceColumns;
  const bool copies = std::ranges::all_of(interfaces, &InterfaceView::isCopy);
  if (copies) columns[1].heading = nullptr;
  return columns;
}

Columns withoutFirst(const Columns& columns) { return {columns.begin() + 1, columns.end()}; }

void addGroupSources(Table& table, const InterfaceView& view, const QuerierGroupStatus& group,
                     Seconds now) {
  if (group.source().empty()) return;
  for (const auto& source : sourcesOf(group)) {
    table.row({source->sourceAddr(), excludedFlag(group, *source),
               Duration{now - source->creationTime()}, timeLeft(view, source->expiryTime(), now)});
  }
}

// The interface is the first column unless the rows are below those of the interface.
void addGroups(Table& table, const InterfaceView& view, Seconds now, size_t firstColumn) {
  forEachGroup(view, [&](const InterfaceView&, const QuerierGroupStatus& group) {
    const std::array<Cell, 7> cells{view.name,
                                    group.groupAddr(),
                                    filterModeName(group.filterMode()),
                                    Mox::U64{group.compatibilityMode()},
                                    group.lastReporter(),
                                    Duration{now - group.creationTime()},
                                    timeLeft(view, group.expiryTime(), now)};
    table.row(std::span(cells).subspan(firstColumn));
    addGroupSources(table.below(), view, group, now);
  });
}

void addColumns(Columns& columns, const Columns& added) {
  columns.insert(columns.end(), added.begin(), added.end());
}

// Calls f(row) for each counter of an entity's attribute table.
template <class Entity, class F>
void forEachCounter(F f) {
  Entity::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (std::remove_cvref_t<decltype(row)>::kind == Mox::AttrKind::counter) f(row);
  });
}

bool anyState(InterfaceViews interfaces) {
  return std::ranges::any_of(interfaces,
                             [](const InterfaceView& view) { return view.state != nullptr; });
}

// Each under its own name. Those of the interface are left out where no view knows them.
Columns counterColumns(InterfaceViews interfaces, bool forPeople, const char* object) {
  Columns columns;
  const auto add = [&](const auto& row) {
    columns.push_back({row.name, forPeople ? row.name : nullptr, object});
  };
  forEachCounter<QuerierStatus>(add);
  if (anyState(interfaces)) forEachCounter<InterfaceState>(add);
  return columns;
}

void addCounters(Cells& cells, const InterfaceView& view, bool withState) {
  forEachCounter<QuerierStatus>(
      [&](const auto& row) { cells.emplace_back(Mox::U64{(*view.status).*row.member}); });
  if (!withState) return;
  forEachCounter<InterfaceState>([&](const auto& row) {
    cells.push_back(view.state ? Cell(Mox::U64{(*view.state).*row.member}) : Cell());
  });
}

template <class V>
Cell settingCell(const V& value) {
  if constexpr (std::is_same_v<V, bool>) {
    return Flag{value, "on", "off"};
  } else if constexpr (std::is_same_v<V, Seconds>) {
    return Interval{value};
  } else {
    return Mox::U64{value};
  }
}

// Calls f(name, value) for each attribute but the key.
template <class F>
void forEachSetting(const QuerierConfig& config, F f) {
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    using Row = std::remove_cvref_t<decltype(row)>;
    if constexpr (Row::kind == Mox::AttrKind::stored) f(row.name, config.*row.member);
    if constexpr (Row::kind == Mox::AttrKind::derived) f(row.name, (config.*row.get)());
  });
}

Columns settingColumns() {
  static std::deque<std::string> keys;  // with their units
  Columns columns;
  forEachSetting(*Gmp::Igmp::querierConfigFactory(""), [&](const char* name, const auto& value) {
    constexpr bool seconds = std::is_same_v<std::remove_cvref_t<decltype(value)>, Seconds>;
    keys.push_back(std::string(name) + (seconds ? "Seconds" : ""));
    columns.push_back({keys.back().c_str(), name});
  });
  return columns;
}

}  // namespace

Table interfaceTable(InterfaceViews interfaces, Seconds now) {
  Table table(interfaceColumnsOf(interfaces));
  for (const InterfaceView& view : interfaces) table.row(interfaceCells(view, now));
  return table;
}

Table everythingTable(InterfaceViews interfaces, Seconds now) {
  Columns columns = interfaceColumns;
  addColumns(columns, counterColumns(interfaces, false, "counters"));
  Table table(std::move(columns));
  Table& groups = table.belowIs("groups", withoutFirst(groupColumns));
  groups.belowIs("sources", groupSourceColumns);
  for (const InterfaceView& view : interfaces) {
    Cells cells = interfaceCells(view, now);
    addCounters(cells, view, anyState(interfaces));
    table.row(cells);
    addGroups(groups, view, now, 1);
  }
  return table;
}

Table groupTable(InterfaceViews interfaces, Seconds now) {
  Table table(groupColumns);
  table.belowIs("sources", groupSourceColumns);
  for (const InterfaceView& view : interfaces) addGroups(table, view, now, 0);
  return table;
}

Table sourceTable(InterfaceViews interfaces, Seconds now) {
  Table table({{"interface", "INTERFACE"},
               {"group", "GROUP"},
               {"source", "SOURCE"},
               {"excluded", "STATE"},
               {"upSeconds", "UP"},
               {"timeLeftSeconds", "LEFT"}});
  for (const InterfaceView& each : interfaces) {
    forEachGroup(each, [&](const InterfaceView& view, const QuerierGroupStatus& group) {
      if (group.source().empty()) return;
      for (const auto& source : sourcesOf(group)) {
        table.row({view.name, group.groupAddr(), source->sourceAddr(), excludedFlag(group, *source),
                   Duration{now - source->creationTime()},
                   timeLeft(view, source->expiryTime(), now)});
      }
    });
  }
  return table;
}

Table counterTable(InterfaceViews interfaces) {
  Columns columns{{"interface", "COUNTER"}};
  addColumns(columns, counterColumns(interfaces, true, nullptr));
  Table table(std::move(columns));
  for (const InterfaceView& view : interfaces) {
    Cells cells{view.name};
    addCounters(cells, view, anyState(interfaces));
    table.row(cells);
  }
  return table;
}

Table configTable(InterfaceViews interfaces) {
  Columns columns{{"interface", "SETTING"}};
  static const Columns settings = settingColumns();
  addColumns(columns, settings);
  Table table(std::move(columns));
  for (const InterfaceView& view : interfaces) {
    Cells cells{view.name};
    forEachSetting(*view.config,
                   [&](const char*, const auto& value) { cells.push_back(settingCell(value)); });
    table.row(cells);
  }
  return table;
}

}  // namespace Agent
