// The tables for people.
#include <Agent/StateReport.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "EventNames.h"
#include "StateWalk.h"

namespace Agent {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierStatus;

namespace {

// Rows of cells whose columns are as wide as their widest cell. Nothing follows the last cell of a
// row.
class Table {
 public:
  using Row = std::vector<std::string>;

  explicit Table(Row head) { rowIs(std::move(head)); }

  void rowIs(Row row) {
    width_.resize(std::max(width_.size(), row.size()));
    for (size_t at = 0; at < row.size(); ++at) width_[at] = std::max(width_[at], row[at].size());
    rows_.push_back(std::move(row));
  }
  bool empty() const { return rows_.size() == 1; }

  std::string text() const {
    std::string text;
    for (const Row& row : rows_) {
      for (size_t at = 0; at + 1 < row.size(); ++at) {
        text += fmt::format("{:<{}}  ", row[at], width_[at]);
      }
      text += row.back() + "\n";
    }
    return text;
  }

 private:
  std::vector<Row> rows_;
  std::vector<size_t> width_;
};

std::string addressText(Ilvo::IpAddr addr) { return addr.isZero() ? "-" : addr.stringValue(); }

std::string timeLeftText(const InterfaceView& view, Mox::Seconds expiry, Mox::Seconds now) {
  return durationText(timeLeft(view, expiry, now));
}

Table interfaceTable(std::span<const InterfaceView> interfaces, Mox::Seconds now) {
  Table table({"INTERFACE", "ADDRESS", "ROLE", "QUERIER", "VERSION", "ROBUSTNESS", "INTERVAL",
               "RESPONSE", "NEXT QUERY", "QUERIER LOST", "GROUPS"});
  for (const InterfaceView& view : interfaces) {
    const QuerierStatus& status = *view.status;
    table.rowIs({view.name, addressText(view.address),
                 view.running ? roleName(status.state()) : "stopped",
                 addressText(status.electedQuerierAddr()),
                 fmt::to_string(static_cast<unsigned>(status.querierVersion())),
                 fmt::to_string(status.robustness()), durationText(status.queryInterval()),
                 durationText(status.queryResponseInterval()),
                 timeLeftText(view, status.generalQueryExpiryTime(), now),
                 timeLeftText(view, status.otherQuerierExpiryTime(), now),
                 fmt::to_string(status.group().size())});
  }
  return table;
}

void addGroup(Table& table, const InterfaceView& view, const QuerierGroupStatus& group,
              Mox::Seconds now) {
  table.rowIs({view.name, group.groupAddr().stringValue(), filterModeName(group.filterMode()),
               fmt::to_string(static_cast<unsigned>(group.compatibilityMode())),
               group.lastReporter().stringValue(), durationText(now - group.creationTime()),
               timeLeftText(view, group.expiryTime(), now)});
  for (const auto& source : sourcesOf(group)) {
    table.rowIs({view.name, "  " + source->sourceAddr().stringValue(),
                 isExcluded(group, *source) ? "excluded" : "forwarded", "", "",
                 durationText(now - source->creationTime()),
                 timeLeftText(view, source->expiryTime(), now)});
  }
}

Table groupTable(std::span<const InterfaceView> interfaces, Mox::Seconds now) {
  Table table({"INTERFACE", "GROUP", "MODE", "VERSION", "REPORTER", "UP", "LEFT"});
  for (const InterfaceView& view : interfaces) {
    const QuerierStatus::GroupMap& groups = view.status->group();
    for (auto at = groups.begin(); at != groups.end(); ++at) addGroup(table, view, **at, now);
  }
  return table;
}

// A column for each interface.
Table counterTable(std::span<const InterfaceView> interfaces) {
  Table::Row head{"COUNTER"};
  std::vector<Table::Row> rows;
  for (const InterfaceView& view : interfaces) {
    head.push_back(view.name);
    size_t at = 0;
    forEachCounter(*view.status, [&](const char* name, Mox::U64 value) {
      if (at == rows.size()) rows.push_back({name});
      rows[at++].push_back(fmt::to_string(value));
    });
  }
  Table table(std::move(head));
  for (Table::Row& row : rows) table.rowIs(std::move(row));
  return table;
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

std::string stateText(std::span<const InterfaceView> interfaces, Mox::Seconds now) {
  if (interfaces.empty()) return "no interfaces\n";
  std::string text = interfaceTable(interfaces, now).text();
  const Table groups = groupTable(interfaces, now);
  text += groups.empty() ? "\nno groups\n" : "\n" + groups.text();
  return text + "\n" + counterTable(interfaces).text();
}

void printState(std::FILE* out, std::span<const InterfaceView> interfaces, Mox::Seconds now,
                Format format) {
  const std::string text =
      format == Format::json ? stateJson(interfaces, now) + "\n" : stateText(interfaces, now);
  std::fputs(text.c_str(), out);
  std::fflush(out);
}

}  // namespace Agent
