#include "StateTables.h"

#include <algorithm>
#include <deque>
#include <string>
#include <type_traits>
#include <vector>

#include <Mox/AttrTable.h>

#include <Text/QuerierNames.h>

namespace Agent {

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

// As people read it.
const char* roleText(const InterfaceView& view) {
  if (!view.running) return "stopped";
  const QuerierStatus::QuerierState state = view.status->state();
  if (!view.intake || !view.intake->listenOnly()) return roleName(state);
  switch (state) {
    case QuerierStatus::querierStateInitial: return "initial (listen only)";
    case QuerierStatus::querierStateQuerier: return "querier (listen only)";
    case QuerierStatus::querierStateNonQuerier: return "nonQuerier (listen only)";
  }
  return "unknown";
}

bool isTakenOver(const InterfaceView& view) {
  return view.state && view.state->takenOverTime() != 0.0;
}

const Columns interfaceColumns{{"interface", "INTERFACE"},
                               {"address", "ADDRESS"},
                               {"running"},
                               {"role"},
                               {nullptr, "ROLE"},
                               {"listenOnly"},
                               {"querier", "QUERIER"},
                               {"querierUpSeconds", "SINCE"},
                               {"querierVersion", "VERSION"},
                               {"robustness", "ROBUSTNESS"},
                               {"queryIntervalSeconds", "INTERVAL"},
                               {"queryResponseIntervalSeconds", "RESPONSE"},
                               {"nextQuerySeconds", "NEXT QUERY"},
                               {"otherQuerierExpirySeconds", "QUERIER LOST"},
                               {"groupCount", "GROUPS"},
                               {"takenOverSeconds", "TAKEN OVER"},
                               {"takenOverGroups", "WITH GROUPS"}};
constexpr size_t takenOverColumns = 2;  // the last ones

Cells interfaceCells(const InterfaceView& view, Seconds now) {
  const QuerierStatus& status = *view.status;
  return {view.name,
          knownAddress(view.address),
          view.isCopy ? Cell() : Cell(Flag{view.running, "yes", "no"}),
          roleName(status.state()),
          roleText(view),
          view.intake ? Cell(Flag{view.intake->listenOnly(), "yes", "no"}) : Cell(),
          knownAddress(status.electedQuerierAddr()),
          timePassed(view, view.electedTime, now),
          Mox::U64{status.querierVersion()},
          Mox::U64{status.robustness()},
          Duration{status.queryInterval()},
          Duration{status.queryResponseInterval()},
          timeLeft(view, status.generalQueryExpiryTime(), now),
          timeLeft(view, status.otherQuerierExpiryTime(), now),
          Mox::U64{status.group().size()},
          isTakenOver(view) ? Cell(Duration{now - view.state->takenOverTime()}) : Cell(),
          isTakenOver(view) ? Cell(view.state->takenOverGroups()) : Cell()};
}

const Columns groupColumns{{"interface", "INTERFACE"},   {"group", "GROUP"},
                           {"filterMode", "MODE"},       {"compatibilityMode", "VERSION"},
                           {"lastReporter", "REPORTER"}, {"upSeconds", "UP"},
                           {"timeLeftSeconds", "LEFT"}};
const Columns groupSourceColumns{
    {"source", "GROUP"}, {"excluded", "MODE"}, {"upSeconds", "UP"}, {"timeLeftSeconds", "LEFT"}};

// Where no address can be known, or nothing was taken over, people are not shown columns of dashes.
Columns interfaceColumnsOf(InterfaceViews interfaces) {
  Columns columns = interfaceColumns;
  const bool copies = std::ranges::all_of(interfaces, &InterfaceView::isCopy);
  if (copies) columns[1].heading = nullptr;
  if (std::ranges::none_of(interfaces, isTakenOver)) {
    for (auto at = columns.end() - takenOverColumns; at != columns.end(); ++at) {
      at->heading = nullptr;
    }
  }
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
void addGroup(Table& table, const InterfaceView& view, const QuerierGroupStatus& group, Seconds now,
              size_t firstColumn) {
  const std::array<Cell, 7> cells{view.name,
                                  group.groupAddr(),
                                  filterModeName(group.filterMode()),
                                  Mox::U64{group.compatibilityMode()},
                                  group.lastReporter(),
                                  Duration{now - group.creationTime()},
                                  timeLeft(view, group.expiryTime(), now)};
  table.row(std::span(cells).subspan(firstColumn));
  addGroupSources(table.below(), view, group, now);
}

// From where the window begins in this interface, until it is full.
void addGroups(Table& table, const InterfaceView& view, Seconds now, size_t firstColumn,
               GroupWindow& window) {
  const QuerierStatus::GroupMap& groups = view.status->group();
  for (auto at = groups.lowerBound(window.group); at != groups.end(); ++at) {
    if (window.isFull()) {
      window.group = at.key();
      return;
    }
    addGroup(table, view, **at, now, firstColumn);
    --window.groups;
    window.rows -= std::min(window.rows, 1 + (*at)->source().size());
  }
  window.group = Ilvo::IpAddr();
  ++window.interface;
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

// Calls f(row) for each counter of the intake, then for each of its high-water marks.
template <class F>
void forEachIntakeNumber(F f) {
  forEachCounter<IntakeStatus>(f);
  IntakeStatus::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (std::remove_cvref_t<decltype(row)>::kind == Mox::AttrKind::stored) f(row);
  });
}

template <class Entity>
bool isAny(InterfaceViews interfaces, Ptr<const Entity> InterfaceView::*entity) {
  return std::ranges::any_of(interfaces,
                             [&](const InterfaceView& view) { return view.*entity != nullptr; });
}

// Each under its own name. Those of the interface are left out where no view knows them.
Columns counterColumns(InterfaceViews interfaces, bool forPeople, const char* object) {
  Columns columns;
  const auto add = [&](const auto& row) {
    columns.push_back({row.name, forPeople ? row.name : nullptr, object});
  };
  forEachCounter<QuerierStatus>(add);
  if (isAny(interfaces, &InterfaceView::state)) forEachCounter<InterfaceState>(add);
  if (isAny(interfaces, &InterfaceView::intakeStatus)) forEachIntakeNumber(add);
  return columns;
}

void addCounters(Cells& cells, const InterfaceView& view, InterfaceViews interfaces) {
  const auto addOf = [&](const auto& entity) {
    return [&](const auto& row) {
      cells.push_back(entity ? Cell(Mox::U64{(*entity).*row.member}) : Cell());
    };
  };
  forEachCounter<QuerierStatus>(addOf(view.status));
  if (isAny(interfaces, &InterfaceView::state)) forEachCounter<InterfaceState>(addOf(view.state));
  if (isAny(interfaces, &InterfaceView::intakeStatus)) {
    forEachIntakeNumber(addOf(view.intakeStatus));
  }
}

}  // namespace

