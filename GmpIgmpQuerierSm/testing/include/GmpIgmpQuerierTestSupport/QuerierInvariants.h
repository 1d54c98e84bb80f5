// The invariants of a querier between any two calls, whatever hosts, routers and the operator do. A
// test with random input checks after each call that none is broken.
//
// It follows one status through any number of queriers on it. All timers of the querier run on one
// wheel. The caller reports two facts that cannot be observed: that a query created a group, which
// has no sources yet, and that the attribute log was clogged, which holds back published times.
//
//   QuerierInvariants invariants(wheel);
//   invariants.watch(querier);
//   querier->doRxPkt(pkt);
//   for (const std::string& breach : invariants.breaches()) ADD_FAILURE() << breach;
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Obel/TimerWheel.h>

namespace Gmp::Igmp::testing {

// The counters of what was received; each packet moves at most one of the first nine, and that by
// one.
struct ReceiveCounters {
  U32 v1Queries = 0, v2Queries = 0, v3Queries = 0;
  U32 v1Reports = 0, v2Reports = 0, leaves = 0, v3Reports = 0;
  U32 errors = 0, others = 0;
  U32 atBoundary = 0;  // once for each record that is inside, too
  bool operator==(const ReceiveCounters&) const = default;
};
ReceiveCounters receiveCountersOf(const QuerierStatus& status);
std::string textOf(const ReceiveCounters& counters);

class QuerierInvariants {
 public:
  explicit QuerierInvariants(Ptr<const Obel::TimerWheel> wheel);
  ~QuerierInvariants();

  // Called before anything else is done with the querier. Its queries are counted from now on,
  // together with the one that its constructor may have sent.
  void watch(const Ptr<QuerierSm>& querier);
  // Called before the querier is released.
  void release();

  // A query has created this group.
  void bornOfQuery(IpAddr group) { bornOfQuery_.insert(group); }
  // A report for it was received: from now on it is in EXCLUDE mode, or has sources, or ends.
  void reported(IpAddr group) { bornOfQuery_.erase(group); }
  void attrLogWasClogged() { attrLogWasClogged_ = true; }

  // One sentence each; empty when all holds.
  std::vector<std::string> breaches();

 private:
  class Watch;

  void require(bool holds, std::string_view what);
  void require(bool holds, IpAddr group, std::string_view what);
  void requireGroup(const QuerierGroupSm& sm);
  void requireSources(const QuerierGroupSm& sm);
  void requireSource(const QuerierGroupSm& sm, IpAddr addr, const QuerierGroupSourceSm& source);
  void requireHandOver();
  void requireSent();

  const Ptr<const Obel::TimerWheel> wheel_;
  std::unique_ptr<Watch> watch_;
  std::set<IpAddr> bornOfQuery_;
  bool attrLogWasClogged_ = false;
  // A takeover from a silent querier ended a hand-over as it stood, with groups pending.
  bool takenOver_ = false;
  U32 sentOld_ = 0, sentV3_ = 0, sentWithSources_ = 0;
  size_t running_ = 0;  // timers that say so
  std::vector<std::string> breaches_;
};

}  // namespace Gmp::Igmp::testing
