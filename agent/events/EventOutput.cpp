#include <Events/EventOutput.h>

#include <utility>

#include "EventLine.h"

namespace Agent {

EventOutput::EventOutput(int fd, Form form, std::size_t mostBytes)
    : QueuedEvents(mostBytes), file_(fd), form_(form) {}

EventOutput::~EventOutput() { EventOutput::flush(); }

bool EventOutput::add(const Event& event) {
  line_ = form_ == json ? eventJson(event, std::move(line_))
                        : eventTextLine(event, timeText(event.time), std::move(line_));
  line_ += '\n';
  if (waiting() + line_.size() > mostBytes()) return false;
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

void EventOutput::lines(std::string_view more) {
  if (isBehind() || waiting() > mostBytes()) {
    lose();
  } else {
    queue_ += more;
  }
}

void EventOutput::write() {
  written_ += file_.write(std::string_view(queue_).substr(written_));
  if (written_ == queue_.size()) {
    queue_.clear();
    if (queue_.capacity() > 2 * mostBytes()) queue_.shrink_to_fit();  // after a large state
    written_ = 0;
  } else if (written_ > queue_.size() / 2) {  // so that each byte moves once at most
    queue_.erase(0, written_);
    written_ = 0;
  }
}

}  // namespace Agent
