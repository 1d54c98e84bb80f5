// The record table (RFC 3376 6.4 with this router's departures), row by row, on every relation of
// the group's sources A to the record's sources B, every kind of timer, and every kind of pending
// query.
#include <map>
#include <set>
#include <tuple>

#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;

constexpr IpAddr s4{10, 7, 0, 4};

enum Timer { none, keep, gmi, off, rest };              // `rest`: what the group timer has left
enum Ask { askNone, askDropped, askKnown, askListed };  // A without B, A and B, all of B
enum Drop { dropNone, dropUnlisted, dropAll };
enum GroupTimer { groupKeep, groupGmi, groupLower };
enum Query { quiet, askNow, askGroupNow };

// What one row does.
struct Row {
  IgmpFilterMode mode;
  std::set<U8> types;
  std::set<IgmpVersion> compatibility;
  Timer newSource = none;
  Timer oldSource = keep;
  Ask ask = askNone;
  Drop drop = dropNone;
  GroupTimer groupTimer = groupKeep;
  Query query = quiet;
};

const std::set<IgmpVersion> any{igmpVersionUnknown, igmpVersion1, igmpVersion2, igmpVersion3};
const std::set<IgmpVersion> only1{igmpVersion1};
const std::set<IgmpVersion> not1{igmpVersionUnknown, igmpVersion2, igmpVersion3};
const std::set<IgmpVersion> only3{igmpVersion3};
const std::set<IgmpVersion> not3{igmpVersionUnknown, igmpVersion1, igmpVersion2};
constexpr IgmpFilterMode inc = filterModeInclude;
constexpr IgmpFilterMode exc = filterModeExclude;

const std::vector<Row>& table() {
  static const std::vector<Row> rows{
      {inc, {modeIsInclude, allowNewSources}, any, gmi, gmi},
      {inc, {modeIsExclude}, any, off, keep, askNone, dropUnlisted, groupGmi},
      {inc, {changeToInclude}, not1, gmi, gmi, askDropped, dropNone, groupKeep, askNow},
      {inc, {changeToInclude}, only1},
      {inc, {changeToExclude}, only3, off, keep, askKnown, dropUnlisted, groupGmi, askNow},
      {inc, {changeToExclude}, not3, none, keep, askNone, dropAll, groupGmi},
      {inc, {blockOldSources}, only3, none, keep, askKnown, dropNone, groupKeep, askNow},
      {inc, {blockOldSources}, not3},
      {exc, {modeIsInclude, allowNewSources}, any, gmi, gmi},
      {exc, {modeIsExclude}, any, gmi, keep, askNone, dropUnlisted, groupGmi},
      {exc, {changeToInclude}, not1, gmi, gmi, askDropped, dropNone, groupLower, askGroupNow},
      {exc, {changeToInclude}, only1},
      {exc, {changeToExclude}, only3, rest, keep, askListed, dropUnlisted, groupGmi, askNow},
      {exc, {changeToExclude}, not3, none, keep, askNone, dropAll, groupGmi},
      {exc, {blockOldSources}, only3, rest, keep, askListed, dropNone, groupKeep, askNow},
      {exc, {blockOldSources}, not3},
      {inc, {0, 7, 255}, any},
      {exc, {0, 7, 255}, any},
  };
  return rows;
}

// Which record types switch an INCLUDE group to EXCLUDE, in every row that they have.
bool switchesToExclude(U8 type) { return type == modeIsExclude || type == changeToExclude; }

// A group as the table sees it; timers in seconds left, `never` for disabled.
struct Group {
  struct Source {
    Seconds left;
    U32 rexmits = 0;
  };
  IgmpFilterMode mode = filterModeInclude;
  std::map<IpAddr, Source> sources = {};
  std::set<IpAddr> asked = {};
  Seconds left = never;
  U32 groupQueries = 0;
  Seconds rexmitLeft = never;

  std::string text() const {
    std::string out = stringValue(mode) + " left " + Mox::textOf(left) + " pending " +
                      std::to_string(groupQueries) + " next " + Mox::textOf(rexmitLeft);
    for (const auto& [addr, source] : sources) {
      out += "\n  " + addr.stringValue() + " left " + Mox::textOf(source.left);
      if (asked.contains(addr)) out += " asked " + std::to_string(source.rexmits);
    }
    return out;
  }
};

