// The group records of a version 3 report, read one after the other without copying (RFC 3376
// 4.2.4).
#pragma once

#include <cstddef>
#include <optional>

#include <Ilvo/IpAddr.h>
#include <Intake/PacketView.h>
#include <MoxBase/Types.h>

namespace Agent {

enum class RecordType : Mox::U8 {
  modeIsInclude = 1,
  modeIsExclude = 2,
  changeToInclude = 3,
  changeToExclude = 4,
  allowNewSources = 5,
  blockOldSources = 6,
};

struct GroupRecord {
  static constexpr size_t headerBytes = 8;

  size_t at = 0;     // in the message
  size_t bytes = 0;  // with auxiliary data
  RecordType type = RecordType::modeIsInclude;
  size_t sources = 0;

  size_t sourceAt(size_t i) const { return at + headerBytes + 4 * i; }
};

inline constexpr size_t firstRecordAt = 8;

inline size_t numRecordsOf(const PacketView& view) { return view.u16At(6); }

// The record that begins there; empty when the message ends before it does.
inline std::optional<GroupRecord> recordAt(const PacketView& view, size_t at) {
  const std::span<const Mox::U8> message = view.message();
  if (message.size() - at < GroupRecord::headerBytes) return {};
  GroupRecord record;
  record.at = at;
  record.type = static_cast<RecordType>(message[at]);
  record.sources = view.u16At(at + 2);
  record.bytes = GroupRecord::headerBytes + 4 * record.sources + 4 * size_t{message[at + 1]};
  if (message.size() - at < record.bytes) return {};
  return record;
}

// A record that can make its receiver send specific queries.
inline bool isAsking(const GroupRecord& record) {
  switch (record.type) {
    case RecordType::changeToInclude: return true;
    case RecordType::changeToExclude:
    case RecordType::blockOldSources: return record.sources != 0;
    default: return false;
  }
}

// A record that concerns all sources of its group, those that it does not list as well.
inline bool concernsAllSources(const GroupRecord& record) {
  switch (record.type) {
    case RecordType::modeIsExclude:
    case RecordType::changeToInclude:
    case RecordType::changeToExclude: return true;
    default: return false;
  }
}

// What the records of a report have together.
struct RecordSum {
  size_t records = 0;
  size_t sources = 0;
  size_t asking = 0;  // records
  bool concernsAllSources = false;
};

// Empty when a record goes beyond the end of the message: the querier drops the whole report.
inline std::optional<RecordSum> recordSumOf(const PacketView& view) {
  RecordSum sum{.records = numRecordsOf(view)};
  size_t at = firstRecordAt;
  for (size_t i = 0; i < sum.records; ++i) {
    const std::optional<GroupRecord> record = recordAt(view, at);
    if (!record) return {};
    sum.sources += record->sources;
    sum.asking += isAsking(*record) ? 1 : 0;
    sum.concernsAllSources = sum.concernsAllSources || concernsAllSources(*record);
    at += record->bytes;
  }
  return sum;
}

}  // namespace Agent
