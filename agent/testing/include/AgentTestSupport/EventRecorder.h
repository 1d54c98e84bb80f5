// For tests: keeps the events that a sink receives, and their lines for people, with their times.
//
//   EventRecorder events;
//   EXPECT_THAT(events.taken(), ElementsAre("1000 role querier (elected 10.0.0.1)"));
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Events/Event.h>
#include <MoxBase/Text.h>

namespace Agent {

class EventRecorder final : public EventSink {
 public:
  void event(const Event& event) override {
    events_.push_back(event);
    lines_.push_back(Mox::textOf(event.time) + " " + eventText(event));
  }

  const std::vector<Event>& events() const { return events_; }
  // The lines since the last call.
  std::vector<std::string> taken() { return std::exchange(lines_, {}); }

 private:
  std::vector<Event> events_;
  std::vector<std::string> lines_;
};

}  // namespace Agent
