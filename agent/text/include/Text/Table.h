// Rows of typed cells that are printed as columns for people or as JSON objects for programs.
//
// A column has a key for JSON and a heading for text; a column without one of them is left out of
// that format. Several columns can be in one object inside the row's object. A row can have rows of
// another table below it: an array in JSON, and indented lines in text, with each cell below the
// heading that both tables have. Texts of cells are not copied: they outlive the table,
// or are kept by it.
//
//   Table table({{"group", "GROUP"}, {"timeLeftSeconds", "LEFT"}});
//   table.row({group.groupAddr(), Duration{left}});
//   table.appendText(out);  // "GROUP      LEFT\n239.1.1.1  4m10s\n"
#pragma once

#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

namespace Agent {

// "4m10s" for people, 250.0 for programs; nothing for a duration that is not finite.
struct Duration {
  Mox::Seconds seconds;
};
// True or false for programs, one of two words for people.
struct Flag {
  bool value;
  const char* yes;
  const char* no;
};
// Empty: "-" for people, null for programs.
using Cell = std::variant<std::monostate, Flag, Mox::U64, Ilvo::IpAddr, Duration, std::string_view>;

// Nothing for 0.0.0.0, which stands for no address.
inline Cell knownAddress(Ilvo::IpAddr addr) { return addr.isZero() ? Cell() : Cell(addr); }

class Table {
 public:
  struct Column {
    const char* key;
    const char* heading = nullptr;
    const char* object = nullptr;  // the object that the key is in
  };

  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  // As many cells as there are columns.
  void row(std::span<const Cell> cells);
  void row(std::initializer_list<Cell> cells) { row({cells.begin(), cells.size()}); }
  size_t rows() const { return belowBegin_.size(); }
  // A text for a cell that is to live as long as the table.
  std::string_view kept(std::string text) { return texts_.emplace_back(std::move(text)); }

  // Creates the table of the rows below. A row that is added to it belongs to the last row here.
  Table& belowIs(const char* key, std::vector<Column> columns);
  Table& below() { return *below_; }

  // Columns as wide as their widest cell; no blanks after the last cell of a line.
  void appendText(std::string& out) const;
  // The same for a table that follows another one: without headings, and columns at least as wide
  // as there. Empty widths stand for none before.
  void appendText(std::string& out, std::vector<size_t>& widths) const;
  // The same with a line for each column and a column for each row.
  void appendTurnedText(std::string& out) const;
  // An array of objects, all on one line or each on its own line.
  enum class Lines { one, each };
  void appendJson(std::string& out, Lines lines) const { appendJson(out, lines, 0, rows()); }
  // The objects alone, each on its own line: a part of an array that other tables go on with.
  void appendJsonRows(std::string& out, bool isFirst) const;
  // One row, which is not an array.
  void appendJsonRow(std::string& out, size_t row) const { appendObject(out, row); }

 private:
  using Line = std::vector<std::string>;

  std::span<const Cell> cells(size_t row) const {
    return std::span(cells_).subspan(row * columns_.size(), columns_.size());
  }
  size_t belowEnd(size_t row) const;
  std::vector<size_t> shown() const;
  void lineBelow(Line& line, const std::vector<size_t>& columns, size_t row) const;
  template <class F>
  void forEachLine(F f) const;
  void appendJson(std::string& out, Lines lines, size_t first, size_t end) const;
  void appendObject(std::string& out, size_t row) const;

  const std::vector<Column> columns_;
  std::vector<Cell> cells_;
  std::deque<std::string> texts_;
  std::vector<size_t> belowBegin_;  // of each row, the first row below
  const char* belowKey_ = nullptr;
  std::unique_ptr<Table> below_;
};

}  // namespace Agent
