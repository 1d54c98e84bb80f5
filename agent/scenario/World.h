// The objects of a scenario: one wheel, one congestion monitor, and the interfaces with their
// queriers.
#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierSm/QueryOutput.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <Obel/TimerWheel.h>
#include <Scenario/Scenario.h>

#include "CongestedSocket.h"
#include "Observations.h"
#include "StatusObserver.h"

namespace Agent::Scenario {

// The arguments of a querier's construction, kept for a restart.
struct QuerierArguments {
  Ilvo::IpAddr ipAddr;
  Mox::U32 mtu = 1500;
  Mox::U32 startupQueryIntervalDefault = 30;
  bool debugYieldAfterOne = false;
};

// One interface: its entities live as long as the run, its querier comes and goes.
class Interface {
 public:
  Interface(const std::string& name, const QuerierArguments& arguments, Observations& observations,
            const ScenarioOptions& options, Mox::Ptr<const Obel::TimerWheel> wheel,
            Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> monitor);
  ~Interface();

  // Null while it is removed.
  Gmp::Igmp::QuerierSm* querier() const { return querier_.get(); }
  Gmp::Igmp::QuerierConfig& config() const { return *config_; }
  Gmp::Igmp::QuerierStatus& status() const { return *status_; }
  const std::string& name() const { return name_; }

  void create();
  void remove();
  // Null for none.
  void boundaryIs(Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary);

 private:
  void writeQuery(const Gmp::Igmp::PublishedQuery& query);

  const std::string name_;
  const QuerierArguments arguments_;
  Observations& observations_;
  const Mox::Ptr<const Obel::TimerWheel> wheel_;
  const Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> monitor_;
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_;
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_;
  Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary_;
  std::optional<StatusObserver> statusObserver_;  // where changes are observed
  Gmp::Igmp::QueryOutput output_{
      [this](const Gmp::Igmp::PublishedQuery& query) { writeQuery(query); }};
  Mox::Ptr<Gmp::Igmp::QuerierSm> querier_;
};

class World {
 public:
  World(const ScenarioOptions& options, std::FILE* out, Mox::Seconds start);
  ~World();

  const ScenarioOptions& options() const { return options_; }
  Observations& observations() { return observations_; }
  Interface* interface(const std::string& name) const;
  Interface& interfaceIs(const std::string& name, const QuerierArguments& arguments);
  void congestedIs(bool on) { socket_->congestedIs(on); }

  // Fires what is due at or before `time`, then sets the clock to it. False when timers never
  // settle: too many fired without the clock moving, however many steps that took.
  bool advanceTo(Mox::Seconds time);

 private:
  void clockIs(Mox::Seconds time);

  const ScenarioOptions& options_;
  size_t turns_ = 0;
  Observations observations_;
  const Mox::Ptr<Obel::TimerWheel> wheel_;
  const Mox::Ptr<CongestedSocket> socket_;
  const Mox::Ptr<Gmp::Igmp::GmpAttrLogSm> monitor_;
  std::map<std::string, std::unique_ptr<Interface>> interfaces_;
  size_t firedSinceClockMoved_ = 0;
};

}  // namespace Agent::Scenario
