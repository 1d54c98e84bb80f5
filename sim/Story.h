// The story of a world as text, one line an event, so that it can be kept, shortened and repeated:
//
//   seed 7
//   router 10.0.0.9 version=3 queryInterval=20
//   host 2
//   12.5 want h0 g1 all-s0,s2
//   40 crash r0
//
// Times are seconds from the beginning. Lines are carried out in the order of their times. Which
// draws the link, the hosts and the queriers make follows from the seed.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "Lan.h"
#include "Settings.h"

namespace Sim {

struct Line {
  enum Verb : U8 {
    want,       // a host wants these channels of a group from now on
    hostCrash,  // a host ends without a word
    crash,      // a router ends with its state
    kill,       // it ends, and a store has its state
    start,      // it begins again, with what is kept of it
    down,       // its interface goes down; the state stays
    up,
    stop,  // its process does not run for a while
    resume,
    address,  // it has another address from now on
    set,      // a setting of a router or, with node = everyRouter, of all
    link,     // the quality of the link
    cut,      // the parts of the link, a digit a node; 0 for one part
  };
  static constexpr Node everyRouter = 99;

  Seconds time = 0.0;
  Verb verb = want;
  Node node = 0;
  unsigned group = 0;
  Mask channels = 0;
  Ilvo::IpAddr addr = {};
  std::string name = {};
  double value = 0.0;
  Lan::Quality quality = {};
};

struct Story {
  struct RouterSetup {
    Ilvo::IpAddr address = {};
    Settings settings = {};
  };

  U64 seed = 1;
  std::vector<RouterSetup> routers = {};
  std::vector<unsigned> hosts = {};  // the version of each
  std::vector<Line> lines = {};
};

class StoryError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

std::string textOf(const Line& line);
std::string textOf(const Story& story);
// Throws a StoryError that names the line.
Story storyOf(const std::string& text);

// A story that follows from its seed.
Story makeStory(U64 seed);
// The same, in which routers are killed and begin again many times.
Story makeKillStory(U64 seed);

}  // namespace Sim
