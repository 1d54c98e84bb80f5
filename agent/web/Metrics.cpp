#include "Metrics.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <Mox/ActivityClock.h>
#include <Text/Printable.h>
#include <fmt/format.h>

#include "InterfaceMetrics.h"
#include "MetricsText.h"
#include "ProcessMetrics.h"

namespace Agent {

using Gmp::Igmp::QuerierStatus;
using prometheus::MetricType;

namespace {

constexpr size_t mostGroupSeries = 10'000;
// Of one step, so that it takes a millisecond at most.
constexpr size_t groupsCountedAtOnce = 5'000;
constexpr size_t groupsWrittenAtOnce = 200;
constexpr size_t interfacesWrittenAtOnce = 50;

class MetricsBody final : public WebBody {
 public:
  // Without the state of an agent that has gone: it would be taken for that of now.
  MetricsBody(const WebState& state, size_t groupSeries)
      : state_(state), groupSeries_(groupSeries) {
    if (!state.agent().isCurrent()) return;
    for (InterfaceView& view : state.views()) {
      std::string label = printable(view.name);
      interfaces_.push_back({.view = std::move(view), .label = std::move(label)});
    }
  }

  Progress append(std::string& out) override;
  // Clients that wait are next, then the rest of the counting.
  void wakeIs(const std::function<void()>& wake) override { wake(); }
  std::string idleText() const override { return "\n"; }

 private:
  enum class Stage { beginning, counting, interfaces, groups, ended };
  struct Place {
    size_t interface = 0;
    Ilvo::IpAddr group = {};
  };

  // Calls f(interface, group) for so many groups from that place on, and moves it behind them.
  // False when there are no more.
  template <class F>
  bool walk(Place& place, size_t groups, F f);
  void one(std::string& out, const Metric& metric, double value, MetricsText::Labels labels = {});
  void appendBeginning(std::string& out);
  void appendOfAgent(std::string& out);
  void appendLimits(std::string& out);
  void appendLoop(std::string& out, const LoopState& loop);
  bool count();
  void appendInterfaces(std::string& out);
  void appendGroups(std::string& out);
  void appendOmitted(std::string& out);

