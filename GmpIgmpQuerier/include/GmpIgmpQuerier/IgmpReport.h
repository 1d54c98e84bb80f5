// A version 3 report as parsed values (RFC 3376 4.2): its records by their place in the message.
#pragma once

#include <string>
#include <vector>

#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Export.h>

namespace Gmp::Igmp {

class MOX_PUBLIC IgmpReport {
 public:
  // A record with its index; a report holds them in the order of their indexes.
  struct Member {
    U32 index;
    IgmpGroupRecord record;
    friend bool operator==(const Member&, const Member&) = default;
  };

  bool validPacket = false;

  const std::vector<Member>& groupRecord() const { return records_; }
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
  std::vector<Member> records_;
};

// "Value('Gmp::Igmp::IgmpReport', ** {...})", every field in its own form.
MOX_PUBLIC std::string valueToStrep(const IgmpReport& report);

}  // namespace Gmp::Igmp
