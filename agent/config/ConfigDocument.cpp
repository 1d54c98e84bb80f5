#include "ConfigDocument.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace Agent {

namespace {

class Reader {
 public:
  explicit Reader(std::string file) : file_(std::move(file)) {}

  ConfigDocument read(const toml::table& root) {
    for (const auto& [key, node] : root) readSection(key, node);
    // The library sorts keys; an interface's first pattern is the first of the file.
    std::ranges::stable_sort(document_.tables, {}, [](const ConfigTable& table) {
      return std::pair(table.place.line, table.place.column);
    });
    return std::move(document_);
  }

 private:
  ConfigPlace placeOf(const toml::source_region& region) const {
    return {.file = file_, .line = region.begin.line, .column = region.begin.column};
  }

  void fault(const ConfigPlace& place, std::string what) {
    document_.faults.push_back({place, std::move(what)});
  }

  void readSection(const toml::key& key, const toml::node& node) {
    const std::string name(key.str());
    if (name == "interface") {
      if (const toml::array* each = node.as_array();
          each != nullptr && each->is_array_of_tables()) {
        for (const toml::node& table : *each) readTable(name, *table.as_table());
      } else {
        fault(placeOf(key.source()), "interfaces are written as [[interface]], once for each");
      }
    } else if (name == "defaults" || name == "agent") {
      if (const toml::table* table = node.as_table()) return readTable(name, *table);
      fault(placeOf(key.source()), fmt::format("{0} is a section: [{0}]", name));
    } else {
      fault(placeOf(key.source()),
            fmt::format("{} is no section; there are [defaults], [[interface]] and [agent]", name));
    }
  }

  void readTable(const std::string& section, const toml::table& from) {
    ConfigTable table{.section = section, .place = placeOf(from.source()), .entries = {}};
    for (const auto& [key, node] : from) {
      ConfigEntry entry{.key = std::string(key.str()),
                        .kind = ConfigKind::text,
                        .texts = {},
                        .keyPlace = placeOf(key.source()),
                        .place = placeOf(node.source())};
      if (readValue(node, entry)) table.entries.push_back(std::move(entry));
    }
    std::ranges::stable_sort(table.entries, {}, [](const ConfigEntry& entry) {
      return std::pair(entry.place.line, entry.place.column);
    });
    document_.tables.push_back(std::move(table));
  }

  bool readValue(const toml::node& node, ConfigEntry& entry) {
    if (const auto* strings = node.as_array()) {
      entry.kind = ConfigKind::list;
      for (const toml::node& each : *strings) {
        const auto* text = each.as_string();
        if (text == nullptr) {
          fault(placeOf(each.source()), "a list has strings only, such as [\"10.0.0.0/8\"]");
          return false;
        }
        entry.texts.push_back(text->get());
      }
      return true;
    }
    if (const auto* flag = node.as_boolean()) {
      entry.kind = ConfigKind::flag;
      entry.texts = {flag->get() ? "on" : "off"};
    } else if (const auto* whole = node.as_integer()) {
      entry.kind = ConfigKind::number;
      entry.texts = {fmt::to_string(whole->get())};
    } else if (const auto* number = node.as_floating_point()) {
      entry.kind = ConfigKind::number;
      entry.texts = {fmt::format("{}", number->get())};
    } else if (const auto* text = node.as_string()) {
      entry.texts = {text->get()};
    } else {
      fault(entry.place,
            fmt::format("{} must be a flag, a number, a string or a list of strings", entry.key));
      return false;
    }
    return true;
  }

  const std::string file_;
  ConfigDocument document_;
};

}  // namespace

ConfigDocument configDocument(std::string_view text, const std::string& file) {
  try {
    return Reader(file).read(toml::parse(text, file));
  } catch (const toml::parse_error& error) {
    const auto& begin = error.source().begin;
    throw ConfigError({{.place = {.file = file, .line = begin.line, .column = begin.column},
                        .what = std::string(error.description())}});
  }
}

}  // namespace Agent
