// The group's collection of source machines, and what a change of it means for the group.
#include <utility>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Mox/Errors.h>

namespace Gmp::Igmp {

using Mox::trace;

Ptr<QuerierGroupSourceSm> QuerierGroupSm::sourceIs(IpAddr addr, const Wheel& wheel) {
  const Ptr<QuerierGroupSm> alive(this);
  if (Ptr<QuerierGroupSourceSm> found = source(addr)) {
    if (found->sourceTimer() != wheel) {
      throw Mox::NameInUseError("_sourceTimer", wheelText(wheel), wheelText(found->sourceTimer()));
    }
    return found;
  }
  Ptr<QuerierGroupSourceSm> added = QuerierGroupSourceSmIs(addr, wheel, this);
  if (ended()) {  // by a notifiee of the source's status entry
    added->end();
    return added;
  }
  // A notifiee of the status entry may have handed in a report for the same source.
  if (Ptr<QuerierGroupSourceSm> first = source(addr)) {
    added->end();
    return first;
  }
  source_.insert(addr, added);
  handleSource(addr);
  sourceNotify(addr);
  return added;
}

void QuerierGroupSm::sourceTimerIs(IpAddr addr, Seconds seconds) {
  if (!ended()) getOrCreateSourceSm(this, addr)->doSetTimer(seconds);
}

void QuerierGroupSm::sourceDel(IpAddr addr) {
  const Ptr<QuerierGroupSourceSm> removed = source(addr);
  if (!removed) return;
  const Ptr<QuerierGroupSm> alive(this);
  source_.erase(addr);
  handleSource(addr);
  removed->end();
  if (!ended()) sourceNotify(addr);
}

void QuerierGroupSm::sourceDelAll() {
  if (source_.empty()) return;
  const Ptr<QuerierGroupSm> alive(this);
  for (const IpAddr addr : source_.keys()) sourceDel(addr);
}

void QuerierGroupSm::handleSource(IpAddr addr) {
  if (!initialized_) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleSource", "( ", addr, " )");
  if (source_.contains(addr)) return;
  trace<6>(machineTrace, "Removing source ", addr, " for ", group_, " on ", interfaceName());
  groupStatus_->sourceDel(addr);
  if (ended()) return;
  if (groupStatus_->filterMode() == filterModeInclude && source_.empty()) {
    trace<3>(machineTrace, "No sources remaining for ", group_, " on ", interfaceName(),
             ". Removing group");
    querierSm().groupSmDel(group_);
  }
}

}  // namespace Gmp::Igmp
