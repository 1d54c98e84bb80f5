#include <Events/JournalOutput.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <AgentTestSupport/DatagramReceiver.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Event joined(const char* interface = "eth0") {
  Event event{.interface = interface, .kind = Event::groupJoined};
  event.group = group;
  event.address = host;
  event.version = 2;
  return event;
}

Event refused() {
  Event event{.interface = "eth0", .kind = Event::intakeWarning};
  event.address = host;
  event.mac = "02:00:00:00:00:0b";
  event.attribute = "newQuerier";
  event.text = "another querier";
  event.count = 1;
  return event;
}

class JournalOutputTest : public testing::Test {
 protected:
  std::string sent(const Event& event) {
    JournalOutput output(path_);
    output.event(event);
    EXPECT_TRUE(output.flush());
    return journal_.received();
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/socket";
  DatagramReceiver journal_{path_};
};

TEST_F(JournalOutputTest, anEntryHasTheAddressesOfItsEvent) {
  EXPECT_EQ(sent(joined()),
            "MESSAGE=eth0: joined 239.1.1.1 by 10.0.0.11 (version 2)\n"
            "PRIORITY=6\nSYSLOG_IDENTIFIER=igmpq\nIGMP_EVENT=groupJoined\n"
            "IGMP_INTERFACE=eth0\nIGMP_GROUP=239.1.1.1\nIGMP_HOST=10.0.0.11\n");
}

TEST_F(JournalOutputTest, aWarningHasThePriorityOfOneAndItsSender) {
  EXPECT_EQ(sent(refused()),
            "MESSAGE=eth0: warning: another querier: 10.0.0.11 (02:00:00:00:00:0b); 1 so far\n"
            "PRIORITY=4\nSYSLOG_IDENTIFIER=igmpq\nIGMP_EVENT=intakeWarning\n"
            "IGMP_INTERFACE=eth0\nIGMP_HOST=10.0.0.11\n");
}

TEST_F(JournalOutputTest, anErrorOfTheAgentHasNoInterface) {
  Event event{.kind = Event::error};
  event.text = "no memory";
  EXPECT_EQ(sent(event),
            "MESSAGE=error: no memory\nPRIORITY=3\nSYSLOG_IDENTIFIER=igmpq\nIGMP_EVENT=error\n");
}

TEST_F(JournalOutputTest, noSenderCanAddALine) {
  Event event{.interface = "e\n1", .kind = Event::notice};
  event.text = "a\nPRIORITY=0";
  EXPECT_EQ(sent(event),
            "MESSAGE=e\\x0a1: a\\x0aPRIORITY=0\nPRIORITY=5\nSYSLOG_IDENTIFIER=igmpq\n"
            "IGMP_EVENT=notice\nIGMP_INTERFACE=e\\x0a1\n");
}

TEST_F(JournalOutputTest, theEntriesOfABatchAreSentAtItsFlush) {
  JournalOutput output(path_);
  output.event(joined());
  output.event(joined("eth1"));
  EXPECT_EQ(journal_.received(), "");
  EXPECT_TRUE(output.flush());
  EXPECT_THAT(journal_.all(), ElementsAre(HasSubstr("INTERFACE=eth0"), HasSubstr("=eth1\n")));
}

// Its queue takes as many as the kernel lets it; the rest waits.
TEST_F(JournalOutputTest, aFullJournalGetsTheRestLater) {
  constexpr size_t count = 3000;
  JournalOutput output(path_);
  for (size_t i = 0; i < count; ++i) output.event(joined());
  EXPECT_FALSE(output.flush());
  std::vector<std::string> entries;
  for (bool flushed = false; !flushed;) {
    for (const std::string& each : journal_.all()) entries.push_back(each);
    flushed = output.flush();
  }
  for (const std::string& each : journal_.all()) entries.push_back(each);
  EXPECT_EQ(entries.size(), count);
  EXPECT_EQ(output.lost(), 0u);
}

TEST_F(JournalOutputTest, countsWhatFindsNoRoomAndReportsTheNumberInItsPlace) {
  constexpr size_t count = 5000;
  JournalOutput output(path_, 20000);
  for (size_t i = 0; i < count; ++i) output.event(joined());
  const Mox::U64 lost = output.lost();
  EXPECT_GT(lost, 0u);
  std::vector<std::string> entries;
  while (!output.flush()) {
    for (const std::string& each : journal_.all()) entries.push_back(each);
  }
  output.event(joined("after"));
  output.flush();
  for (const std::string& each : journal_.all()) entries.push_back(each);
  ASSERT_EQ(entries.size(), count - lost + 2);
  EXPECT_THAT(entries[count - lost],
              HasSubstr(fmt::format("MESSAGE={} events were lost: the output did not take them\n"
                                    "PRIORITY=4\n",
                                    lost)));
  EXPECT_THAT(entries.back(), HasSubstr("=after\n"));
}

TEST_F(JournalOutputTest, anEntryThatNoDatagramCanHoldIsLostAndNoOther) {
  JournalOutput output(path_, size_t{64} << 20);
  Event event{.kind = Event::notice};
  event.text = std::string(size_t{16} << 20, 'x');
  output.event(event);
  output.event(joined());
  EXPECT_TRUE(output.flush());
  EXPECT_THAT(journal_.all(),
              ElementsAre(HasSubstr("joined"), HasSubstr("MESSAGE=1 events were lost")));
}

TEST_F(JournalOutputTest, withoutAJournalItKeepsNoMoreThanItsBound) {
  JournalOutput output(folder_.path() + "/none", 20000);
  for (int i = 0; i < 1000; ++i) output.event(joined());
  EXPECT_FALSE(output.flush());
  EXPECT_GT(output.lost(), 0u);
}

class JournalStreamTest : public testing::Test {
 protected:
  ~JournalStreamTest() override { unsetenv("JOURNAL_STREAM"); }
  static void streamIs(int fd) {
    struct stat status {};
    ASSERT_EQ(fstat(fd, &status), 0);
    setenv("JOURNAL_STREAM", fmt::format("{}:{}", status.st_dev, status.st_ino).c_str(), 1);
  }

  const TempFolder folder_;
  const Descriptor journal_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  const Descriptor other_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

TEST_F(JournalStreamTest, isTheFileThatTheServiceManagerNames) {
  streamIs(journal_.fd());
  EXPECT_TRUE(isJournal(journal_.fd()));
  EXPECT_FALSE(isJournal(other_.fd()));
}

TEST_F(JournalStreamTest, isNoFileWithoutAServiceManager) {
  EXPECT_FALSE(isJournal(journal_.fd()));
  streamIs(journal_.fd());
  EXPECT_FALSE(isJournal(-1));
}

}  // namespace
}  // namespace Agent
