// The rules that a received packet must pass before a querier sees it, listed once: the counter of
// each in IntakeStatus, the events and the manual use these names.
#pragma once

#include <array>
#include <cstddef>

#include <MoxBase/Types.h>

namespace Agent {

enum class IntakeRule : Mox::U8 {
  notMulticast,
  fragment,
  wrongTtl,
  foreignQuery,
  unpermittedQuerier,
  specificQuery,
  querierTimes,
  newQuerier,
  ownAddress,
  foreignReport,
  noRouterAlert,
  oldVersion,
  unacceptedGroup,
  notSourceSpecific,
  groupLimit,
  processGroupLimit,
  groupSourceLimit,
  sourceLimit,
  processSourceLimit,
  groupRecordLimit,
  queryLimit,
};

struct IntakeRuleName {
  IntakeRule rule;
  const char* name;        // of its counter
  const char* text;        // the reason of a refusal or a change, for people
  bool isWarning = false;  // the packet reaches the querier as it is
};
inline constexpr std::array intakeRules{
    IntakeRuleName{IntakeRule::notMulticast, "notMulticast",
                   "a packet that was not sent to a multicast address"},
    IntakeRuleName{IntakeRule::fragment, "fragment", "a fragment"},
    IntakeRuleName{IntakeRule::wrongTtl, "wrongTtl", "a packet with a TTL other than 1"},
    IntakeRuleName{IntakeRule::foreignQuery, "foreignQuery",
                   "a query from an address that is in no subnet of the interface"},
    IntakeRuleName{IntakeRule::unpermittedQuerier, "unpermittedQuerier",
                   "a query from a router that is not permitted"},
    IntakeRuleName{
        IntakeRule::specificQuery, "specificQuery",
        "a specific query that the elected querier did not send, or for an unknown group"},
    IntakeRuleName{IntakeRule::querierTimes, "querierTimes",
                   "the times of another querier were out of range: they were limited"},
    IntakeRuleName{IntakeRule::newQuerier, "newQuerier", "a new querier has won the election",
                   true},
    IntakeRuleName{IntakeRule::ownAddress, "ownAddress", "another station uses this address", true},
    IntakeRuleName{IntakeRule::foreignReport, "foreignReport",
                   "a report from an address that is in no subnet of the interface"},
    IntakeRuleName{IntakeRule::noRouterAlert, "noRouterAlert",
                   "a report without the Router Alert option"},
    IntakeRuleName{IntakeRule::oldVersion, "oldVersion", "a report of a version that is too old"},
    IntakeRuleName{IntakeRule::unacceptedGroup, "unacceptedGroup",
                   "a report for a group that is not accepted"},
    IntakeRuleName{IntakeRule::notSourceSpecific, "notSourceSpecific",
                   "a report without sources for a source-specific group"},
    IntakeRuleName{IntakeRule::groupLimit, "groupLimit",
                   "a new group: the interface has as many as it may have"},
    IntakeRuleName{IntakeRule::processGroupLimit, "processGroupLimit",
                   "a new group: the process has as many as it may have"},
    IntakeRuleName{IntakeRule::groupSourceLimit, "groupSourceLimit",
                   "new sources: the group has as many as it may have"},
    IntakeRuleName{IntakeRule::sourceLimit, "sourceLimit",
                   "new sources: the interface has as many as it may have"},
    IntakeRuleName{IntakeRule::processSourceLimit, "processSourceLimit",
                   "new sources: the process has as many as it may have"},
    IntakeRuleName{IntakeRule::groupRecordLimit, "groupRecordLimit",
                   "a report with too many records of one group"},
    IntakeRuleName{IntakeRule::queryLimit, "queryLimit",
                   "a report that would cause more queries than the limit allows"},
};

constexpr const IntakeRuleName& nameOf(IntakeRule rule) {
  return intakeRules[static_cast<std::size_t>(rule)];
}

consteval bool rulesStandInOrder() {
  for (std::size_t at = 0; at < intakeRules.size(); ++at) {
    if (intakeRules[at].rule != static_cast<IntakeRule>(at)) return false;
  }
  return true;
}
static_assert(rulesStandInOrder());

}  // namespace Agent
