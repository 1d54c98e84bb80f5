#include <Link/LinkMonitor.h>

#include <gtest/gtest.h>

namespace Agent {
namespace {

// Every network namespace has this one, whatever else the machine has.
TEST(CurrentLinks, holdTheLoopbackInterface) {
  const LinkTable table = currentLinks();
  const Link* const lo = table.find("lo");
  ASSERT_NE(lo, nullptr);
  EXPECT_EQ(lo->index, 1u);
  EXPECT_TRUE(lo->loopback);
}

TEST(LinkMonitor, knowsTheLinksFromTheBeginning) {
  boost::asio::io_context io;
  const LinkMonitor monitor(io, [](const std::string&, const Link*) {});
  EXPECT_NE(monitor.links().find("lo"), nullptr);
}

TEST(LinkMonitor, mayEndBeforeItsLoop) {
  boost::asio::io_context io;
  bool told = false;
  {
    const LinkMonitor monitor(io, [&](const std::string&, const Link*) { told = true; });
  }
  io.run();  // comes back: nobody waits any more
  EXPECT_FALSE(told);
}

}  // namespace
}  // namespace Agent
