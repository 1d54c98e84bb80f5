#include <Server/AttrLogServer.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <Mox/ActivityClock.h>
#include <Mox/TypeInfo.h>
#include <NboAttrLog/OutStream.h>

#include <AgentTestSupport/OtherIdentity.h>
#include "AttrLogServerTestSupport.h"

namespace Agent {
namespace {

using Mox::NboAttrLog::Rights;
using testing::HasSubstr;

using AttrLogReadersTest = AttrLogServerTest;

TEST_F(AttrLogReadersTest, peerThatSendsNoHelloIsDisconnected) {
  Reader silent(path_);
  settle({});
  advance(12.0);
  EXPECT_EQ(server_->peers(), 0u);
  EXPECT_THAT(logged_, HasSubstr("it sent no hello"));
}

// Without its hello it gets nothing, and takes no place that another reader needs.
TEST_F(AttrLogReadersTest, silentPeersDoNotKeepOthersOut) {
  std::vector<std::unique_ptr<Reader>> silent;
  for (int count = 0; count < 20; ++count) {
    silent.push_back(std::make_unique<Reader>(path_));
    settle({});
  }
  EXPECT_EQ(server_->peers(), AttrLogServer::mostSilent);
  EXPECT_THAT(logged_, HasSubstr("it sent no hello, and others connected"));
  Reader reader(path_);
  settle({&reader});
  EXPECT_TRUE(reader.current());
}

TEST_F(AttrLogReadersTest, silentPeerMakesRoomForAReaderWhenAllPlacesAreTaken) {
  setup_.maxReaders = 2;
  serveAnew();
  Reader first(path_);
  settle({&first});
  const Reader silent(path_);
  settle({});
  EXPECT_EQ(server_->peers(), 2u);
  Reader second(path_);
  settle({&first, &second});
  EXPECT_TRUE(first.current());
  EXPECT_FALSE(first.ended());
  EXPECT_TRUE(second.current());
}

// The places before the hello are for those that have not sent it: the ones that have waited for
// the longest time end first.
TEST_F(AttrLogReadersTest, readersThatSentTheirHelloStay) {
  std::vector<std::unique_ptr<Reader>> readers;
  for (int count = 0; count < 10; ++count) {
    readers.push_back(std::make_unique<Reader>(path_));
    settle({readers.back().get()});
  }
  Reader first(path_);
  settle({});
  std::vector<std::unique_ptr<Reader>> silent;
  for (size_t count = 0; count < AttrLogServer::mostSilent; ++count) {
    silent.push_back(std::make_unique<Reader>(path_));
    settle({});
  }
  EXPECT_EQ(server_->peers(), 10 + AttrLogServer::mostSilent);
  first.step();
  EXPECT_TRUE(first.ended());
}

TEST_F(AttrLogReadersTest, readersBeyondTheMostAreRefusedWithTheReason) {
  setup_.maxReaders = 3;
  serveAnew();
  std::vector<std::unique_ptr<Reader>> readers;
  for (int count = 0; count < 4; ++count) {
    readers.push_back(std::make_unique<Reader>(path_));
    settle({readers.back().get()});
  }
  EXPECT_EQ(server_->peers(), 3u);
  EXPECT_TRUE(readers[2]->current());
  EXPECT_TRUE(readers[3]->ended());
  EXPECT_THAT(readers[3]->refusal(), HasSubstr("the agent has 3 readers, and takes no more"));
  EXPECT_EQ(readers[3]->status()->group().size(), 0u);
  EXPECT_THAT(logged_, HasSubstr(fmt::format("Refused user {} the access to the attribute log: the "
                                             "agent has 3 readers",
                                             geteuid())));
  readers.erase(readers.begin());
  settle({});
  Reader next(path_);
  settle({&next});
  EXPECT_TRUE(next.current()) << "a place that is free again is not used";
}

// Sends a change of the configuration with its hello, as its first bytes.
class RefusedReaderTest : public AttrLogServerTest {
 protected:
  RefusedReaderTest() { status_->groupIs(Ilvo::IpAddr(0xef010101)); }

  void sendChange(Reader& reader) {
    using Mox::NboAttrLog::FrameType;
    const auto* const robustness = Mox::typeInfoOf<Gmp::Igmp::QuerierConfig>().attr("robustness");
    ASSERT_NE(robustness, nullptr);
    Mox::NboAttrLog::OutStream out;
    out.begin(FrameType::attributes);
    out.ref({.root = 1, .depth = 0, .keys = {}});
    out.u16(static_cast<Mox::U16>(robustness->id));
    out.u32(4);
    out.end();
    reader.step();  // its hello
    reader.send({reinterpret_cast<const char*>(out.pending().data()), out.pending().size()});
    settle({&reader});
  }
  void expectNothing(Reader& reader) {
    EXPECT_TRUE(reader.ended());
    EXPECT_FALSE(reader.current());
    EXPECT_EQ(reader.status()->group().size(), 0u);
    EXPECT_THAT(reader.refusal(), HasSubstr("not permitted to read the attribute log: be root"));
    EXPECT_EQ(config_->robustness(), 2u);
    EXPECT_EQ(turns_, 0) << "what it sent was handled";
    EXPECT_EQ(server_->peers(), 0u);
  }
};

TEST_F(RefusedReaderTest, whatItSendsWouldHaveChangedTheConfiguration) {
  Reader permitted(path_);
  sendChange(permitted);
  EXPECT_EQ(config_->robustness(), 4u);
}

// Even where every process could read.
TEST_F(RefusedReaderTest, peerWhoseCredentialsCannotBeReadReadsAndChangesNothing) {
  const RightsOf open = peerRights({.isOpen = true, .readGroup = 0, .configureGroup = 0});
  setup_.rightsOf = [open](int) { return open(-1); };
  serveAnew();
  Reader reader(path_);
  sendChange(reader);
  expectNothing(reader);
  EXPECT_THAT(logged_, HasSubstr("the access to the attribute log: not permitted to read"));
}

TEST_F(RefusedReaderTest, otherUserIsRefusedUnlessAllCanRead) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0711));
  {
    auto other = std::make_unique<OtherIdentity>();
    Reader reader(path_);
    other.reset();
    ASSERT_TRUE(reader.connected()) << "the socket is open to all";
    sendChange(reader);
    expectNothing(reader);
  }
  EXPECT_THAT(logged_, HasSubstr("Refused user 65534 the access to the attribute log"));
  setup_.rightsOf = peerRights({.isOpen = true});
  serveAnew();
  auto other = std::make_unique<OtherIdentity>();
  Reader reader(path_);
  other.reset();
  settle({&reader});
  EXPECT_TRUE(reader.current());
  EXPECT_EQ(reader.rights(), Rights::read);
}

