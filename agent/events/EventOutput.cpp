#include <Events/EventOutput.h>

#include <utility>

#include <Mox/ActivityClock.h>

#include "EventLine.h"

namespace Agent {

EventOutput::EventOutput(int fd, Form form, std::size_t mostBytes)
    : file_(fd), form_(form), mostBytes_(mostBytes) {}

void EventOutput::event(const Event& event) {
  reportLost();
  if (lost_ != lostReported_ || !add(event)) ++lost_;
}

bool EventOutput::add(const Event& event) {
  line_ = form_ == json ? eventJson(event, std::move(line_))
                        : eventTextLine(event, timeOfDayText(event.time), std::move(line_));
  line_ += '\n';
  if (waiting() + line_.size() > mostBytes_) return false;
  queue_ += line_;
  return true;
}

// Ahead of the events that come after the gap.
void EventOutput::reportLost() {
  if (lost_ == lostReported_) return;
  Event event{.time = Mox::now(), .kind = Event::eventsLost};
  event.count = lost_ - lostReported_;
  if (add(event)) lostReported_ = lost_;
}

void EventOutput::lines(std::string_view more) {
  reportLost();
  if (lost_ != lostReported_ || waiting() > mostBytes_) {
    ++lost_;
  } else {
    queue_ += more;
  }
}

bool EventOutput::flush() {
  written_ += file_.write(std::string_view(queue_).substr(written_));
  if (written_ == queue_.size()) {
    queue_.clear();
    written_ = 0;
    if (lost_ == lostReported_) return true;
    reportLost();
    return flush();
  }
  // The front of the queue is dropped only when it is half of it: each byte moves once at most.
  if (written_ > queue_.size() / 2) {
    queue_.erase(0, written_);
    written_ = 0;
  }
  return false;
}

void EventOutput::finish(std::chrono::milliseconds patience) {
  std::size_t before = 0;
  do {
    before = waiting();
    if (flush()) return;
  } while (file_.waitWritable(patience) && waiting() < before);
}

}  // namespace Agent
