#include <GmpIgmpQuerier/IgmpQuery.h>

#include <Ilvo/IgmpCode.h>

namespace Gmp::Igmp {

Seconds IgmpQuery::maxResponseSeconds() const {
  return Ilvo::igmpCodeDecode(maxResponseCode) / 10.0;
}

std::string valueToStrep(const IgmpQuery& q) {
  return "Value('Gmp::Igmp::IgmpQuery', ** {'validPacket': " + valueToStrep(q.validPacket) +
         ", 'version': " + valueToStrep(q.version) +
         ", 'maxResponseCode': " + std::to_string(q.maxResponseCode) +
         ", 'groupAddress': " + valueToStrep(q.groupAddress) + ", 's': " + valueToStrep(q.s) +
         ", 'qrv': " + std::to_string(q.qrv) + ", 'qqi': " + std::to_string(q.qqi) +
         ", 'source': " + valueToStrep(q.source) + "})";
}

}  // namespace Gmp::Igmp
