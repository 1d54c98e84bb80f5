// The rules for a router that begins on the state that a store has kept of it: it serves the
// members of then except for those that ended meanwhile, and asks at once if it was the querier.
//
//   const TakeOverRules before(facts, *router.keptState());
//   router.start();
//   before.check(router);
#pragma once

#include <array>

#include "Facts.h"

namespace Sim {

class TakeOverRules {
 public:
  TakeOverRules(Facts& facts, const Gmp::Igmp::QuerierStatus& kept);

  void check(const Router& router) const;

 private:
  Facts& facts_;
  Mask mustServe_ = 0;
  Mask mayServe_ = 0;
  std::array<Seconds, groupsMost> created_{};  // 0 where there is no group
  bool wasQuerier_;
  Mox::U32 queriesSent_;
};

}  // namespace Sim