// More than the socket and the buffer before it can hold, to a reader that has stopped reading.
class StalledReaderTest : public AttrLogServerTest {
 protected:
  StalledReaderTest() {
    settle({&stalled_, &quick_});
    for (Mox::U32 group = 0; group < 20000; ++group) {
      status_->groupIs(Ilvo::IpAddr(0xe8000000u + group));
    }
    for (int round = 0; round < 200; ++round) settle({&quick_});
  }
  Reader stalled_{path_};
  Reader quick_{path_};
};

TEST_F(StalledReaderTest, monitorWatchesTheCongestedSocket) {
  advance(1.0);
  EXPECT_EQ(quick_.status()->group().size(), 20000u);
  bool clogged = false;
  for (int question = 0; question < 10; ++question) {
    clogged = server_->monitor()->isAttrLogClogged() || clogged;
  }
  EXPECT_TRUE(clogged);
}

// A socket that flows again says nothing about the one that does not.
TEST_F(AttrLogServerTest, monitorTurnsToAnotherSocketWhenTheOneItWatchedFlowsAgain) {
  Reader first(path_);
  settle({&first});
  advance(1.0);
  const int firstFd = server_->monitor()->attrLogSockFd();
  Reader second(path_);
  settle({&first, &second});
  for (Mox::U32 group = 0; group < 20000; ++group) {
    status_->groupIs(Ilvo::IpAddr(0xe8000000u + group));
  }
  for (int round = 0; round < 200; ++round) settle({});  // neither reads
  const int watched = server_->monitor()->attrLogSockFd();
  Reader& quick = watched == firstFd ? first : second;
  // It has taken everything when the socket flows again, and time has not moved since.
  for (int round = 0; round < 200; ++round) settle({&quick});
  EXPECT_NE(server_->monitor()->attrLogSockFd(), watched);
  EXPECT_GT(server_->monitor()->getAttrLogKernBufferUsage(),
            server_->monitor()->attrLogKernBufferThreshold());
}

TEST_F(StalledReaderTest, stalledReaderIsDisconnectedAndTheLogFlowsAgain) {
  advance(29.0);
  EXPECT_EQ(server_->peers(), 2u);
  advance(4.0);
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_THAT(logged_, HasSubstr("it took less than 64 KiB/s for 30 s"));
  bool clogged = false;
  for (int question = 0; question < 20; ++question) {
    clogged = server_->monitor()->isAttrLogClogged() || clogged;
  }
  EXPECT_FALSE(clogged);
}

TEST_F(StalledReaderTest, readerThatTakesALittleNowAndThenIsDisconnected) {
  for (int second = 0; second < 40; ++second) {
    stalled_.takeOnce();
    advance(1.0);
  }
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_THAT(logged_, HasSubstr("it took less than 64 KiB/s for 30 s"));
}

// At each poll at least as many bytes wait as at the one before, but all of them are new.
TEST_F(AttrLogServerTest, readerThatTakesEverythingIsKeptHoweverMuchIsAdded) {
  Reader reader(path_);
  settle({&reader});
  Mox::U32 group = 0xe8000000u;
  int queued = 0;
  for (Mox::U32 second = 1; second <= 40; ++second) {
    for (Mox::U32 added = 0; added < 10 * second; ++added) status_->groupIs(Ilvo::IpAddr(group++));
    advance(1.0);
    EXPECT_GE(server_->monitor()->getAttrLogKernBufferUsage(), queued);
    queued = server_->monitor()->getAttrLogKernBufferUsage();
    settle({&reader});
  }
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_EQ(logged_, "");
}

TEST_F(StalledReaderTest, readerThatGoesOnGetsTheStateOfThatTime) {
  for (Mox::U32 group = 0; group < 10000; ++group) {
    status_->groupDel(Ilvo::IpAddr(0xe8000000u + group));
  }
  for (int round = 0; round < 200; ++round) settle({&stalled_, &quick_});
  EXPECT_EQ(stalled_.status()->group().size(), 10000u);
  EXPECT_EQ(quick_.status()->group().size(), 10000u);
}

}  // namespace
}  // namespace Agent
