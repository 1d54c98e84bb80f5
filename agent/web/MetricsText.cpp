#include "MetricsText.h"

#include <limits>

namespace Agent {

using prometheus::ClientMetric;
using prometheus::MetricType;

void MetricsText::familyIs(const Metric& metric) {
  prometheus::MetricFamily& family = families_.front();
  family.name = metric.name;
  family.help = metric.help;
  family.type = metric.type;
  isBegun_ = false;
}

void MetricsText::add(Labels labels, double value) {
  prometheus::MetricFamily& family = families_.front();
  ClientMetric& sample = family.metric.emplace_back();
  sample.label.reserve(labels.size());
  for (const Label& label : labels) {
    sample.label.push_back({.name = label.name, .value = std::string(label.value)});
  }
  if (family.type == MetricType::Counter) {
    sample.counter.value = value;
  } else {
    sample.gauge.value = value;
  }
}

void MetricsText::add(const DelayCounts& delays) {
  ClientMetric& sample = families_.front().metric.emplace_back();
  Mox::U64 count = 0;
  for (size_t at = 0; at < DelayCounts::buckets; ++at) {
    count += delays.counts[at];
    ClientMetric::Bucket& bucket = sample.histogram.bucket.emplace_back();
    bucket.cumulative_count = count;
    bucket.upper_bound = at < DelayCounts::bounds.size() ? DelayCounts::bounds[at]
                                                         : std::numeric_limits<double>::infinity();
  }
  sample.histogram.sample_count = count;
  sample.histogram.sample_sum = delays.sum;
}

// The library begins each family with its help, if it has one, and its type.
void MetricsText::appendTo(std::string& out) {
  prometheus::MetricFamily& family = families_.front();
  if (family.metric.empty()) return;
  stream_.str({});
  serializer_.Serialize(stream_, families_);
  std::string_view text = stream_.view();
  if (isBegun_) text.remove_prefix(text.find('\n') + 1);
  out += text;
  family.metric.clear();
  family.help.clear();
  isBegun_ = true;
}

}  // namespace Agent
