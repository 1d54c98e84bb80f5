// For tests: an agent of one interface, eth0, that serves its attribute log to clients in the same
// process and the same event loop, in virtual time.
#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Local/EventLoop.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Server/AttrLogServer.h>

#include <AgentTestSupport/TempFolder.h>

namespace Agent {

class ServedAgent {
 public:
  ServedAgent() {
    Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
  }
  ~ServedAgent() {
    server_.reset();
    Mox::eventLogSinkIs({});
    Mox::realTimeIs();
  }
  ServedAgent(const ServedAgent&) = delete;
  ServedAgent& operator=(const ServedAgent&) = delete;

  EventLoop& loop() { return *loop_; }
  const std::string& path() const { return path_; }
  const Mox::Ptr<Gmp::Igmp::QuerierConfig>& config() const { return config_; }
  const Mox::Ptr<Gmp::Igmp::QuerierStatus>& status() const { return status_; }

  void start() {
    using Mox::NboAttrLog::Access;
    server_ = std::make_unique<AttrLogServer>(loop_->io(), AttrLogServer::Setup{.path = path_},
                                              loop_->wheel(), [] {});
    server_->directory().entryIs("config/eth0", config_, Access::configurable);
    server_->directory().entryIs("status/eth0", status_, Access::readOnly);
  }
  // For more entries, while it serves.
  Mox::NboAttrLog::Directory& directory() { return server_->directory(); }
  void stop() { server_.reset(); }
  size_t clients() const { return server_->peers(); }
  // All that can be done within that time, second by second.
  void advance(Mox::Seconds seconds) {
    const Mox::Seconds end = Mox::now() + seconds;
    while (Mox::now() < end) {
      Mox::virtualTimeIs(std::min(end, Mox::now() + 1.0));
      loop_->poll();
    }
  }

 private:
  static std::unique_ptr<EventLoop> virtualLoop() {
    Mox::virtualTimeIs(1000.0);
    return std::make_unique<EventLoop>();
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/attrlog.sock";
  const std::unique_ptr<EventLoop> loop_ = virtualLoop();
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  std::unique_ptr<AttrLogServer> server_;
};

// Bytes that are no attribute log.
inline constexpr const char* otherProtocol = "HTTP/1.1 400 Bad Request\r\n\r\n";

}  // namespace Agent
