#include "Request.h"

#include <algorithm>

#include <fmt/format.h>

#include <Local/AgentErrors.h>

namespace Agent {

const Json* Request::find(const char* key) const {
  const auto found = object_.find(key);
  return found == object_.end() ? nullptr : &*found;
}

std::optional<std::string> Request::optionalText(const char* key) const {
  const Json* value = find(key);
  if (value == nullptr) return std::nullopt;
  if (!value->is_string()) {
    throw RequestError(RequestError::badUse, fmt::format("\"{}\" must be a string", key));
  }
  return value->get<std::string>();
}

std::string Request::text(const char* key) const {
  if (auto value = optionalText(key)) return *std::move(value);
  throw RequestError(RequestError::badUse,
                     fmt::format("the request lacks \"{}\", which is a string", key));
}

bool Request::flag(const char* key) const {
  const Json* value = find(key);
  if (value == nullptr) return false;
  if (!value->is_boolean()) {
    throw RequestError(RequestError::badUse, fmt::format("\"{}\" must be true or false", key));
  }
  return value->get<bool>();
}

int Request::number(const char* key, int least, int most) const {
  const Json* value = find(key);
  const bool whole = value != nullptr && value->is_number_integer();
  // Beyond the signed numbers are unsigned ones that would read as negative.
  const bool fits = whole && (!value->is_number_unsigned() || value->get<Mox::U64>() <= INT32_MAX);
  const Mox::S64 number = fits ? value->get<Mox::S64>() : Mox::S64{least} - 1;
  if (number < least || number > most) {
    throw RequestError(
        RequestError::badUse,
        fmt::format("\"{}\" must be a whole number from {} to {}", key, least, most));
  }
  return static_cast<int>(number);
}

void Request::allow(std::initializer_list<const char*> keys) const {
  for (const auto& [key, value] : object_.items()) {
    if (key == "op" || std::ranges::find(keys, key) != keys.end()) continue;
    throw RequestError(RequestError::badUse,
                       fmt::format("\"{}\" has no \"{}\"; it has: {}", op(), key, listed(keys)));
  }
}

void Request::needConfigure(std::string_view what) const {
  if (rights_ == Rights::configure) return;
  throw RequestError(RequestError::failure,
                     notPermittedText(std::string(what), configureGroupOption));
}

}  // namespace Agent
