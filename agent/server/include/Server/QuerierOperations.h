// The operations of a querier that an operator can call by name: those without an argument.
//
//   const Mox::AttrInfo* operation = querierOperation("clearCounters");
//   operation->call(*querier, nullptr);
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Mox/TypeInfo.h>

namespace Agent {

// Null for none of that name.
const Mox::AttrInfo* querierOperation(std::string_view name);
// In the order of the querier's attributes.
std::vector<std::string> querierOperationNames();

}  // namespace Agent
