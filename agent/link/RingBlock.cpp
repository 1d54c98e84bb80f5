#include "RingBlock.h"

#include <atomic>
#include <ctime>

#include <linux/if_ether.h>
#include <linux/if_packet.h>

namespace Agent {

using Mox::U16;
using Mox::U32;
using Mox::U8;

namespace {

constexpr U16 vlanIdMask = 0x0fff;

tpacket_hdr_v1& headerOf(std::span<std::byte> memory) {
  return reinterpret_cast<tpacket_block_desc*>(memory.data())->hdr.bh1;
}

template <class T>
const T* at(std::span<std::byte> memory, std::size_t offset) {
  if (offset > memory.size() || memory.size() - offset < sizeof(T)) return nullptr;
  return reinterpret_cast<const T*>(memory.data() + offset);
}

std::span<const U8> bytesOf(std::span<std::byte> memory, std::size_t offset, std::size_t length) {
  if (offset > memory.size() || memory.size() - offset < length) return {};
  return {reinterpret_cast<const U8*>(memory.data()) + offset, length};
}

}  // namespace

RingBlock::RingBlock(std::span<std::byte> memory)
    : memory_(memory),
      left_(isReady() ? headerOf(memory).num_pkts : 0),
      next_(left_ != 0 ? headerOf(memory).offset_to_first_pkt : 0) {}

// The status is written last by the side that hands the block over.
bool RingBlock::isReady() const {
  const std::atomic_ref<U32> status(headerOf(memory_).block_status);
  return (status.load(std::memory_order_acquire) & TP_STATUS_USER) != 0;
}

// Frames bear the time of the wall clock.
Mox::Seconds RingBlock::age() const {
  const tpacket_bd_ts& first = headerOf(memory_).ts_first_pkt;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<Mox::Seconds>(now.tv_sec - time_t{first.ts_sec}) +
         (static_cast<Mox::Seconds>(now.tv_nsec) - static_cast<Mox::Seconds>(first.ts_nsec)) * 1e-9;
}

bool RingBlock::nextFrame(RingFrame& frame) {
  const auto* const header = left_ == 0 ? nullptr : at<tpacket3_hdr>(memory_, next_);
  const auto* const address = at<sockaddr_ll>(memory_, next_ + TPACKET_ALIGN(sizeof(tpacket3_hdr)));
  if (header == nullptr || address == nullptr) return false;
  const bool tagged = (header->tp_status & TP_STATUS_VLAN_VALID) != 0;
  frame.bytes = bytesOf(memory_, next_ + header->tp_mac, header->tp_snaplen);
  frame.vlan = tagged ? static_cast<U16>(header->hv1.tp_vlan_tci & vlanIdMask) : U16{0};
  frame.outgoing = address->sll_pkttype == PACKET_OUTGOING;
  frame.cut = frame.bytes.size() < header->tp_len;
  --left_;
  next_ += header->tp_next_offset;
  return true;
}

void RingBlock::release() {
  const std::atomic_ref<U32> status(headerOf(memory_).block_status);
  status.store(TP_STATUS_KERNEL, std::memory_order_release);
}

}  // namespace Agent
