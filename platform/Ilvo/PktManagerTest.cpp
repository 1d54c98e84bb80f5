#include <Ilvo/PktManager.h>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

TEST(PktManager, handsOutEmptyPackets) {
  PktManager manager;
  const Mox::Ptr<Pkt> pkt = manager.pkt(12);
  ASSERT_TRUE(pkt);
  EXPECT_EQ(pkt->refs(), 1u);
  EXPECT_EQ(pkt->offsetBytes(), 0u);
}

TEST(PktManager, failsAsOftenAsATestAsks) {
  PktManager manager;
  manager.failuresIs(2);
  EXPECT_FALSE(manager.pkt(8));
  EXPECT_FALSE(manager.pkt(8));
  EXPECT_TRUE(manager.pkt(8));
}

TEST(PktManager, isOneForTheProcess) { EXPECT_EQ(&pktManager(), &pktManager()); }

}  // namespace
}  // namespace Ilvo
