#include <Web/EventRing.h>

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class EventRingTest : public testing::Test {
 protected:
  EventRingTest() { Mox::virtualTimeIs(1000.0); }
  ~EventRingTest() override { Mox::realTimeIs(); }

  void notices(int from, int to) {
    for (int i = from; i <= to; ++i) {
      Event event{.time = 1000.0, .kind = Event::notice};
      event.text = std::to_string(i);
      ring_.event(event);
    }
  }
  // Ids, and the text of each event, or what is lost: "7-1 1".
  static std::vector<std::string> read(EventRing::Reader& reader, size_t bytes = 1 << 20) {
    std::string out;
    reader.append(out, bytes);
    std::vector<std::string> events;
    while (!out.empty()) {
      const size_t line = out.find('\n');
      const size_t end = out.find("\n\n");
      const auto json = nlohmann::json::parse(out.substr(line + 7, end - line - 7));
      const auto& shown = json.contains("count") ? json["count"] : json["text"];
      events.push_back(out.substr(4, line - 4) + ' ' + json["event"].get<std::string>() + ' ' +
                       shown.dump());
      out.erase(0, end + 2);
    }
    return events;
  }

  EventRing ring_{4, 1 << 20, "7"};
};

TEST_F(EventRingTest, isReadFromNowOn) {
  notices(1, 2);
  EventRing::Reader reader(ring_, "");
  EXPECT_THAT(read(reader), IsEmpty());
  notices(3, 4);
  EXPECT_THAT(read(reader), ElementsAre("7-3 notice \"3\"", "7-4 notice \"4\""));
  EXPECT_THAT(read(reader), IsEmpty());
}

TEST_F(EventRingTest, isReadFromAnEventOn) {
  notices(1, 4);
  EventRing::Reader reader(ring_, "7-2");
  EXPECT_THAT(read(reader), ElementsAre("7-3 notice \"3\"", "7-4 notice \"4\""));
}

TEST_F(EventRingTest, saysHowManyAreNoLongerKept) {
  notices(1, 7);
  EventRing::Reader reader(ring_, "7-1");
  EXPECT_THAT(read(reader), ElementsAre("7-3 eventsLost 2", "7-4 notice \"4\"", "7-5 notice \"5\"",
                                        "7-6 notice \"6\"", "7-7 notice \"7\""));
}

TEST_F(EventRingTest, saysSoOnceToAReaderThatIsSlow) {
  EventRing::Reader reader(ring_, "");
  notices(1, 5);
  EXPECT_THAT(read(reader, 1), ElementsAre("7-1 eventsLost 1"));
  EXPECT_THAT(read(reader, 1), ElementsAre("7-2 notice \"2\""));
}

// Numbers of another run name other events.
TEST_F(EventRingTest, givesAllThatItHasAfterAnotherRun) {
  notices(1, 1);
  for (const char* id : {"6-1", "7-2", "7-", "7-x", "7--1", "7-99999999999999999999", "7", "x"}) {
    EventRing::Reader reader(ring_, id);
    EXPECT_THAT(read(reader), ElementsAre("7-0 eventsLost null", "7-1 notice \"1\"")) << id;
  }
}

TEST_F(EventRingTest, isBoundedInBytes) {
  EventRing ring(1000, 300, "7");
  for (int i = 0; i < 100; ++i) {
    Event event{.kind = Event::notice};
    event.text = std::string(50, 'x');
    ring.event(event);
    EXPECT_LE(ring.bytes(), 300u);
  }
  EXPECT_GT(ring.bytes(), 0u);
  EXPECT_EQ(ring.count(), 100u);
}

TEST_F(EventRingTest, wakesOnceThoseThatWait) {
  int woken = 0;
  EventRing::Reader reader(ring_, "");
  reader.wakeIs([&] { ++woken; });
  notices(1, 2);
  EXPECT_EQ(woken, 1);
  reader.wakeIs([&] { ++woken; });
  notices(3, 3);
  EXPECT_EQ(woken, 2);
}

TEST_F(EventRingTest, wakesNobodyWhoIsGone) {
  int woken = 0;
  auto reader = std::make_unique<EventRing::Reader>(ring_, "");
  reader->wakeIs([&] { ++woken; });
  reader.reset();
  notices(1, 1);
  EXPECT_EQ(woken, 0);
}

}  // namespace
}  // namespace Agent
