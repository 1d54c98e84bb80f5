// One interface and its groups as JSON for programs that ask for a part of the state: the same keys
// as in the state report.
//
//   GroupParts parts(view);
//   while (!(part = parts.next(Mox::now())).empty()) send(part);
#pragma once

#include <optional>
#include <string>
#include <utility>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceView.h>

namespace Agent {

// An object: role, timers, values in effect.
std::string interfaceJson(const InterfaceView& view, Mox::Seconds now);

// An object with the group's sources; nothing when the interface does not have the group.
std::optional<std::string> groupJson(const InterfaceView& view, Ilvo::IpAddr group,
                                     Mox::Seconds now);

// An array of groups in the order of their addresses, and where the next one goes on.
struct GroupPage {
  std::string json;
  std::optional<Ilvo::IpAddr> next = {};  // none behind the last group
};
GroupPage groupPage(const InterfaceView& view, Ilvo::IpAddr from, size_t groups, Mox::Seconds now);

// All groups as the parts of one array, each made within a millisecond or two, so that a million
// groups neither fill the memory nor hold up a loop: the groups of a part are those that are there
// when it is made.
class GroupParts {
 public:
  explicit GroupParts(InterfaceView view) : view_(std::move(view)) {}

  // Empty at the end.
  std::string next(Mox::Seconds now);

 private:
  static constexpr size_t rowsOfPart = 500;  // groups and sources

  const InterfaceView view_;
  bool begun_ = false;
  bool ended_ = false;
  bool isEmpty_ = true;
  Ilvo::IpAddr group_;
};

}  // namespace Agent
