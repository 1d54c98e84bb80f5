#include "Report.h"

#include <fmt/format.h>

namespace Sim {

namespace {

constexpr std::array filterModes{"EXCLUDE", "INCLUDE"};
constexpr std::array recordTypes{"IS_IN", "IS_EX", "TO_IN", "TO_EX", "ALLOW", "BLOCK"};

// RFC 3376 6.4 and 7.3.2: each row of the table, in each compatibility mode.
std::string recordsText(const Counts& counts) {
  std::string missing;
  unsigned reached = 0;
  for (size_t mode = 0; mode < 2; ++mode) {
    for (size_t version = 0; version < 3; ++version) {
      for (size_t type = 0; type < 6; ++type) {
        if (counts.records[mode][version][type] != 0) {
          ++reached;
          continue;
        }
        missing += fmt::format("\n  not reached: {} in {} mode, hosts of version {}",
                               recordTypes[type], filterModes[mode], version + 1);
      }
    }
  }
  return fmt::format("rows of the record table {} of 36{}\n", reached, missing);
}

std::string rolesText(const Counts& counts) {
  const auto row = [&](const char* text, U64 count) {
    return fmt::format("  {} {}\n", text, count);
  };
  return "changes of the role\n" + row("initial to querier", counts.roles[0][1]) +
         row("querier to non-querier", counts.roles[1][2]) +
         row("non-querier to querier", counts.roles[2][1]) + row("hand-overs", counts.handOvers);
}

std::string knownText(const Counts& counts) {
  std::string text = "recognised by rule, with the first seed\n";
  for (size_t at = 0; at < knownNames.size(); ++at) {
    if (counts.known[at] == 0) continue;
    text += fmt::format("  {} {} ({})\n", knownNames[at], counts.known[at], counts.knownSeed[at]);
  }
  return text;
}

}  // namespace

std::string textOf(const Breach& breach) {
  return fmt::format("{} at {:.4f}: {}", invariantNames[static_cast<size_t>(breach.invariant)],
                     breach.time, breach.text);
}

std::string textOf(const Counts& counts) {
  return recordsText(counts) + rolesText(counts) + knownText(counts) +
         fmt::format(
             "worlds {}, simulated {:.0f} s, packets into queriers {}, elections {}, losses {}, "
             "restarts {}, on kept state {}, answers suppressed {}, forgotten after losses {}\n",
             counts.worlds, counts.simulatedTime, counts.packets, counts.elections, counts.losses,
             counts.restarts, counts.takeOvers, counts.suppressed, counts.excused);
}

}  // namespace Sim
