#include <GmpAttrLogSm/GmpAttrLogSm.h>

#include <unistd.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <Mox/Trace.h>
#include <gtest/gtest.h>

#include "KernelTestSupport.h"

namespace Gmp::Igmp {
namespace {

using Texts = std::vector<std::string>;

struct OutSm final : Mox::NboAttrLog::SocketOutSm {
  OutSm(int held, int connection) : held_(held), connection_(connection) {}
  int sockFd() const override { return held_; }
  int connectionFd() const override { return connection_; }
  const int held_;
  const int connection_;
};

Ptr<GmpAttrLogSm> monitorOf(int fd) { return gmpAttrLogSmFactory(makePtr<OutSm>(0, fd)); }

class GmpAttrLogSmTest : public testing::Test {
 protected:
  GmpAttrLogSmTest() {
    kernel = {};
    traceHandle_.facilityLevelIs(8);
    Mox::traceSinkIs([this](const Mox::TraceLine& line) {
      if (&line.handle == &traceHandle_) {
        traces_.push_back(std::to_string(line.level) + " " + std::string(line.text));
      }
    });
  }
  ~GmpAttrLogSmTest() override {
    kernel = {};
    traceHandle_.facilityLevelIs(Mox::TraceHandle::off);
    Mox::traceSinkIs({});
  }

  Texts traces() { return std::exchange(traces_, {}); }
  // The answers, each followed by "?" if the kernel was asked for it: "no? no no ".
  static std::string answers(GmpAttrLogSm& monitor, int questions) {
    std::string all;
    for (int i = 0; i < questions; ++i) {
      const int before = kernel.usageQueries;
      all += monitor.isAttrLogClogged() ? "yes" : "no";
      all += kernel.usageQueries == before ? " " : "? ";
    }
    return all;
  }

  Mox::TraceHandle& traceHandle_ = Mox::TraceHandle::named("GmpAttrLogSm", "GmpAttrLogSm.tin");
  Texts traces_;
};
using GmpAttrLogSmDeathTest = GmpAttrLogSmTest;

TEST_F(GmpAttrLogSmTest, withoutAnOutputMachineItKnowsNothing) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  EXPECT_FALSE(monitor->nboAttrLogOutSm());
  EXPECT_FALSE(monitor->initialized());
  EXPECT_EQ(monitor->attrLogSockFd(), -1);
  EXPECT_EQ(monitor->attrLogKernBufferSize(), -1);
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), -1);
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), -1);
  EXPECT_EQ(monitor->attrLogKernBufAboveThresholdCount(), 0u);
  EXPECT_EQ(monitor->iterUntilBufferCheck(), 1);
  EXPECT_EQ(monitor->maxIterUntilBufferCheck(), 10);
  EXPECT_EQ(traces(), Texts{"8 GmpAttrLogSm::handleInitialized()"});
}

TEST_F(GmpAttrLogSmTest, withoutAnOutputMachineTheLogIsNeverClogged) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  traces();
  EXPECT_EQ(answers(*monitor, 3), "no no no ");
  EXPECT_EQ(monitor->iterUntilBufferCheck(), -2);
  EXPECT_EQ(traces(),
            (Texts{"8 isAttrLogClogged(), Checking in: 0", "8 isAttrLogClogged(), Checking in: -1",
                   "8 isAttrLogClogged(), Checking in: -2"}));
}

TEST_F(GmpAttrLogSmTest, takesTheDescriptorThatTheOutputMachineHolds) {
  const SocketPair log;
  const SocketPair other;
  const Ptr<OutSm> outSm = makePtr<OutSm>(log.near(), other.near());
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(outSm);
  EXPECT_EQ(monitor->nboAttrLogOutSm().get(), outSm.get());
  EXPECT_EQ(monitor->attrLogSockFd(), log.near());
  EXPECT_TRUE(monitor->initialized());
}

TEST_F(GmpAttrLogSmTest, takesTheConnectionWhenTheOutputMachineHoldsNone) {
  const SocketPair log;
  EXPECT_EQ(gmpAttrLogSmFactory(makePtr<OutSm>(0, log.near()))->attrLogSockFd(), log.near());
}

TEST_F(GmpAttrLogSmTest, anyNegativeConnectionIsNone) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(makePtr<OutSm>(0, -7));
  EXPECT_EQ(monitor->attrLogSockFd(), -1);
  EXPECT_TRUE(monitor->initialized());
  EXPECT_EQ(monitor->attrLogKernBufferSize(), -1);
  EXPECT_EQ(traces(), Texts{"8 GmpAttrLogSm::handleInitialized()"});
  EXPECT_EQ(kernel.sizeQueries, 0);
}

TEST_F(GmpAttrLogSmTest, withoutADescriptorTheLogFlowsAndTheKernelIsNotAsked) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(makePtr<OutSm>(-1, 5));
  EXPECT_EQ(monitor->attrLogSockFd(), -1);
  EXPECT_EQ(monitor->getAttrLogKernBufferUsage(), -1);
  monitor->attrLogKernBufferUsageIs(5);
  EXPECT_EQ(answers(*monitor, 1), "no ");
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), -1);
  EXPECT_EQ(monitor->iterUntilBufferCheck(), 10);
}

