// Writes metrics in the text format of Prometheus (version 0.0.4), a part of a family at a time:
// all samples of a family stand together, behind one HELP and one TYPE.
//
//   MetricsText text;
//   text.familyIs({.name = "igmp_sources", .help = "Sources of groups", .type = gauge});
//   text.add({{"interface", "eth0"}}, 3);
//   text.appendTo(out);  // what was added since the last call
#pragma once

#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <MoxBase/Types.h>
#include <Report/LoopState.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

namespace Agent {

struct Metric {
  const char* name;
  const char* help;
  prometheus::MetricType type = prometheus::MetricType::Gauge;
};

class MetricsText {
 public:
  static constexpr const char* contentType = "text/plain; version=0.0.4; charset=utf-8";

  struct Label {
    const char* name;
    std::string_view value;  // UTF-8
  };
  using Labels = std::initializer_list<Label>;

  void familyIs(const Metric& metric);
  void add(Labels labels, double value);
  void add(const DelayCounts& delays);
  // Nothing where nothing was added.
  void appendTo(std::string& out);

 private:
  const prometheus::TextSerializer serializer_{};
  std::vector<prometheus::MetricFamily> families_{1};  // the one that is being written
  std::ostringstream stream_;
  bool isBegun_ = false;
};

}  // namespace Agent
