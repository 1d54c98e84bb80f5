#include "ReceivedBatch.h"

#include <cstdlib>
#include <new>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace {
size_t allocations = 0;
}  // namespace

// Of the whole program, in order to count. Inlined, they would be a mismatch to the compiler.
[[gnu::noinline]] void* operator new(size_t bytes) {
  ++allocations;
  if (void* const memory = std::malloc(bytes)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  ++allocations;
  return std::malloc(bytes);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::ElementsAre;
using testing::ElementsAreArray;

using ReceivedPackets = std::vector<std::vector<Mox::U8>>;

ReceivedPackets contentOf(ReceivedBatch& batch) {
  ReceivedPackets all;
  for (const auto& each : batch.packets()) {
    all.emplace_back(each.pkt->data().begin(), each.pkt->data().end());
  }
  return all;
}

TEST(ReceivedBatch, holdsThePacketsSinceItWasCleared) {
  ReceivedBatch batch;
  const std::vector<Mox::U8> first(1000, 1);
  const std::vector<Mox::U8> second{2, 3};
  batch.add({.frame = {}, .packet = first});
  batch.add({.frame = {}, .packet = second});
  EXPECT_THAT(contentOf(batch), ElementsAre(first, second));
  batch.packets()[0].pkt->frontOffsetInc(20);
  batch.clear();
  EXPECT_THAT(contentOf(batch), ElementsAre());
  batch.add({.frame = {}, .packet = second});
  EXPECT_THAT(contentOf(batch), ElementsAre(second));
}

TEST(ReceivedBatch, knowsTheAddressesOfFramesThatHaveThem) {
  ReceivedBatch batch;
  const std::vector<Mox::U8> frame{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 8, 0, 0x46};
  batch.add({.frame = frame, .packet = std::span(frame).subspan(14)});
  batch.clear();
  batch.add({.frame = {}, .packet = frame});
  EXPECT_FALSE(batch.packets()[0].hasMacs);
  batch.clear();
  batch.add({.frame = frame, .packet = std::span(frame).subspan(14)});
  EXPECT_TRUE(batch.packets()[0].hasMacs);
  EXPECT_THAT(batch.packets()[0].macs, ElementsAreArray(std::span(frame).first(12)));
}

class ReceivePathTest : public InterfaceQuerierTest {
 protected:
  void SetUp() override {
    const size_t before = allocations;
    Mox::makePtr<Ilvo::Pkt>();
    Mox::makePtr<Ilvo::Pkt>();
    if (allocations - before > 1) GTEST_SKIP() << "each object is an allocation here";
    up();
    advance(10.0);
  }
  size_t allocationsOf(const Bytes& packet) {
    const size_t before = allocations;
    receiver_->rxPacket({.frame = {}, .packet = packet});
    receiver_->rxBatchEnd();
    return allocations - before;
  }
};

// Ethernet frames may go on behind their packet.
TEST_F(ReceivePathTest, aLongPacketOfAKnownGroupCostsNoAllocation) {
  const Bytes report = Ilvo::buildV2Report(group, {.src = host, .padding = 1400});
  EXPECT_GT(allocationsOf(report), 0u);
  EXPECT_EQ(allocationsOf(report), 0u);
  EXPECT_EQ(status().v2ReportReceived(), 2u);
}

}  // namespace
}  // namespace Agent
