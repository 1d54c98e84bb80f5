// For tests: a querier of an interface whose frames end in the test, in virtual time.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>
#include <gtest/gtest.h>
#include "InterfaceQuerier.h"

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TestAddresses.h>
#include <AgentTestSupport/TestLink.h>

namespace Agent {

class InterfaceQuerierTest : public testing::Test {
 protected:
  using Bytes = std::vector<Mox::U8>;

  static constexpr Ilvo::IpAddr ourAddr{10, 0, 0, 2};
  static constexpr Ilvo::IpAddr lowerAddr{10, 0, 0, 1};
  static constexpr MacAddr ourMac{0x02, 0, 0, 0, 0, 2};

  static Link linkWith(Ilvo::IpAddr addr) { return runningLink(addr, ourMac); }

  struct Port final : FramePort {
    explicit Port(InterfaceQuerierTest& owner) : test(owner) { ++test.portsOpen_; }
    ~Port() override { --test.portsOpen_; }
    std::error_code send(std::span<const Mox::U8> packet) override {
      if (!test.sendFails_) test.sent_.emplace_back(packet.begin(), packet.end());
      return test.sendFails_;
    }
    void handOver() override {
      for (const Bytes& packet : std::exchange(test.notRead_, {})) test.receive(packet);
    }
    PortCounts counts() override { return test.counts_; }
    InterfaceQuerierTest& test;
  };

  InterfaceQuerierTest() {
    Mox::virtualTimeIs(1000.0);
    srand48(1);
    wheel_ = Mox::makePtr<Obel::TimerWheel>(1000.0);
  }
  ~InterfaceQuerierTest() override { Mox::realTimeIs(); }

  InterfaceQuerier& querier() {
    if (!querier_) querier_ = std::make_unique<InterfaceQuerier>(services(), setup());
    return *querier_;
  }
  const InterfaceQuerier::Services& services() {
    services_ = std::make_unique<InterfaceQuerier::Services>(InterfaceQuerier::Services{
        .wheel = wheel_,
        .openPort =
            [this](const Link&, FrameReceiver& receiver) {
              if (!openFails_.empty()) {
                throw std::runtime_error(openFails_);
              }
              receiver_ = &receiver;
              return std::make_unique<Port>(*this);
            },
        .sink = events_,
        .process = process_,
        .batch = batch_,
        .pending = &pending_,
        .onQuery = [this](Mox::Seconds delay) { delays_.push_back(delay); },
        .reportQueries = reportQueries_});
    return *services_;
  }
  InterfaceSetup setup() const { return {.name = "eth0", .config = config_, .intake = intake_}; }

  void up(Ilvo::IpAddr addr = ourAddr) {
    const Link link = linkWith(addr);
    querier().linkIs(&link);
  }
  void down() {
    Link link = linkWith(ourAddr);
    link.up = false;
    querier().linkIs(&link);
  }
  void advance(Mox::Seconds seconds) {
    const Mox::Seconds until = Mox::now() + seconds;
    while (wheel_->nextDue() <= until) {
      Mox::virtualTimeIs(std::max(Mox::now(), wheel_->nextDue()));
      turn();
    }
    Mox::virtualTimeIs(until);
  }
  // As the host does it: first the packets, then the timers, then the events.
  void turn() {
    wheel_->turn(Mox::now());
    pending_.flush();
  }
  void receive(const Bytes& packet) {
    receiver_->rxPacket({.frame = {}, .packet = packet, .outgoing = false});
    receiver_->rxBatchEnd();
    turn();
  }
  // A packet of this machine, on its way out.
  void receiveOutgoing(const Bytes& packet) {
    receiver_->rxPacket({.frame = {}, .packet = packet, .outgoing = true});
    receiver_->rxBatchEnd();
    turn();
  }
  void join() { receive(Ilvo::buildV2Report(group, {.src = host})); }
  const Gmp::Igmp::QuerierStatus& status() { return *querier().view().status; }
  const InterfaceState& state() { return *querier().state(); }
  std::vector<Bytes> sent() { return std::exchange(sent_, {}); }

  Mox::Ptr<Obel::TimerWheel> wheel_;
  EventRecorder events_;
  Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  Mox::Ptr<IntakeConfig> intake_ = Mox::makePtr<IntakeConfig>("eth0");
  IntakeProcess process_;
  ReceivedBatch batch_;
  bool reportQueries_ = false;
  std::string openFails_;
  std::error_code sendFails_;
  std::vector<Bytes> notRead_;  // in the port
  PortCounts counts_;
  int portsOpen_ = 0;
  std::vector<Bytes> sent_;
  std::vector<Mox::Seconds> delays_;  // of general queries
  FrameReceiver* receiver_ = nullptr;
  StatusWatcher::Pending pending_;
  std::unique_ptr<InterfaceQuerier::Services> services_;
  std::unique_ptr<InterfaceQuerier> querier_;
};

}  // namespace Agent
