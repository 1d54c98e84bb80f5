// A version 3 report as parsed values (RFC 3376 4.2): its records by their place in the message.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/AttrTable.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC IgmpReport {
 public:
  static constexpr const char* valueTypeName = "Gmp::Igmp::IgmpReport";

  // A record with its index; a report holds them in the order of their indexes.
  struct Member {
    U32 index;
    IgmpGroupRecord record;
    friend bool operator==(const Member&, const Member&) = default;
  };
  using Records = std::vector<Member>;

  bool validPacket = false;

  const Records& groupRecord() const { return records_; }
  // The record of that index, or a default one.
  IgmpGroupRecord groupRecord(U32 index) const;
  // The record of that index, made if it is not there.
  IgmpGroupRecord& groupRecordIs(U32 index);
  // Adds the record, or replaces the one of that index.
  void newGroupRecord(U32 index, IgmpGroupRecord record);
  void groupRecordDel(U32 index);

  friend bool operator==(const IgmpReport&, const IgmpReport&) = default;
  // True for the value of a default-constructed report.
  bool operator!() const { return *this == IgmpReport(); }

 private:
  Records records_;

 public:
  static constexpr Mox::FieldTable fields{
      Mox::Field{"validPacket", &IgmpReport::validPacket},
      Mox::Field{"groupRecord", &IgmpReport::records_},
  };
};

// "Value('Gmp::Igmp::IgmpReport', ** {...})", every field in its own form.
MOX_PUBLIC std::string valueToStrep(const IgmpReport& report);
// The records by their indexes: "{0: Value('Gmp::Igmp::IgmpGroupRecord', ...), ...}".
MOX_PUBLIC std::string valueToStrep(const IgmpReport::Records& records);
// The same in traces and messages.
inline void appendText(std::string& out, const IgmpReport& report) { out += valueToStrep(report); }
// A fatal assertion: a report holds a collection, and no text form of those is read back.
[[noreturn]] MOX_PUBLIC IgmpReport IgmpReportInstance(std::string_view text);

}  // namespace Gmp::Igmp
