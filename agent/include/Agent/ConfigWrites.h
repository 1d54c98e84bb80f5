// What other processes may write into a configuration.
#pragma once

#include <string>

#include <Mox/TypeInfo.h>
#include <Mox/Value.h>

namespace Agent {

// Why a value for an attribute of a querier configuration is refused, for instance "queryInterval
// 0: must be from 1 to 31744 (RFC 3376 8.2)"; empty when it may be set. The configuration itself
// takes any value, and some would let timers spin.
std::string whyConfigRefused(const Mox::AttrInfo& attr, const Mox::Value& value);

}  // namespace Agent
