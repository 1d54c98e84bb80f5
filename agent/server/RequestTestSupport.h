// For tests of requests: an agent of one interface, in virtual time, and the levels of the trace
// handles as they were before.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ActivityClock.h>
#include <Mox/Trace.h>
#include <Obel/TimerWheel.h>
#include <Server/RequestServices.h>
#include <gtest/gtest.h>
#include "RequestSession.h"

namespace Agent {

// The handle that tests trace by; every level of it is recorded.
inline Mox::TraceHandle& testTrace() {
  Mox::TraceHandle& handle = Mox::TraceHandle::named("RequestTest");
  handle.ringLevelIs(9);
  return handle;
}

// The answer to a request that has no result.
inline constexpr const char* ok = "{}";

class RequestAgent {
 public:
  RequestAgent() {
    testTrace();
    for (Mox::TraceHandle* handle : Mox::TraceHandle::all()) {
      levels_.emplace_back(handle, handle->ringLevel());
    }
  }
  ~RequestAgent() {
    for (const auto& [handle, level] : levels_) handle->ringLevelIs(level);
    Mox::realTimeIs();
  }
  RequestAgent(const RequestAgent&) = delete;
  RequestAgent& operator=(const RequestAgent&) = delete;

  Mox::Ptr<const Obel::TimerWheel> wheel() const { return wheel_; }
  void interfaceDown() { querier_ = nullptr; }
  const Mox::Ptr<Gmp::Igmp::QuerierStatus>& status() const { return status_; }
  int turns() const { return turns_; }
  // The groups that were last cleared: "eth0 239.1.1.1", "eth0 all".
  const std::string& cleared() const { return cleared_; }
  void turn() { wheel_->turn(Mox::now()); }

  RequestServices services() {
    return {.queriers =
                [this] {
                  return RequestServices::Queriers{{"eth0", querier_}};
                },
            .roots =
                [this] {
                  return ObjectRoots{{"config/eth0", config_}, {"status/eth0", status_}};
                },
            .turn =
                [this] {
                  ++turns_;
                  turn();
                },
            .clearGroups =
                [this](const std::string& interface, std::optional<Ilvo::IpAddr> group) {
                  cleared_ = interface + " " + (group ? group->stringValue() : "all");
                  return size_t{3};
                }};
  }

 private:
  static Mox::Ptr<Obel::TimerWheel> wheelAt(Mox::Seconds time) {
    Mox::virtualTimeIs(time);
    return Mox::makePtr<Obel::TimerWheel>(time);
  }

  const Mox::Ptr<Obel::TimerWheel> wheel_ = wheelAt(1000.0);
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  Mox::Ptr<Gmp::Igmp::QuerierSm> querier_ = Gmp::Igmp::querierSmFactory(
      config_, status_, Ilvo::IpAddr(10, 0, 0, 2), 1500, 0, wheel_, wheel_, wheel_, false);
  std::vector<std::pair<Mox::TraceHandle*, int>> levels_;
  std::string cleared_;
  int turns_ = 0;
};

// Pushes everything that was recorded before out of the ring.
inline void fillRing() {
  const Mox::U64 before = Mox::brevlog().recorded();
  do {
    Mox::trace<3>(testTrace(), "fills the ring");
  } while (Mox::brevlog().overwritten() <= before);
}

inline std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  if (begin != text.size()) lines.push_back("unfinished: " + text.substr(begin));
  return lines;
}

// One client of that agent.
class RequestSessionTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;
  using Rights = Request::Rights;

  void send(const std::string& text) { session_->in(text); }
  // All lines that it has now.
  Lines received() {
    // More than the ring fills, and than requests fit into a line.
    constexpr size_t mostParts = 10'000;
    std::string all;
    size_t parts = 0;
    for (std::string_view out = session_->out(); !out.empty() || session_->isWorking();
         out = session_->out()) {
      all += out;
      session_->taken(out.size());
      if (++parts == mostParts) {
        ADD_FAILURE() << "an answer without end";
        break;
      }
    }
    return linesOf(all);
  }
  Lines answerTo(const std::string& request) {
    send(request + "\n");
    return received();
  }
  void rightsAreToRead() { session_.emplace(services_, Rights::read); }

  RequestAgent agent_;
  const RequestServices services_ = agent_.services();
  std::optional<RequestSession> session_{std::in_place, services_, Rights::configure};
};

}  // namespace Agent
