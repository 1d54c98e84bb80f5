// One thing that an operator cares about, and where it goes.
//
// A flat record: `kind` says which fields count, the others keep their defaults. Times are seconds
// of the activity clock.
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

namespace Agent {

struct Event {
  enum Kind {
    role,             // state, address: the elected querier, 0.0.0.0 for none
    groupJoined,      // group, address: the reporter, version: compatibility mode, filterMode
    groupChanged,     // group, version: compatibility mode, filterMode
    groupLeft,        // group; its sources are gone, too
    sourceJoined,     // group, source
    sourceExcluded,   // group, source
    sourceLeft,       // group, source
    querySent,        // group: 0.0.0.0 for a general query, version, maxResponse, sources
    versionMismatch,  // version: heard, configuredVersion, text
    invalidSource,    // text
    interfaceUp,      // address
    interfaceDown,    // address
    interfaceGone,    // address
    addressChanged,   // address
    configChanged,    // attribute, value
    counters,         // counts
    agentLost,        // text
    agentBack,        // what follows comes from the agent again
    error,            // text
  };

  Mox::Seconds time = 0.0;
  std::string interface = {};  // empty where it is not known
  Kind kind = error;
  Ilvo::IpAddr address = {};
  Ilvo::IpAddr group = {};
  Ilvo::IpAddr source = {};
  Gmp::Igmp::QuerierStatus::QuerierState state = Gmp::Igmp::QuerierStatus::querierStateInitial;
  Gmp::Igmp::IgmpFilterMode filterMode = Gmp::Igmp::filterModeExclude;
  unsigned version = 0;
  unsigned configuredVersion = 0;
  Mox::Seconds maxResponse = 0.0;
  std::vector<Ilvo::IpAddr> sources = {};
  const char* attribute = "";
  Mox::Value value = {};
  std::vector<std::pair<const char*, Mox::U64>> counts = {};  // those that changed, by name
  std::string text = {};
};

// The event of a query that a querier has published: its IGMP message, the group it is for.
Event querySentEvent(std::string interface, Ilvo::IpAddr group, const Mox::Ptr<Ilvo::Pkt>& igmp);

class EventSink {
 public:
  EventSink() = default;
  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;
  virtual ~EventSink();
  virtual void event(const Event& event) = 0;
};

// How a time of the activity clock reads at the front of a line.
using TimeText = std::function<std::string(Mox::Seconds)>;
// Local time of day, "10:15:03", by what the two clocks of the machine say now.
std::string timeOfDayText(Mox::Seconds time);

// Lines for people: "10:15:03  eth0  joined 239.1.1.1 by 10.0.0.11 (version 2, exclude)".
std::unique_ptr<EventSink> textEventSink(std::FILE* out, TimeText timeText = timeOfDayText);
// JSON Lines for programs: one object a line.
std::unique_ptr<EventSink> jsonEventSink(std::FILE* out);

// What the two sinks write, without the line's end.
std::string eventText(const Event& event);
std::string eventJson(const Event& event);

}  // namespace Agent
