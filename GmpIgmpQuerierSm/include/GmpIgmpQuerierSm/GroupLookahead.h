// Prefetches the memory that the next reports will use.
//
// With a million groups a report waits for memory three times: for the group's place in the table,
// for its machine and for its status, each found through the one before. A caller that knows the
// next groups, from the records of a report or the packets of a batch, prefetches each some steps
// ahead, so that these waits overlap. A group that is not reported after all costs the fetch only.
//
//   GroupLookahead lookahead(groupSm);
//   for (size_t i = 0; i < n; ++i) {
//     lookahead.prefetch(group[i + GroupLookahead::ahead]);
//     handle(group[i]);
//   }
#pragma once

#include <array>
#include <cstddef>

#include <GmpIgmpQuerier/Types.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <Mox/HashMap.h>

namespace Gmp::Igmp {

class GroupLookahead {
 public:
  using GroupSmMap = Mox::HashMap<IpAddr, Ptr<QuerierGroupSm>>;

  // How many groups ahead of its use a group is prefetched.
  static constexpr size_t ahead = 12;

  explicit GroupLookahead(const GroupSmMap& groups) : groups_(groups) {}

  void prefetch(IpAddr group) {
    groups_.prefetch(group);
    if (const auto* sm = machine(recent_[(at_ - placeLead) % recent_.size()])) sm->prefetch();
    if (const auto* sm = machine(recent_[(at_ - machineLead) % recent_.size()])) {
      sm->prefetchStatus();
    }
    recent_[at_++ % recent_.size()] = group;
  }

 private:
  static constexpr size_t placeLead = 4;    // steps until the place is in the cache
  static constexpr size_t machineLead = 8;  // and the machine

  const QuerierGroupSm* machine(IpAddr group) const {
    const auto* found = group.isZero() ? nullptr : groups_.find(group);
    return found == nullptr ? nullptr : found->get();
  }

  const GroupSmMap& groups_;
  std::array<IpAddr, 16> recent_{};
  size_t at_ = 16;
};

}  // namespace Gmp::Igmp
