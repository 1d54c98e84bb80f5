// For tests: a copy that is connected to a real server, in virtual time.
#pragma once

#include <optional>
#include <string>

#include <Client/AttrLogCopy.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Server/AttrLogServer.h>
#include <gtest/gtest.h>

#include <AgentTestSupport/TempFolder.h>
#include <boost/asio/io_context.hpp>

namespace Agent {

class AttrLogCopyTest : public testing::Test {
 protected:
  AttrLogCopyTest() {
    Mox::virtualTimeIs(1000.0);
    Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
    wheel_ = Mox::makePtr<Obel::TimerWheel>(Mox::now());
    copy_.emplace(io_, path_,
                  AttrLogCopy::Handlers{.onCurrent = [this] { ++currentCount_; },
                                        .onEntries = [this] { ++entriesChanged_; },
                                        .onInput = [this] { ++inputs_; },
                                        .onAnswer = [this](Mox::U32 token) { answer_ = token; },
                                        .onEnded =
                                            [this](AttrLogCopy::End end, const std::string& why) {
                                              end_ = end;
                                              why_ = why;
                                            }});
  }
  ~AttrLogCopyTest() override {
    copy_.reset();
    server_.reset();
    Mox::eventLogSinkIs({});
    Mox::realTimeIs();
  }

  void serve() {
    server_.emplace(io_, AttrLogServer::Setup{.path = path_, .stallTimeout = 30.0}, wheel_, [] {});
    for (const auto& [name, served] : served_) {
      server_->directory().entryIs("config/" + name, served.config,
                                   Mox::NboAttrLog::Access::configurable);
      server_->directory().entryIs("status/" + name, served.status,
                                   Mox::NboAttrLog::Access::readOnly);
    }
  }
  void interfaceIs(const std::string& name) {
    served_[name] = {.config = Gmp::Igmp::querierConfigFactory(name),
                     .status = Gmp::Igmp::querierStatusFactory()};
  }
  // Until nothing is left to do.
  void settle() {
    io_.restart();
    io_.poll();
  }
  const AttrLogCopy::Interface& copyOf(const std::string& name) const {
    return copy_->interfaces().at(name);
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/attrlog.sock";
  boost::asio::io_context io_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  AttrLogCopy::Interfaces served_;
  std::optional<AttrLogServer> server_;
  std::optional<AttrLogCopy> copy_;
  int currentCount_ = 0;
  int entriesChanged_ = 0;
  int inputs_ = 0;
  Mox::U32 answer_ = 0;
  std::optional<AttrLogCopy::End> end_;
  std::string why_;
};

}  // namespace Agent
