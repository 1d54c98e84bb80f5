#include <GmpIgmpQuerier/QuerierStatus.h>

#include <Mox/ActivityClock.h>

namespace Gmp::Igmp {

QuerierStatus::QuerierStatus() : creationTime_(Mox::now()) {}

QuerierStatus::~QuerierStatus() { groupDelAll(); }

QuerierStatus::QuerierState QuerierStatus::QuerierStateInstance(unsigned number) {
  return Mox::enumeratorOf<QuerierState>(number);
}

QuerierStatus::QuerierState QuerierStatus::QuerierStateInstance(std::string_view name) {
  return Mox::enumeratorOf<QuerierState>(name);
}

void QuerierStatus::groupDelAll() {
  for (auto at = group_.begin(); at != group_.end(); ++at) groupDel(at);
}

Ptr<QuerierStatus> querierStatusFactory() { return makePtr<QuerierStatus>(); }

}  // namespace Gmp::Igmp
