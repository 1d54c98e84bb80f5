// A value that a setting or an option cannot have: "--robustness 9: must be from 1 to 7 (RFC 3376
// 8.1)".
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace Agent {

class SettingError final : public std::runtime_error {
 public:
  // The value as it was given; none when there is no setting of that name.
  SettingError(std::string name, std::optional<std::string> value, std::string reason)
      : runtime_error(subjectOf(name, value) + ": " + reason),
        name_(std::move(name)),
        value_(std::move(value)),
        reason_(std::move(reason)) {}

  const std::string& name() const { return name_; }
  const std::optional<std::string>& value() const { return value_; }
  const std::string& reason() const { return reason_; }
  // Name and value: the beginning of the text.
  std::string subject() const { return subjectOf(name_, value_); }

 private:
  static std::string subjectOf(const std::string& name, const std::optional<std::string>& value) {
    return value ? name + " " + *value : name;
  }

  std::string name_;
  std::optional<std::string> value_;
  std::string reason_;
};

}  // namespace Agent
