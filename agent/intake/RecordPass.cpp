#include "RecordPass.h"

#include <algorithm>

#include <Ilvo/Checksum.h>

namespace Agent {

using Gmp::Igmp::membershipInProcess;
using Ilvo::IpAddr;
using Mox::U64;
using Mox::U8;

namespace {

// Eight bytes that end a group, or say that it excludes nothing, concern all of its sources. A
// query costs as much as some sources.
constexpr size_t usualCost = ReceivedFrame::usualCost;
constexpr size_t queryCost = 5;

// The querier makes no machine for other addresses.
bool isSource(IpAddr addr) { return addr.isUnicast() && !addr.isZero(); }

size_t roomOf(size_t limit, size_t used) { return limit > used ? limit - used : 0; }

// Whether an unknown group is there after the record. One that includes no source ends at once.
bool makesGroup(RecordType type, size_t sources) {
  switch (type) {
    case RecordType::modeIsExclude:
    case RecordType::changeToExclude: return true;
    case RecordType::modeIsInclude:
    case RecordType::changeToInclude:
    case RecordType::allowNewSources: return sources != 0;
    default: return false;
  }
}

// Beyond the budget, what a record joins is kept without asking what it leaves.
RecordType withoutAsking(RecordType type) {
  return type == RecordType::changeToExclude ? RecordType::modeIsExclude
                                             : RecordType::modeIsInclude;
}

void u16Is(std::span<U8> bytes, size_t at, size_t value) {
  bytes[at] = static_cast<U8>(value >> 8);
  bytes[at + 1] = static_cast<U8>(value);
}

}  // namespace

bool Intake::RecordPass::isNeeded() {
  const size_t groups = intake_.querierStatus_->group().size();
  const IntakeProcessConfig& process = *intake_.process_.config;
  asks_ = sum_.asking != 0 && intake_.asks();
  if (asks_ || sourcesAreNear() || mayCostMuch()) return true;
  if (groups + sum_.records > config().maxGroups()) return true;
  if (membershipInProcess().groups + sum_.records > process.maxProcessGroups()) return true;
  if (!config().acceptedGroups().empty() || config().guardSourceSpecific()) return true;
  return sum_.records > config().maxGroupRecords() && repeatsGroups();
}

// No group can have more sources than the interface.
bool Intake::RecordPass::sourcesAreNear() const {
  if (sum_.sources == 0) return false;
  const size_t least = std::min(config().maxGroupSources(), config().maxSources());
  if (intake_.querierStatus_->sources() + sum_.sources > least) return true;
  return membershipInProcess().sources + sum_.sources >
         intake_.process_.config->maxProcessSources();
}

bool Intake::RecordPass::mayCostMuch() const {
  const size_t unlisted = sum_.concernsAllSources ? intake_.querierStatus_->sources() : 0;
  return sum_.sources + sum_.asking * queryCost + unlisted > mostCost_;
}

// The querier walks them: it lowers or asks about them before a change to INCLUDE, and deletes them
// otherwise. Hosts of older versions make it ignore the list of a change to EXCLUDE (RFC 3376
// 7.3.2).
size_t Intake::RecordPass::unlistedSources(const GroupRecord& record) const {
  if (!concernsAllSources(record)) return 0;
  const GroupStatus* status = intake_.known(view_.addrAt(record.at + 4));
  if (status == nullptr || isRefusedLeave(record, *status)) return 0;
  const size_t sources = status->source().size();
  const bool usesList = record.type == RecordType::modeIsExclude ||
                        (record.type == RecordType::changeToExclude &&
                         status->compatibilityMode() == Gmp::Igmp::igmpVersion3);
  return usesList ? roomOf(sources, record.sources) : sources;
}

// A refused leave walks nothing: it must not make the rest of its packet wait either.
bool Intake::RecordPass::isRefusedLeave(const GroupRecord& record,
                                        const GroupStatus& status) const {
  return asks_ && record.type == RecordType::changeToInclude &&
         !intake_.canAsk(leaveQueries(status.source().size()));
}

// Where the packets before have used up a part, only sources that are not listed count: the others
// are bounded by the bytes of a block.
bool Intake::RecordPass::isAffordable(const GroupRecord& record) {
  const size_t unlisted = (isAsking(record) ? queryCost : 0) + unlistedSources(record);
  const bool isFresh = mostCost_ == usualCost;
  const size_t cost = unlisted + (isFresh ? record.sources : 0);
  const bool isFirst = cost_ == 0 && isFresh;
  if (cost != 0 && !isFirst && cost_ + cost > mostCost_) return false;
  cost_ += cost;
  unlisted_ += unlisted;
  return true;
}

bool Intake::RecordPass::repeatsGroups() {
  GroupTally& tally = intake_.process_.tally;
  tally.begin(sum_.records);
  Mox::U32 most = 0;
  size_t at = firstRecordAt;
  for (size_t i = 0; i < sum_.records; ++i) {
    const GroupRecord record = *recordAt(view_, at);
    most = std::max(most, ++tally.of(view_.addrAt(at + 4)).records);
    at += record.bytes;
  }
  intake_.status_->groupRecordsMostIs(most);
  return most > config().maxGroupRecords();
}

IntakeVerdict Intake::RecordPass::run() {
  intake_.process_.tally.begin(sum_.records);
  size_t at = firstRecordAt;
  for (size_t i = 0; i < sum_.records; ++i) {
    const GroupRecord record = *recordAt(view_, at);
    if (!isAffordable(record)) {
      leaveRest(record, sum_.records - i);
      break;
    }
    judge(record);
    at += record.bytes;
  }
  return finish();
}

void Intake::RecordPass::judge(const GroupRecord& record) {
  const IpAddr group = view_.addrAt(record.at + 4);
  if (!isLearnable(group)) {
    keep(record, record.type);
    return;
  }
  Entry& entry = intake_.process_.tally.of(group);
  ++entry.records;
  if (const Refusal rule = refusalOf(record, entry)) {
    drop(record, *rule);
    return;
  }
  const GroupStatus* status = intake_.known(group);
  if (status == nullptr && !entry.isNew && makesGroup(record.type, record.sources)) {
    if (const Refusal rule = intake_.newGroupRefusal(group, newGroups_)) {
      drop(record, *rule);
      return;
    }
    entry.isNew = true;
    ++newGroups_;
  }
  if (mayAsk(record, entry, status)) {
    judgeSources(record, record.type, entry, status);
  } else if (record.type == RecordType::blockOldSources ||
             !makesGroup(record.type, record.sources)) {
    drop(record, IntakeRule::queryLimit);
  } else {
    count(record, IntakeRule::queryLimit, 1);
    judgeSources(record, withoutAsking(record.type), entry, status);
  }
}

Intake::Refusal Intake::RecordPass::refusalOf(const GroupRecord& record, const Entry& entry) const {
  if (entry.records > config().maxGroupRecords()) return IntakeRule::groupRecordLimit;
  const bool excludes =
      record.type == RecordType::modeIsExclude || record.type == RecordType::changeToExclude;
  return intake_.groupRefusal(IpAddr(entry.group), !excludes);
}

// A group that an earlier record of the packet has made counts as known.
bool Intake::RecordPass::mayAsk(const GroupRecord& record, const Entry& entry,
                                const GroupStatus* status) {
  if (!asks_ || !isAsking(record)) return true;
  if (status == nullptr && entry.records == 1) return true;
  if (record.type != RecordType::changeToInclude) {
    return intake_.mayAsk(intake_.sourceQueries(record.sources));
  }
  const size_t sources = status == nullptr ? sum_.sources : status->source().size();
  return intake_.mayAsk(leaveQueries(sources));
}

// The group is asked about, and each of its sources.
U64 Intake::RecordPass::leaveQueries(size_t sources) const {
  return 1 + intake_.sourceQueries(sources);
}

void Intake::RecordPass::judgeSources(const GroupRecord& record, RecordType type, Entry& entry,
                                      const GroupStatus* status) {
  const size_t present = status == nullptr ? 0 : status->source().size();
  const size_t ofGroup = roomOf(config().maxGroupSources(), present);
  const size_t ofInterface = roomOf(config().maxSources(), intake_.querierStatus_->sources());
  const size_t ofProcess =
      roomOf(intake_.process_.config->maxProcessSources(), membershipInProcess().sources);
  if (record.sources != 0) intake_.status_->groupSourcesMostIs(present);
  // Not even if every source of the packet were new.
  if (record.sources == 0 || sum_.sources <= std::min({ofGroup, ofInterface, ofProcess})) {
    keep(record, type);
    return;
  }
  const size_t roomInGroup = roomOf(ofGroup, entry.newSources);
  const size_t roomInInterface = roomOf(ofInterface, newSources_);
  const size_t roomInProcess = roomOf(ofProcess, newSources_);
  const size_t room = std::min({roomInGroup, roomInInterface, roomInProcess});
  cutSources(record, type, entry, status, room,
             room == roomInGroup       ? IntakeRule::groupSourceLimit
             : room == roomInInterface ? IntakeRule::sourceLimit
                                       : IntakeRule::processSourceLimit);
}

// Keeps the sources that the group has, and as many new ones as there is room for.
void Intake::RecordPass::cutSources(const GroupRecord& record, RecordType type, Entry& entry,
                                    const GroupStatus* status, size_t room, IntakeRule limit) {
  const auto isNew = [&](size_t i) {
    const IpAddr source = view_.addrAt(record.sourceAt(i));
    return isSource(source) && (status == nullptr || !status->source().contains(source));
  };
  size_t added = 0;
  for (size_t i = 0; i < record.sources; ++i) added += isNew(i) ? 1 : 0;
  const size_t cut = roomOf(added, room);
  entry.newSources += static_cast<Mox::U32>(added - cut);
  newSources_ += added - cut;
  if (cut == 0) {
    keep(record, type);
    return;
  }
  count(record, limit, cut);
  beginCopy(record);
  const bool needsSources = type != RecordType::modeIsExclude &&
                            type != RecordType::changeToExclude &&
                            type != RecordType::changeToInclude;
  if (needsSources && cut == record.sources) return;  // a list that is empty says nothing
  std::vector<U8>& copy = intake_.process_.copy;
  const size_t begin = copy.size();
  append(record.at, GroupRecord::headerBytes);
  for (size_t i = 0, passed = 0; i < record.sources; ++i) {
    if (isNew(i) && passed++ >= room) continue;
    append(record.sourceAt(i), 4);
  }
  const std::span<U8> written = std::span(copy).subspan(begin);
  written[0] = static_cast<U8>(type);
  written[1] = 0;  // without the auxiliary data
  u16Is(written, 2, record.sources - cut);
  ++kept_;
}

void Intake::RecordPass::keep(const GroupRecord& record, RecordType type) {
  ++kept_;
  if (type != record.type) beginCopy(record);
  if (!isChanged_) return;
  std::vector<U8>& copy = intake_.process_.copy;
  const size_t begin = copy.size();
  append(record.at, record.bytes);
  copy[begin] = static_cast<U8>(type);
}

void Intake::RecordPass::drop(const GroupRecord& record, IntakeRule rule) {
  count(record, rule, 1);
  beginCopy(record);
}

void Intake::RecordPass::count(const GroupRecord& record, IntakeRule rule, size_t by) {
  if (!firstRule_) firstRule_ = rule;
  intake_.count(rule, view_, view_.addrAt(record.at + 4), by);
}

void Intake::RecordPass::beginCopy(const GroupRecord& record) {
  if (isChanged_) return;
  isChanged_ = true;
  const auto before = view_.packet().first(view_.ip().headerBytes() + record.at);
  intake_.process_.copy.assign(before.begin(), before.end());
}

void Intake::RecordPass::append(size_t at, size_t bytes) {
  const auto part = view_.message().subspan(at, bytes);
  intake_.process_.copy.insert(intake_.process_.copy.end(), part.begin(), part.end());
}

// Its own packet, which costs the same again at most: neither the refresh of a group nor its end
// may depend on how many sources other hosts have given to the groups before it. The parts of a
// packet have the records of one group that the whole may have.
void Intake::RecordPass::leaveRest(const GroupRecord& first, size_t records) {
  beginCopy(first);
  std::vector<U8>& rest = intake_.process_.rest;
  const auto headers = view_.packet().first(view_.ip().headerBytes() + firstRecordAt);
  rest.assign(headers.begin(), headers.end());
  size_t left = 0;
  for (size_t at = first.at, i = 0; i < records; ++i) {
    const GroupRecord record = *recordAt(view_, at);
    at += record.bytes;
    if (isSurplus(record)) {
      count(record, IntakeRule::groupRecordLimit, 1);
      continue;
    }
    const auto bytes = view_.message().subspan(record.at, record.bytes);
    rest.insert(rest.end(), bytes.begin(), bytes.end());
    ++left;
  }
  if (left == 0) return;
  close(rest, left);
  rest_ = rest;
}

bool Intake::RecordPass::isSurplus(const GroupRecord& record) {
  const IpAddr group = view_.addrAt(record.at + 4);
  return isLearnable(group) &&
         ++intake_.process_.tally.of(group).records > config().maxGroupRecords();
}

void Intake::RecordPass::close(std::span<U8> packet, size_t records) const {
  const std::span<U8> header = packet.first(view_.ip().headerBytes());
  const std::span<U8> message = packet.subspan(header.size());
  u16Is(header, 2, packet.size());
  u16Is(header, 10, 0);
  u16Is(header, 10, Ilvo::checksum(header));
  u16Is(message, 6, records);
  u16Is(message, 2, 0);
  u16Is(message, 2, Ilvo::checksum(message));
}

IntakeVerdict Intake::RecordPass::finish() {
  if (!isChanged_) return {.packet = view_.received(), .cost = unlisted_};
  if (kept_ == 0) return {.packet = {}, .rest = rest_, .rule = firstRule_, .isRefused = true};
  const std::span<U8> packet(intake_.process_.copy);
  close(packet, kept_);
  return {.packet = packet, .rest = rest_, .rule = firstRule_, .cost = unlisted_};
}

}  // namespace Agent
