// The queries on the wire stay within what the RFC allows: general queries of one router are an
// interval apart, but for those of its start, its election and its settings; each leave, or record
// that drops sources, causes last member query count many specific queries, no more.
#pragma once

#include "Facts.h"

namespace Sim {

class QueryRules {
 public:
  explicit QueryRules(Facts& facts) : facts_(facts), routers_(facts.routers.size()) {}

  void onSent(const Frame& frame);
  void onReceived(const Frame& frame, const Router& router);
  // It has taken or lost its role, or got other settings: a general query may follow at once.
  void onChange(const Router& router) { free(router, 1); }
  // It has begun: a general query at once, if it was querier, and one after a random delay.
  void onRestart(const Router& router) { free(router, 2); }

 private:
  void free(const Router& router, unsigned queries) {
    unsigned& free = routers_[router.node()].free;
    free = std::max(free, queries);
  }

  struct Sent {
    Seconds lastGeneral = 0.0;
    unsigned free = 2;  // the next general queries, which have no bound
    std::array<double, groupsMost> allowed{};
  };

  Facts& facts_;
  std::vector<Sent> routers_;
};

}  // namespace Sim
