#include <Text/Table.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <MoxBase/Fatal.h>

#include <Text/Json.h>
#include <Text/Printable.h>
#include "Duration.h"

namespace Agent {

namespace {

struct CellText {
  std::string& out;

  void operator()(std::monostate) const { out += '-'; }
  void operator()(const Flag& flag) const { out += flag.value ? flag.yes : flag.no; }
  void operator()(Mox::U64 number) const { fmt::format_to(std::back_inserter(out), "{}", number); }
  void operator()(Ilvo::IpAddr addr) const { Ilvo::appendText(out, addr); }
  void operator()(const Duration& duration) const { out += durationText(duration.seconds); }
  void operator()(std::string_view text) const { appendPrintable(out, text); }
};

struct CellJson {
  std::string& out;

  void operator()(std::monostate) const { out += "null"; }
  void operator()(const Flag& flag) const { out += flag.value ? "true" : "false"; }
  void operator()(Mox::U64 number) const { fmt::format_to(std::back_inserter(out), "{}", number); }
  void operator()(Ilvo::IpAddr addr) const { appendJson(out, addr); }
  void operator()(const Duration& duration) const { appendJson(out, duration.seconds); }
  void operator()(std::string_view text) const { appendJson(out, text); }
};

using Line = std::vector<std::string>;

void widen(std::vector<size_t>& widths, const Line& line) {
  widths.resize(std::max(widths.size(), line.size()));
  for (size_t at = 0; at < line.size(); ++at) widths[at] = std::max(widths[at], line[at].size());
}

void appendLine(std::string& out, const std::vector<size_t>& widths, const Line& line) {
  for (size_t at = 0; at + 1 < line.size(); ++at) {
    out += line[at];
    out.append(widths[at] - line[at].size() + 2, ' ');
  }
  out += line.back();
  out += '\n';
}

void openKey(std::string& out, const char* key) {
  if (out.back() != '{') out += ',';
  out += '"';
  out += key;
  out += "\":";
}

}  // namespace

void Table::row(std::span<const Cell> cells) {
  Mox::fatalUnless(cells.size() == columns_.size(), "Table", "a row with another number of cells");
  cells_.insert(cells_.end(), cells.begin(), cells.end());
  belowBegin_.push_back(below_ == nullptr ? 0 : below_->rows());
}

Table& Table::belowIs(const char* key, std::vector<Column> columns) {
  belowKey_ = key;
  below_ = std::make_unique<Table>(std::move(columns));
  return *below_;
}

size_t Table::belowEnd(size_t row) const {
  if (below_ == nullptr) return 0;
  return row + 1 < rows() ? belowBegin_[row + 1] : below_->rows();
}

std::vector<size_t> Table::shown() const {
  std::vector<size_t> all;
  for (size_t at = 0; at < columns_.size(); ++at) {
    if (columns_[at].heading != nullptr) all.push_back(at);
  }
  return all;
}

// The first cell of the row above is repeated in front, so that each line can be found by itself.
void Table::lineBelow(Line& line, const std::vector<size_t>& columns, size_t row) const {
  for (size_t place = 1; place < columns.size(); ++place) {
    line[place].clear();
    const std::string_view heading = columns_[columns[place]].heading;
    const auto same = std::ranges::find_if(below_->columns_, [&](const Column& column) {
      return column.heading != nullptr && column.heading == heading;
    });
    if (same == below_->columns_.end()) continue;
    if (same == below_->columns_.begin()) line[place] = "  ";
    const auto at = static_cast<size_t>(same - below_->columns_.begin());
    std::visit(CellText{line[place]}, below_->cells(row)[at]);
  }
}

template <class F>
void Table::forEachLine(F f) const {
  const std::vector<size_t> columns = shown();
  Line line;
  for (const size_t at : columns) line.emplace_back(columns_[at].heading);
  f(std::as_const(line));
  for (size_t row = 0; row < rows(); ++row) {
    for (size_t place = 0; place < columns.size(); ++place) {
      line[place].clear();
      std::visit(CellText{line[place]}, cells(row)[columns[place]]);
    }
    f(std::as_const(line));
    for (size_t inside = belowBegin_[row]; inside < belowEnd(row); ++inside) {
      lineBelow(line, columns, inside);
      f(std::as_const(line));
    }
  }
}

void Table::appendText(std::string& out) const {
  std::vector<size_t> widths;
  appendText(out, widths);
}

void Table::appendText(std::string& out, std::vector<size_t>& widths) const {
  const bool heading = widths.empty();
  forEachLine([&](const Line& line) { widen(widths, line); });
  bool first = true;
  forEachLine([&](const Line& line) {
    if (heading || !first) appendLine(out, widths, line);
    first = false;
  });
}

void Table::appendTurnedText(std::string& out) const {
  std::vector<Line> lines;
  for (const size_t at : shown()) {
    Line& line = lines.emplace_back();
    line.emplace_back(columns_[at].heading);
    for (size_t row = 0; row < rows(); ++row) {
      std::visit(CellText{line.emplace_back()}, cells(row)[at]);
    }
  }
  std::vector<size_t> widths;
  for (const Line& line : lines) widen(widths, line);
  for (const Line& line : lines) appendLine(out, widths, line);
}

void Table::appendObject(std::string& out, size_t row) const {
  out += '{';
  const char* object = nullptr;
  for (size_t at = 0; at < columns_.size(); ++at) {
    const Column& column = columns_[at];
    if (column.key == nullptr) continue;
    if (column.object != object) {
      if (object != nullptr) out += '}';
      object = column.object;
      if (object != nullptr) {
        openKey(out, object);
        out += '{';
      }
    }
    openKey(out, column.key);
    std::visit(CellJson{out}, cells(row)[at]);
  }
  if (object != nullptr) out += '}';
  if (below_ != nullptr) {
    openKey(out, belowKey_);
    below_->appendJson(out, Lines::one, belowBegin_[row], belowEnd(row));
  }
  out += '}';
}

void Table::appendJsonRows(std::string& out, bool isFirst) const {
  for (size_t row = 0; row < rows(); ++row) {
    out += isFirst && row == 0 ? "\n" : ",\n";
    appendObject(out, row);
  }
}

void Table::appendJson(std::string& out, Lines lines, size_t first, size_t end) const {
  const char* const between = lines == Lines::each ? "\n" : "";
  out += '[';
  for (size_t row = first; row < end; ++row) {
    if (row != first) out += ',';
    out += between;
    appendObject(out, row);
  }
  if (first != end) out += between;
  out += ']';
}

}  // namespace Agent
