#include "Observations.h"

#include <Mox/ActivityClock.h>

#include "AttrValues.h"

namespace Agent::Scenario {

namespace {

constexpr size_t flushBytes = size_t{1} << 16;

std::string utf8OfLatin1(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xc0 | (byte >> 6));
      text += static_cast<char>(0x80 | (byte & 0x3f));
    }
  }
  return text;
}

// Names come as UTF-8. Traces may hold any byte; where that makes no UTF-8, each byte is taken as
// the Latin-1 character of its number.
std::string quoted(std::string_view text) {
  try {
    return Json(text).dump();
  } catch (const Json::type_error&) {
    return Json(utf8OfLatin1(text)).dump();
  }
}

}  // namespace

Observations& Observations::begin(std::string_view event) {
  lines_ += "{\"t\":";
  lines_ += Json(Mox::now()).dump();
  return plain("event", event);
}

void Observations::append(std::string_view name) {
  lines_ += ",\"";
  lines_ += name;
  lines_ += "\":";
}

Observations& Observations::text(std::string_view name, std::string_view value) {
  append(name);
  lines_ += quoted(value);
  return *this;
}

Observations& Observations::plain(std::string_view name, std::string_view value) {
  append(name);
  lines_ += '"';
  lines_ += value;
  lines_ += '"';
  return *this;
}

Observations& Observations::json(std::string_view name, const Json& value) {
  append(name);
  lines_ += value.dump();
  return *this;
}

Observations& Observations::number(std::string_view name, int value) {
  append(name);
  lines_ += std::to_string(value);
  return *this;
}

Observations& Observations::hex(std::string_view name, std::span<const Mox::U8> bytes) {
  constexpr const char* digits = "0123456789abcdef";
  append(name);
  lines_ += '"';
  for (const Mox::U8 byte : bytes) {
    lines_ += digits[byte >> 4];
    lines_ += digits[byte & 0x0f];
  }
  lines_ += '"';
  return *this;
}

void Observations::end() {
  lines_ += "}\n";
  if (lines_.size() >= flushBytes) flush();
}

void Observations::flush() {
  std::fwrite(lines_.data(), 1, lines_.size(), out_);
  std::fflush(out_);
  lines_.clear();
}

}  // namespace Agent::Scenario
