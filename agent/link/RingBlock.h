// One block of a packet socket's receive ring (version 3): frames of variable length, in memory
// that the kernel fills and hands over as a whole.
//
//   RingBlock block(memory);
//   if (!block.isReady()) return;
//   for (RingFrame frame; block.nextFrame(frame);) use(frame);
//   block.release();  // the kernel may fill it again
#pragma once

#include <cstddef>
#include <span>

#include <MoxBase/Types.h>

namespace Agent {

struct RingFrame {
  std::span<const Mox::U8> bytes;  // Ethernet, without the VLAN tag that the kernel took out
  Mox::U16 vlan = 0;               // of that tag; 0 for none, and for a tag with a priority only
  bool outgoing = false;           // sent by this machine
  bool cut = false;                // not all of it is here
};

class RingBlock {
 public:
  // Aligned for the kernel's descriptors, as mapped memory is.
  explicit RingBlock(std::span<std::byte> memory);

  bool isReady() const;
  // How long its first frame has been waiting; of a block that is ready.
  Mox::Seconds age() const;
  // False at the end of the block. The frame is valid until the block is released.
  bool nextFrame(RingFrame& frame);
  void release();

 private:
  std::span<std::byte> memory_;
  Mox::U32 left_;     // frames that nextFrame has not returned
  std::size_t next_;  // where the first of them begins
};

}  // namespace Agent
