#include <GmpIgmpQuerierSm/MessageText.h>

namespace Gmp::Igmp {

IgmpQueryText traceTextOf(const IgmpQuery& q) {
  return {q.groupAddress, static_cast<U32>(q.source.size()), q.maxResponseCode, q.qrv, q.s};
}

void appendText(std::string& out, const IgmpQueryText& text) {
  out += "IgmpQuery( " + text.group.stringValue() + " code " +
         std::to_string(text.maxResponseCode) + " qrv " + std::to_string(text.qrv) +
         (text.s ? " s 1" : " s 0") + " sources " + std::to_string(text.sources) + " )";
}

IgmpGroupRecordText traceTextOf(const IgmpGroupRecord& r) {
  return {r.multicastAddr, static_cast<U32>(r.source.size()), r.rType.value()};
}

void appendText(std::string& out, const IgmpGroupRecordText& text) {
  out += "IgmpGroupRecord( " + text.group.stringValue() + " type " + std::to_string(text.type) +
         " sources " + std::to_string(text.sources) + " )";
}

}  // namespace Gmp::Igmp
