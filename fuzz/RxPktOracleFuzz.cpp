// For any packets at any time: between two of them all invariants of a querier hold, and each
// packet changes the counters that follow from its bytes. RxPktWorld.h describes the input.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>

#include "RxPktOracle.h"
#include "RxPktWorld.h"

namespace {

using Gmp::Igmp::testing::ReceiveCounters;
using Mox::U8;

class World final : public Fuzz::RxPktWorld {
 public:
  explicit World(U8 setup) : RxPktWorld(setup, true) {}

 private:
  void receive(const std::vector<U8>& packet) override {
    const Fuzz::Verdict verdict = Fuzz::judge(packet, rules(), querier());
    const bool known = querier().groupSm(verdict.asked) != nullptr;
    const ReceiveCounters before = Gmp::Igmp::testing::receiveCountersOf(status());
    querier().doRxPkt(Mox::makePtr<Ilvo::Pkt>(std::span<const U8>(packet)));
    const ReceiveCounters moves =
        difference(Gmp::Igmp::testing::receiveCountersOf(status()), before);
    if (moves != verdict.moves) {
      Fuzz::property(
          false, "counted: " + textOf(moves) + "; should have counted: " + textOf(verdict.moves));
    }
    if (!known && querier().groupSm(verdict.asked)) invariants().bornOfQuery(verdict.asked);
    for (const Ilvo::IpAddr group : verdict.reported) invariants().reported(group);
    requireInvariants();
  }

  static ReceiveCounters difference(const ReceiveCounters& a, const ReceiveCounters& b) {
    return {a.v1Queries - b.v1Queries,  a.v2Queries - b.v2Queries, a.v3Queries - b.v3Queries,
            a.v1Reports - b.v1Reports,  a.v2Reports - b.v2Reports, a.leaves - b.leaves,
            a.v3Reports - b.v3Reports,  a.errors - b.errors,       a.others - b.others,
            a.atBoundary - b.atBoundary};
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int stepsMost = 256;
  Fuzz::Bytes input(data, size);
  Mox::virtualTimeIs(World::begin);
  World world(input.u8());
  world.steps(input, stepsMost);
  return 0;
}
