#include <Server/QuerierOperations.h>

#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Agent {

namespace {

// Packets are received by an operation, too, but it takes an argument.
bool isForOperators(const Mox::AttrInfo& attr) {
  return attr.call != nullptr && attr.parameter == nullptr;
}

}  // namespace

const Mox::AttrInfo* querierOperation(std::string_view name) {
  const Mox::AttrInfo* attr = Mox::typeInfoOf<Gmp::Igmp::QuerierSm>().attr(name);
  return attr != nullptr && isForOperators(*attr) ? attr : nullptr;
}

std::vector<std::string> querierOperationNames() {
  std::vector<std::string> names;
  for (const Mox::AttrInfo& attr : Mox::typeInfoOf<Gmp::Igmp::QuerierSm>().attrs) {
    if (isForOperators(attr)) names.emplace_back(attr.name);
  }
  return names;
}

}  // namespace Agent
