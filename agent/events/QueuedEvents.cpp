#include <Events/QueuedEvents.h>

#include <algorithm>
#include <cmath>

#include <Mox/ActivityClock.h>

namespace Agent {

// A large batch may fill the queue while the output would take it.
void QueuedEvents::event(const Event& event) {
  if (waiting() > mostBytes_ / 2) write();
  if (isBehind() || !add(event)) lose();
}

// Ahead of the events that come after the gap.
bool QueuedEvents::isBehind() {
  if (lost_ == lostReported_) return false;
  Event event{.time = Mox::now(), .kind = Event::eventsLost};
  event.count = lost_ - lostReported_;
  if (!add(event)) return true;
  lostReported_ = lost_;
  return false;
}

bool QueuedEvents::flush() {
  write();
  if (waiting() == 0 && lost_ != lostReported_) {
    isBehind();
    write();
  }
  return waiting() == 0;
}

void QueuedEvents::finish(Mox::Seconds end) {
  while (!flush()) {
    const Mox::Seconds left = std::max(end - Mox::now(), 0.0);
    const std::chrono::milliseconds patience(std::lround(left * 1000));
    if (patience.count() == 0 || !waitWritable(patience)) return;
    const std::size_t before = waiting();
    write();
    if (waiting() == before) return;  // writable, but it fails
  }
}

}  // namespace Agent
