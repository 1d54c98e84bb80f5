#include <GmpIgmpQuerier/IgmpGroupRecord.h>

#include <Mox/ValueStrep.h>

#include "HasCollection.h"

namespace Gmp::Igmp {

std::string valueToStrep(const IgmpGroupRecord& record) { return Mox::valueStrep(record); }

IgmpGroupRecord IgmpGroupRecordInstance(std::string_view) {
  hasCollection("No String constructor for IgmpGroupRecord - has collection");
}

}  // namespace Gmp::Igmp
