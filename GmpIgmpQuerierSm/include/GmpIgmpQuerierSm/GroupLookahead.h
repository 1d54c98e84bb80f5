// Fetches into the cache what groups that are about to be reported will touch.
//
// With a million groups a report waits for memory three times: for the group's place in the table,
// for its machine, for its status, each found through the one before. Those who know what comes
// next, the records of a report or the packets of a batch, expect it some steps ahead, and the
// waits overlap. A wrong expectation costs nothing but the fetch.
//
//   GroupLookahead lookahead(groupSm);
//   for (size_t i = 0; i < n; ++i) {
//     lookahead.expect(group[i + GroupLookahead::ahead]);
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

  // How many groups an expectation should be ahead of its use.
  static constexpr size_t ahead = 12;

  explicit GroupLookahead(const GroupSmMap& groups) : groups_(groups) {}

  void expect(IpAddr group) {
    groups_.prefetch(group);
    if (const auto* sm = machine(recent_[(at_ - placeLead) % recent_.size()])) sm->prefetch();
    if (const auto* sm = machine(recent_[(at_ - machineLead) % recent_.size()])) {
      sm->prefetchStatus();
    }
    recent_[at_++ % recent_.size()] = group;
  }

 private:
  static constexpr size_t placeLead = 4;    // steps until the place has come
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
