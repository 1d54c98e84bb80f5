// For tests: a block of a packet ring, as the kernel lays it out.
//
//   RingMemory block;
//   block.add({.bytes = frame, .outgoing = true});
//   block.handOver();
#pragma once

#include <cstring>
#include <span>
#include <vector>

#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include <MoxBase/Types.h>

namespace Agent {

class RingMemory {
 public:
  struct Frame {
    std::vector<Mox::U8> bytes;
    bool outgoing = false;
    bool tagged = false;
    Mox::U32 tag = 0;      // priority and VLAN, where it is tagged
    Mox::U32 missing = 0;  // bytes that had no place
  };

  RingMemory() { header().offset_to_first_pkt = first; }

  void add(const Frame& frame) {
    if (header().num_pkts != 0) at<tpacket3_hdr>(last_).tp_next_offset = next_ - last_;
    last_ = next_;
    tpacket3_hdr& about = at<tpacket3_hdr>(last_);
    const auto bytes = static_cast<Mox::U32>(frame.bytes.size());
    about.tp_snaplen = bytes;
    about.tp_len = bytes + frame.missing;
    about.tp_mac = frameAt;
    about.tp_status = TP_STATUS_USER | (frame.tagged ? TP_STATUS_VLAN_VALID : 0);
    about.hv1.tp_vlan_tci = frame.tag;
    at<sockaddr_ll>(last_ + TPACKET_ALIGN(sizeof(tpacket3_hdr))).sll_pkttype =
        frame.outgoing ? PACKET_OUTGOING : PACKET_MULTICAST;
    std::memcpy(&at<Mox::U8>(last_ + frameAt), frame.bytes.data(), bytes);
    next_ += TPACKET_ALIGN(frameAt + bytes);
    ++header().num_pkts;
  }
  void handOver() { header().block_status = TP_STATUS_USER; }

  tpacket_hdr_v1& header() { return at<tpacket_block_desc>(0).hdr.bh1; }
  tpacket3_hdr& lastFrame() { return at<tpacket3_hdr>(last_); }
  std::span<std::byte> memory() {
    return {reinterpret_cast<std::byte*>(words_.data()), blockBytes};
  }

  static constexpr size_t blockBytes = 4096;

 private:
  static constexpr Mox::U32 first = 48;
  static constexpr Mox::U32 frameAt = 82;

  template <class T>
  T& at(size_t offset) {
    return *reinterpret_cast<T*>(memory().data() + offset);
  }

  std::vector<Mox::U64> words_ = std::vector<Mox::U64>(blockBytes / sizeof(Mox::U64));
  Mox::U32 last_ = 0;
  Mox::U32 next_ = first;
};

}  // namespace Agent
