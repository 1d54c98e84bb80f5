#include <GmpIgmpQuerier/IgmpQuery.h>

#include <Ilvo/IgmpCode.h>
#include <Mox/ValueStrep.h>

#include "HasCollection.h"

namespace Gmp::Igmp {

Seconds IgmpQuery::maxResponseSeconds() const {
  return Ilvo::igmpCodeDecode(maxResponseCode) / 10.0;
}

std::string valueToStrep(const IgmpQuery& query) { return Mox::valueStrep(query); }

IgmpQuery IgmpQueryInstance(std::string_view) {
  hasCollection("No String constructor for IgmpQuery - has collection");
}

}  // namespace Gmp::Igmp
