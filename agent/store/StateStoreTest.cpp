#include <Store/StateStore.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Local/MachineIdentity.h>

#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>
#include "StateStoreTestSupport.h"

namespace Agent {
namespace {

using Mox::NboAttrLog::Access;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using namespace std::string_literals;

// Of a reader with the name "r".
const std::string helloFrame =
    "\x00\x13\x01MoxL\x00\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x01r"s;

TEST_F(StateStoreTest, withoutAnyAgentServesNothingButItsOwnState) {
  store();
  const AttrLogCopy& copy = read();
  EXPECT_THAT(copy.interfaces(), IsEmpty());
  ASSERT_NE(copy.storeState(), nullptr);
  EXPECT_EQ(copy.storeState()->bootId(), bootId());
  EXPECT_EQ(copy.storeState()->machineId(), machineId());
  EXPECT_EQ(copy.storeState()->formatVersion(), 1u);
  EXPECT_FALSE(copy.storeState()->complete());
  EXPECT_EQ(copy.storeState()->lostTime(), 0.0);
}

// A reader decides by it before it has received the groups, and there may be a million.
TEST_F(StateStoreTest, sendsItsOwnStateFirstAndInOneFrame) {
  interfaceIs("eth0");
  agentStarts();
  store();
  settle();
  TestSocket reader = TestSocket::connectedTo(path_);
  reader.send(helloFrame);
  settle();
  const std::string hello =
      "\x00\x1d\x01MoxL\x00\x01\x40\x8f\x40\x00\x00\x00\x00\x00\x01\x00\x0bigmpq store"s;
  const std::string root =
      "\x00\x26\x02\x00\x00\x00\x01\x00\x0astoreState\x00\x00\x11"
      "Agent::StoreState\x00"s;
  const std::string attributes =
      "\x04\x00\x00\x00\x01\x00\x01\x02\x00\x00\x00\x01\x01\x03\x00\x24"s;
  const std::string machine = "\x01\x04\x00"s + static_cast<char>(machineId().size());
  const std::string rest =
      "\x01\x05\x01"
      "\x01\x06\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x01\x07\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x01\x08\x00\x00\x00\x00\x00\x00\x00\x00"s;
  const std::string frame = attributes + bootId() + machine + machineId() + rest;
  const std::string length = "\x00"s + static_cast<char>(frame.size());
  EXPECT_THAT(reader.received(), StartsWith(hello + root + length + frame));
}

TEST_F(StateStoreTest, servesWhatTheAgentSendsAndItsChanges) {
  interfaceIs("eth0").groupIs(group)->sourceIs(sender);
  agentStarts();
  store();
  settle();
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  served_.at("eth0")->groupIs(Ilvo::IpAddr(239, 1, 1, 2))->expiryTimeIs(1260.0);
  settle();
  const auto& status = *reader_->interfaces().at("eth0").status;
  ASSERT_NE(status.group(Ilvo::IpAddr(239, 1, 1, 2)), nullptr);
  EXPECT_EQ(status.group(Ilvo::IpAddr(239, 1, 1, 2))->expiryTime(), 1260.0);
  EXPECT_NE(status.group(group)->source(sender), nullptr);
  EXPECT_TRUE(reader_->storeState()->complete());
}

TEST_F(StateStoreTest, servesTheSettingsInEffectAndThoseThatFilesGive) {
  interfaceIs("eth0");
  agentStarts();
  const auto given = Gmp::Igmp::querierConfigFactory("eth0");
  given->robustnessIs(4);
  const auto process = Mox::makePtr<IntakeProcessConfig>();
  process->maxProcessGroupsIs(7);
  agent_->directory().entryIs("configuredConfig/eth0", given, Access::readOnly);
  agent_->directory().entryIs("intakeProcessConfig", process, Access::configurable);
  store();
  settle();
  const AttrLogCopy::Interface& copy = read().interfaces().at("eth0");
  EXPECT_EQ(copy.config->robustness(), 2u);
  EXPECT_EQ(copy.configuredConfig->robustness(), 4u);
  EXPECT_EQ(copy.process->maxProcessGroups(), 7u);
}

TEST_F(StateStoreTest, findsAnAgentThatIsStartedLater) {
  store();
  settle();
  interfaceIs("eth0").groupIs(group);
  agentStarts();
  settle();
  EXPECT_EQ(groupsOf("eth0"), "no such interface");
  advance(StateStore::retryInterval);
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
}

TEST_F(StateStoreTest, keepsEverythingAfterTheAgentHasEnded) {
  const auto made = interfaceIs("eth0").groupIs(group);
  made->creationTimeIs(900.0);
  made->expiryTimeIs(1260.0);
  interfaceIs("eth1").groupIs(group);
  agentStarts();
  store();
  advance(7.0);
  EXPECT_EQ(state().lostTime(), 0.0);
  agentEnds();
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  EXPECT_EQ(reader_->interfaces().at("eth0").status->group(group)->creationTime(), 900.0);
  EXPECT_EQ(reader_->interfaces().at("eth0").status->group(group)->expiryTime(), 1260.0);
  EXPECT_EQ(groupsOf("eth1"), "239.1.1.1");
  EXPECT_TRUE(state().complete());
  EXPECT_EQ(state().groups(), 2u);
  EXPECT_DOUBLE_EQ(state().lostTime(), 1007.0);
  EXPECT_DOUBLE_EQ(state().lostWallClock(), 1507.0);
}

// The kernel keeps the bytes that a killed process has sent.
TEST_F(StateStoreTest, takesAllBytesOfTheAgentBeforeItCountsAsLost) {
  Status& status = interfaceIs("eth0");
  agentStarts();
  store();
  settle();
  for (Mox::U32 at = 1; at <= 1000; ++at) status.groupIs(Ilvo::IpAddr(0xef010000u + at));
  loop_->io().poll_one();
  agentEnds();
  const auto& kept = read();
  EXPECT_NE(kept.storeState()->lostTime(), 0.0);
  EXPECT_EQ(kept.storeState()->groups(), kept.interfaces().at("eth0").status->group().size());
}

TEST_F(StateStoreTest, refusesWritersOfWhateverRights) {
  interfaceIs("eth0");
  agentStarts();
  store();
  settle();
  TestSocket writer = TestSocket::connectedTo(path_);
  writer.send(helloFrame + "\x00\x0c\x04\x00\x00\x00\x02\x00\x01\x02\x00\x00\x00\x05"s);
  settle();
  EXPECT_THAT(writer.received(), HasSubstr("write-update from readonly proxy: eth0"));
  EXPECT_TRUE(writer.isEnded());
  EXPECT_EQ(read().interfaces().at("eth0").config->robustness(), 2u);
}

TEST_F(StateStoreTest, countsTheGroupsForEachReader) {
  Status& status = interfaceIs("eth0");
  agentStarts();
  store();
  settle();
  EXPECT_EQ(state().groups(), 0u);
  status.groupIs(group);
  settle();
  EXPECT_EQ(state().groups(), 1u);
}

TEST_F(StateStoreTest, reportsTheEndOfTheAgentAndTheNextOne) {
  interfaceIs("eth0").groupIs(group);
  agentStarts();
  store();
  settle();
  EXPECT_THAT(events_.taken(), IsEmpty());
  agentEnds();
  EXPECT_THAT(events_.taken(),
              ElementsAre(AllOf(StartsWith("1000 "), EndsWith("; kept: 1 interface, 1 group"))));
  interfaceIs("eth0");
  agentStarts();
  advance(StateStore::retryInterval);
  EXPECT_THAT(events_.taken(), ElementsAre(EndsWith("the agent is back")));
}

TEST_F(StateStoreTest, bytesThatAreNoAttributeLogChangeNothingAndAreReportedOnce) {
  interfaceIs("eth0").groupIs(group);
  agentStarts();
  store();
  settle();
  agentEnds();
  events_.taken();
  const Mox::Seconds lost = state().lostTime();
  TestSocket other = TestSocket::servingAt(agentPath_);
  advance(StateStore::retryInterval);
  for (int attempt = 0; attempt < 2; ++attempt) {
    TestSocket connection = other.accepted();
    ASSERT_GE(connection.fd(), 0);
    connection.send("HTTP/1.1 400 Bad Request\r\n\r\n");
    settle();
    advance(StateStore::refusedInterval);
  }
  EXPECT_THAT(events_.taken(), ElementsAre(HasSubstr("error: ")));
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
  EXPECT_EQ(state().lostTime(), lost);
}

TEST_F(StateStoreTest, refusalOfTheAgentIsReportedAndTriedAgain) {
  agent_.emplace(
      loop_->io(),
      AttrLogServer::Setup{.path = agentPath_, .rightsOf = [](int) { return std::nullopt; }},
      loop_->wheel(), [] {});
  store();
  settle();
  EXPECT_THAT(events_.taken(), ElementsAre(HasSubstr("not permitted to read the attribute log")));
  agent_.reset();
  interfaceIs("eth0").groupIs(group);
  agentStarts();
  advance(StateStore::refusedInterval);
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
}

TEST_F(StateStoreTest, forgetsOneInterfaceWhileNoAgentRuns) {
  interfaceIs("eth0").groupIs(group);
  interfaceIs("eth1").groupIs(group);
  agentStarts();
  store();
  settle();
  agentEnds();
  read();
  EXPECT_EQ(store().forget("eth0"), 1u);
  settle();
  EXPECT_FALSE(reader_->interfaces().contains("eth0"));
  EXPECT_EQ(groupsOf("eth1"), "239.1.1.1");
  EXPECT_EQ(state().groups(), 1u);
}

TEST_F(StateStoreTest, forgetsAllInterfacesForNoName) {
  interfaceIs("eth0").groupIs(group);
  interfaceIs("eth1").groupIs(group);
  agentStarts();
  store();
  settle();
  agentEnds();
  EXPECT_EQ(store().forget(""), 2u);
  EXPECT_THAT(read().interfaces(), IsEmpty());
}

TEST_F(StateStoreTest, forgetsNothingThatARunningAgentWouldNotSendAgain) {
  interfaceIs("eth0").groupIs(group);
  agentStarts();
  store();
  settle();
  EXPECT_THROW(store().forget("eth0"), std::runtime_error);
  EXPECT_EQ(groupsOf("eth0"), "239.1.1.1");
}

TEST_F(StateStoreTest, interfaceThatTheAgentDropsIsGone) {
  interfaceIs("eth0").groupIs(group);
  interfaceIs("eth1");
  agentStarts();
  store();
  settle();
  agent_->directory().entryDel("config/eth0");
  agent_->directory().entryDel("status/eth0");
  settle();
  EXPECT_EQ(groupsOf("eth0"), "no such interface");
  EXPECT_EQ(groupsOf("eth1"), "");
}

}  // namespace
}  // namespace Agent
