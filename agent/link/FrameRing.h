// The receive ring of one link: the IGMP frames that pass it in both directions, for any group, in
// memory that is shared with the kernel.
//
// One packet socket has the ring, the filter and the membership in all groups. Frames are not
// copied; their memory goes back to the kernel block by block. A block is handed over when it is
// full, or when its timeout has passed since it was begun. Needs CAP_NET_RAW.
//
//   FrameRing ring(link, {.bytes = 4 << 20});
//   while (ring.readBlock([&](const RingFrame& frame) { ... })) {}
#pragma once

#include <span>

#include <Link/LinkTable.h>
#include <Link/RingSize.h>
#include <Local/Descriptor.h>
#include <MoxBase/Types.h>
#include "RingBlock.h"

namespace Agent {

class FrameRing {
 public:
  // Throws std::runtime_error when the interface cannot be opened.
  FrameRing(const Link& link, const RingSize& size);
  ~FrameRing();
  FrameRing(const FrameRing&) = delete;
  FrameRing& operator=(const FrameRing&) = delete;

  // Readable when a block is ready.
  int fd() const { return socket_.fd(); }
  std::size_t blocks() const { return memory_.size() / blockBytes_; }

  // Calls use(frame) for each frame of the next block; false when none is ready.
  template <class Use>
  bool readBlock(Use&& use) {
    RingBlock block(nextBlock());
    if (!block.isReady()) return false;
    for (RingFrame frame; block.nextFrame(frame);) use(frame);
    block.release();
    next_ = (next_ + 1) % blocks();
    return true;
  }

  // How long the next frame has been waiting; 0 when no block is ready.
  Mox::Seconds backlog() const {
    const RingBlock block(nextBlock());
    return block.isReady() ? block.age() : 0.0;
  }
  // Frames that found no place in the ring, since it was opened.
  Mox::U64 lost();
  // The error that the socket reports, which is taken from it; 0 for none.
  int error();

 private:
  std::span<std::byte> nextBlock() const {
    return memory_.subspan(next_ * blockBytes_, blockBytes_);
  }
  void map(const Link& link, const RingSize& size);
  void watchAllGroups(const Link& link);

  Descriptor socket_;
  std::size_t blockBytes_;
  std::span<std::byte> memory_;  // mapped
  std::size_t next_ = 0;         // the block that the kernel hands over next
  Mox::U64 lost_ = 0;
};

}  // namespace Agent
