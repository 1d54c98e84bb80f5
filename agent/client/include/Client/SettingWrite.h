// Settings of one interface that are written together into the live copies of its configuration.
// They are checked together: here before they are written, and by the agent when it receives them.
//
//   SettingWrite settings;
//   settings.add("queryInterval=60");      // or query-interval=60
//   settings.checkAgainst(copy);
//   attrLogCopy.writeTogether([&] { settings.write(copy); });
//   ... the agent has answered ...
//   for (const std::string& line : settings.outcome(copy)) ...
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Client/AttrLogCopy.h>
#include <NboAttrLog/TreeIn.h>

namespace Agent {

class SettingWrite {
 public:
  // "ATTRIBUTE=VALUE". Throws SettingError, with a text such as "queryInterval 0: must be from 1 to
  // 31744 (RFC 3376 8.2)".
  void add(std::string_view assignment);
  // Throws SettingError when the values contradict each other, or values that are not written.
  void checkAgainst(const AttrLogCopy::Interface& interface) const;

  void write(const AttrLogCopy::Interface& interface) const;

  // For each setting, in the order of add, whether it took effect: "queryInterval 60 s: in
  // effect".
  std::vector<std::string> outcome(const AttrLogCopy::Interface& interface) const;

 private:
  std::vector<Mox::NboAttrLog::Written> settings_;
  std::vector<std::string> texts_;  // name and value of each as people write them
};

}  // namespace Agent
