#include <Events/EventOutput.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include <Mox/ActivityClock.h>

#include "EventLine.h"

namespace Agent {

EventOutput::EventOutput(int fd, Form form, std::size_t mostBytes)
    : file_(fd), form_(form), mostBytes_(mostBytes) {}

EventOutput::~EventOutput() { EventOutput::flush(); }

// A large batch may fill the queue while the file would take it.
void EventOutput::event(const Event& event) {
  if (waiting() > mostBytes_ / 2) write();
  reportLost();
  if (lost_ != lostReported_ || !add(event)) ++lost_;
}

bool EventOutput::add(const Event& event) {
  line_ = form_ == json ? eventJson(event, std::move(line_))
                        : eventTextLine(event, timeText(event.time), std::move(line_));
  line_ += '\n';
  if (waiting() + line_.size() > mostBytes_) return false;
  queue_ += line_;
  return true;
}

// The events of a batch have one time.
const std::string& EventOutput::timeText(Mox::Seconds time) {
  if (time != time_ || timeText_.empty()) {
    time_ = time;
    timeText_ = timeOfDayText(time);
  }
  return timeText_;
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
  write();
  if (waiting() == 0 && lost_ != lostReported_) {
    reportLost();
    write();
  }
  return waiting() == 0;
}

void EventOutput::write() {
  written_ += file_.write(std::string_view(queue_).substr(written_));
  if (written_ == queue_.size()) {
    queue_.clear();
    if (queue_.capacity() > 2 * mostBytes_) queue_.shrink_to_fit();  // after a large state
    written_ = 0;
  } else if (written_ > queue_.size() / 2) {  // so that each byte moves once at most
    queue_.erase(0, written_);
    written_ = 0;
  }
}

void EventOutput::finish(Mox::Seconds end) {
  while (!flush()) {
    const Mox::Seconds left = std::max(end - Mox::now(), 0.0);
    const std::chrono::milliseconds patience(std::lround(left * 1000));
    if (patience.count() == 0 || !file_.waitWritable(patience)) return;
    const std::size_t before = waiting();
    write();
    if (waiting() == before) return;  // writable, but it fails
  }
}

}  // namespace Agent
