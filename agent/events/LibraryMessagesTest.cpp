#include <Events/LibraryMessages.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <Ilvo/IpAddr.h>
#include <Mox/ActivityClock.h>
#include <Mox/Name.h>

#include <AgentTestSupport/EventRecorder.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;

class LibraryMessagesTest : public testing::Test {
 protected:
  LibraryMessagesTest() { Mox::virtualTimeIs(1000.0); }
  ~LibraryMessagesTest() override { Mox::realTimeIs(); }

  static void mismatch(unsigned received, const char* interface, unsigned configured) {
    Gmp::Igmp::gmpIgmpQueryVersionConfiguredDiscrepancy.log(received, Mox::Name(interface),
                                                            configured);
  }

  EventRecorder events_;
  const LibraryMessages messages_{events_};
};

TEST_F(LibraryMessagesTest, aQueryOfAnotherVersionHasVersionsAndInterface) {
  mismatch(3, "eth0.7", 2);
  ASSERT_EQ(events_.events().size(), 1u);
  const Event& event = events_.events().front();
  EXPECT_EQ(event.kind, Event::versionMismatch);
  EXPECT_EQ(event.time, 1000.0);
  EXPECT_EQ(event.interface, "eth0.7");
  EXPECT_EQ(event.version, 3u);
  EXPECT_EQ(event.configuredVersion, 2u);
  EXPECT_EQ(event.text,
            "IGMP version 3 query heard on vlan eth0.7 by a querier configured to version 2.");
}

TEST_F(LibraryMessagesTest, anInterfaceMayBeNamedLikeTheWordsOfTheMessage) {
  mismatch(3, " by a querier configured to version 1", 2);
  ASSERT_EQ(events_.events().size(), 1u);
  EXPECT_EQ(events_.events().front().interface, " by a querier configured to version 1");
  EXPECT_EQ(events_.events().front().configuredVersion, 2u);
}

TEST_F(LibraryMessagesTest, whatTheRateLimitHoldsBackIsDropped) {
  mismatch(1, "limited", 2);
  mismatch(1, "limited", 2);
  EXPECT_EQ(events_.events().size(), 1u);
}

TEST_F(LibraryMessagesTest, anInvalidSourceKeepsTheWordsOfTheMessage) {
  Gmp::Igmp::igmpMessageInvalidSource.log(IpAddr(224, 0, 0, 1), IpAddr(239, 1, 1, 1));
  ASSERT_EQ(events_.events().size(), 1u);
  EXPECT_EQ(events_.events().front().kind, Event::invalidSource);
  EXPECT_EQ(events_.events().front().text,
            "Received invalid source 224.0.0.1 for group 239.1.1.1.");
}

class SinkThatTakesNone final : public EventSink {
 public:
  void event(const Event&) override { ++events; }
  bool takes(Event::Kind) override {
    ++asked;
    return false;
  }
  int events = 0;
  int asked = 0;
};

TEST(LibraryMessagesWithoutBudget, anInvalidSourceThatTheSinkDoesNotTakeIsNotMade) {
  SinkThatTakesNone sink;
  const LibraryMessages messages(sink);
  Gmp::Igmp::igmpMessageInvalidSource.log(IpAddr(224, 0, 0, 1), IpAddr(239, 1, 1, 1));
  EXPECT_EQ(sink.asked, 1);
  EXPECT_EQ(sink.events, 0);
  Gmp::Igmp::gmpIgmpQueryVersionConfiguredDiscrepancy.log(1u, Mox::Name("unasked"), 2u);
  EXPECT_EQ(sink.asked, 1);
  EXPECT_EQ(sink.events, 1);
}

TEST_F(LibraryMessagesTest, aMessageThatIsNotKnownIsAnError) {
  Mox::EventLogHandle other({"OTHER", 4, "Something %s.", "", "", 0.0, 1.0, 0});
  other.log("happened");
  EXPECT_THAT(events_.taken(), testing::ElementsAre("1000 error: Something happened."));
}

}  // namespace
}  // namespace Agent
