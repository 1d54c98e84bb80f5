// For tests: a store, agents that it copies, and readers of it, in one event loop and virtual time.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Client/AttrLogCopy.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Local/EventLoop.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Server/AttrLogServer.h>
#include <Store/StateStore.h>
#include <gtest/gtest.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TempFolder.h>

namespace Agent {

class StateStoreTest : public testing::Test {
 protected:
  using Status = Gmp::Igmp::QuerierStatus;
  using Lines = std::vector<std::string>;

  StateStoreTest() {
    Mox::virtualTimeIs(1000.0);
    wallClockDifferenceIs(500.0);
    Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
    loop_.emplace();
  }
  ~StateStoreTest() override {
    reader_.reset();
    agent_.reset();
    store_.reset();
    Mox::eventLogSinkIs({});
    Mox::realTimeIs();
  }

  StateStore& store() {
    if (!store_) {
      store_.emplace(*loop_, StateStore::Setup{.path = path_, .agentPath = agentPath_}, events_);
      store_->start();
    }
    return *store_;
  }
  // An interface of the next agent, or of the one that runs.
  Status& interfaceIs(const std::string& name) {
    Mox::Ptr<Status>& status = served_[name];
    status = Gmp::Igmp::querierStatusFactory();
    if (agent_) publish(name);
    return *status;
  }
  void agentStarts() {
    agent_.emplace(loop_->io(), AttrLogServer::Setup{.path = agentPath_}, loop_->wheel(), [] {});
    for (const auto& [name, status] : served_) publish(name);
  }
  // As after kill -9: its sockets end, and the next one begins without any state.
  void agentEnds() {
    agent_.reset();
    served_.clear();
    settle();
  }
  void publish(const std::string& name) {
    using Mox::NboAttrLog::Access;
    agent_->directory().entryIs("config/" + name, Gmp::Igmp::querierConfigFactory(name),
                                Access::configurable);
    agent_->directory().entryIs("status/" + name, served_.at(name), Access::readOnly);
  }
  // Until nothing is left to do now.
  void settle() { loop_->poll(); }
  void advance(Mox::Seconds seconds) {
    const Mox::Seconds end = Mox::now() + seconds;
    while (Mox::now() < end) {
      Mox::virtualTimeIs(std::min(end, Mox::now() + StateStore::retryInterval));
      settle();
    }
  }
  // What a reader that connects now is sent.
  const AttrLogCopy& read() {
    reader_.emplace(loop_->io(), path_,
                    AttrLogCopy::Handlers{.onCurrent = [this] { isCurrent_ = true; }});
    isCurrent_ = false;
    reader_->connect();
    settle();
    EXPECT_TRUE(isCurrent_);
    return *reader_;
  }
  // The groups of an interface that a reader is sent: "239.1.1.1 239.1.1.2".
  std::string groupsOf(const std::string& name) {
    const auto& interfaces = read().interfaces();
    const auto found = interfaces.find(name);
    if (found == interfaces.end()) return "no such interface";
    std::string text;
    const auto& groups = found->second.status->group();
    for (auto at = groups.begin(); at != groups.end(); ++at) {
      if (!text.empty()) text += ' ';
      text += at.key().stringValue();
    }
    return text;
  }
  const StoreState& state() { return *read().storeState(); }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/store.sock";
  const std::string agentPath_ = folder_.path() + "/attrlog.sock";
  std::optional<EventLoop> loop_;
  std::map<std::string, Mox::Ptr<Status>> served_;
  EventRecorder events_;
  std::optional<StateStore> store_;
  std::optional<AttrLogServer> agent_;
  std::optional<AttrLogCopy> reader_;
  bool isCurrent_ = false;
};

}  // namespace Agent
