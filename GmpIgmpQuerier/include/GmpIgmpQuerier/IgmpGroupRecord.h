// One group record of a version 3 report (RFC 3376 4.2.4).
#pragma once

#include <string>
#include <string_view>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/IpAddrSet.h>
#include <GmpIgmpQuerier/RecordType.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/AttrTable.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

struct MOX_PUBLIC IgmpGroupRecord {
  static constexpr const char* valueTypeName = "Gmp::Igmp::IgmpGroupRecord";
  IgmpVersion version = igmpVersionUnknown;
  RecordType rType;
  IpAddr multicastAddr;
  IpAddrSet source;

  void newSource(IpAddr addr, bool) { source.insert(addr); }
  void sourceDelAll() { source.clear(); }

  friend bool operator==(const IgmpGroupRecord&, const IgmpGroupRecord&) = default;
  // True for the value of a default-constructed record.
  bool operator!() const { return *this == IgmpGroupRecord(); }

  static constexpr Mox::FieldTable fields{
      Mox::Field{"version", &IgmpGroupRecord::version},
      Mox::Field{"rType", &IgmpGroupRecord::rType},
      Mox::Field{"multicastAddr", &IgmpGroupRecord::multicastAddr},
      Mox::Field{"source", &IgmpGroupRecord::source},
  };
};

// "Value('Gmp::Igmp::IgmpGroupRecord', ** {...})", every field in its own form.
MOX_PUBLIC std::string valueToStrep(const IgmpGroupRecord& record);
// The same in traces and messages.
inline void appendText(std::string& out, const IgmpGroupRecord& record) {
  out += valueToStrep(record);
}
// A fatal assertion: a record holds a collection, and no text form of those is read back.
[[noreturn]] MOX_PUBLIC IgmpGroupRecord IgmpGroupRecordInstance(std::string_view text);

}  // namespace Gmp::Igmp