TEST_F(GmpAttrLogSmTest, thresholdIsHalfOfWhatTheKernelReports) {
  const SocketPair log(8192);
  const S32 reported = log.sendBuffer();
  ASSERT_GE(reported, 8192) << "what the kernel reports need not be what was asked for";
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  EXPECT_EQ(monitor->attrLogKernBufferSize(), reported);
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), reported / 2);
  EXPECT_EQ(traces(), (Texts{"8 GmpAttrLogSm::handleInitialized()",
                             "3 handleAttrLogSockFd(), Socket Fd:" + std::to_string(log.near()) +
                                 ", Kernel Buffer Size:" + std::to_string(reported) +
                                 ", Kernel Buffer Threshold:" + std::to_string(reported / 2)}));
}

TEST_F(GmpAttrLogSmTest, halvesRoundTowardsZero) {
  const SocketPair log;
  for (const auto& [size, threshold] : {std::pair{7, 3}, {1, 0}, {0, 0}, {-1, 0}, {-7, -3}}) {
    kernel.reportedSize = size;
    EXPECT_EQ(monitorOf(log.near())->attrLogKernBufferThreshold(), threshold) << size;
  }
}

TEST_F(GmpAttrLogSmTest, queueOfExactlyTheThresholdIsNotClogged) {
  const SocketPair log;
  kernel.reportedSize = 212992;
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), 106496);
  kernel.reportedUsage = 106496;
  EXPECT_FALSE(monitor->isAttrLogClogged());
  monitor->iterUntilBufferCheckIs(1);
  kernel.reportedUsage = 106497;
  EXPECT_TRUE(monitor->isAttrLogClogged());
}

TEST_F(GmpAttrLogSmTest, asksTheKernelAtTheFirstAndTheEleventhQuestionWhileTheLogFlows) {
  const SocketPair log;
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  EXPECT_EQ(answers(*monitor, 11), "no? no no no no no no no no no no? ");
  EXPECT_EQ(kernel.usageQueries, 2);
  EXPECT_EQ(monitor->iterUntilBufferCheck(), 10);
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), 0);
}

TEST_F(GmpAttrLogSmTest, tracesEveryQuestionAtDetailLevelOnly) {
  const SocketPair log;
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  traces();
  answers(*monitor, 3);
  EXPECT_EQ(traces(),
            (Texts{"8 isAttrLogClogged(), Checking in: 0", "8 isAttrLogClogged(), Checking in: 9",
                   "8 isAttrLogClogged(), Checking in: 8"}));
}

TEST_F(GmpAttrLogSmTest, everyQuestionAsksTheKernelAndCountsWhileTheLogIsClogged) {
  const SocketPair log(8192);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  log.fill();
  const S32 queued = log.queued();
  ASSERT_GT(queued, log.sendBuffer() / 2);
  traces();
  EXPECT_EQ(answers(*monitor, 4), "yes? yes? yes? yes? ");
  EXPECT_EQ(monitor->attrLogKernBufAboveThresholdCount(), 4u);
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), queued);
  EXPECT_EQ(monitor->iterUntilBufferCheck(), 1);
  const Texts lines = traces();
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[6], "8 isAttrLogClogged(), Checking in: 0");
  EXPECT_EQ(lines[7], "3 isAttrLogCloggedBuffer usage: " + std::to_string(queued) +
                          " is above threshold: " + std::to_string(log.sendBuffer() / 2));
}

TEST_F(GmpAttrLogSmTest, logThatIsReadFlowsAgainAndIsAskedRarely) {
  const SocketPair log(8192);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  log.fill();
  EXPECT_EQ(answers(*monitor, 2), "yes? yes? ");
  log.drain();
  EXPECT_EQ(answers(*monitor, 11), "no? no no no no no no no no no no? ");
  EXPECT_EQ(monitor->attrLogKernBufAboveThresholdCount(), 2u);
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), 0);
}

TEST_F(GmpAttrLogSmTest, logThatFillsIsSeenAtTheNextCheckOnly) {
  const SocketPair log(8192);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  EXPECT_EQ(answers(*monitor, 1), "no? ");
  log.fill();
  EXPECT_EQ(answers(*monitor, 11), "no no no no no no no no no yes? yes? ");
}

TEST_F(GmpAttrLogSmTest, watchesATcpConnection) {
  const TcpPair log(65536);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), log.sendBuffer() / 2);
  EXPECT_EQ(answers(*monitor, 10), "no? no no no no no no no no no ");
  log.fill();
  ASSERT_GT(log.queued(), log.sendBuffer() / 2);
  EXPECT_EQ(answers(*monitor, 2), "yes? yes? ");
  log.drain();
  EXPECT_EQ(answers(*monitor, 2), "no? no ");
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), 0);
}

