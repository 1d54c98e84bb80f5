#include "FrameRing.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include "IgmpFilter.h"
#include "SocketCloser.h"

namespace Agent {

using Mox::U64;

namespace {

constexpr std::size_t leastBlocks = 2;  // one to read, one to fill

[[noreturn]] void fail(const Link& link, const std::string& what) {
  const int why = errno;
  throw std::runtime_error("cannot open interface " + link.name + ": " + what + ": " +
                           std::generic_category().message(why));
}

template <class Option>
bool setOption(int socket, int name, const Option& option) {
  return setsockopt(socket, SOL_PACKET, name, &option, sizeof(option)) == 0;
}

}  // namespace

// No protocol yet, so that nothing is received before the filter is there.
FrameRing::FrameRing(const Link& link, const RingSize& size)
    : socket_(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)),
      blockBytes_(ringBlockBytes(link.mtu)) {
  if (!socket_.isOpen()) fail(link, "packet socket");
  if (!igmpFilterIs(socket_.fd())) fail(link, "packet filter");
  map(link, size);
  try {
    watchAllGroups(link);
  } catch (...) {
    munmap(memory_.data(), memory_.size());
    throw;
  }
}

// Its memory is in use until the socket is closed.
FrameRing::~FrameRing() {
  munmap(memory_.data(), memory_.size());
  SocketCloser::ofProcess().close(std::move(socket_));
}

void FrameRing::map(const Link& link, const RingSize& size) {
  constexpr int version = TPACKET_V3;
  if (!setOption(socket_.fd(), PACKET_VERSION, version)) fail(link, "packet ring");
  const std::size_t blocks = std::max(leastBlocks, size.bytes / blockBytes_);
  constexpr unsigned frameBytes = 2048;  // counts for nothing in this version, but is checked
  tpacket_req3 request{};
  request.tp_block_size = static_cast<unsigned>(blockBytes_);
  request.tp_block_nr = static_cast<unsigned>(blocks);
  request.tp_frame_size = frameBytes;
  request.tp_frame_nr = static_cast<unsigned>(blockBytes_ / frameBytes * blocks);
  request.tp_retire_blk_tov = static_cast<unsigned>(size.blockTimeout.count());
  if (!setOption(socket_.fd(), PACKET_RX_RING, request)) fail(link, "packet ring");
  const std::size_t bytes = blocks * blockBytes_;
  void* const mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, socket_.fd(), 0);
  if (mapped == MAP_FAILED) fail(link, "packet ring");
  memory_ = {static_cast<std::byte*>(mapped), bytes};
}

// All protocols: with IPv4 alone, a packet socket does not see the frames that this machine sends.
void FrameRing::watchAllGroups(const Link& link) {
  packet_mreq membership{};
  membership.mr_ifindex = static_cast<int>(link.index);
  membership.mr_type = PACKET_MR_ALLMULTI;
  if (!setOption(socket_.fd(), PACKET_ADD_MEMBERSHIP, membership)) {
    fail(link, "cannot receive all groups");
  }
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(link.index);
  if (bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    fail(link, "packet socket");
  }
}

// The kernel begins to count anew each time.
U64 FrameRing::lost() {
  tpacket_stats_v3 counted{};
  socklen_t size = sizeof(counted);
  if (getsockopt(socket_.fd(), SOL_PACKET, PACKET_STATISTICS, &counted, &size) == 0) {
    lost_ += counted.tp_drops;
  }
  return lost_;
}

int FrameRing::error() {
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(socket_.fd(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
  return error;
}

}  // namespace Agent
