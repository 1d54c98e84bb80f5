// The metrics that every process has, of this one: process_cpu_seconds_total and the like.
#pragma once

#include <string>

#include "MetricsText.h"

namespace Agent {

// Those that the kernel does not give are left out.
void appendProcessMetrics(MetricsText& text, std::string& out);

}  // namespace Agent
