#include <GmpIgmpQuerier/IgmpGroupRecord.h>

namespace Gmp::Igmp {

std::string valueToStrep(const IgmpGroupRecord& r) {
  return "Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': " + valueToStrep(r.version) +
         ", 'rType': " + valueToStrep(r.rType) +
         ", 'multicastAddr': " + valueToStrep(r.multicastAddr) +
         ", 'source': " + valueToStrep(r.source) + "})";
}

}  // namespace Gmp::Igmp
