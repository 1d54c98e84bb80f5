// Both forms of every kind of event, to the letter: scripts read them.
#include <Events/Event.h>

#include <cstdio>

#include <gtest/gtest.h>

#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::filterModeInclude;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;

constexpr IpAddr router(10, 0, 0, 1);

Event eth0(Event::Kind kind) { return {.time = 12.5, .interface = "eth0", .kind = kind}; }

Event role(QuerierStatus::QuerierState state, IpAddr elected) {
  Event event = eth0(Event::role);
  event.state = state;
  event.address = elected;
  return event;
}

Event ofGroup(Event::Kind kind, unsigned version = 2,
              Gmp::Igmp::IgmpFilterMode mode = filterModeExclude) {
  Event event = eth0(kind);
  event.group = group;
  event.address = host;
  event.version = version;
  event.filterMode = mode;
  return event;
}

Event ofSource(Event::Kind kind) {
  Event event = ofGroup(kind, 3);
  event.source = sender;
  return event;
}

Event manySources() {
  Event event = ofSource(Event::sourcesChanged);
  event.sourcesJoined = 3;
  event.sourcesExcluded = 1;
  event.sourcesLeft = 40;
  return event;
}

Event query(IpAddr asked, std::vector<IpAddr> sources) {
  Event event = eth0(Event::querySent);
  event.group = asked;
  event.version = sources.empty() ? 2 : 3;
  event.maxResponse = 2.5;
  event.sources = std::move(sources);
  return event;
}

Event configured(const char* attribute, Mox::Value value) {
  Event event = eth0(Event::configChanged);
  event.attribute = attribute;
  event.value = std::move(value);
  return event;
}

Event takenOver() {
  Event event = eth0(Event::takenOver);
  event.count = 20000;
  return event;
}

Event counters() {
  Event event = eth0(Event::counters);
  event.counts = {{"joins", 3}, {"v2QueriesSent", 7}};
  return event;
}

Event ofAgent(Event::Kind kind, const char* text) {
  Event event{.time = 12.5, .kind = kind};
  event.text = text;
  return event;
}

Event summedEvents() {
  Event event = ofAgent(Event::eventsSummed, "");
  event.attribute = "groupLeft";
  event.count = 7;
  return event;
}

Event lostEvents() {
  Event event = ofAgent(Event::eventsLost, "");
  event.count = 7;
  return event;
}

Event ofLink(Event::Kind kind) {
  Event event = eth0(kind);
  event.address = router;
  return event;
}

Event message(Event::Kind kind, const std::string& text) {
  Event event = eth0(kind);
  event.text = text;
  event.version = 3;
  event.configuredVersion = 2;
  return event;
}

// A message of the library that names no interface.
Event ofNoInterface() {
  Event event = message(Event::invalidSource, "bad source");
  event.interface.clear();
  return event;
}

Event ofIntake(Event::Kind kind, const char* mac, IpAddr asked) {
  Event event = eth0(kind);
  event.attribute = "groupLimit";
  event.text = "a new group";
  event.address = host;
  event.mac = mac;
  event.group = asked;
  event.count = 7;
  return event;
}

struct Form {
  Event event;
  const char* text;
  const char* json;
};

