// An event: one change that is reported to the operator. Also the sinks that report it.
//
// A flat record: its kind decides which fields are reported, as the table of kinds in
// EventForms.cpp lists them; the others keep their defaults. Times are seconds of the activity
// clock.
//
//   std::unique_ptr<EventSink> sink = jsonEventSink(stdout);
//   sink->event({.time = Mox::now(), .interface = "eth0", .kind = Event::interfaceUp});
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Ilvo/IpAddr.h>
#include <Ilvo/Pkt.h>
#include <Mox/Value.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Text/WallClock.h>

namespace Agent {

struct Event {
  // In the order of the table of kinds.
  enum Kind {
    role,
    groupJoined,
    groupChanged,
    groupLeft,  // the group ended, with all its sources
    sourceJoined,
    sourceExcluded,
    sourceLeft,
    sourcesChanged,  // in place of many of the three above
    querySent,
    versionMismatch,
    invalidSource,
    interfaceUp,
    interfaceDown,
    interfaceGone,
    addressChanged,
    takenOver,  // an interface begins with the state of an agent before
    configChanged,
    counters,
    eventsLost,
    eventsSummed,  // beyond the budget of a kind
    agentLost,
    agentBack,      // the connection to the agent exists again
    intake,         // a packet that a querier did not see, or not as it was sent
    intakeWarning,  // one that it saw, but that may be forged
    notice,
    error,
  };
  static constexpr size_t kinds = error + 1;

  Mox::Seconds time = 0.0;
  std::string interface = {};  // empty where it is not known
  Kind kind = error;
  Ilvo::IpAddr address = {};  // of the interface, the elected querier or the reporter
  Ilvo::IpAddr group = {};    // 0.0.0.0 in a general query
  Ilvo::IpAddr source = {};
  Gmp::Igmp::QuerierStatus::QuerierState state = Gmp::Igmp::QuerierStatus::querierStateInitial;
  Gmp::Igmp::IgmpFilterMode filterMode = Gmp::Igmp::filterModeExclude;
  unsigned version = 0;  // of the query, or of the oldest host: the compatibility mode
  unsigned configuredVersion = 0;
  unsigned sourcesJoined = 0;
  unsigned sourcesExcluded = 0;
  unsigned sourcesLeft = 0;
  Mox::Seconds maxResponse = 0.0;
  std::vector<Ilvo::IpAddr> sources = {};
  const char* attribute = "";
  Mox::Value value = {};
  std::vector<std::pair<const char*, Mox::U64>> counts = {};  // those that changed, by name
  std::string text = {};
  std::string mac = {};  // of the sender; empty where the link has none
  Mox::U64 count = 0;
};

// The event for a query that a querier published as the message `igmp` for `group`.
Event querySentEvent(std::string interface, Ilvo::IpAddr group, const Mox::Ptr<Ilvo::Pkt>& igmp);

class EventSink {
 public:
  EventSink() = default;
  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;
  virtual ~EventSink();
  virtual void event(const Event& event) = 0;
  // Asked where an event costs much to make: false when it would be dropped, which counts as that.
  virtual bool takes(Event::Kind) { return true; }
  // Called once a batch. False when lines wait for a file that does not take them now.
  virtual bool flush() { return true; }
  // Whether all lines have been taken. Events that are held back to be summed up are no lines yet.
  virtual bool isEmpty() const { return true; }
};

// Writes a time of the activity clock for the beginning of a line.
using TimeText = std::function<std::string(Mox::Seconds)>;

// Lines for people: "10:15:03  eth0  joined 239.1.1.1 by 10.0.0.11 (version 2, exclude)".
std::unique_ptr<EventSink> textEventSink(std::FILE* out, TimeText timeText = timeOfDayText);
// JSON Lines for programs: one object a line.
std::unique_ptr<EventSink> jsonEventSink(std::FILE* out);

// The lines of the two sinks, without the end of line. In JSON "time" is the event's time on the
// activity clock and "utc" the same moment on the wall clock.
std::string eventText(const Event& event);
// The kind as JSON names it.
const char* eventName(Event::Kind kind);
void appendEventText(std::string& out, const Event& event);
// Built in that memory, whose contents are dropped.
std::string eventJson(const Event& event, std::string memory = {});

}  // namespace Agent
