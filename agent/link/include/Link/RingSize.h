// How much memory the receive rings of links take.
//
//   FrameRing ring(link, ringSizeFor(interfaces.size()));
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include <MoxBase/Types.h>

namespace Agent {

struct RingSize {
  std::size_t bytes = 0;                      // of one ring
  std::chrono::milliseconds blockTimeout{1};  // after which a block that is not full is handed over
};

// For each of that many links; `bytes` where a size was asked for.
RingSize ringSizeFor(std::size_t links, std::optional<std::size_t> bytes = {});

// As long as the longest frame of a link with that MTU needs.
std::size_t ringBlockBytes(Mox::U32 mtu);

}  // namespace Agent
