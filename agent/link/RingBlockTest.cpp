#include "RingBlock.h"

#include <vector>

#include <gtest/gtest.h>

#include "RingMemory.h"

namespace Agent {
namespace {

using Mox::U8;
using Bytes = std::vector<U8>;

Bytes bytesOf(const RingFrame& frame) { return {frame.bytes.begin(), frame.bytes.end()}; }

size_t framesIn(RingMemory& memory) {
  RingBlock block(memory.memory());
  size_t count = 0;
  for (RingFrame frame; block.nextFrame(frame);) ++count;
  return count;
}

TEST(RingBlock, isReadyOnceTheKernelHandedItOver) {
  RingMemory memory;
  memory.add({.bytes = {1, 2, 3}});
  EXPECT_FALSE(RingBlock(memory.memory()).isReady());
  EXPECT_EQ(framesIn(memory), 0u);
  memory.handOver();
  EXPECT_TRUE(RingBlock(memory.memory()).isReady());
  EXPECT_EQ(framesIn(memory), 1u);
}

TEST(RingBlock, holdsFramesOfVariableLengthInTheirOrder) {
  RingMemory memory;
  memory.add({.bytes = {1, 2, 3}});
  memory.add({.bytes = Bytes(1500, 4), .outgoing = true});
  memory.add({.bytes = {5}});
  memory.handOver();
  RingBlock block(memory.memory());
  RingFrame frame;
  ASSERT_TRUE(block.nextFrame(frame));
  EXPECT_EQ(bytesOf(frame), (Bytes{1, 2, 3}));
  EXPECT_FALSE(frame.outgoing);
  ASSERT_TRUE(block.nextFrame(frame));
  EXPECT_EQ(bytesOf(frame), Bytes(1500, 4));
  EXPECT_TRUE(frame.outgoing);
  ASSERT_TRUE(block.nextFrame(frame));
  EXPECT_EQ(bytesOf(frame), (Bytes{5}));
  EXPECT_FALSE(frame.outgoing);
  EXPECT_FALSE(block.nextFrame(frame));
}

TEST(RingBlock, isAsOldAsItsFirstFrame) {
  RingMemory memory;
  memory.add({.bytes = {1}});
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  memory.header().ts_first_pkt.ts_sec = static_cast<Mox::U32>(now.tv_sec - 100);
  memory.header().ts_first_pkt.ts_nsec = static_cast<Mox::U32>(now.tv_nsec);
  memory.handOver();
  EXPECT_GE(RingBlock(memory.memory()).age(), 99.9);
  memory.header().ts_first_pkt.ts_sec += 200;  // the clock was set back meanwhile
  EXPECT_LT(RingBlock(memory.memory()).age(), 0.0);
}

TEST(RingBlock, goesBackToTheKernelWhenItIsReleased) {
  RingMemory memory;
  memory.handOver();
  RingBlock block(memory.memory());
  block.release();
  EXPECT_FALSE(block.isReady());
  EXPECT_EQ(memory.header().block_status, static_cast<Mox::U32>(TP_STATUS_KERNEL));
}

TEST(RingBlock, readsTheVlanOfATagThatTheKernelTookOut) {
  RingMemory memory;
  memory.add({.bytes = {1}, .tagged = true, .tag = 0xe007});
  memory.add({.bytes = {1}, .tagged = true, .tag = 0xe000});
  memory.add({.bytes = {1}, .tagged = false, .tag = 0xe007});
  memory.handOver();
  RingBlock block(memory.memory());
  std::vector<int> vlans;
  for (RingFrame frame; block.nextFrame(frame);) vlans.push_back(frame.vlan);
  EXPECT_EQ(vlans, (std::vector<int>{7, 0, 0}));
}

TEST(RingBlock, marksAFrameThatHadNoPlaceInIt) {
  RingMemory memory;
  memory.add({.bytes = {1, 2}, .missing = 3});
  memory.handOver();
  RingBlock block(memory.memory());
  RingFrame frame;
  ASSERT_TRUE(block.nextFrame(frame));
  EXPECT_TRUE(frame.cut);
}

TEST(RingBlock, readsNothingOutsideItsMemory) {
  RingMemory memory;
  memory.add({.bytes = {1, 2}});
  memory.handOver();
  memory.lastFrame().tp_snaplen = RingMemory::blockBytes;
  memory.lastFrame().tp_len = RingMemory::blockBytes;
  RingBlock block(memory.memory());
  RingFrame frame;
  ASSERT_TRUE(block.nextFrame(frame));
  EXPECT_TRUE(frame.bytes.empty());
  EXPECT_TRUE(frame.cut);
}

TEST(RingBlock, endsWhereTheNextFrameWouldLieOutsideOfIt) {
  RingMemory memory;
  memory.add({.bytes = {1, 2}});
  memory.handOver();
  memory.header().num_pkts = 2;
  memory.lastFrame().tp_next_offset = RingMemory::blockBytes;
  EXPECT_EQ(framesIn(memory), 1u);
}

}  // namespace
}  // namespace Agent
