#include <Server/AttrLogServer.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <Mox/ActivityClock.h>

#include "AttrLogServerTestSupport.h"

namespace Agent {
namespace {

using Mox::NboAttrLog::Rights;
using testing::HasSubstr;

TEST_F(AttrLogServerTest, readerGetsTheWholeStateThenChanges) {
  status_->groupIs(Ilvo::IpAddr(0xef010101))->sourceIs(Ilvo::IpAddr(0x0a000001));
  Reader reader(path_);
  settle({&reader});
  EXPECT_TRUE(reader.current());
  ASSERT_NE(reader.status()->group(Ilvo::IpAddr(0xef010101)), nullptr);
  EXPECT_EQ(reader.status()->group(Ilvo::IpAddr(0xef010101))->source().size(), 1u);
  status_->v2ReportReceivedInc(7);
  settle({&reader});
  EXPECT_EQ(reader.status()->v2ReportReceived(), 7u);
}

TEST_F(AttrLogServerTest, sameUserCanConfigure) {
  Reader writer(path_);
  Reader other(path_);
  settle({&writer, &other});
  ASSERT_EQ(writer.rights(), Rights::configure);
  writer.config()->robustnessIs(4);
  settle({&writer, &other});
  EXPECT_EQ(config_->robustness(), 4u);
  EXPECT_EQ(other.config()->robustness(), 4u);
  EXPECT_GT(turns_, 0);
}

TEST_F(AttrLogServerTest, valueThatWouldSpinATimerIsRefusedWithTheRange) {
  Reader writer(path_);
  settle({&writer});
  writer.config()->queryIntervalIs(0.0);
  settle({&writer});
  EXPECT_EQ(config_->queryInterval(), 125.0);
  EXPECT_TRUE(writer.ended());
  EXPECT_EQ(writer.refusal(), "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)");
  EXPECT_EQ(server_->peers(), 0u);
  EXPECT_THAT(logged_, HasSubstr("from the attribute log: queryInterval 0: must be"));
}

TEST_F(AttrLogServerTest, valueThatContradictsTheOthersInForceIsRefused) {
  Reader writer(path_);
  settle({&writer});
  writer.config()->queryResponseIntervalIs(125.0);
  settle({&writer});
  EXPECT_EQ(config_->queryResponseInterval(), 10.0);
  EXPECT_EQ(writer.refusal(),
            "queryResponseInterval 125: must be less than the query interval, 125 seconds "
            "(RFC 3376 8.3)");
}

TEST_F(AttrLogServerTest, valuesOfOneFrameAreJudgedTogether) {
  Reader writer(path_);
  settle({&writer});
  writer.gather();
  writer.config()->queryResponseIntervalIs(2.0);
  writer.config()->queryIntervalIs(5.0);  // sent before the other one
  settle({&writer});
  EXPECT_EQ(writer.refusal(), "");
  EXPECT_EQ(config_->queryInterval(), 5.0);
  EXPECT_EQ(config_->queryResponseInterval(), 2.0);
}

TEST_F(AttrLogServerTest, valuesOfOneFrameThatContradictEachOtherAreAllRefused) {
  Reader writer(path_);
  settle({&writer});
  writer.gather();
  writer.config()->robustnessIs(5);
  writer.config()->queryIntervalIs(20.0);
  writer.config()->queryResponseIntervalIs(20.0);
  settle({&writer});
  EXPECT_THAT(writer.refusal(), HasSubstr("queryResponseInterval 20: must be less than"));
  EXPECT_EQ(config_->robustness(), 2u);
  EXPECT_EQ(config_->queryInterval(), 125.0);
}

TEST_F(AttrLogServerTest, writersThatDoNotKnowOfEachOtherCannotContradictEachOther) {
  Reader first(path_);
  Reader second(path_);
  settle({&first, &second});
  first.config()->queryIntervalIs(15.0);           // more than the response interval, 10
  second.config()->queryResponseIntervalIs(20.0);  // less than the query interval of its copy, 125
  settle({&first, &second});
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_LT(config_->queryResponseInterval(), config_->queryInterval());
}

TEST_F(AttrLogServerTest, peerWithoutAFreeDescriptorIsAcceptedWhenThereIsOne) {
  Reader reader(path_);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const int next = dup(0);  // the number that the server's end would get
  ASSERT_GE(next, 0);
  ::close(next);
  const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  settle({});
  EXPECT_EQ(server_->peers(), 0u);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  advance(2.0);
  settle({&reader});
  EXPECT_TRUE(reader.current());
}

TEST_F(AttrLogServerTest, garbageEndsThatConnectionOnly) {
  Reader good(path_);
  Reader bad(path_);
  bad.send(std::string("\xff\xff and more", 11));
  settle({&good});
  EXPECT_EQ(server_->peers(), 1u);
  EXPECT_THAT(logged_, HasSubstr("a frame of an impossible length"));
  status_->joinsInc(1);
  settle({&good});
  EXPECT_EQ(good.status()->joins(), 1u);
}

TEST_F(AttrLogServerTest, readerThatGoesIsForgottenWithoutAMessage) {
  {
    Reader reader(path_);
    settle({&reader});
    EXPECT_EQ(server_->peers(), 1u);
  }
  settle({});
  EXPECT_EQ(server_->peers(), 0u);
  EXPECT_EQ(logged_, "");
  EXPECT_EQ(server_->monitor()->attrLogSockFd(), -1);
}

TEST_F(AttrLogServerTest, secondAgentGetsTheAdviceToChooseAnotherPath) {
  EXPECT_THAT([&] { serve(); },
              testing::ThrowsMessage<std::runtime_error>(
                  "cannot serve the attribute log at " + path_ +
                  ": another agent serves there; choose another path with --socket"));
}

TEST_F(AttrLogServerTest, socketLeftBehindByAKilledAgentIsReplaced) {
  server_.reset();
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ::close(fd);
  serve();
  Reader reader(path_);
  settle({&reader});
  EXPECT_TRUE(reader.current());
}

TEST_F(AttrLogServerTest, socketIsRemovedWithTheAgent) {
  server_.reset();
  EXPECT_FALSE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace Agent
