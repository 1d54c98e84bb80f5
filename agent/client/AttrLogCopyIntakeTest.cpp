// Copies of the intakes of an agent.
#include <Client/AttrLogCopy.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Client/SettingWrite.h>
#include <Intake/IntakeProcess.h>
#include <Report/LoopState.h>

#include "AttrLogCopyTestSupport.h"

namespace Agent {
namespace {

using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using testing::HasSubstr;

TEST_F(AttrLogCopyTest, holdsTheIntakeOfEachInterfaceAndWritesItsSettings) {
  interfaceIs("eth0");
  serve();
  const auto config = Mox::makePtr<IntakeConfig>("eth0");
  const auto status = Mox::makePtr<IntakeStatus>("eth0");
  const auto process = Mox::makePtr<IntakeProcessConfig>();
  config->permittedQueriersIs(PrefixList("10.0.0.0/24"));
  Directory& directory = server_->directory();
  directory.entryIs("intakeConfig/eth0", config, Access::configurable);
  directory.entryIs("intakeStatus/eth0", status, Access::readOnly);
  directory.entryIs("intakeProcessConfig", process, Access::configurable);
  copy_->connect();
  settle();
  ASSERT_NE(copyOf("eth0").intake, nullptr);
  EXPECT_EQ(copyOf("eth0").intake->permittedQueriers(), PrefixList("10.0.0.0/24"));
  status->countedInc(IntakeRule::wrongTtl, 3);
  SettingWrite settings;
  for (const char* setting : {"maxGroups=7", "acceptedGroups=239.0.0.0/8", "maxProcessGroups=9"}) {
    settings.add(setting);
  }
  copy_->writeTogether([&] { settings.write(copyOf("eth0")); });
  settle();
  EXPECT_EQ(copyOf("eth0").intakeStatus->counted(IntakeRule::wrongTtl), 3u);
  EXPECT_EQ(config->maxGroups(), 7u);
  EXPECT_EQ(config->acceptedGroups(), PrefixList("239.0.0.0/8"));
  EXPECT_EQ(process->maxProcessGroups(), 9u);
  directory.entryDel("intakeStatus/eth0");
  settle();
  EXPECT_EQ(copyOf("eth0").intakeStatus, nullptr);
}

TEST_F(AttrLogCopyTest, writesNoSettingOfAnIntakeThatTheAgentRefuses) {
  interfaceIs("eth0");
  serve();
  const auto config = Mox::makePtr<IntakeConfig>("eth0");
  server_->directory().entryIs("intakeConfig/eth0", config, Access::configurable);
  copy_->connect();
  settle();
  copyOf("eth0").intake->maxGroupsIs(0);
  settle();
  EXPECT_EQ(config->maxGroups(), 65536u);
  EXPECT_THAT(why_, HasSubstr("maxGroups: must be a whole number from 1 to 16777216"));
}

TEST_F(AttrLogCopyTest, holdsWhatAllInterfacesHaveTogether) {
  interfaceIs("eth0");
  serve();
  const auto status = Mox::makePtr<IntakeProcessStatus>();
  const auto loop = Mox::makePtr<LoopState>();
  server_->directory().entryIs("intakeProcessStatus", status, Access::readOnly);
  server_->directory().entryIs("loop", loop, Access::readOnly);
  EXPECT_EQ(copy_->processStatus(), nullptr);
  EXPECT_EQ(copy_->loop(), nullptr);
  copy_->connect();
  settle();
  status->groupsMostIs(7);
  DelayCounts gaps;
  gaps.add(0.003);
  loop->gapsIs(gaps);
  settle();
  EXPECT_EQ(copy_->processStatus()->groupsMost(), 7u);
  EXPECT_EQ(copy_->loop()->gaps().counts, gaps.counts);
  EXPECT_EQ(copy_->loop()->gaps().sum, 0.003);
  EXPECT_EQ(copy_->process(), nullptr);
}

}  // namespace
}  // namespace Agent
