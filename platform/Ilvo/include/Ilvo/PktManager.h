// The source of packets to be sent. An allocation can fail, and a test can make it fail, so that
// the behaviour of a querier without a packet is tested.
//
//   Ptr<Pkt> pkt = pktManager().pkt(12);
//   if (!pkt) return;
#pragma once

#include <cstddef>

#include <Ilvo/Pkt.h>
#include <Ilvo/Types.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>

namespace Ilvo {

class MOX_PUBLIC PktManager {
 public:
  // An empty packet with room in front; null when there is no memory, or a failure was asked for.
  Mox::Ptr<Pkt> pkt(std::size_t headroom);

  // The next n allocations fail.
  void failuresIs(U32 n) { failures_ = n; }

 private:
  U32 failures_ = 0;
};

// The one manager of the process; for its single event thread.
MOX_PUBLIC PktManager& pktManager();

}  // namespace Ilvo