constexpr Seconds membershipInterval = 260.0;
constexpr Seconds limit = 2.0;  // last member query time: two queries, a second apart

// The rule for asking about a source.
void ask(Group& group, IpAddr addr) {
  Group::Source& source = group.sources.at(addr);
  if (source.left == never) return;
  if (source.left < limit && group.asked.contains(addr)) return;
  source.left = std::min(source.left, limit);
  source.rexmits = 2;
  group.asked.insert(addr);
}

void dropSources(Group& group, const Row& row, const std::set<IpAddr>& b) {
  std::erase_if(group.sources, [&](const auto& member) {
    const bool gone =
        row.drop == dropAll || (row.drop == dropUnlisted && !b.contains(member.first));
    if (gone) group.asked.erase(member.first);
    return gone;
  });
}

void setSources(Group& group, const Row& row, const std::set<IpAddr>& b) {
  for (const IpAddr addr : b) {
    const bool known = group.sources.contains(addr);
    switch (known ? row.oldSource : row.newSource) {
      case none:
      case keep: break;
      case gmi: group.sources[addr].left = membershipInterval; break;
      case off: group.sources[addr].left = never; break;
      case rest: group.sources[addr].left = group.left; break;
    }
  }
}

// What the row makes of a group; nothing when the group ends.
std::optional<Group> applied(Group group, const Row& row, U8 type, std::set<IpAddr> b) {
  b.erase(IpAddr());
  const std::map<IpAddr, Group::Source> a = group.sources;
  const bool ignored = row.newSource == none && row.ask == askNone && row.drop == dropNone;
  if (!ignored && switchesToExclude(type)) group.mode = filterModeExclude;
  dropSources(group, row, b);
  setSources(group, row, b);
  for (const auto& [addr, source] : std::map(group.sources)) {
    const bool wasThere = a.contains(addr);
    const bool listed = b.contains(addr);
    const bool asks = (row.ask == askDropped && wasThere && !listed) ||
                      (row.ask == askKnown && wasThere && listed) ||
                      (row.ask == askListed && listed);
    if (asks) ask(group, addr);
  }
  if (row.query == askGroupNow) group.groupQueries = 2;
  if (row.groupTimer == groupGmi) group.left = membershipInterval;
  if (row.groupTimer == groupLower) group.left = std::min(group.left, limit);
  if (row.query != quiet) group.rexmitLeft = 0.0;
  if (group.groupQueries == 0 && group.asked.empty()) {
    group.rexmitLeft = never;
  } else if (group.rexmitLeft == never) {
    group.rexmitLeft = 1.0;
  }
  if (group.mode == filterModeInclude && group.sources.empty()) return std::nullopt;
  return group;
}

using Case = std::tuple<IgmpFilterMode, U8, IgmpVersion>;

