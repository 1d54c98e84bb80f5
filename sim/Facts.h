// What the invariants look at: the routers, hosts and link of a world, when it was last disturbed,
// and the widest bounds that its settings gave so far.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include <Mox/ActivityClock.h>

#include "Findings.h"
#include "Host.h"
#include "Lan.h"
#include "Router.h"

namespace Sim {

// Of two times that were added up in different orders.
inline constexpr Mox::Seconds rounding = 1e-6;

// Of all settings since the beginning, since a router may still work by those of another.
class Bounds {
 public:
  void add(const Settings& settings);

  Seconds otherQuerierPresentInterval() const {
    return most_.robustness * most_.queryInterval + most_.queryResponseInterval / 2;
  }
  // A router that is not the querier takes its response interval from any query, also one for a
  // group.
  Seconds groupMembershipInterval() const {
    return most_.robustness * most_.queryInterval +
           std::max(most_.queryResponseInterval, most_.lastMemberQueryInterval);
  }
  const Settings& most() const { return most_; }
  // How many losses in a row cannot make a router forget.
  double leastRobustness() const { return leastRobustness_; }
  Seconds leastResponse() const { return leastResponse_; }

 private:
  Settings most_{.queryInterval = 0, .queryResponseInterval = 0, .robustness = 0};
  double leastRobustness_ = 100;
  Seconds leastResponse_ = Mox::never;
};

struct Facts {
  static constexpr Seconds begin = 1000.0;

  U64 seed = 0;
  std::vector<std::unique_ptr<Router>> routers = {};
  std::vector<Host> hosts = {};
  EventQueue queue = {};
  std::unique_ptr<Lan> lan = {};
  Bounds bounds = {};
  size_t ringPackets = 0;  // that stopped routers had to handle at once
  bool isCut = false;
  bool wasSilenced = false;   // querying was switched off somewhere
  Seconds disturbed = begin;  // crashes, cuts, changes of settings, of roles
  Findings findings = {};

  // After a disturbance, how long until all routers have heeded the same querier.
  Seconds settleTime() const {
    const Settings& most = bounds.most();
    return bounds.otherQuerierPresentInterval() + std::max(most.queryInterval, 10.0) +
           most.lastMemberQueryTime() + 4 * lan->longestDelay() + 1.0;
  }
  bool isWhole() const;
  Mask wanted() const;
  // All routers have the same settings.
  bool haveEqualSettings() const;
  // Version 3 queries carry the querier's times; otherwise each router has its own.
  bool haveEqualTimes() const;

  void disturb() { disturbed = Mox::now(); }
  void breach(Invariant invariant, const std::string& text);
  void known(Known rule);
  std::string nameOf(const Router& router) const { return "r" + std::to_string(router.node()); }
};

}  // namespace Sim
