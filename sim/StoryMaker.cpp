// Stories from seeds: a few kinds of network, and what happens in them.
#include <algorithm>
#include <cmath>

#include "Story.h"

namespace Sim {

namespace {

class StoryMaker {
 public:
  explicit StoryMaker(U64 seed) : random_(seed, 1), kills_(seed, 2) { story_.seed = seed; }

  Story makeWithKills() {
    make();
    makeKills();
    std::ranges::stable_sort(story_.lines, {}, &Line::time);
    return story_;
  }

  Story make() {
    makeVersions();
    makeSettings();
    makeNodes();
    makeLines();
    std::ranges::stable_sort(story_.lines, {}, &Line::time);
    return story_;
  }

 private:
  template <class T>
  T oneOf(std::initializer_list<T> values) {
    return values.begin()[random_.below(static_cast<unsigned>(values.size()))];
  }
  // Times are in milliseconds, so that the text of a story has all of them.
  Seconds rounded(Seconds time) const { return std::round(time * 1000) / 1000; }

  void makeVersions() {
    const unsigned hosts = 1 + random_.below(random_.chance(0.8) ? 4 : 10);
    const bool older = random_.chance(0.4);
    for (unsigned h = 0; h < hosts; ++h) {
      story_.hosts.push_back(older ? 1 + random_.below(3) : 3);
    }
    settings_.version = random_.chance(0.6) ? 3 : random_.chance(0.9) ? 2 : 1;
    hasVersionOne_ = settings_.version == 1 || std::ranges::count(story_.hosts, 1U) != 0;
  }

  // The settings of RFC 3376 8: the response interval is below the query interval, and what hosts
  // of version 1 take for it where there are any.
  void makeSettings() {
    settings_.queryInterval = oneOf({10.0, 20.0, 30.0, 60.0, 125.0});
    settings_.queryResponseInterval = oneOf({1.0, 2.5, 5.0});
    if (hasVersionOne_) settings_.queryInterval = std::max(settings_.queryInterval, 20.0);
    if (hasVersionOne_ || (settings_.queryInterval > 10 && random_.chance(0.3))) {
      settings_.queryResponseInterval = 10;
    }
    settings_.robustness = oneOf({1.0, 2.0, 2.0, 2.0, 3.0});
    settings_.startupQueryCount = settings_.robustness;
    settings_.startupQueryInterval = settings_.queryInterval / 4;
    settings_.lastMemberQueryInterval = oneOf({0.5, 1.0, 1.0, 2.0});
    settings_.lastMemberQueryCount = settings_.robustness;
  }

  Ilvo::IpAddr freeAddress() {
    for (;;) {
      const Ilvo::IpAddr addr(10, 0, 0, static_cast<U8>(1 + random_.below(190)));
      if (std::ranges::find(addresses_, addr) != addresses_.end()) continue;
      addresses_.push_back(addr);
      return addr;
    }
  }

  void makeNodes() {
    const unsigned routers = random_.chance(0.8) ? 2 + random_.below(2) : 2 + random_.below(7);
    for (unsigned r = 0; r < routers; ++r) story_.routers.push_back({freeAddress(), settings_});
    groups_ = 1 + random_.below(groupsMost);
  }

  void makeLines() {
    const unsigned lines = 3 + random_.below(random_.chance(0.8) ? 15 : 60);
    const double upset = oneOf({0.0, 0.1, 0.4});
    const bool lossy = random_.chance(0.6);
    const Seconds pace = oneOf({0.5, 3.0, 20.0});
    Seconds time = 0.0;
    makeLink(0.0, lossy);
    for (unsigned l = 0; l < lines; ++l) {
      time = rounded(time - pace * std::log(1.0 - random_.unit()));
      if (random_.chance(0.1)) time = rounded(time + settings_.groupMembershipInterval());
      if (random_.chance(upset)) {
        makeUpset(time);
      } else if (random_.chance(0.05)) {
        makeLink(time, lossy);
      } else {
        makeWant(time);
      }
    }
  }

  void add(const Line& line) { story_.lines.push_back(line); }

  void makeLink(Seconds time, bool lossy) {
    Lan::Quality quality;
    if (lossy) {
      quality.loss = rounded(oneOf({0.0, 0.05, 0.2, 0.5}));
      quality.duplicate = oneOf({0.0, 0.0, 0.1});
    }
    const Seconds most =
        std::min(settings_.lastMemberQueryInterval, settings_.queryResponseInterval / 2);
    quality.mostDelay = oneOf({0.001, 0.01, 0.1, 0.4 * most});
    add({.time = time, .verb = Line::link, .quality = quality});
  }

