// Calls the querier's handler for each change of its configuration, and nothing else.
#pragma once

#include <utility>

#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

class QuerierSm::ConfigReactor final : public QuerierConfig::NotifieeConst {
 public:
  ConfigReactor(Ptr<const QuerierConfig> config, QuerierSm& sm)
      : NotifieeConst(std::move(config)), sm_(sm) {}
  // From now on changes reach nobody, while the configuration is still held.
  void makeInert() { notifier()->notifieeRemove(this); }
  void onQueryInterval() override { sm_.handleQueryInterval(); }
  void onQueryResponseInterval() override { sm_.handleQueryResponseInterval(); }
  void onRobustness() override { sm_.handleRobustness(); }
  void onStartupQueryInterval() override { sm_.handleStartupQueryInterval(); }
  void onQuerierVersion() override { sm_.handleQuerierVersion(); }
  void onSendQuery() override { sm_.handleSendQuery(); }

 private:
  QuerierSm& sm_;  // owns this reactor, so it outlives it
};

}  // namespace Gmp::Igmp
