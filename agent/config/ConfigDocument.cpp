#include "ConfigDocument.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>
#include <utility>

#include <fmt/format.h>

// A faulty file can break what the parser asserts, such as one with "[[" at the end of a line. It must
// not end an agent that reads its files again, so that these assertions throw; without them, which is
// the default in release builds, anything could happen.
namespace Agent::ConfigParser {
struct Stuck {};
constexpr void check(bool holds) {
  if (!holds) throw Stuck();
}
}  // namespace Agent::ConfigParser
#undef NDEBUG
#define TOML_ASSERT(expression) ::Agent::ConfigParser::check(static_cast<bool>(expression))
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

bool isStuckIn(std::string_view text) {
  try {
    static_cast<void>(toml::parse(text));
  } catch (const ConfigParser::Stuck&) {
    return true;
  } catch (const toml::parse_error&) {
    return false;
  }
  return false;
}

size_t charactersOf(std::string_view text) {
  const auto isBegin = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; };
  return static_cast<size_t>(std::ranges::count_if(text, isBegin));
}

ConfigPlace placeAt(std::string_view text, size_t at, const std::string& file) {
  const std::string_view before = text.substr(0, at);
  const auto lines = std::ranges::count(before, '\n');
  const size_t column = charactersOf(before.substr(before.rfind('\n') + 1));
  return {.file = file,
          .line = static_cast<Mox::U32>(lines + 1),
          .column = static_cast<Mox::U32>(column + 1)};
}

// At the end of the file the parser names the column behind that of the last newline.
ConfigPlace placeOf(const toml::source_position& position, std::string_view text,
                    const std::string& file) {
  for (Mox::U32 line = 1; line < position.line; ++line) {
    text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  }
  const auto end = static_cast<Mox::U32>(charactersOf(text.substr(0, text.find('\n'))) + 1);
  return {.file = file, .line = position.line, .column = std::min(position.column, end)};
}

// The parser reads from front to back: it gets stuck in every text that begins like the shortest one
// in which it does, at the last character of that.
size_t stuckAt(std::string_view text) {
  size_t freely = 0;
  size_t stuck = text.size();
  while (freely + 1 < stuck) {
    const size_t half = freely + (stuck - freely) / 2;
    (isStuckIn(text.substr(0, half)) ? stuck : freely) = half;
  }
  return stuck - 1;
}

// The parser nests a table for each part of a key, and its memory is given back by recursion: a key of
// a hundred thousand parts would use up the stack. What is within quotes counts as well.
std::optional<size_t> endlessKeyAt(std::string_view text) {
  constexpr size_t mostParts = 1000;
  size_t parts = 0;
  for (size_t at = 0; at < text.size(); ++at) {
    const auto c = static_cast<unsigned char>(text[at]);
    const bool isOfKey =
        std::isalnum(c) != 0 || c >= 0x80 || std::strchr("-_.\"' \t", c) != nullptr;
    if (c == '\0' || !isOfKey) parts = 0;
    if (c == '.' && ++parts > mostParts) return at;
  }
  return std::nullopt;
}

}  // namespace

ConfigDocument configDocument(std::string_view text, const std::string& file) {
  if (const auto at = endlessKeyAt(text)) {
    throw ConfigError({{.place = placeAt(text, *at, file), .what = "a key has too many parts"}});
  }
  try {
    return Reader(file).read(toml::parse(text, file));
  } catch (const ConfigParser::Stuck&) {
    throw ConfigError({{.place = placeAt(text, stuckAt(text), file),
                        .what = "error while parsing: neither a key nor a value can begin here"}});
  } catch (const toml::parse_error& error) {
    throw ConfigError({{.place = placeOf(error.source().begin, text, file),
                        .what = std::string(error.description())}});
  }
}

}  // namespace Agent
