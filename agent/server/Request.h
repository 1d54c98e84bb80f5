// One request of a client: a JSON object that names an operation, and its arguments by other keys.
//
//   {"op":"call","interface":"eth0","operation":"clearCounters"}
#pragma once

#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <NboAttrLog/Session.h>

#include <Text/Listed.h>
#include "JsonLine.h"

namespace Agent {

// Why a request is not answered, and what to do. Bad use is a mistake in the request itself; a
// failure is a request that cannot be answered now or for this client.
class RequestError final : public std::runtime_error {
 public:
  enum Kind { failure, badUse };

  RequestError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

// A value that is missing or of the wrong type is a RequestError.
class Request {
 public:
  using Rights = Mox::NboAttrLog::Rights;

  Request(Json object, Rights rights) : object_(std::move(object)), rights_(rights) {}

  std::string op() const { return text("op"); }
  std::string text(const char* key) const;
  std::optional<std::string> optionalText(const char* key) const;
  bool flag(const char* key) const;  // false when it is not there
  int number(const char* key, int least, int most) const;

  // An error for any key but these and "op": a misspelt one would be ignored in silence.
  void allow(std::initializer_list<const char*> keys) const;
  // An error for a client that may only read; `what` completes "not permitted to ...".
  void needConfigure(std::string_view what) const;

 private:
  const Json* find(const char* key) const;

  const Json object_;
  const Rights rights_;
};

}  // namespace Agent
