// Invariants of the election: once the link was whole for long enough, the router of the lowest
// address is the only querier, and at no time does a router ask that is none.
#pragma once

#include "Facts.h"

namespace Sim {

class ElectionRules {
 public:
  explicit ElectionRules(Facts& facts) : facts_(facts) {}

  void onSent(const Frame& frame);
  // A query that another router should have had.
  void onQueryLost() { lastQueryLost_ = Mox::now(); }
  void onRole(const Router& router);
  void check();

 private:
  const Router* expected() const;
  bool isWhole() const {
    return facts_.isWhole() && Mox::now() > lastQueryLost_ + facts_.settleTime();
  }
  void judgeExtra(const Router& router);
  void judgeMissing(const Router& router);

  Facts& facts_;
  Seconds lastOldQuery_ = 0.0;  // for a group, in the format of version 2
  Seconds lastQueryLost_ = 0.0;
};

}  // namespace Sim
