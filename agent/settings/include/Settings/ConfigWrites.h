// What other processes may write into a configuration.
#pragma once

#include <span>
#include <string>

#include <Mox/Entity.h>
#include <NboAttrLog/TreeIn.h>

namespace Agent {

// Why values that are to be written together into a querier configuration are refused, for instance
// "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)"; empty when they may be set. The
// configuration itself takes any value, and some would let timers spin. Each must be in its range,
// and with all of them the configuration must not contradict itself: what a writer checked against
// its copy, another one may have changed since.
std::string whyConfigRefused(const Mox::EntityBase& config,
                             std::span<const Mox::NboAttrLog::Written> values);

}  // namespace Agent
