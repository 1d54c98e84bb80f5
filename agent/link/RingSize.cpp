#include <Link/RingSize.h>

#include <algorithm>
#include <bit>

#include <linux/if_packet.h>
#include <unistd.h>

#include <Link/Ethernet.h>

namespace Agent {

namespace {

constexpr std::size_t mostBytes = std::size_t{4} << 20;
constexpr std::size_t bytesOfAll = std::size_t{64} << 20;
constexpr std::size_t leastBytes = std::size_t{64} << 10;
constexpr std::size_t linksAtShortestTimeout = 64;

}  // namespace

// The kernel looks at each ring whenever its block timeout passes, also at one that is empty: a
// thousand rings with a timeout of 1 ms took half a processor.
RingSize ringSizeFor(std::size_t links, std::optional<std::size_t> bytes) {
  const std::size_t count = std::max<std::size_t>(links, 1);
  const std::size_t share = std::clamp(bytesOfAll / count, leastBytes, mostBytes);
  const std::size_t timeout = (count + linksAtShortestTimeout - 1) / linksAtShortestTimeout;
  return {.bytes = bytes.value_or(share), .blockTimeout = std::chrono::milliseconds(timeout)};
}

// Blocks are powers of two, as the kernel takes them from its pages without a rest. Small ones: a
// timeout uses up a whole block, whatever is in it. Where packets are few, the number of blocks is
// the number of timeouts for which a ring holds them while this process does not run.
std::size_t ringBlockBytes(Mox::U32 mtu) {
  constexpr std::size_t overhead = sizeof(tpacket_block_desc) + TPACKET3_HDRLEN +
                                   2 * TPACKET_ALIGNMENT + ethernetHeaderBytes + 2 * vlanTagBytes;
  const auto pageBytes = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return std::bit_ceil(std::max(pageBytes, overhead + mtu));
}

}  // namespace Agent
