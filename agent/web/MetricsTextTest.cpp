#include "MetricsText.h"

#include <string>

#include <gtest/gtest.h>

namespace Agent {
namespace {

constexpr Metric counted{"igmp_x_total", "Packets of a test", prometheus::MetricType::Counter};

TEST(MetricsText, beginsAFamilyOnce) {
  MetricsText text;
  std::string out;
  text.familyIs(counted);
  text.add({{"interface", "eth0"}, {"reason", "a"}}, 5);
  text.appendTo(out);
  text.add({{"interface", "eth1"}}, 12345678901.0);
  text.appendTo(out);
  text.familyIs({"igmp_y", "Another one"});
  text.add({}, 0.25);
  text.appendTo(out);
  EXPECT_EQ(out, R"(# HELP igmp_x_total Packets of a test
# TYPE igmp_x_total counter
igmp_x_total{interface="eth0",reason="a"} 5
igmp_x_total{interface="eth1"} 12345678901
# HELP igmp_y Another one
# TYPE igmp_y gauge
igmp_y 0.25
)");
}

TEST(MetricsText, leavesOutAFamilyWithoutSamples) {
  MetricsText text;
  std::string out;
  text.familyIs(counted);
  text.appendTo(out);
  EXPECT_EQ(out, "");
  text.add({}, 1);
  text.appendTo(out);
  EXPECT_EQ(out,
            "# HELP igmp_x_total Packets of a test\n# TYPE igmp_x_total counter\n"
            "igmp_x_total 1\n");
}

TEST(MetricsText, escapesWhatANameMayContain) {
  MetricsText text;
  std::string out;
  text.familyIs(counted);
  text.add({{"interface", "a\"b\\c\nd"}}, 1);
  text.appendTo(out);
  EXPECT_NE(out.find(R"(interface="a\"b\\c\nd")"), std::string::npos) << out;
}

TEST(MetricsText, delaysAreAHistogramOfAllThatAreNotLonger) {
  DelayCounts delays;
  for (const double delay : {0.0001, 0.0015, 0.03, 7.0}) delays.add(delay);
  MetricsText text;
  std::string out;
  text.familyIs({"igmp_z_seconds", "Delays", prometheus::MetricType::Histogram});
  text.add(delays);
  text.appendTo(out);
  EXPECT_EQ(out, R"(# HELP igmp_z_seconds Delays
# TYPE igmp_z_seconds histogram
igmp_z_seconds_count 4
igmp_z_seconds_sum 7.0316
igmp_z_seconds_bucket{le="0.0005"} 1
igmp_z_seconds_bucket{le="0.001"} 1
igmp_z_seconds_bucket{le="0.002"} 2
igmp_z_seconds_bucket{le="0.005"} 2
igmp_z_seconds_bucket{le="0.01"} 2
igmp_z_seconds_bucket{le="0.02"} 2
igmp_z_seconds_bucket{le="0.05"} 3
igmp_z_seconds_bucket{le="0.1"} 3
igmp_z_seconds_bucket{le="1"} 3
igmp_z_seconds_bucket{le="+Inf"} 4
)");
}

}  // namespace
}  // namespace Agent