  void makeWant(Seconds time) {
    const Node host = random_.below(static_cast<unsigned>(story_.hosts.size()));
    if (random_.chance(0.05)) {
      add({.time = time, .verb = Line::hostCrash, .node = host});
      return;
    }
    Mask channels = 0;
    if (random_.chance(0.6)) channels = story_.hosts[host] < 3 ? wholeGroup : 1 + random_.below(15);
    add({.time = time,
         .verb = Line::want,
         .node = host,
         .group = random_.below(groups_),
         .channels = channels});
  }

  // For a while something else is there; then it is as before.
  void pass(Seconds time, Line line, Line::Verb back, Seconds most) {
    line.time = time;
    add(line);
    line.time = rounded(time + random_.between(0.0, most));
    line.verb = back;
    add(line);
  }

  void makeUpset(Seconds time) {
    const Node router = random_.below(static_cast<unsigned>(story_.routers.size()));
    const Seconds while_ = 2 * settings_.groupMembershipInterval();
    switch (random_.below(8)) {
      case 0: return pass(time, {.verb = Line::crash, .node = router}, Line::start, while_);
      case 1: return pass(time, {.verb = Line::down, .node = router}, Line::up, while_);
      case 2: return pass(time, {.verb = Line::stop, .node = router}, Line::resume, while_ / 4);
      case 3:
        return add({.time = time, .verb = Line::address, .node = router, .addr = freeAddress()});
      case 4:
      case 5: return makeCut(time, while_);
      case 6: return makeSet(time, Line::everyRouter);
      case 7: return makeSet(time, random_.chance(0.3) ? router : Line::everyRouter);
    }
  }

  void makeCut(Seconds time, Seconds most) {
    Line line{.time = time, .verb = Line::cut};
    for (size_t n = 0; n < story_.routers.size() + story_.hosts.size(); ++n) {
      line.name += random_.chance(0.5) ? '1' : '0';
    }
    add(line);
    add({.time = rounded(time + random_.between(0.0, most)), .verb = Line::cut, .name = "0"});
  }

  void makeSet(Seconds time, Node router) {
    struct Choice {
      const char* name;
      double value;
    };
    const Choice choice =
        oneOf({Choice{"queryInterval", oneOf({10.0, 20.0, 40.0, 100.0})},
               Choice{"queryResponseInterval", hasVersionOne_ ? 10.0 : oneOf({1.0, 5.0})},
               Choice{"robustness", oneOf({2.0, 3.0})}, Choice{"version", oneOf({2.0, 3.0})},
               Choice{"lastMemberQueryInterval", oneOf({0.5, 1.0, 2.0})},
               Choice{"lastMemberQueryCount", oneOf({0.0, 2.0, 3.0})},
               Choice{"sendQuery", oneOf({0.0, 1.0})}});
    add({.time = time,
         .verb = Line::set,
         .node = router,
         .name = choice.name,
         .value = choice.value});
  }

  // From a moment between two frames to longer than any member is known; often twice in a row.
  void makeKills() {
    const Seconds end = story_.lines.back().time;
    const unsigned kills = 4 + kills_.below(13);
    for (unsigned k = 0; k < kills; ++k) {
      const Node router = kills_.below(static_cast<unsigned>(story_.routers.size()));
      const Seconds longest = 2 * settings_.groupMembershipInterval();
      Seconds time = rounded(kills_.between(0.0, end));
      const unsigned row = kills_.chance(0.3) ? 2 : 1;
      for (unsigned at = 0; at < row; ++at) {
        const Seconds away = longest * std::pow(kills_.unit(), 4);
        add({.time = time, .verb = Line::kill, .node = router});
        time = rounded(time + away + 0.001);
        add({.time = time, .verb = Line::start, .node = router});
        time = rounded(time + kills_.between(0.0, 0.1));
      }
    }
  }

  Random random_;
  Random kills_;  // of its own, so that the rest of the story is the same
  Story story_;
  Settings settings_;
  std::vector<Ilvo::IpAddr> addresses_;
  bool hasVersionOne_ = false;
  unsigned groups_ = 1;
};

}  // namespace

Story makeStory(U64 seed) { return StoryMaker(seed).make(); }

Story makeKillStory(U64 seed) { return StoryMaker(seed).makeWithKills(); }

}  // namespace Sim