std::vector<Form> formsOfTheLink() {
  return {
      {role(QuerierStatus::querierStateInitial, IpAddr()), "role initial",
       R"("event":"role","interface":"eth0","role":"initial","querier":null})"},
      {role(QuerierStatus::querierStateQuerier, router), "role querier (elected 10.0.0.1)",
       R"("event":"role","interface":"eth0","role":"querier","querier":"10.0.0.1"})"},
      {role(QuerierStatus::querierStateNonQuerier, router), "role nonQuerier (elected 10.0.0.1)",
       R"("event":"role","interface":"eth0","role":"nonQuerier","querier":"10.0.0.1"})"},
      {ofGroup(Event::groupJoined), "joined 239.1.1.1 by 10.0.0.11 (version 2)",
       R"("event":"groupJoined","interface":"eth0","group":"239.1.1.1","reporter":"10.0.0.11",)"
       R"("compatibilityMode":2,"filterMode":"exclude"})"},
      {ofGroup(Event::groupJoined, 3), "joined 239.1.1.1 by 10.0.0.11 (version 3, exclude)",
       R"("event":"groupJoined","interface":"eth0","group":"239.1.1.1","reporter":"10.0.0.11",)"
       R"("compatibilityMode":3,"filterMode":"exclude"})"},
      {ofGroup(Event::groupChanged, 2, filterModeInclude), "changed 239.1.1.1 (version 2, include)",
       R"("event":"groupChanged","interface":"eth0","group":"239.1.1.1",)"
       R"("compatibilityMode":2,"filterMode":"include"})"},
      {ofGroup(Event::groupLeft), "left 239.1.1.1",
       R"("event":"groupLeft","interface":"eth0","group":"239.1.1.1"})"},
      {ofSource(Event::sourceJoined), "joined 239.1.1.1 source 10.0.0.50",
       R"("event":"sourceJoined","interface":"eth0","group":"239.1.1.1","source":"10.0.0.50"})"},
      {ofSource(Event::sourceExcluded), "excluded 239.1.1.1 source 10.0.0.50",
       R"("event":"sourceExcluded","interface":"eth0","group":"239.1.1.1",)"
       R"("source":"10.0.0.50"})"},
      {ofSource(Event::sourceLeft), "left 239.1.1.1 source 10.0.0.50",
       R"("event":"sourceLeft","interface":"eth0","group":"239.1.1.1","source":"10.0.0.50"})"},
      {manySources(), "changed 239.1.1.1 sources: 3 joined, 1 excluded, 40 left",
       R"("event":"sourcesChanged","interface":"eth0","group":"239.1.1.1",)"
       R"("joined":3,"excluded":1,"left":40})"},
      {query(IpAddr(), {}), "query sent for all groups, version 2, answers within 2.5s",
       R"("event":"querySent","interface":"eth0","group":"0.0.0.0","version":2,)"
       R"("maxResponseSeconds":2.5,"sources":[]})"},
      {query(group, {sender, host}),
       "query sent for 239.1.1.1, version 3, answers within 2.5s, sources 10.0.0.50 10.0.0.11",
       R"("event":"querySent","interface":"eth0","group":"239.1.1.1","version":3,)"
       R"("maxResponseSeconds":2.5,"sources":["10.0.0.50","10.0.0.11"]})"},
  };
}

std::vector<Form> formsOfTheAgent() {
  return {
      {message(Event::versionMismatch, "got 3"), "got 3",
       R"("event":"versionMismatch","interface":"eth0","heardVersion":3,"configuredVersion":2,)"
       R"("text":"got 3"})"},
      {ofNoInterface(), "bad source", R"("event":"invalidSource","text":"bad source"})"},
      {ofLink(Event::interfaceUp), "interface up, address 10.0.0.1",
       R"("event":"interfaceUp","interface":"eth0","address":"10.0.0.1"})"},
      {eth0(Event::interfaceDown), "interface down",
       R"("event":"interfaceDown","interface":"eth0","address":null})"},
      {eth0(Event::interfaceGone), "interface gone",
       R"("event":"interfaceGone","interface":"eth0","address":null})"},
      {ofLink(Event::addressChanged), "address changed, address 10.0.0.1",
       R"("event":"addressChanged","interface":"eth0","address":"10.0.0.1"})"},
      {takenOver(), "state of the agent before taken over, with 20000 groups",
       R"("event":"takenOver","interface":"eth0","groups":20000})"},
      {configured("queryInterval", 60.5), "configured queryInterval 60.5s",
       R"("event":"configChanged","interface":"eth0","attribute":"queryInterval",)"
       R"("valueSeconds":60.5})"},
      {configured("robustness", Mox::U64{3}), "configured robustness 3",
       R"("event":"configChanged","interface":"eth0","attribute":"robustness","value":3})"},
      {configured("sendQuery", false), "configured sendQuery off",
       R"("event":"configChanged","interface":"eth0","attribute":"sendQuery","value":false})"},
      {counters(), "counters joins 3, v2QueriesSent 7",
       R"("event":"counters","interface":"eth0","counters":{"joins":3,"v2QueriesSent":7}})"},
      {lostEvents(), "7 events were lost: the output did not take them",
       R"("event":"eventsLost","count":7})"},
      {summedEvents(), "7 more groupLeft events within a second",
       R"("event":"eventsSummed","kind":"groupLeft","count":7})"},
      {ofAgent(Event::notice, "no file"), "no file", R"("event":"notice","text":"no file"})"},
      {ofAgent(Event::agentLost, "the agent has gone"), "the agent has gone",
       R"("event":"agentLost","text":"the agent has gone"})"},
      {ofAgent(Event::agentBack, ""), "the agent is back", R"("event":"agentBack"})"},
      {ofIntake(Event::intake, "02:00:00:00:00:0b", group),
       "a new group, from 10.0.0.11 (02:00:00:00:00:0b), group 239.1.1.1; 7 so far",
       R"("event":"intake","interface":"eth0","rule":"groupLimit","sender":"10.0.0.11",)"
       R"("mac":"02:00:00:00:00:0b","group":"239.1.1.1","count":7,"text":"a new group"})"},
      {ofIntake(Event::intake, "", IpAddr()), "a new group, from 10.0.0.11; 7 so far",
       R"("event":"intake","interface":"eth0","rule":"groupLimit","sender":"10.0.0.11",)"
       R"("group":null,"count":7,"text":"a new group"})"},
      {ofIntake(Event::intakeWarning, "02:00:00:00:00:0b", IpAddr()),
       "warning: a new group: 10.0.0.11 (02:00:00:00:00:0b); 7 so far",
       R"("event":"intakeWarning","interface":"eth0","rule":"groupLimit","sender":"10.0.0.11",)"
       R"("mac":"02:00:00:00:00:0b","count":7,"text":"a new group"})"},
      {message(Event::error, "no \"luck\""), "error: no \"luck\"",
       R"("event":"error","interface":"eth0","text":"no \"luck\""})"},
  };
}

