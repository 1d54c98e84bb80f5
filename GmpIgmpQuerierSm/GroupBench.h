// Fixture for tests of the group and source machines: a querier that sends no general queries, and
// groups that are put into any state directly, without packets.
//
//   const auto group = include({{s1_, 200.0}, {s2_, 1.0}});
//   receiveRecord(blockOldSources, group_, {s1_});
//   EXPECT_EQ(timerOf(s1_), lmqt_);
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Once.h"
#include "TestBench.h"

namespace Gmp::Igmp {

inline void PrintTo(IgmpFilterMode mode, std::ostream* out) { *out << stringValue(mode); }
inline void PrintTo(IgmpVersion version, std::ostream* out) { *out << stringValue(version); }
inline void PrintTo(TimerState state, std::ostream* out) { *out << stringValue(state); }

}  // namespace Gmp::Igmp

namespace Gmp::Igmp::testing {

// RFC 3376 4.2.12.
inline constexpr U8 modeIsInclude = 1;
inline constexpr U8 modeIsExclude = 2;
inline constexpr U8 changeToInclude = 3;
inline constexpr U8 changeToExclude = 4;
inline constexpr U8 allowNewSources = 5;
inline constexpr U8 blockOldSources = 6;

class GroupBench : public TestBench {
 protected:
  static constexpr IpAddr s1_{10, 7, 0, 1};
  static constexpr IpAddr s2_{10, 7, 0, 2};
  static constexpr IpAddr s3_{10, 7, 0, 3};
  static constexpr Seconds gmi_ = 260.0;  // group membership interval of the default values
  static constexpr Seconds lmqi_ = 1.0;   // last member query interval
  static constexpr Seconds lmqt_ = 2.0;   // last member query time

  // A source, and the seconds until its timer fires.
  struct Source {
    IpAddr addr;
    Seconds left;
  };

  void SetUp() override { startQuiet(); }

  // Creates the group in that state; a group timer of `never` is disabled.
  Ptr<QuerierGroupSm> make(IgmpFilterMode mode, const std::vector<Source>& sources,
                           Seconds groupLeft, IgmpVersion compatibility = igmpVersion3) {
    Ptr<QuerierGroupSm> sm = getOrCreateGroupSm(querier_, group_);
    sm->groupStatus()->filterModeIs(mode);
    sm->groupStatus()->compatibilityModeIs(compatibility);
    for (const Source& source : sources) {
      getOrCreateSourceSm(sm, source.addr)->doSetTimer(source.left);
    }
    sm->doSetTimer(QuerierGroupSm::membershipTimerId, groupLeft);
    traces_.clear();
    return sm;
  }
  Ptr<QuerierGroupSm> include(const std::vector<Source>& sources,
                              IgmpVersion compatibility = igmpVersion3) {
    return make(filterModeInclude, sources, never, compatibility);
  }
  Ptr<QuerierGroupSm> exclude(const std::vector<Source>& sources, Seconds groupLeft = 100.0,
                              IgmpVersion compatibility = igmpVersion3) {
    return make(filterModeExclude, sources, groupLeft, compatibility);
  }

  bool groupExists() const { return static_cast<bool>(querier_->groupSm(group_)); }
  bool sourceExists(IpAddr addr) const {
    return groupExists() && static_cast<bool>(groupSm(group_)->source(addr));
  }
  Ptr<QuerierGroupSourceSm> sourceSm(IpAddr addr) const { return groupSm(group_)->source(addr); }
  Ptr<QuerierSourceStatus> sourceStatus(IpAddr addr) const {
    return groupStatus(group_)->source(addr);
  }
  // Seconds until each timer fires.
  Seconds timerOf(IpAddr addr) const { return sourceSm(addr)->sourceTimerRemaining(); }
  Seconds groupTimer() const { return groupSm(group_)->membershipTimerRemaining(); }
  Seconds rexmitTimer() const { return groupSm(group_)->rexmitTimerRemaining(); }
  IgmpFilterMode filterMode() const { return groupStatus(group_)->filterMode(); }
  IgmpVersion compatibility() const { return groupStatus(group_)->compatibilityMode(); }

  std::vector<IpAddr> rexmitSources() const {
    std::vector<IpAddr> all = groupSm(group_)->rexmitSource().keys();
    std::sort(all.begin(), all.end());
    return all;
  }
};

}  // namespace Gmp::Igmp::testing
