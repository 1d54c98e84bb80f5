// A router of the world: the agent's querier of one interface with its intake, whose port ends on
// the simulated link. Above the port everything is as in the agent.
//
// It can crash and lose its state, be killed and begin on the state that a store has of it, go down
// and come back on its state, be stopped for a while, and change its address and settings.
// `served` is what a forwarding plane would deliver by its status.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <Events/Event.h>
#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Obel/TimerWheel.h>
#include "InterfaceQuerier.h"

#include "Frame.h"
#include "Settings.h"
#include "Store.h"

namespace Sim {

class Router {
 public:
  // A fault on purpose, which an invariant must find.
  enum class Fault { none, silentWinner, dropsLeaves, forgetsOnRestart, sendsTwice, hoards };
  // How long the times of sources may be behind in what a store has.
  static constexpr Seconds storeGrace = 30.0;
  using Transmit = std::function<void(std::span<const U8> packet)>;
  using QuerierState = Gmp::Igmp::QuerierStatus::QuerierState;

  Router(Node node, Ilvo::IpAddr address, const Settings& settings, Transmit transmit);
  ~Router();

  Node node() const { return node_; }
  Ilvo::IpAddr address() const { return address_; }
  const Settings& settings() const { return settings_; }
  bool isRunning() const { return querier_ != nullptr && querier_->running(); }
  bool isUp() const { return up_; }
  bool isStopped() const { return stopped_; }
  Fault fault() const { return fault_; }
  void faultIs(Fault fault) { fault_ = fault; }

  void settingsIs(const Settings& settings);
  void addressIs(Ilvo::IpAddr address);
  // A store keeps its state from here on.
  void storeIs();
  // Its process ends, and its state with it; then a new one begins.
  void crash();
  void start();
  // Its process ends in the middle of its work: the changes that it made last are lost.
  void kill();
  // What the store has, for the next process; null for nothing.
  Store::Status keptState() const { return store_ && !hasProcess() ? store_->kept() : nullptr; }
  // Everything that it has changed arrives at the store.
  void sendToStore();
  // The interface goes down and comes back: the next querier begins on the state of the last.
  void upIs(bool up);
  // The process does not run; its receive ring keeps what is received.
  void stop();
  // Returns what it then handles of its ring.
  std::deque<const Frame*> resume();

  void receive(const Frame& frame);
  // Fires the timers that are due; true when any was.
  bool turn();
  Seconds nextDue() const;

  const Gmp::Igmp::QuerierStatus& status() const { return *querier_->status(); }
  const Mox::Ptr<Gmp::Igmp::QuerierSm>& querierSm() const { return querier_->querier(); }
  QuerierState role() const { return status().state(); }
  bool isQuerier() const { return isRunning() && role() == QuerierState::querierStateQuerier; }
  Seconds groupMembershipInterval() const { return status().groupMembershipInterval(); }
  size_t timers() const { return wheel_->armed(); }
  Mask served() const;
  // The sources that it has in its groups, served or not.
  Mask tracked() const;
  // The sources of groups with hosts of older versions.
  Mask oldModeSources() const;
  // What of a report it disregards while hosts of version 1 are present (RFC 3376 7.3.2).
  Mask disregarded(const Frame& report) const;
  bool hasProcess() const { return querier_ != nullptr; }

 private:
  class Port;
  class Events final : public Agent::EventSink {
   public:
    void event(const Agent::Event&) override {}
  };

  Agent::Link link() const;
  void handIn(const Frame& frame);
  void send(std::span<const U8> packet);
  bool isDropped(const Frame& frame) const;

  const Node node_;
  Ilvo::IpAddr address_;
  Settings settings_;
  const Transmit transmit_;
  bool up_ = true;
  bool stopped_ = false;
  Fault fault_ = Fault::none;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Events events_;
  Agent::IntakeProcess process_;
  Agent::ReceivedBatch batch_;
  Agent::StatusWatcher::Pending pending_;
  const std::string name_;
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_;
  const Mox::Ptr<Agent::IntakeConfig> intake_;
  std::unique_ptr<Agent::InterfaceQuerier::Services> services_;
  Agent::FrameReceiver* receiver_ = nullptr;  // while a port is open
  std::unique_ptr<Agent::InterfaceQuerier> querier_;
  std::unique_ptr<Store> store_;   // null for none
  std::deque<const Frame*> ring_;  // received while it was stopped
  std::map<const void*, Mox::Ptr<Gmp::Igmp::QuerierGroupStatus>> hoard_;  // by itself
};

}  // namespace Sim
