#include <GmpIgmpQuerier/QuerierStatus.h>

#include <Mox/ActivityClock.h>

namespace Gmp::Igmp {

namespace {

MembershipCount inProcess;

// Null for a group that has been removed, or is no member yet.
QuerierStatus* statusOf(Mox::EntityBase* group) {
  return group == nullptr ? nullptr : static_cast<QuerierStatus*>(group->parent());
}

}  // namespace

const MembershipCount& membershipInProcess() { return inProcess; }

// Unsigned numbers wrap, so that adding -1 takes one away.
void QuerierSourceStatus::parentIs(Mox::EntityBase* group, Mox::AttrId attr) {
  const auto count = [](QuerierStatus* status, size_t by) {
    if (status == nullptr) return;
    status->sources_ += by;
    inProcess.sources += by;
  };
  count(statusOf(parent()), size_t{0} - 1);
  EntityBase::parentIs(group, attr);
  count(statusOf(parent()), 1);
}

void QuerierGroupStatus::parentIs(Mox::EntityBase* status, Mox::AttrId attr) {
  if (QuerierStatus* before = statusOf(this)) {
    before->sources_ -= source_.size();
    inProcess.sources -= source_.size();
    --inProcess.groups;
  }
  EntityBase::parentIs(status, attr);
  if (QuerierStatus* after = statusOf(this)) {
    after->sources_ += source_.size();
    inProcess.sources += source_.size();
    ++inProcess.groups;
  }
}

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
