// The events to come of a world, in the order of time, equal times in the order in which they were
// entered. Only the head of the queue, and the timers of routers, move the clock.
//
//   queue.push({.time = 1000.5, .kind = Event::delivery, .subject = frame, .node = node});
//   while (queue.isDue(until)) handle(queue.pop());
#pragma once

#include <algorithm>
#include <vector>

#include "Frame.h"

namespace Sim {

struct Event {
  enum Kind : U8 { storyLine, delivery, hostTimer, check, followCheck };

  Seconds time = 0.0;
  Kind kind = check;
  U32 subject = 0;  // a line, a frame, a channel
  Node node = 0;
  U64 order = 0;  // set by the queue

  bool operator<(const Event& other) const {
    return time != other.time ? time > other.time : order > other.order;
  }
};

class EventQueue {
 public:
  void push(Event event) {
    event.order = nextOrder_++;
    events_.push_back(event);
    std::push_heap(events_.begin(), events_.end());
  }
  Event pop() {
    std::pop_heap(events_.begin(), events_.end());
    const Event event = events_.back();
    events_.pop_back();
    return event;
  }
  Seconds nextDue() const { return events_.empty() ? Mox::never : events_.front().time; }
  // In no particular order.
  const std::vector<Event>& events() const { return events_; }

 private:
  std::vector<Event> events_;  // a heap
  U64 nextOrder_ = 0;
};

}  // namespace Sim
