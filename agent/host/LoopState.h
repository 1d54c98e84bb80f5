// What the event loop does, for operators: `igmpq get loop`.
//
// A gap is what the loop does between two looks at the rings. It is measured in time of the
// processor, so that sleep does not count, nor what other programs take.
//
//   state->ringsReadBegins();
//   rings.readReady();
//   state->ringsReadEnds();
#pragma once

#include <algorithm>

#include <Mox/AttrTable.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Types.h>

namespace Agent {

class LoopState final : public Mox::ObjectOf<LoopState> {
 public:
  static constexpr const char* entityTypeName = "Agent::LoopState";

  Mox::U64 batches() const { return batches_; }
  Mox::Seconds longestGap() const { return longestGap_; }

  void ringsReadBegins();
  void ringsReadEnds();

 private:
  using Self = LoopState;

  Mox::U64 batches_ = 0;
  Mox::Seconds longestGap_ = 0.0;
  // On the clock of this thread's processor time. What comes before the first read is no gap.
  Mox::Seconds readEnd_ = Mox::never;

 public:
  static constexpr auto attributes = Mox::attrTableFrom<130>(
      Mox::Part{"batches", &Self::batches_}, Mox::Part{"longestGap", &Self::longestGap_});
};

}  // namespace Agent
