// Passes at most so many events of each kind within a second, and then the number of the others.
//
// A burst of ten thousand joins would push everything else out of an operator's view, and out of
// the queue to a slow output.
//
//   EventBudget budget(output, 100);
//   budget.event(event);
//   if (!budget.flush()) tryAgainLater();
#pragma once

#include <array>

#include <Events/Event.h>
#include <MoxBase/Types.h>

namespace Agent {

class EventBudget final : public EventSink {
 public:
  // 0 passes all. The sink outlives it.
  EventBudget(EventSink& to, Mox::U64 ofASecond) : to_(to), ofASecond_(ofASecond) {}

  // From here on.
  void ofASecondIs(Mox::U64 ofASecond) { ofASecond_ = ofASecond; }

  void event(const Event& event) override;
  bool takes(Event::Kind kind) override;
  // Reports the numbers whose second is over. False when one is still to be reported, too.
  bool flush() override;
  bool isEmpty() const override { return to_.isEmpty(); }
  // Reports the numbers that are left.
  void finish();

 private:
  struct Kind {
    Mox::Seconds until = 0.0;  // the end of the second that counts
    Mox::U64 passed = 0;
    Mox::U64 held = 0;
  };

  void close(size_t kindAt);

  EventSink& to_;
  Mox::U64 ofASecond_;
  std::array<Kind, Event::kinds> kinds_{};
  Mox::U64 kindsHeld_ = 0;  // those with held events
};

}  // namespace Agent
