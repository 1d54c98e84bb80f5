// The entries of the directory that a copy has, as a store of the state serves them again.
#include <Client/AttrLogCopy.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AttrLogCopyTestSupport.h"

#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using testing::ElementsAre;

class AttrLogCopyEntriesTest : public AttrLogCopyTest {
 protected:
  std::vector<std::string> paths() const {
    std::vector<std::string> all;
    copy_->forEachEntry([&](const std::string& path, const auto&) { all.push_back(path); });
    return all;
  }
};

TEST_F(AttrLogCopyEntriesTest, holdsWhatCommandLineAndFilesGive) {
  interfaceIs("eth0");
  serve();
  Directory& directory = server_->directory();
  const auto config = Gmp::Igmp::querierConfigFactory("eth0");
  const auto process = Mox::makePtr<IntakeProcessConfig>();
  config->robustnessIs(5);
  process->maxProcessGroupsIs(9);
  directory.entryIs("configuredConfig/eth0", config, Access::readOnly);
  directory.entryIs("configuredIntakeConfig/eth0", Mox::makePtr<IntakeConfig>("eth0"),
                    Access::readOnly);
  directory.entryIs("configuredIntakeProcessConfig", process, Access::readOnly);
  copy_->connect();
  settle();
  EXPECT_EQ(copyOf("eth0").config->robustness(), 2u);
  EXPECT_EQ(copyOf("eth0").configuredConfig->robustness(), 5u);
  EXPECT_EQ(copyOf("eth0").configuredProcess->maxProcessGroups(), 9u);
  EXPECT_THAT(paths(), ElementsAre("config/eth0", "status/eth0", "configuredConfig/eth0",
                                   "configuredIntakeConfig/eth0", "configuredIntakeProcessConfig"));
}

TEST_F(AttrLogCopyEntriesTest, holdsTheStateOfAStoreApartFromItsEntries) {
  serve();
  const auto state = Mox::makePtr<StoreState>();
  state->bootIdIs("of today");
  state->groupsIs(3);
  server_->directory().entryIs(AttrLogCopy::storePath, state, Access::readOnly);
  copy_->connect();
  EXPECT_EQ(copy_->storeState(), nullptr);
  settle();
  ASSERT_NE(copy_->storeState(), nullptr);
  EXPECT_EQ(copy_->storeState()->bootId(), "of today");
  EXPECT_EQ(copy_->storeState()->groups(), 3u);
  EXPECT_THAT(paths(), ElementsAre());
}

TEST_F(AttrLogCopyEntriesTest, areReportedWhenTheyComeAndGoAndNotWhenValuesChange) {
  interfaceIs("eth0");
  serve();
  copy_->connect();
  settle();
  EXPECT_EQ(entriesChanged_, 1);
  served_["eth0"].status->groupIs(group);
  settle();
  EXPECT_EQ(entriesChanged_, 1);
  server_->directory().entryIs("interface/eth0", Mox::makePtr<InterfaceState>("eth0"),
                               Access::readOnly);
  settle();
  EXPECT_EQ(entriesChanged_, 2);
  server_->directory().entryDel("interface/eth0");
  settle();
  EXPECT_EQ(entriesChanged_, 3);
}

TEST_F(AttrLogCopyEntriesTest, areReportedWhenTheNextAgentLacksSomeOfThem) {
  interfaceIs("eth0");
  interfaceIs("eth1");
  serve();
  copy_->connect();
  settle();
  server_.reset();
  settle();
  served_.erase("eth1");
  serve();
  copy_->connect();
  settle();
  EXPECT_EQ(entriesChanged_, 2);
  EXPECT_THAT(paths(), ElementsAre("config/eth0", "status/eth0"));
}

TEST_F(AttrLogCopyEntriesTest, ofAnInterfaceCanBeForgottenBetweenConnections) {
  interfaceIs("eth0");
  interfaceIs("eth1");
  serve();
  copy_->connect();
  settle();
  server_.reset();
  settle();
  copy_->forget("eth0");
  EXPECT_THAT(paths(), ElementsAre("config/eth1", "status/eth1"));
}

}  // namespace
}  // namespace Agent
