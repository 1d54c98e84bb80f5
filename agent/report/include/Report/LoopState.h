// How long the agent's event loop keeps packets and queries waiting: the entry loop in the
// attribute log. The loop measures all the time and publishes about once a second.
//
// A gap is the time for which the loop does not take packets from the rings. The delay of a general
// query is the time from when it is due until it is given to the kernel. Both are counted in
// buckets, which programs need that show how they are distributed over time.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include <Mox/Entity.h>
#include <MoxBase/Types.h>

namespace Agent {

// Delays by their length.
struct DelayCounts {
  // The longest delay of each bucket; that of the last one is not limited.
  static constexpr std::array<Mox::Seconds, 9> bounds{0.0005, 0.001, 0.002, 0.005, 0.01,
                                                      0.02,   0.05,  0.1,   1.0};
  static constexpr size_t buckets = bounds.size() + 1;

  void add(Mox::Seconds delay) {
    const auto* const found = std::ranges::lower_bound(bounds, delay);
    ++counts[static_cast<size_t>(found - bounds.begin())];
    sum += delay;
  }

  std::array<Mox::U64, buckets> counts = {};
  Mox::Seconds sum = 0.0;
};

class LoopState final : public Mox::Entity<LoopState> {
 public:
  static constexpr const char* entityTypeName = "Agent::LoopState";
  using U64 = Mox::U64;

  class NotifieeConst : public Mox::NotifieeOf<LoopState> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onChange() {}  // one of them has changed
  };

  // Always empty: an agent has one loop.
  std::string name() const { return {}; }
  // Times that the rings were read.
  U64 batches() const { return batches_; }
  Mox::Seconds longestGap() const { return longestGap_; }
  DelayCounts gaps() const { return {.counts = countsOf(gapBuckets), .sum = gapSum_}; }
  DelayCounts queryDelays() const { return {.counts = countsOf(queryBuckets), .sum = querySum_}; }

  void batchesIs(U64 v) { set<&Self::batches_>(v); }
  U64 batchesInc(U64 by) { return inc<&Self::batches_>(by); }
  void longestGapIs(Mox::Seconds v) { set<&Self::longestGap_>(v); }
  void gapsIs(const DelayCounts& v) {
    setEach<gapBuckets>(v, everyBucket);
    gapSumIs(v.sum);
  }
  void queryDelaysIs(const DelayCounts& v) {
    setEach<queryBuckets>(v, everyBucket);
    querySumIs(v.sum);
  }

 private:
  using Self = LoopState;
  using Buckets = std::array<U64 LoopState::*, DelayCounts::buckets>;
  static constexpr std::make_index_sequence<DelayCounts::buckets> everyBucket{};

  std::array<U64, DelayCounts::buckets> countsOf(const Buckets& members) const {
    std::array<U64, DelayCounts::buckets> counts{};
    std::ranges::transform(members, counts.begin(), [this](auto member) { return this->*member; });
    return counts;
  }
  template <const Buckets& members, size_t... at>
  void setEach(const DelayCounts& v, std::index_sequence<at...>) {
    (set<members[at]>(v.counts[at]), ...);
  }
  template <auto Member>
  void countIs(U64 v) {
    set<Member>(v);
  }
  template <auto Member>
  U64 countInc(U64 by) {
    return inc<Member>(by);
  }
  void gapSumIs(Mox::Seconds v) { set<&Self::gapSum_>(v); }
  void querySumIs(Mox::Seconds v) { set<&Self::querySum_>(v); }

  U64 batches_ = 0;
  Mox::Seconds longestGap_ = 0.0;
  U64 gaps500us_ = 0;
  U64 gaps1ms_ = 0;
  U64 gaps2ms_ = 0;
  U64 gaps5ms_ = 0;
  U64 gaps10ms_ = 0;
  U64 gaps20ms_ = 0;
  U64 gaps50ms_ = 0;
  U64 gaps100ms_ = 0;
  U64 gaps1s_ = 0;
  U64 gapsLonger_ = 0;
  Mox::Seconds gapSum_ = 0.0;
  U64 queries500us_ = 0;
  U64 queries1ms_ = 0;
  U64 queries2ms_ = 0;
  U64 queries5ms_ = 0;
  U64 queries10ms_ = 0;
  U64 queries20ms_ = 0;
  U64 queries50ms_ = 0;
  U64 queries100ms_ = 0;
  U64 queries1s_ = 0;
  U64 queriesLonger_ = 0;
  Mox::Seconds querySum_ = 0.0;

