#include <Events/EventBudget.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TestAddresses.h>
#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EventBudgetTest : public testing::Test {
 protected:
  EventBudgetTest() { Mox::virtualTimeIs(10.0); }
  ~EventBudgetTest() override { Mox::realTimeIs(); }

  static Event of(Event::Kind kind) {
    Event event{.time = Mox::now(), .interface = "eth0", .kind = kind};
    event.group = group;
    return event;
  }
  void many(size_t count, Event::Kind kind = Event::groupLeft) {
    for (size_t i = 0; i < count; ++i) budget_.event(of(kind));
  }

  EventRecorder events_;
  EventBudget budget_{events_, 2};
};

TEST_F(EventBudgetTest, passesAsManyOfAKindWithinASecond) {
  many(2);
  EXPECT_TRUE(budget_.flush());
  EXPECT_EQ(events_.taken().size(), 2u);
}

TEST_F(EventBudgetTest, reportsTheNumberOfTheOthersWhenTheSecondIsOver) {
  many(5);
  EXPECT_EQ(events_.taken().size(), 2u);
  EXPECT_FALSE(budget_.flush());
  EXPECT_THAT(events_.taken(), IsEmpty());
  Mox::virtualTimeIs(11.0);
  EXPECT_TRUE(budget_.flush());
  EXPECT_THAT(events_.taken(), ElementsAre("11 3 more groupLeft events within a second"));
  EXPECT_TRUE(budget_.flush());
  EXPECT_THAT(events_.taken(), IsEmpty());
}

TEST_F(EventBudgetTest, countsWhatItDoesNotTakeAsHeldBack) {
  EXPECT_TRUE(budget_.takes(Event::groupLeft));
  many(2);
  EXPECT_FALSE(budget_.takes(Event::groupLeft));
  EXPECT_TRUE(budget_.takes(Event::groupJoined));
  events_.taken();
  Mox::virtualTimeIs(11.0);
  EXPECT_TRUE(budget_.flush());
  EXPECT_THAT(events_.taken(), ElementsAre("11 1 more groupLeft events within a second"));
}

TEST_F(EventBudgetTest, reportsTheNumberAheadOfTheNextEventOfTheKind) {
  many(3);
  events_.taken();
  Mox::virtualTimeIs(12.0);
  many(1);
  EXPECT_THAT(events_.taken(),
              ElementsAre("12 1 more groupLeft events within a second", "12 left 239.1.1.1"));
  EXPECT_TRUE(budget_.flush());
}

TEST_F(EventBudgetTest, reportsTheNumbersThatAreLeftAtTheEnd) {
  many(3);
  events_.taken();
  budget_.finish();
  EXPECT_THAT(events_.taken(), ElementsAre("10 1 more groupLeft events within a second"));
}

TEST_F(EventBudgetTest, hasABudgetForEachKind) {
  many(3);
  many(2, Event::interfaceUp);
  EXPECT_EQ(events_.taken().size(), 4u);
}

// They are no lines that wait.
TEST_F(EventBudgetTest, isEmptyWhileEventsAreHeld) {
  many(3);
  EXPECT_FALSE(budget_.flush());
  EXPECT_TRUE(budget_.isEmpty());
}

TEST_F(EventBudgetTest, ofZeroPassesAll) {
  EventBudget all(events_, 0);
  for (int i = 0; i < 1000; ++i) all.event(of(Event::groupLeft));
  EXPECT_EQ(events_.taken().size(), 1000u);
  EXPECT_TRUE(all.flush());
}

}  // namespace
}  // namespace Agent
