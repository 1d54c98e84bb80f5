// Settings of one interface that are written together into a live copy of its configuration.
//
// All that can be wrong with them is found before any of them is written. They are written in an
// order in which each goes together with what is there by then, since the agent takes them one by
// one.
//
//   SettingWrite settings;
//   settings.add("queryInterval=60");      // or query-interval=60
//   settings.checkAgainst(*copy.config);
//   settings.write(*copy.config);
//   ... the agent has acted on it ...
//   for (const std::string& line : settings.outcome(copy)) ...
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Client/AttrLogCopy.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/TypeInfo.h>
#include <Mox/Value.h>

namespace Agent {

class SettingWrite {
 public:
  // "ATTRIBUTE=VALUE". Throws CLI::ValidationError, with a text such as "queryInterval 0: must be
  // from 1 to 31744 (RFC 3376 8.2)".
  void add(std::string_view assignment);
  // The same error where the values do not go together with those that stay as they are.
  void checkAgainst(const Gmp::Igmp::QuerierConfig& config) const;

  void write(Gmp::Igmp::QuerierConfig& config) const;

  // What became of each, in the order in which they were added: "queryInterval 60 s: in effect".
  std::vector<std::string> outcome(const AttrLogCopy::Interface& interface) const;

  // The attributes that can be set.
  static std::vector<std::string> names();

 private:
  struct Setting {
    const Mox::AttrInfo* attr;
    std::string text;  // the value as it was given
    Mox::Value value;
  };

  static void writeOne(Gmp::Igmp::QuerierConfig& config, const Setting& setting);
  static std::string outcomeOf(const Setting& setting, const AttrLogCopy::Interface& interface);

  std::vector<Setting> settings_;
};

}  // namespace Agent