  static constexpr Buckets gapBuckets{
      &Self::gaps500us_, &Self::gaps1ms_,  &Self::gaps2ms_,   &Self::gaps5ms_, &Self::gaps10ms_,
      &Self::gaps20ms_,  &Self::gaps50ms_, &Self::gaps100ms_, &Self::gaps1s_,  &Self::gapsLonger_};
  static constexpr Buckets queryBuckets{
      &Self::queries500us_, &Self::queries1ms_,   &Self::queries2ms_,  &Self::queries5ms_,
      &Self::queries10ms_,  &Self::queries20ms_,  &Self::queries50ms_, &Self::queries100ms_,
      &Self::queries1s_,    &Self::queriesLonger_};

  friend class Mox::Entity<LoopState>;

 public:
  static constexpr Mox::AttrTable attributes{
      Mox::Constant{"name", &Self::name},
      Mox::Counter{"batches", &Self::batches_, &Self::batchesIs, &Self::batchesInc,
                   &NotifieeConst::onChange},
      Mox::Attr{"longestGap", &Self::longestGap_, &Self::longestGapIs, &NotifieeConst::onChange},
      Mox::Counter{"gaps500us", &Self::gaps500us_, &Self::countIs<&Self::gaps500us_>,
                   &Self::countInc<&Self::gaps500us_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps1ms", &Self::gaps1ms_, &Self::countIs<&Self::gaps1ms_>,
                   &Self::countInc<&Self::gaps1ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps2ms", &Self::gaps2ms_, &Self::countIs<&Self::gaps2ms_>,
                   &Self::countInc<&Self::gaps2ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps5ms", &Self::gaps5ms_, &Self::countIs<&Self::gaps5ms_>,
                   &Self::countInc<&Self::gaps5ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps10ms", &Self::gaps10ms_, &Self::countIs<&Self::gaps10ms_>,
                   &Self::countInc<&Self::gaps10ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps20ms", &Self::gaps20ms_, &Self::countIs<&Self::gaps20ms_>,
                   &Self::countInc<&Self::gaps20ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps50ms", &Self::gaps50ms_, &Self::countIs<&Self::gaps50ms_>,
                   &Self::countInc<&Self::gaps50ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps100ms", &Self::gaps100ms_, &Self::countIs<&Self::gaps100ms_>,
                   &Self::countInc<&Self::gaps100ms_>, &NotifieeConst::onChange},
      Mox::Counter{"gaps1s", &Self::gaps1s_, &Self::countIs<&Self::gaps1s_>,
                   &Self::countInc<&Self::gaps1s_>, &NotifieeConst::onChange},
      Mox::Counter{"gapsLonger", &Self::gapsLonger_, &Self::countIs<&Self::gapsLonger_>,
                   &Self::countInc<&Self::gapsLonger_>, &NotifieeConst::onChange},
      Mox::Attr{"gapSum", &Self::gapSum_, &Self::gapSumIs, &NotifieeConst::onChange},
      Mox::Counter{"queries500us", &Self::queries500us_, &Self::countIs<&Self::queries500us_>,
                   &Self::countInc<&Self::queries500us_>, &NotifieeConst::onChange},
      Mox::Counter{"queries1ms", &Self::queries1ms_, &Self::countIs<&Self::queries1ms_>,
                   &Self::countInc<&Self::queries1ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries2ms", &Self::queries2ms_, &Self::countIs<&Self::queries2ms_>,
                   &Self::countInc<&Self::queries2ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries5ms", &Self::queries5ms_, &Self::countIs<&Self::queries5ms_>,
                   &Self::countInc<&Self::queries5ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries10ms", &Self::queries10ms_, &Self::countIs<&Self::queries10ms_>,
                   &Self::countInc<&Self::queries10ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries20ms", &Self::queries20ms_, &Self::countIs<&Self::queries20ms_>,
                   &Self::countInc<&Self::queries20ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries50ms", &Self::queries50ms_, &Self::countIs<&Self::queries50ms_>,
                   &Self::countInc<&Self::queries50ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries100ms", &Self::queries100ms_, &Self::countIs<&Self::queries100ms_>,
                   &Self::countInc<&Self::queries100ms_>, &NotifieeConst::onChange},
      Mox::Counter{"queries1s", &Self::queries1s_, &Self::countIs<&Self::queries1s_>,
                   &Self::countInc<&Self::queries1s_>, &NotifieeConst::onChange},
      Mox::Counter{"queriesLonger", &Self::queriesLonger_, &Self::countIs<&Self::queriesLonger_>,
                   &Self::countInc<&Self::queriesLonger_>, &NotifieeConst::onChange},
      Mox::Attr{"querySum", &Self::querySum_, &Self::querySumIs, &NotifieeConst::onChange},
  };
};

}  // namespace Agent