TEST_F(GmpAttrLogSmTest, unknownBufferSizeCountsAsFull) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(ends[1]);
  EXPECT_EQ(kernel.sizeQueries, 1);
  EXPECT_EQ(monitor->attrLogKernBufferSize(), -1);
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), -1);
  EXPECT_TRUE(monitor->initialized());
  EXPECT_EQ(traces()[1], "3 handleAttrLogSockFd(), Socket Fd:" + std::to_string(ends[1]) +
                             ", Kernel Buffer Size:-1, Kernel Buffer Threshold:-1");
  kernel.reportedUsage = 0;
  EXPECT_EQ(answers(*monitor, 3), "yes? yes? yes? ");
  EXPECT_EQ(monitor->attrLogKernBufAboveThresholdCount(), 3u);
  EXPECT_EQ(traces()[1], "3 isAttrLogCloggedBuffer usage: 0 is above threshold: -1");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(GmpAttrLogSmTest, unknownBufferSizeOfANewDescriptorReplacesTheMeasuredOne) {
  const SocketPair log(8192);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  ASSERT_GT(monitor->attrLogKernBufferThreshold(), 0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  monitor->attrLogSockFdIs(ends[1]);
  EXPECT_EQ(monitor->attrLogKernBufferSize(), -1);
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), -1);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(GmpAttrLogSmTest, newDescriptorIsMeasuredAtOnceAndTheSameOneIsNot) {
  const SocketPair one(8192);
  const SocketPair two(65536);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(one.near());
  traces();
  monitor->attrLogSockFdIs(one.near());
  EXPECT_EQ(kernel.sizeQueries, 1);
  EXPECT_EQ(traces(), Texts{});
  monitor->attrLogSockFdIs(two.near());
  EXPECT_EQ(kernel.sizeQueries, 2);
  EXPECT_EQ(monitor->attrLogSockFd(), two.near());
  EXPECT_EQ(monitor->attrLogKernBufferSize(), two.sendBuffer());
  EXPECT_EQ(traces().size(), 1u);
}

TEST_F(GmpAttrLogSmTest, lostDescriptorKeepsTheMeasuresAndLetsTheLogFlow) {
  const SocketPair log(8192);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(log.near());
  log.fill();
  EXPECT_EQ(answers(*monitor, 1), "yes? ");
  traces();
  monitor->attrLogSockFdIs(-1);
  EXPECT_EQ(monitor->attrLogSockFd(), -1);
  EXPECT_EQ(monitor->attrLogKernBufferSize(), log.sendBuffer());
  EXPECT_EQ(traces(), Texts{});
  EXPECT_EQ(answers(*monitor, 1), "no ");
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), -1);
}

TEST_F(GmpAttrLogSmTest, settersStorePlainly) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  monitor->attrLogKernBufferSizeIs(1);
  monitor->attrLogKernBufferThresholdIs(2);
  monitor->attrLogKernBufferUsageIs(3);
  monitor->attrLogKernBufAboveThresholdCountIs(0xffffffffu);
  monitor->iterUntilBufferCheckIs(5);
  EXPECT_EQ(monitor->attrLogKernBufferSize(), 1);
  EXPECT_EQ(monitor->attrLogKernBufferThreshold(), 2);
  EXPECT_EQ(monitor->attrLogKernBufferUsage(), 3);
  EXPECT_EQ(monitor->attrLogKernBufAboveThresholdCount(), 0xffffffffu);
  EXPECT_EQ(monitor->attrLogKernBufAboveThresholdCountInc(2), 1u);
  EXPECT_EQ(monitor->iterUntilBufferCheckDec(7), -2);
  EXPECT_EQ(monitor->iterUntilBufferCheck(), -2);
}

TEST_F(GmpAttrLogSmTest, countdownWrapsInTheEnd) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  monitor->iterUntilBufferCheckIs(std::numeric_limits<S32>::min());
  EXPECT_FALSE(monitor->isAttrLogClogged());
  EXPECT_EQ(monitor->iterUntilBufferCheck(), std::numeric_limits<S32>::max());
}

const char* const diedInTheQuery =
    "^GmpAttrLogSm\\.tin:63: S32 Gmp::Igmp::GmpAttrLogSm::getAttrLogKernBufferUsage\\(\\): "
    "Assertion '0' failed\\.\n";

TEST_F(GmpAttrLogSmDeathTest, failingQueryOnAPipeIsFatal) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Ptr<GmpAttrLogSm> monitor = monitorOf(ends[1]);
  EXPECT_DEATH(monitor->isAttrLogClogged(), diedInTheQuery);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(GmpAttrLogSmDeathTest, failingQueryOnAClosedDescriptorIsFatal) {
  Ptr<GmpAttrLogSm> monitor;
  {
    const SocketPair log;
    monitor = monitorOf(log.near());
    EXPECT_EQ(monitor->getAttrLogKernBufferUsage(), 0);
  }
  EXPECT_DEATH(monitor->getAttrLogKernBufferUsage(), diedInTheQuery);
}

}  // namespace
}  // namespace Gmp::Igmp
