// Reads the keys of one JSON object strictly: a key that is missing, of the wrong type, or left
// over is an error that names it.
//
//   Keys keys(object, "step");
//   const std::string name = keys.text("interface");
//   keys.done();
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include <Ilvo/IpAddr.h>
#include <Ilvo/IpPrefix.h>
#include <MoxBase/Types.h>

namespace Agent::Scenario {

using Json = nlohmann::ordered_json;

// A step that cannot be read.
class StepError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Keys {
 public:
  // `what` names the object in errors, for instance "step".
  Keys(const Json& object, std::string what);

  bool has(const char* key) const { return object_.contains(key); }
  const Json& value(const char* key);

  std::string text(const char* key);
  double number(const char* key);
  Mox::U32 u32(const char* key);
  bool flag(const char* key);
  Ilvo::IpAddr addr(const char* key);
  // `of` names the items in errors, for instance "objects".
  const Json& list(const char* key, const char* of);
  std::vector<Ilvo::IpGenPrefix> prefixes(const char* key);
  std::vector<Mox::U8> hex(const char* key);

  // An error when the object has keys that were not read.
  void done() const;

 private:
  const Json& object_;
  std::string what_;
  std::vector<std::string_view> known_;
};

// The same for a value that stands alone; `what` names it in errors.
double numberOf(const Json& value, const std::string& what);
Mox::U32 u32Of(const Json& value, const std::string& what);
bool flagOf(const Json& value, const std::string& what);
const std::string& textOf(const Json& value, const std::string& what);
const Json& objectOf(const Json& value, const std::string& what);

}  // namespace Agent::Scenario
