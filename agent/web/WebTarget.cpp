#include "WebTarget.h"

#include <algorithm>
#include <charconv>

namespace Agent {

namespace {

bool isText(char byte) { return static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7f; }

std::optional<char> hexByte(std::string_view digits) {
  unsigned value = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (digits.size() != 2 || error != std::errc() || stop != end) return std::nullopt;
  return static_cast<char>(value);
}

std::optional<std::string> decoded(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    char byte = text.front();
    text.remove_prefix(1);
    if (byte == '%') {
      const auto coded = hexByte(text.substr(0, 2));
      if (!coded) return std::nullopt;
      byte = *coded;
      text.remove_prefix(2);
    }
    if (!isText(byte)) return std::nullopt;
    out += byte;
  }
  return out;
}

// Removes it from the text, and what ends it.
std::string_view taken(std::string_view& text, char end) {
  const size_t at = std::min(text.find(end), text.size());
  const std::string_view part = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return part;
}

bool isSegment(std::string_view text) {
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string_view::npos;
}

}  // namespace

std::optional<WebTarget> webTarget(std::string_view target) {
  if (target.size() > WebTarget::mostBytes || !target.starts_with('/')) return std::nullopt;
  WebTarget result;
  std::string_view path = taken(target, '?');
  path.remove_prefix(1);
  while (!path.empty()) {
    std::optional<std::string> segment = decoded(taken(path, '/'));
    if (!segment || !isSegment(*segment)) return std::nullopt;
    result.path.push_back(std::move(*segment));
  }
  while (!target.empty()) {
    std::string_view pair = taken(target, '&');
    std::optional<std::string> key = decoded(taken(pair, '='));
    std::optional<std::string> value = decoded(pair);
    if (!key || !value) return std::nullopt;
    if (!result.query.emplace(std::move(*key), std::move(*value)).second) return std::nullopt;
  }
  return result;
}

}  // namespace Agent