class QuerierGroupSmRecordTableTest : public GroupBench,
                                      public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    GroupBench::SetUp();
    tracingIs(false);
  }

  static const Row& row() {
    const auto& [mode, type, compatibility] = GetParam();
    for (const Row& row : table()) {
      if (row.mode == mode && row.types.contains(type) &&
          row.compatibility.contains(compatibility)) {
        return row;
      }
    }
    throw std::logic_error("the table has no such row");
  }

  // Makes a group in exactly that state.
  void makeReal(const Group& group, IgmpVersion compatibility) {
    std::vector<Source> sources;
    for (const auto& [addr, source] : group.sources) sources.push_back({addr, source.left});
    const Ptr<Sm> sm = make(group.mode, sources, group.left, compatibility);
    for (const IpAddr addr : group.asked) {
      sm->rexmitSourceIs(addr, true);
      sm->source(addr)->rexmitsIs(group.sources.at(addr).rexmits);
    }
    sm->rexmitGroupQueryIs(group.groupQueries);
    sm->doSetTimer(Sm::rexmitTimerId, group.rexmitLeft);
  }

  std::string real() const {
    if (!groupExists()) return groupStatus(group_) ? "a status without a machine" : "no group";
    const Ptr<Sm> sm = groupSm(group_);
    Group group{.mode = filterMode(),
                .left = groupTimer(),
                .groupQueries = sm->rexmitGroupQuery(),
                .rexmitLeft = rexmitTimer()};
    for (const auto& [addr, source] : sm->source()) {
      group.sources[addr] = {source->sourceTimerRemaining(), source->rexmits()};
    }
    for (const IpAddr addr : rexmitSources()) group.asked.insert(addr);
    return group.text();
  }

  // The published state agrees with the machines.
  void expectPublished() const {
    if (!groupExists()) return;
    const Ptr<Sm> sm = groupSm(group_);
    EXPECT_EQ(groupStatus(group_)->expiryTime(), sm->membershipTimerExpiry());
    EXPECT_EQ(groupStatus(group_)->lastReporter(), host_);
    EXPECT_EQ(groupStatus(group_)->source().size(), sm->source().size());
    for (const auto& [addr, source] : sm->source()) {
      EXPECT_EQ(sourceStatus(addr)->expiryTime(), source->sourceTimerExpiry());
      EXPECT_EQ(sourceStatus(addr)->expired(), source->sourceTimerState() == timerDisabled);
    }
  }

  static std::vector<Group> groupsOf(IgmpFilterMode mode) {
    const std::vector<std::map<IpAddr, Group::Source>> sourceSets{
        {},
        {{s1_, {200.0}}},
        {{s1_, {1.0}}},
        {{s1_, {never}}},
        {{s1_, {200.0}}, {s2_, {never}}},
        {{s1_, {200.0}}, {s2_, {1.0}}, {s3_, {2.0}}},
    };
    std::vector<Group> groups;
    for (const auto& sources : sourceSets) {
      for (const Seconds left : {100.0, 1.0, never}) {
        Group group{.mode = mode, .sources = sources, .left = left};
        groups.push_back(group);
        group.groupQueries = 1;
        groups.push_back(group);
        group.rexmitLeft = 7.0;
        groups.push_back(group);
        if (sources.empty()) continue;
        group.groupQueries = 0;
        group.asked = {s1_};
        group.sources[s1_].rexmits = 1;
        groups.push_back(group);
      }
    }
    return groups;
  }
};

TEST_P(QuerierGroupSmRecordTableTest, theRowDoesWhatTheTableSays) {
  const auto& [mode, type, compatibility] = GetParam();
  const std::vector<std::set<IpAddr>> lists{
      {}, {IpAddr()}, {s1_}, {s2_}, {s1_, s2_}, {s3_, s4}, {IpAddr(), s1_, s4},
  };
  U32 reports = 0;
  for (const Group& before : groupsOf(mode)) {
    for (const std::set<IpAddr>& b : lists) {
      makeReal(before, compatibility);
      std::string list;
      for (const IpAddr addr : b) list += " " + addr.stringValue();
      receiveRecord(type, group_, {b.begin(), b.end()});
      const std::optional<Group> after = applied(before, row(), type, b);
      ASSERT_EQ(real(), after ? after->text() : "no group")
          << "record of" << list << " on " << before.text();
      expectPublished();
      ASSERT_EQ(status_->v3ReportReceived(), ++reports);
      ASSERT_TRUE(takeSent().empty()) << "queries wait for the next turn of the wheel";
      querier_->groupSmDel(group_);
    }
  }
  EXPECT_GE(reports, 450U);
}

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
  const auto& [mode, type, compatibility] = info.param;
  return (mode == filterModeInclude ? "include" : "exclude") + std::string("Type") +
         std::to_string(type) + "Version" + std::to_string(compatibility);
}

INSTANTIATE_TEST_SUITE_P(allRows, QuerierGroupSmRecordTableTest,
                         ::testing::Combine(::testing::Values(filterModeInclude, filterModeExclude),
                                            ::testing::Values<U8>(1, 2, 3, 4, 5, 6, 0, 7, 255),
                                            ::testing::Values(igmpVersionUnknown, igmpVersion1,
                                                              igmpVersion2, igmpVersion3)),
                         caseName);

}  // namespace

}  // namespace Gmp::Igmp::testing
