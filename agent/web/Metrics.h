// /metrics: the agent's state in the text format of Prometheus.
//
// The text is made a part at a time while it is sent: a family of some interfaces, then of the next
// ones. Of a thousand interfaces or a million groups no more than that is in memory, and counting
// groups makes nobody else wait.
#pragma once

#include "ApiAnswers.h"

namespace Agent {

// "groups" in the query asks for series of so many groups; how many have none is a metric, too.
WebAnswer metricsAnswer(const ApiCall& call);

}  // namespace Agent
