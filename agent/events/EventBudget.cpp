#include <Events/EventBudget.h>

#include <Mox/ActivityClock.h>

namespace Agent {

void EventBudget::event(const Event& event) {
  if (!takes(event.kind)) return;
  ++kinds_[event.kind].passed;
  to_.event(event);
}

bool EventBudget::takes(Event::Kind kindAt) {
  Kind& kind = kinds_[kindAt];
  const Mox::Seconds now = Mox::now();
  if (now >= kind.until) {
    close(kindAt);
    kind.until = now + 1.0;
  }
  if (ofASecond_ == 0 || kind.passed < ofASecond_) return true;
  if (kind.held++ == 0) ++kindsHeld_;
  return false;
}

void EventBudget::close(size_t kindAt) {
  Kind& kind = kinds_[kindAt];
  if (kind.held != 0) {
    Event sum{.time = Mox::now(), .kind = Event::eventsSummed};
    sum.count = kind.held;
    sum.attribute = eventName(static_cast<Event::Kind>(kindAt));
    to_.event(sum);
    --kindsHeld_;
  }
  kind.passed = 0;
  kind.held = 0;
}

bool EventBudget::flush() {
  if (kindsHeld_ != 0) {
    const Mox::Seconds now = Mox::now();
    for (size_t at = 0; at < kinds_.size(); ++at) {
      if (kinds_[at].held != 0 && now >= kinds_[at].until) close(at);
    }
  }
  return to_.flush() && kindsHeld_ == 0;
}

void EventBudget::finish() {
  for (size_t at = 0; at < kinds_.size(); ++at) close(at);
}

}  // namespace Agent