const std::vector<Form>& forms() {
  static const std::vector<Form> all = [] {
    std::vector<Form> joined = formsOfTheLink();
    const std::vector<Form> more = formsOfTheAgent();
    joined.insert(joined.end(), more.begin(), more.end());
    return joined;
  }();
  return all;
}

TEST(EventText, everyKindHasItsWords) {
  for (const Form& form : forms()) EXPECT_EQ(eventText(form.event), form.text);
}

// With a wall clock that stands still, so that each event has the same moment there.
class EventJsonTest : public testing::Test {
 protected:
  EventJsonTest() { wallClockDifferenceIs(1795268601.0); }
  ~EventJsonTest() override { wallClockDifferenceIs({}); }
};

TEST_F(EventJsonTest, everyKindHasItsKeysInTheirOrder) {
  for (const Form& form : forms()) {
    EXPECT_EQ(eventJson(form.event),
              std::string(R"({"time":12.5,"utc":"2026-11-21T13:43:33.500000Z",)") + form.json);
  }
}

TEST(EventForms, theTableAboveHoldsEveryKind) {
  for (size_t kind = 0; kind < Event::kinds; ++kind) {
    const bool there = std::any_of(forms().begin(), forms().end(), [&](const Form& form) {
      return size_t{form.event.kind} == kind;
    });
    EXPECT_TRUE(there) << "kind " << kind;
  }
}

class SinkTest : public testing::Test {
 protected:
  SinkTest() { wallClockDifferenceIs(0.0); }
  ~SinkTest() override {
    wallClockDifferenceIs({});
    std::fclose(out_);
  }
  std::string written() {
    std::string text(4096, '\0');
    std::rewind(out_);
    text.resize(std::fread(text.data(), 1, text.size(), out_));
    return text;
  }
  std::FILE* out_ = std::tmpfile();
};

TEST_F(SinkTest, theTextSinkWritesALineWithTimeAndInterface) {
  const auto sink = textEventSink(out_, [](Mox::Seconds) { return "10:15:03"; });
  sink->event(ofGroup(Event::groupLeft));
  sink->event(ofNoInterface());
  EXPECT_EQ(written(), "10:15:03  eth0  left 239.1.1.1\n10:15:03  bad source\n");
}

TEST_F(SinkTest, theJsonSinkWritesALineForEachEvent) {
  const auto sink = jsonEventSink(out_);
  sink->event(ofGroup(Event::groupLeft));
  sink->event(eth0(Event::interfaceDown));
  const std::string first = eventJson(ofGroup(Event::groupLeft));
  EXPECT_EQ(written(), first + "\n" + eventJson(eth0(Event::interfaceDown)) + "\n");
}

}  // namespace
}  // namespace Agent
