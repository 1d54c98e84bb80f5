#include <Report/TypeReport.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <Text/Listed.h>
#include <Text/Table.h>

namespace Agent {

using Mox::AttrInfo;
using Mox::AttrKind;
using Mox::TypeKind;
using Mox::TypeRecord;

namespace {

const char* kindName(TypeKind kind) {
  switch (kind) {
    case TypeKind::entity: return "entity";
    case TypeKind::object: return "object";
    case TypeKind::value: return "value";
    case TypeKind::enumeration: return "enumeration";
  }
  return "";
}

const char* kindName(AttrKind kind) {
  switch (kind) {
    case AttrKind::key: return "key";
    case AttrKind::stored: return "stored";
    case AttrKind::counter: return "counter";
    case AttrKind::derived: return "derived";
    case AttrKind::collection: return "collection";
    case AttrKind::constant: return "constant";
    case AttrKind::part: return "part";
    case AttrKind::operation: return "operation";
  }
  return "";
}

// Seconds are a time on the agent's clock where the attribute says so, else a duration.
Cell unitCell(const AttrInfo& attr) {
  if (attr.unit == Mox::Unit::bytes) return "bytes";
  if (attr.unit == Mox::Unit::time) return "time";
  if (attr.unit == Mox::Unit::seconds) return "seconds";
  if (attr.get != nullptr && attr.value == Mox::ValueKind::seconds) return "seconds";
  return {};
}

// Members come and go by other ways than a setter's, and operations are called.
Cell writableCell(const AttrInfo& attr) {
  if (attr.kind == AttrKind::collection || attr.kind == AttrKind::operation) return {};
  return Flag{attr.set != nullptr || attr.setPointer != nullptr, "yes", "no"};
}

Cell parameterCell(const AttrInfo& attr) {
  return attr.parameter == nullptr ? Cell() : std::string_view(attr.parameterName);
}

// A row for each attribute, field or enumerator.
void addMembers(Table& table, const TypeRecord& type) {
  if (type.type != nullptr) {
    for (const AttrInfo* attr : type.type->record()) {
      const std::string_view of = attr->typeName;
      table.row({Mox::U64{attr->id}, attr->name, kindName(attr->kind), of.empty() ? Cell() : of,
                 unitCell(*attr), writableCell(*attr), parameterCell(*attr)});
    }
  }
  for (const Mox::FieldInfo& field : type.fields) {
    table.row({Mox::U64{field.id}, field.name, "field", field.typeName, {}, {}, {}});
  }
  for (const Mox::EnumeratorInfo& each : type.enumerators) {
    table.row({Mox::U64{each.number}, each.name, "enumerator", {}, {}, {}, {}});
  }
}

std::vector<Table::Column> memberColumns() {
  return {{"id", "ID"},     {"name", "NAME"},         {"kind", "KIND"}, {"type", "TYPE"},
          {"unit", "UNIT"}, {"writable", "WRITABLE"}, {"parameter"}};
}

class TypeTable {
 public:
  TypeTable() : table_({{"type", "TYPE"}, {"kind", "KIND"}, {"model", "MODEL"}}) {
    table_.belowIs("attributes", memberColumns());
  }
  void add(const TypeRecord& type, const char* model) {
    table_.row({type.name, kindName(type.kind), model});
    addMembers(table_.below(), type);
  }
  void print(std::FILE* out) const {
    std::string text;
    table_.appendJson(text, Table::Lines::each);
    std::fprintf(out, "%s\n", text.c_str());
  }

 private:
  Table table_;
};

void printText(std::FILE* out, const Table& table) {
  std::string text;
  table.appendText(text);
  std::fputs(text.c_str(), out);
}

bool endsSo(std::string_view qualified, std::string_view name) {
  if (!qualified.ends_with(name) || name.empty()) return false;
  const std::string_view before = qualified.substr(0, qualified.size() - name.size());
  return before.empty() || before.ends_with("::");
}

}  // namespace

const TypeRecord& typeFor(std::string_view name) {
  if (const TypeRecord* exact = Mox::typeNamed(name)) return *exact;
  std::vector<const char*> found;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const TypeRecord& record : model->records()) {
      if (endsSo(record.name, name)) found.push_back(record.name);
    }
  }
  if (found.size() == 1) return *Mox::typeNamed(found.front());
  throw std::invalid_argument(
      found.empty() ? fmt::format("there is no type {}: `igmpq types` lists them", name)
                    : fmt::format("{} can be any of {}", name, listed(found)));
}

void printTypes(std::FILE* out, Format format) {
  Table lines({{nullptr, "TYPE"}, {nullptr, "KIND"}, {nullptr, "MODEL"}});
  TypeTable all;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const TypeRecord& record : model->records()) {
      lines.row({record.name, kindName(record.kind), model->model()});
      all.add(record, model->model());
    }
  }
  if (format == Format::json) {
    all.print(out);
  } else {
    printText(out, lines);
  }
}

void printType(std::FILE* out, const TypeRecord& type, Format format) {
  if (format == Format::text) {
    Table members(memberColumns());
    addMembers(members, type);
    printText(out, members);
    return;
  }
  TypeTable one;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const TypeRecord& record : model->records()) {
      if (&record == &type) one.add(record, model->model());
    }
  }
  one.print(out);
}

}  // namespace Agent
