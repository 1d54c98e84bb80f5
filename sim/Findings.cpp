#include "Findings.h"

namespace Sim {

void Counts::add(const Counts& other) {
  worlds += other.worlds;
  simulatedTime += other.simulatedTime;
  packets += other.packets;
  elections += other.elections;
  losses += other.losses;
  suppressed += other.suppressed;
  restarts += other.restarts;
  takeOvers += other.takeOvers;
  handOvers += other.handOvers;
  excused += other.excused;
  for (size_t k = 0; k < known.size(); ++k) {
    known[k] += other.known[k];
    if (knownSeed[k] == 0) knownSeed[k] = other.knownSeed[k];
  }
  for (size_t mode = 0; mode < 2; ++mode) {
    for (size_t version = 0; version < 3; ++version) {
      for (size_t type = 0; type < 6; ++type) {
        records[mode][version][type] += other.records[mode][version][type];
      }
    }
  }
  for (size_t from = 0; from < 3; ++from) {
    for (size_t to = 0; to < 3; ++to) roles[from][to] += other.roles[from][to];
  }
}

}  // namespace Sim
