// The world's own chance, which repeats from its seed on every machine. The routers draw from
// drand48, so that neither disturbs the other.
//
//   Random random(seed, 7);  // another sequence for each number
//   if (random.chance(0.1)) lose();
#pragma once

#include <MoxBase/Types.h>

namespace Sim {

class Random {
 public:
  explicit Random(Mox::U64 seed, Mox::U64 number = 0) : state_(seed * 0x9e3779b97f4a7c15U) {
    state_ = next() ^ (number * 0xd1342543de82ef95U);
    next();
  }

  // Steele, Lea, Flood: "Fast splittable pseudorandom number generators", 2014.
  Mox::U64 next() {
    Mox::U64 z = state_ += 0x9e3779b97f4a7c15U;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9U;
    z = (z ^ z >> 27) * 0x94d049bb133111ebU;
    return z ^ z >> 31;
  }
  // In [0, 1).
  double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }
  double between(double least, double most) { return least + (most - least) * unit(); }
  // In [0, count).
  unsigned below(unsigned count) { return static_cast<unsigned>(next() % count); }
  bool chance(double probability) { return unit() < probability; }

 private:
  Mox::U64 state_;
};

}  // namespace Sim
