// For any packets at any time: timers settle, and in the end and before a restart all invariants of
// a querier hold. RxPktWorld.h describes the input; RxPktOracleFuzz requires more of it, and takes
// longer.
#include <cstddef>
#include <cstdint>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>

#include "RxPktWorld.h"

namespace {

using Ilvo::IpAddr;
using Mox::U32;
using Mox::U8;

class World final : public Fuzz::RxPktWorld {
 public:
  explicit World(U8 setup) : RxPktWorld(setup, false) {}

 private:
  void receive(const std::vector<U8>& packet) override {
    const IpAddr group = groupOf(packet);
    const bool known = querier().groupSm(group) != nullptr;
    const U32 before = queries();
    querier().doRxPkt(Mox::makePtr<Ilvo::Pkt>(std::span<const U8>(packet)));
    if (!known && queries() != before) invariants().bornOfQuery(group);
  }

  U32 queries() const {
    return status().v1QueriesReceived() + status().v2QueriesReceived() +
           status().v3QueriesReceived();
  }

  // That of an IGMP query; anything else for other packets.
  static IpAddr groupOf(const std::vector<U8>& packet) {
    const std::size_t at = packet.empty() ? 0 : (packet[0] & 0x0fU) * std::size_t{4} + 4;
    if (packet.size() < at + 4) return {};
    return {packet[at], packet[at + 1], packet[at + 2], packet[at + 3]};
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int stepsMost = 24;  // a small world: more of them take longer, and reach little more
  Fuzz::Bytes input(data, size);
  Mox::virtualTimeIs(World::begin);
  World world(input.u8());
  world.steps(input, stepsMost);
  return 0;
}
