// Invariants of membership, by router and channel: what a host wants is served until robustness
// many answers in a row are lost; what no report has asked for is not served beyond the group
// membership interval; what the querier forgets, the others forget with it.
#pragma once

#include "Ledger.h"

namespace Sim {

class MembershipRules {
 public:
  MembershipRules(Facts& facts, Ledger& ledger)
      : facts_(facts), ledger_(ledger), seen_(facts.routers.size()) {}

  // The router has handled a frame or timers.
  void onStep(const Router& router);
  // It has handled this frame.
  void onReceived(const Frame& frame, const Router& router, const Ledger::Before& before);
  // It begins, or is gone.
  void onRestart(const Router& router);
  // A while after the querier forgot the channel.
  void checkFollows(unsigned channel, Node querier);
  // At the end, when all had time to be known.
  void checkAllServed();

 private:
  void judgeForgotten(const Router& router, unsigned channel);
  const Router* querierOf() const;
  unsigned lostWithQuerier(const Router& router, unsigned channel) const;
  bool hasVersionOneMember(unsigned channel) const;
  bool isMemberSince(unsigned channel, Seconds time) const;
  bool isLate(const Router& router, unsigned channel) const;
  bool isOvertaken(const Router& router, const Ledger::Entry& entry) const;
  bool isCrowded(const Router& router, unsigned channel) const;
  bool isAskedAgainSince(const Router& router, unsigned channel, Seconds time) const;
  bool isActedOnAlone(const Router& router, unsigned channel) const;
  std::optional<Known> knownReason(const Router& router, unsigned channel) const;
  bool isAskedAfterExclusion(const Router& router, unsigned channel) const;
  Seconds longestLastMemberTime() const;
  bool isSameCourse(const Router& router, const Router& querier, unsigned channel) const;
  void checkGone(const Router& router, Mask served);
  void scheduleFollowChecks(const Router& querier, Mask forgotten);

  Facts& facts_;
  Ledger& ledger_;
  // Of a router, as of its last step.
  struct Seen {
    Mask served = 0;
    Mask oldModes = 0;                              // sources of groups with older hosts
    std::array<Seconds, channelsMost> forgotten{};  // when it last did, as querier
  };
  std::vector<Seen> seen_;
};

}  // namespace Sim
