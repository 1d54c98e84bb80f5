#include <Ilvo/PktManager.h>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

TEST(PktManager, handsOutEmptyPacketsAndCountsThem) {
  PktManager manager;
  const Mox::Ptr<Pkt> pkt = manager.pkt(12);
  ASSERT_TRUE(pkt);
  EXPECT_EQ(pkt->refs(), 1u);
  EXPECT_EQ(pkt->offsetBytes(), 0u);
  EXPECT_EQ(manager.allocated(), 1u);
}

TEST(PktManager, failsAsOftenAsItIsTold) {
  PktManager manager;
  manager.failuresIs(2);
  EXPECT_FALSE(manager.pkt(8));
  EXPECT_EQ(manager.failures(), 1u);
  EXPECT_FALSE(manager.pkt(8));
  EXPECT_TRUE(manager.pkt(8));
  EXPECT_EQ(manager.allocated(), 1u);
}

TEST(PktManager, isOneForTheProcess) {
  EXPECT_EQ(&pktManager(), &pktManager());
  const U64 before = pktManager().allocated();
  EXPECT_TRUE(pktManager().pkt(8));
  EXPECT_EQ(pktManager().allocated(), before + 1);
}

}  // namespace
}  // namespace Ilvo
