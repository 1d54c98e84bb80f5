// The packets of a batch between a port and its querier: copies in memory that the next batch uses
// again, so that a packet costs no allocation. The queriers of a host share one, since each handles
// its batch before another port begins one.
//
//   batch.add(packet);  // for each packet
//   for (ReceivedBatch::Received& each : batch.packets()) querier->doRxPkt(each.pkt);
//   batch.clear();
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include <Ilvo/Pkt.h>
#include <Intake/PacketView.h>
#include <Link/FramePort.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Agent {

class ReceivedBatch {
 public:
  struct Received {
    Mox::Ptr<Ilvo::Pkt> pkt = Mox::makePtr<Ilvo::Pkt>();
    std::array<Mox::U8, 2 * PacketView::macBytes> macs{};  // as the frame begins, where it has them
    bool hasMacs = false;
  };

  void add(const RxPacket& packet) {
    if (count_ == kept_.size()) kept_.emplace_back();
    Received& received = kept_[count_++];
    received.pkt->bytesIs(packet.packet);
    received.hasMacs = packet.frame.size() >= received.macs.size();
    if (!received.hasMacs) return;
    std::copy_n(packet.frame.begin(), received.macs.size(), received.macs.begin());
  }
  std::span<Received> packets() { return std::span(kept_).first(count_); }
  void clear() { count_ = 0; }

 private:
  std::vector<Received> kept_;
  size_t count_ = 0;
};

}  // namespace Agent
