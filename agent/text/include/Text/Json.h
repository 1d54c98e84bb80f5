// JSON as this program writes it: built by appending, keys in the order in which they are added,
// seconds to the microsecond, one object a line.
//
//   JsonObject json;
//   json.times(now).text("event", "role").knownAddress("querier", elected);
//   out += json.line();  // {"time":12.5,"utc":"2026-11-21T13:43:21.632198Z","event":"role",...}
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

namespace Agent {

// Seconds rounded to the microsecond, without the further digits of binary fractions, and never
// -0.0. Nothing for a value that is no time.
std::optional<Mox::Seconds> jsonSeconds(Mox::Seconds seconds);

// Null for a value that is no time.
void appendJson(std::string& out, Mox::Seconds seconds);
// In quotes. Bytes that are no UTF-8 are replaced: interface names may contain any bytes, and
// parsers would reject the line.
void appendJson(std::string& out, std::string_view text);
void appendJson(std::string& out, Ilvo::IpAddr addr);

class JsonObject {
 public:
  JsonObject() = default;
  // Built in the memory of that text, whose contents are dropped.
  explicit JsonObject(std::string memory) : json_(std::move(memory)) { json_ = '{'; }

  JsonObject& text(const char* key, std::string_view v);
  JsonObject& flag(const char* key, bool v);
  JsonObject& number(const char* key, Mox::U64 v);
  JsonObject& seconds(const char* key, Mox::Seconds v);
  JsonObject& address(const char* key, Ilvo::IpAddr v);
  // Null for 0.0.0.0, which stands for no address.
  JsonObject& knownAddress(const char* key, Ilvo::IpAddr v);
  JsonObject& addresses(const char* key, std::span<const Ilvo::IpAddr> values);
  JsonObject& null(const char* key);
  JsonObject& object(const char* key, const JsonObject& v);
  // A time of the activity clock as "time", and the same moment of the wall clock as "utc".
  JsonObject& times(Mox::Seconds time);

  // Adds a key. The caller appends its value, which must be JSON.
  std::string& value(const char* key);

  // The object, without an end of line.
  std::string line() const& { return json_ + '}'; }
  std::string line() && { return std::move(json_ += '}'); }

 private:
  JsonObject& word(const char* key, std::string_view json);

  std::string json_ = "{";
};

}  // namespace Agent
