#include <GmpIgmpQuerier/IgmpReport.h>

#include <algorithm>
#include <utility>

#include <Mox/ValueStrep.h>

#include "HasCollection.h"

namespace Gmp::Igmp {

namespace {

template <class Records>
auto at(Records& records, U32 index) {
  return std::lower_bound(records.begin(), records.end(), index,
                          [](const IgmpReport::Member& m, U32 i) { return m.index < i; });
}

}  // namespace

IgmpGroupRecord IgmpReport::groupRecord(U32 index) const {
  const auto found = at(records_, index);
  return found != records_.end() && found->index == index ? found->record : IgmpGroupRecord();
}

IgmpGroupRecord& IgmpReport::groupRecordIs(U32 index) {
  auto found = at(records_, index);
  if (found == records_.end() || found->index != index) {
    found = records_.insert(found, Member{index, {}});
  }
  return found->record;
}

void IgmpReport::newGroupRecord(U32 index, IgmpGroupRecord record) {
  groupRecordIs(index) = std::move(record);
}

void IgmpReport::groupRecordDel(U32 index) {
  const auto found = at(records_, index);
  if (found != records_.end() && found->index == index) records_.erase(found);
}

std::string valueToStrep(const IgmpReport& report) { return Mox::valueStrep(report); }

std::string valueToStrep(const IgmpReport::Records& records) {
  std::string text = "{";
  for (const auto& [index, record] : records) {
    if (text.size() > 1) text += ", ";
    text += std::to_string(index) + ": " + valueToStrep(record);
  }
  return text + "}";
}

IgmpReport IgmpReportInstance(std::string_view) {
  hasCollection("No String constructor for IgmpReport - has collection");
}

}  // namespace Gmp::Igmp