  const WebState& state_;
  const size_t groupSeries_;
  std::vector<MeasuredInterface> interfaces_;
  MetricsText text_;
  Stage stage_ = Stage::beginning;
  size_t metric_ = 0;     // of the interfaces or of the groups
  size_t interface_ = 0;  // the first one that this metric is not written for
  Place group_;           // the first one that is not counted, or that this metric has not
  size_t groupsWritten_ = 0;
};

template <class F>
bool MetricsBody::walk(Place& place, size_t groups, F f) {
  for (; place.interface < interfaces_.size(); ++place.interface) {
    MeasuredInterface& interface = interfaces_[place.interface];
    const QuerierStatus::GroupMap& all = interface.view.status->group();
    for (auto at = all.lowerBound(place.group); at != all.end(); ++at) {
      if (groups-- == 0) {
        place.group = at.key();
        return true;
      }
      f(interface, **at);
    }
    place.group = Ilvo::IpAddr();
  }
  return false;
}

WebBody::Progress MetricsBody::append(std::string& out) {
  const bool isGone = stage_ != Stage::beginning && !state_.agent().isCurrent();
  if (isGone) stage_ = Stage::ended;
  switch (stage_) {
    case Stage::beginning: appendBeginning(out); return Progress::more;
    case Stage::counting: return count() ? Progress::more : Progress::waits;
    case Stage::interfaces: appendInterfaces(out); return Progress::more;
    case Stage::groups: appendGroups(out); return Progress::more;
    case Stage::ended: return Progress::done;
  }
  return Progress::done;
}

void MetricsBody::one(std::string& out, const Metric& metric, double value,
                      MetricsText::Labels labels) {
  text_.familyIs(metric);
  text_.add(labels, value);
  text_.appendTo(out);
}

void MetricsBody::appendBeginning(std::string& out) {
  const bool isCurrent = state_.agent().isCurrent();
  one(out, {"igmp_up", "Whether an agent runs and what follows is its state"}, isCurrent ? 1 : 0);
  one(out, {"igmp_build_info", "Version of igmpq web"}, 1, {{"version", QUERIER_VERSION}});
  appendProcessMetrics(text_, out);
  if (isCurrent) appendOfAgent(out);
  stage_ = isCurrent ? Stage::counting : Stage::ended;
}

void MetricsBody::appendOfAgent(std::string& out) {
  one(out, {"igmp_interfaces", "Interfaces of the agent"}, static_cast<double>(interfaces_.size()));
  appendLimits(out);
  if (const auto& loop = state_.agent().copy().loop()) appendLoop(out, *loop);
}

void MetricsBody::appendLimits(std::string& out) {
  if (const auto& config = state_.agent().copy().process()) {
    text_.familyIs({"igmp_process_limit", "The most that all interfaces together may have"});
    text_.add({{"resource", "groups"}}, config->maxProcessGroups());
    text_.add({{"resource", "sources"}}, config->maxProcessSources());
    text_.appendTo(out);
  }
  if (const auto& status = state_.agent().copy().processStatus()) {
    text_.familyIs({"igmp_process_high_water", "The most that all interfaces together have had"});
    text_.add({{"resource", "groups"}}, static_cast<double>(status->groupsMost()));
    text_.add({{"resource", "sources"}}, static_cast<double>(status->sourcesMost()));
    text_.appendTo(out);
  }
}

void MetricsBody::appendLoop(std::string& out, const LoopState& loop) {
  one(out, {"igmp_loop_batches_total", "Times that the agent read packets", MetricType::Counter},
      static_cast<double>(loop.batches()));
  one(out, {"igmp_loop_longest_gap_seconds", "The longest time that it did not read packets"},
      loop.longestGap());
  text_.familyIs(
      {"igmp_loop_gap_seconds", "Times for which it did not read packets", MetricType::Histogram});
  text_.add(loop.gaps());
  text_.appendTo(out);
  text_.familyIs({"igmp_query_lateness_seconds",
                  "Times from when general queries were due until they were sent",
                  MetricType::Histogram});
  text_.add(loop.queryDelays());
  text_.appendTo(out);
}

bool MetricsBody::count() {
  if (walk(group_, groupsCountedAtOnce,
           [](MeasuredInterface& interface, const auto& group) { interface.counts.add(group); })) {
    return false;
  }
  stage_ = Stage::interfaces;
  return true;
}

void MetricsBody::appendInterfaces(std::string& out) {
  const InterfaceMetric& metric = interfaceMetrics()[metric_];
  if (interface_ == 0) text_.familyIs(metric.metric);
  const size_t end = std::min(interface_ + interfacesWrittenAtOnce, interfaces_.size());
  for (; interface_ < end; ++interface_) {
    metric.add(text_, interfaces_[interface_], Mox::now());
  }
  text_.appendTo(out);
  if (interface_ < interfaces_.size()) return;
  interface_ = 0;
  if (++metric_ < interfaceMetrics().size()) return;
  metric_ = 0;
  group_ = Place();
  stage_ = groupSeries_ == 0 ? Stage::ended : Stage::groups;
}

void MetricsBody::appendGroups(std::string& out) {
  const GroupMetric& metric = groupMetrics()[metric_];
  if (groupsWritten_ == 0) text_.familyIs(metric.metric);
  const size_t groups = std::min(groupsWrittenAtOnce, groupSeries_ - groupsWritten_);
  const bool isMore = walk(group_, groups, [&](MeasuredInterface& interface, const auto& group) {
    metric.add(text_, interface.label, group, Mox::now());
    ++groupsWritten_;
  });
  text_.appendTo(out);
  if (isMore && groupsWritten_ < groupSeries_) return;
  if (metric_ == 0) appendOmitted(out);
  group_ = Place();
  groupsWritten_ = 0;
  if (++metric_ == groupMetrics().size()) stage_ = Stage::ended;
}

// Groups may have come or gone since they were counted.
void MetricsBody::appendOmitted(std::string& out) {
  Mox::U64 groups = 0;
  for (const MeasuredInterface& each : interfaces_) groups += each.counts.groups();
  one(out, {"igmp_groups_without_series", "Groups beyond the number that was asked for"},
      static_cast<double>(groups - std::min<Mox::U64>(groups, groupsWritten_)));
}

}  // namespace

WebAnswer metricsAnswer(const ApiCall& call) {
  std::optional<size_t> groups = 0;
  if (const auto given = call.query.find("groups"); given != call.query.end()) {
    groups = numberOf(given->second);
    if (!groups || *groups == 0 || *groups > mostGroupSeries) {
      return webError(400, fmt::format("groups is no number from 1 to {}", mostGroupSeries));
    }
  }
  return {.type = MetricsText::contentType,
          .body = std::make_unique<MetricsBody>(call.state, *groups)};
}

}  // namespace Agent