Table interfaceTable(InterfaceViews interfaces, Seconds now, InterfaceRange range) {
  Table table(interfaceColumnsOf(interfaces));
  for (const InterfaceView& view : range.of(interfaces)) table.row(interfaceCells(view, now));
  return table;
}

Table everythingTable(InterfaceViews interfaces, Seconds now, GroupWindow& window,
                      InterfaceRange range) {
  Columns columns = interfaceColumns;
  addColumns(columns, counterColumns(interfaces, false, "counters"));
  Table table(std::move(columns));
  Table& groups = table.belowIs("groups", withoutFirst(groupColumns));
  groups.belowIs("sources", groupSourceColumns);
  size_t at = range.first;
  for (const InterfaceView& view : range.of(interfaces)) {
    Cells cells = interfaceCells(view, now);
    addCounters(cells, view, interfaces);
    table.row(cells);
    if (window.interface == at++) addGroups(groups, view, now, 1, window);
  }
  return table;
}

Table moreGroupsTable(InterfaceViews interfaces, Seconds now, GroupWindow& window) {
  Table table(Columns{{"interface", "INTERFACE"}});
  Table& groups = table.belowIs("groups", withoutFirst(groupColumns));
  groups.belowIs("sources", groupSourceColumns);
  while (window.interface < interfaces.size() && !window.isFull()) {
    const InterfaceView& view = interfaces[window.interface];
    table.row({view.name});
    addGroups(groups, view, now, 1, window);
  }
  return table;
}

Table groupTable(InterfaceViews interfaces, Seconds now, GroupWindow& window) {
  Table table(groupColumns);
  table.belowIs("sources", groupSourceColumns);
  while (window.interface < interfaces.size() && !window.isFull()) {
    addGroups(table, interfaces[window.interface], now, 0, window);
  }
  return table;
}

Table oneGroupTable(const InterfaceView& interface, Ilvo::IpAddr group, Seconds now) {
  Table table(groupColumns);
  table.belowIs("sources", groupSourceColumns);
  const QuerierStatus::GroupMap& groups = interface.status->group();
  if (const auto* found = groups.find(group)) addGroup(table, interface, **found, now, 0);
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

Table counterTable(InterfaceViews interfaces, InterfaceRange range) {
  Columns columns{{"interface", "COUNTER"}};
  addColumns(columns, counterColumns(interfaces, true, nullptr));
  Table table(std::move(columns));
  for (const InterfaceView& view : range.of(interfaces)) {
    Cells cells{view.name};
    addCounters(cells, view, interfaces);
    table.row(cells);
  }
  return table;
}

}  // namespace Agent
