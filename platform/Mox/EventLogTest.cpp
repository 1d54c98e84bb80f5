#include <Mox/EventLog.h>

#include <algorithm>
#include <string>
#include <vector>

#include <Mox/ActivityClock.h>
#include <gtest/gtest.h>

namespace Mox {
namespace {

class EventLogTest : public testing::Test {
 protected:
  EventLogTest() {
    virtualTimeIs(1000.0);
    eventLogSinkIs([this](const EventLogEntry& entry) {
      texts_.push_back(entry.text + (entry.limited ? " (limited)" : ""));
    });
  }
  ~EventLogTest() override {
    eventLogSinkIs({});
    realTimeIs();
  }

  static EventLogMessage message(const char* format, Seconds interval = 0.0, double burst = 1.0) {
    return {"SOMETHING_ODD", 3, format, "Something is odd.", "Have a look.", interval, burst, 0};
  }

  std::vector<std::string> texts_;
};
using Texts = std::vector<std::string>;

TEST_F(EventLogTest, argumentsFillThePlaceholdersInOrder) {
  EventLogHandle handle(message("%s sent %d of %s."));
  handle.log("eth0", 3, std::string("five"));
  EXPECT_EQ(texts_, Texts{"eth0 sent 3 of five."});
}

TEST_F(EventLogTest, placeholdersWithoutArgumentsStay) {
  EventLogHandle handle(message("%s and %s, 100% %x %"));
  handle.log("one");
  EXPECT_EQ(texts_, Texts{"one and %s, 100% %x %"});
}

TEST_F(EventLogTest, argumentsBeyondThePlaceholdersAreLeftOut) {
  EventLogHandle handle(message("just %s"));
  handle.log("one", "two");
  EXPECT_EQ(texts_, Texts{"just one"});
}

TEST_F(EventLogTest, placeholderInsideAnArgumentIsText) {
  EventLogHandle handle(message("%s|%s"));
  handle.log("%s", "two");
  EXPECT_EQ(texts_, Texts{"%s|two"});
}

TEST_F(EventLogTest, messageThatIsNotWantedIsNotMade) {
  EventLogHandle wanted(message("yes %s"));
  EventLogHandle other(message("no %s"));
  eventLogSinkIs([this](const EventLogEntry& entry) { texts_.push_back(entry.text); },
                 [&](const EventLogMessage& asked) { return &asked == &wanted.message(); });
  other.log("one");
  wanted.log("two");
  EXPECT_EQ(texts_, Texts{"yes two"});
}

TEST_F(EventLogTest, messageWithoutArgumentsIsItsFormat) {
  EventLogHandle handle(message("nothing more"));
  handle.log();
  EXPECT_EQ(texts_, Texts{"nothing more"});
}

TEST_F(EventLogTest, sinkReceivesTheWholeMessage) {
  EventLogHandle handle(message("odd"));
  const EventLogMessage* notified = nullptr;
  eventLogSinkIs([&](const EventLogEntry& entry) { notified = &entry.message; });
  handle.log();
  ASSERT_EQ(notified, &handle.message());
  EXPECT_STREQ(notified->name, "SOMETHING_ODD");
  EXPECT_EQ(notified->severity, 3);
  EXPECT_STREQ(notified->explanation, "Something is odd.");
  EXPECT_STREQ(notified->recommendedAction, "Have a look.");
}

TEST_F(EventLogTest, sinkReceivesTheArgumentsAsValues) {
  EventLogHandle handle(message("%s sent %d."));
  std::vector<Value> arguments;
  eventLogSinkIs([&](const EventLogEntry& entry) {
    arguments.assign(entry.arguments.begin(), entry.arguments.end());
  });
  handle.log(std::string("eth0 sent 2"), U32{3});
  EXPECT_EQ(arguments, (std::vector<Value>{std::string("eth0 sent 2"), U64{3}}));
}

TEST_F(EventLogTest, intervalZeroSetsNoLimit) {
  EventLogHandle handle(message("odd %s", 0.0, 1.0));
  for (int i = 0; i < 3; ++i) handle.log("x");
  EXPECT_EQ(texts_, (Texts{"odd x", "odd x", "odd x"}));
}

TEST_F(EventLogTest, limitHoldsBackTheSameArgumentsOnly) {
  EventLogHandle handle(message("odd %s", 10.0, 1.0));
  handle.log("x");
  handle.log("x");
  handle.log("y");
  EXPECT_EQ(texts_, (Texts{"odd x", "odd x (limited)", "odd y"}));
}

TEST_F(EventLogTest, burstIsWhatPassesInAnInterval) {
  EventLogHandle handle(message("odd", 10.0, 3.0));
  for (int i = 0; i < 5; ++i) handle.log();
  EXPECT_EQ(texts_, (Texts{"odd", "odd", "odd", "odd (limited)", "odd (limited)"}));
}

TEST_F(EventLogTest, limitEndsWithTheIntervalAndBeginsAnew) {
  EventLogHandle handle(message("odd", 10.0, 1.0));
  handle.log();
  virtualTimeIs(1009.5);
  handle.log();
  virtualTimeIs(1010.0);
  handle.log();
  virtualTimeIs(1019.5);
  handle.log();
  EXPECT_EQ(texts_, (Texts{"odd", "odd (limited)", "odd", "odd (limited)"}));
}

TEST_F(EventLogTest, handlesLimitEachForItself) {
  EventLogHandle one(message("odd", 10.0));
  EventLogHandle two(message("odd", 10.0));
  one.log();
  two.log();
  EXPECT_EQ(texts_, (Texts{"odd", "odd"}));
}

TEST_F(EventLogTest, limitsBeginAnewForANewSink) {
  EventLogHandle handle(message("odd", 10.0, 1.0));
  handle.log();
  Texts ofTheNewSink;
  eventLogSinkIs([&](const EventLogEntry& entry) {
    ofTheNewSink.push_back(entry.text + (entry.limited ? " (limited)" : ""));
  });
  handle.log();
  handle.log();
  EXPECT_EQ(ofTheNewSink, (Texts{"odd", "odd (limited)"}));
}

TEST_F(EventLogTest, floodOfDifferentArgumentsIsLimitedAsOne) {
  EventLogHandle handle(message("odd %d", 10.0, 1.0));
  size_t passed = 0;
  eventLogSinkIs([&](const EventLogEntry& entry) { passed += entry.limited ? 0 : 1; });
  for (int i = 0; i < 5000; ++i) handle.log(i);
  EXPECT_EQ(passed, 1024u) << "what is remembered of arguments is bounded";
  for (int i = 0; i < 5000; ++i) handle.log(i);
  EXPECT_EQ(passed, 1024u);
  virtualTimeIs(1010.0);
  handle.log(4999);
  EXPECT_EQ(passed, 1025u) << "old ones make room after the interval";
}

TEST_F(EventLogTest, withoutASinkMessagesGoToStandardError) {
  EventLogHandle handle(message("odd %s", 10.0, 1.0));
  eventLogSinkIs({});
  testing::internal::CaptureStderr();
  handle.log("x");
  handle.log("x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "SOMETHING_ODD: odd x\n");
  EXPECT_EQ(texts_, Texts{});
}

TEST_F(EventLogTest, listsTheHandlesThatExist) {
  const auto before = EventLogHandle::all();
  {
    const EventLogHandle handle(message("odd"));
    const auto all = EventLogHandle::all();
    EXPECT_EQ(std::count(all.begin(), all.end(), &handle), 1);
  }
  EXPECT_EQ(EventLogHandle::all(), before);
}

}  // namespace
}  // namespace Mox
