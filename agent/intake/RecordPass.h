// One walk over the records of a version 3 report that a rule or a limit has to look at: each
// record stays, loses sources, becomes one of the kind that asks for nothing, or goes. The packet
// is copied once something changes. Records that cost too much beside those before them are left
// for a packet of their own.
#pragma once

#include <Intake/Intake.h>

#include "RecordReader.h"

namespace Agent {

// Whether a report for that address makes a group: the querier ignores others.
inline bool isLearnable(Ilvo::IpAddr group) {
  return group.isMulticast() && !group.isReservedMulticast();
}

class Intake::RecordPass {
 public:
  RecordPass(Intake& intake, const PacketView& view, const RecordSum& sum, size_t mostCost)
      : intake_(intake), view_(view), sum_(sum), mostCost_(mostCost) {}

  // Whether any rule or limit can change the report. Costs no lookup.
  bool isNeeded();
  IntakeVerdict run();

 private:
  using Entry = GroupTally::Entry;

  const IntakeConfig& config() const { return *intake_.config_; }
  bool sourcesAreNear() const;
  bool mayCostMuch() const;
  bool repeatsGroups();

  // How many sources the record makes the querier touch that it does not list.
  size_t unlistedSources(const GroupRecord& record) const;
  // Whether the record ends the group's EXCLUDE mode, and the limit of queries forbids that.
  bool isRefusedLeave(const GroupRecord& record, const GroupStatus& status) const;
  Mox::U64 leaveQueries(size_t sources) const;
  // Adds to what the records so far cost; false when this one has to wait for the next packet.
  bool isAffordable(const GroupRecord& record);
  void judge(const GroupRecord& record);
  Refusal refusalOf(const GroupRecord& record, const Entry& entry) const;
  // Whether the queries that a record causes fit into the budget.
  bool mayAsk(const GroupRecord& record, const Entry& entry, const GroupStatus* status);
  void judgeSources(const GroupRecord& record, RecordType type, Entry& entry,
                    const GroupStatus* status);
  void cutSources(const GroupRecord& record, RecordType type, Entry& entry,
                  const GroupStatus* status, size_t room, IntakeRule limit);

  void keep(const GroupRecord& record, RecordType type);
  void drop(const GroupRecord& record, IntakeRule rule);
  void count(const GroupRecord& record, IntakeRule rule, size_t by);
  // The copy holds what stands before this record.
  void beginCopy(const GroupRecord& record);
  void append(size_t at, size_t bytes);
  void leaveRest(const GroupRecord& first, size_t records);
  // Counts the record to its group, which may have had all that it can have in this packet.
  bool isSurplus(const GroupRecord& record);
  // Makes headers and checksums those of a packet with so many records.
  void close(std::span<Mox::U8> packet, size_t records) const;
  IntakeVerdict finish();

  Intake& intake_;
  const PacketView& view_;
  const RecordSum sum_;
  const size_t mostCost_;
  bool asks_ = false;
  size_t cost_ = 0;        // of the records so far
  size_t unlisted_ = 0;    // the same, without the sources that they list
  size_t newGroups_ = 0;   // that the records so far make
  size_t newSources_ = 0;  // the same, of groups that are near a limit
  size_t kept_ = 0;        // records
  std::span<const Mox::U8> rest_;
  Refusal firstRule_;
  bool isChanged_ = false;
};

}  // namespace Agent
