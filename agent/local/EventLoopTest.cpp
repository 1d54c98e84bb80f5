#include <Local/EventLoop.h>

#include <csignal>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>
#include <Obel/TimerReactor.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

namespace Agent {
namespace {

using std::chrono_literals::operator""s;

class EventLoopTest : public testing::Test {
 public:
  void mark() { marks_ += 't'; }
  void stop() { loop_->stop(); }

 protected:
  EventLoopTest() {
    Mox::virtualTimeIs(1000.0);
    loop_ = std::make_unique<EventLoop>();
  }
  ~EventLoopTest() override { Mox::realTimeIs(); }

  std::string marks_;
  std::unique_ptr<EventLoop> loop_;
};

TEST_F(EventLoopTest, runsUntilItIsStoppedByAHandler) {
  boost::asio::post(loop_->io(), [this] { marks_ += 'a'; });
  boost::asio::post(loop_->io(), [this] { loop_->stop(); });
  boost::asio::post(loop_->io(), [this] { marks_ += 'b'; });
  loop_->run();
  EXPECT_EQ(marks_, "a");
}

TEST_F(EventLoopTest, runsUntilItIsStoppedByATimer) {
  Obel::TimerReactor<EventLoopTest, &EventLoopTest::stop> timer(loop_->wheel(), *this);
  timer.timeMinIs(1000.0);
  loop_->run();
  EXPECT_TRUE(loop_->isStopped());
}

TEST_F(EventLoopTest, firesTimersThatTheClockHasReached) {
  Obel::TimerReactor<EventLoopTest, &EventLoopTest::mark> timer(loop_->wheel(), *this);
  timer.timeMinIs(1001.0);
  loop_->poll();
  EXPECT_EQ(marks_, "");
  Mox::virtualTimeIs(1001.0);
  loop_->poll();
  EXPECT_EQ(marks_, "t");
}

TEST_F(EventLoopTest, reportsEachRoundAndOnceMoreBeforeItWaits) {
  boost::asio::post(loop_->io(), [this] { marks_ += 'a'; });
  boost::asio::post(loop_->io(), [this] { marks_ += 'b'; });
  loop_->onRoundIs([this] { marks_ += '.'; });
  loop_->poll();
  EXPECT_EQ(marks_, "a.b..");
}

TEST_F(EventLoopTest, runsUntilWhatIsWaitedForIsThere) {
  bool done = false;
  boost::asio::post(loop_->io(), [&] { done = true; });
  boost::asio::post(loop_->io(), [this] { marks_ += 'b'; });
  EXPECT_TRUE(loop_->runUntil(done, 60s));
  EXPECT_EQ(marks_, "");
}

TEST_F(EventLoopTest, withoutTimeItStillDoesWhatCanBeDoneAtOnce) {
  bool done = false;
  boost::asio::post(loop_->io(), [&] { boost::asio::post(loop_->io(), [&] { done = true; }); });
  EXPECT_TRUE(loop_->runUntil(done, 0s));
}

TEST_F(EventLoopTest, givesUpWhenTheTimeHasPassed) {
  const bool done = false;
  EXPECT_FALSE(loop_->runUntil(done, 0s));
  EXPECT_FALSE(loop_->isStopped());
}

TEST_F(EventLoopTest, aSignalStopsIt) {
  loop_->stopAtSignals();
  std::raise(SIGTERM);
  const bool done = false;
  EXPECT_FALSE(loop_->runUntil(done, 60s));
  EXPECT_TRUE(loop_->isStopped());
}

TEST_F(EventLoopTest, whatAHandlerThrowsLeavesTheLoopWhichCanGoOn) {
  boost::asio::post(loop_->io(), [] { throw std::runtime_error("no"); });
  boost::asio::post(loop_->io(), [this] { loop_->stop(); });
  EXPECT_THROW(loop_->run(), std::runtime_error);
  loop_->run();
  EXPECT_TRUE(loop_->isStopped());
}

}  // namespace
}  // namespace Agent
