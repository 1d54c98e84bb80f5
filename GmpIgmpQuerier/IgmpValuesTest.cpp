#include <functional>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/GroupList.h>
#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/IgmpReport.h>
#include <GmpIgmpQuerier/IpAddrSet.h>
#include <Mox/Trace.h>
#include <MoxBase/Text.h>
#include <gtest/gtest.h>

#include "IgmpValuesTestSupport.h"

namespace Gmp::Igmp {
namespace {

template <class T>
using Changes = std::vector<std::function<void(T&)>>;

// Expects that each change makes a default value different from the default.
template <class T>
void expectAllToCount(const Changes<T>& changes) {
  for (size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "change " << i);
    T value;
    EXPECT_TRUE(!value);
    EXPECT_TRUE(value == T());
    changes[i](value);
    EXPECT_FALSE(!value);
    EXPECT_FALSE(value == T());
    T same;
    changes[i](same);
    EXPECT_TRUE(value == same);
  }
}

TEST(IpAddrSet, holdsEachAddressOnceInOrder) {
  IpAddrSet set;
  EXPECT_TRUE(set.insert(addrB));
  EXPECT_TRUE(set.insert(addrA));
  EXPECT_FALSE(set.insert(addrB));
  EXPECT_EQ(set.size(), 2u);
  EXPECT_EQ(std::vector<IpAddr>(set.begin(), set.end()), (std::vector<IpAddr>{addrA, addrB}));
}

TEST(IpAddrSet, isMadeOfAnyList) {
  EXPECT_EQ((IpAddrSet{addrB, addrA, addrB}), (IpAddrSet{addrA, addrB}));
  EXPECT_EQ(IpAddrSet(std::vector<IpAddr>{addrA, addrA}).size(), 1u);
  EXPECT_TRUE(IpAddrSet(std::vector<IpAddr>{}).empty());
}

TEST(IpAddrSet, erasesOnlyWhatIsThere) {
  IpAddrSet set{addrA, addrB};
  EXPECT_TRUE(set.erase(addrA));
  EXPECT_FALSE(set.erase(addrA));
  EXPECT_FALSE(set.contains(addrA));
  EXPECT_TRUE(set.contains(addrB));
  set.clear();
  EXPECT_TRUE(set.empty());
  EXPECT_FALSE(set.erase(addrB));
}

TEST(IpAddrSet, printsAsTheMapThatItStandsFor) {
  EXPECT_EQ(valueToStrep(IpAddrSet()), "{}");
  EXPECT_EQ(valueToStrep(IpAddrSet{addrB, addrA}), "{'10.0.0.1': True, '10.0.0.2': True}");
}

// True when values of the type can be printed by valueToStrep.
template <class T>
concept HasStrep = requires(T value) {
  valueToStrep(value);
};

TEST(ValueToStrep, takesAFlagAndNothingThatWouldOnlyBecomeOne) {
  EXPECT_EQ(valueToStrep(true), "True");
  EXPECT_EQ(valueToStrep(false), "False");
  static_assert(HasStrep<bool> && HasStrep<IpAddr> && HasStrep<RecordType>);
  static_assert(!HasStrep<int> && !HasStrep<U8> && !HasStrep<U32> && !HasStrep<double>);
  static_assert(!HasStrep<const char*> && !HasStrep<IpAddr*>);
}

TEST(IgmpQuery, isEmptyByDefaultItsVersionIncluded) {
  const IgmpQuery query;
  EXPECT_FALSE(query.validPacket);
  EXPECT_EQ(query.version, igmpVersionUnknown);
  EXPECT_EQ(query.maxResponseCode, 0);
  EXPECT_EQ(query.groupAddress, IpAddr());
  EXPECT_FALSE(query.s);
  EXPECT_EQ(query.qrv, 0);
  EXPECT_EQ(query.qqi, 0u);
  EXPECT_TRUE(query.source.empty());
}

TEST(IgmpQuery, everyFieldCountsForEquality) {
  expectAllToCount<IgmpQuery>({
      [](IgmpQuery& q) { q.validPacket = true; },
      [](IgmpQuery& q) { q.version = igmpVersion3; },
      [](IgmpQuery& q) { q.maxResponseCode = 1; },
      [](IgmpQuery& q) { q.groupAddress = addrGroup; },
      [](IgmpQuery& q) { q.s = true; },
      [](IgmpQuery& q) { q.qrv = 1; },
      [](IgmpQuery& q) { q.qqi = 1; },
      [](IgmpQuery& q) { q.newSource(addrA, true); },
  });
}

TEST(IgmpQuery, sourcesComeOnceAndGoTogether) {
  IgmpQuery query;
  query.newSource(addrB, true);
  query.newSource(addrA, true);
  query.newSource(addrB, true);
  EXPECT_EQ(query.source, (IpAddrSet{addrA, addrB}));
  query.sourceDelAll();
  EXPECT_TRUE(query.source.empty());
  EXPECT_TRUE(!query);
}

TEST(IgmpQuery, decodesItsResponseTime) {
  IgmpQuery query;
  EXPECT_EQ(query.maxResponseSeconds(), 0.0);
  query.maxResponseCode = 100;
  EXPECT_EQ(query.maxResponseSeconds(), 10.0);
  query.maxResponseCode = 0x8a;
  EXPECT_EQ(query.maxResponseSeconds(), 20.8);
  query.maxResponseCode = 0xff;
  EXPECT_EQ(query.maxResponseSeconds(), 3174.4);
}

TEST(IgmpQuery, printsAllItsFields) {
  EXPECT_EQ(valueToStrep(IgmpQuery()),
            "Value('Gmp::Igmp::IgmpQuery', ** {'validPacket': False, 'version': "
            "'igmpVersionUnknown', 'maxResponseCode': 0, 'groupAddress': '0.0.0.0', 's': False, "
            "'qrv': 0, 'qqi': 0, 'source': {}})");
  const IgmpQuery query{true, igmpVersion3, 255, addrGroup, true, 7, 31744, {addrA, addrB}};
  EXPECT_EQ(valueToStrep(query),
            "Value('Gmp::Igmp::IgmpQuery', ** {'validPacket': True, 'version': 'igmpVersion3', "
            "'maxResponseCode': 255, 'groupAddress': '239.1.1.1', 's': True, 'qrv': 7, "
            "'qqi': 31744, 'source': {'10.0.0.1': True, '10.0.0.2': True}})");
}

TEST(IgmpGroupRecord, everyFieldCountsForEquality) {
  expectAllToCount<IgmpGroupRecord>({
      [](IgmpGroupRecord& r) { r.version = igmpVersion3; },
      [](IgmpGroupRecord& r) { r.rType = RecordType(1); },
      [](IgmpGroupRecord& r) { r.multicastAddr = addrGroup; },
      [](IgmpGroupRecord& r) { r.newSource(addrA, true); },
  });
}

TEST(IgmpGroupRecord, sourcesComeOnceAndGoTogether) {
  IgmpGroupRecord record;
  record.newSource(addrA, true);
  record.newSource(addrA, true);
  EXPECT_EQ(record.source, IpAddrSet{addrA});
  record.sourceDelAll();
  EXPECT_TRUE(!record);
}

TEST(IgmpGroupRecord, printsAllItsFields) {
  EXPECT_EQ(valueToStrep(IgmpGroupRecord()),
            "Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': 'igmpVersionUnknown', "
            "'rType': 0, 'multicastAddr': '0.0.0.0', 'source': {}})");
  const IgmpGroupRecord record{igmpVersion3, RecordType(4), addrGroup, {addrA}};
  EXPECT_EQ(valueToStrep(record),
            "Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': 'igmpVersion3', 'rType': 4, "
            "'multicastAddr': '239.1.1.1', 'source': {'10.0.0.1': True}})");
}

TEST(IgmpReport, everyFieldCountsForEquality) {
  expectAllToCount<IgmpReport>({
      [](IgmpReport& r) { r.validPacket = true; },
      [](IgmpReport& r) { r.groupRecordIs(0); },
      [](IgmpReport& r) { r.newGroupRecord(3, {}); },
      [](IgmpReport& r) { r.groupRecordIs(0).rType = RecordType(1); },
  });
  IgmpReport one;
  IgmpReport two;
  one.groupRecordIs(1);
  two.groupRecordIs(2);
  EXPECT_FALSE(one == two) << "the index counts as well";
}

TEST(IgmpReport, recordsAreKeptInTheOrderOfTheirIndexes) {
  IgmpReport report;
  for (const U32 index : {5u, 0u, 3u}) {
    report.newGroupRecord(index, {igmpVersion3, RecordType(static_cast<U8>(index)), addrGroup, {}});
  }
  std::string order;
  for (const auto& [index, record] : report.groupRecord()) {
    order += std::to_string(index) + "=" + stringValue(record.rType) + " ";
  }
  EXPECT_EQ(order, "0=0 3=3 5=5 ");
}

TEST(IgmpReport, absentRecordReadsAsADefaultOne) {
  IgmpReport report;
  EXPECT_TRUE(!report.groupRecord(0));
  report.newGroupRecord(1, {igmpVersion3, RecordType(1), addrGroup, {}});
  EXPECT_TRUE(!report.groupRecord(0));
  EXPECT_TRUE(!report.groupRecord(2));
  EXPECT_EQ(report.groupRecord(1).multicastAddr, addrGroup);
  EXPECT_EQ(report.groupRecord().size(), 1u) << "reading makes nothing";
}

TEST(IgmpReport, recordIsFoundOrMade) {
  IgmpReport report;
  report.groupRecordIs(7).newSource(addrA, true);
  report.groupRecordIs(7).newSource(addrB, true);
  EXPECT_EQ(report.groupRecord(7).source, (IpAddrSet{addrA, addrB}));
  EXPECT_EQ(report.groupRecord().size(), 1u);
}

TEST(IgmpReport, newRecordReplacesTheOneOfItsIndex) {
  IgmpReport report;
  report.groupRecordIs(7).newSource(addrA, true);
  report.newGroupRecord(7, {igmpVersion3, RecordType(2), addrGroup, {addrB}});
  EXPECT_EQ(report.groupRecord(7).source, IpAddrSet{addrB});
  EXPECT_EQ(report.groupRecord().size(), 1u);
}

TEST(IgmpReport, deletesOnlyWhatIsThere) {
  IgmpReport report;
  report.groupRecordIs(1);
  report.groupRecordIs(3);
  report.groupRecordDel(2);
  report.groupRecordDel(4);
  EXPECT_EQ(report.groupRecord().size(), 2u);
  report.groupRecordDel(1);
  ASSERT_EQ(report.groupRecord().size(), 1u);
  EXPECT_EQ(report.groupRecord()[0].index, 3u);
  report.groupRecordDel(3);
  EXPECT_TRUE(!report);
}

TEST(IgmpReport, printsBothItsFields) {
  IgmpReport report;
  EXPECT_EQ(valueToStrep(report),
            "Value('Gmp::Igmp::IgmpReport', ** {'validPacket': False, 'groupRecord': {}})");
  report.validPacket = true;
  report.groupRecordIs(0);
  report.groupRecordIs(1).version = igmpVersion3;
  EXPECT_EQ(valueToStrep(report),
            "Value('Gmp::Igmp::IgmpReport', ** {'validPacket': True, 'groupRecord': {"
            "0: Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': 'igmpVersionUnknown', "
            "'rType': 0, 'multicastAddr': '0.0.0.0', 'source': {}}), "
            "1: Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': 'igmpVersion3', "
            "'rType': 0, 'multicastAddr': '0.0.0.0', 'source': {}})}})");
}

TEST(GroupList, holdsEachGroupOnce) {
  GroupList list;
  list.groupListIs(addrGroup, true);
  list.groupListIs(addrGroup, true);
  list.groupListIs(addrA, true);
  EXPECT_EQ(list.groupList(), (IpAddrSet{addrA, addrGroup}));
  list.groupListDel(addrA);
  list.groupListDel(addrB);
  EXPECT_EQ(list.groupList(), IpAddrSet{addrGroup});
  list.groupListDelAll();
  EXPECT_TRUE(list.groupList().empty());
}

TEST(GroupList, countIsItsUsersOwn) {
  GroupList list;
  list.groupListIs(addrGroup, true);
  EXPECT_EQ(list.groupCount(), 0);
  list.groupCountIs(7);
  EXPECT_EQ(list.groupCountInc(3), 10);
  EXPECT_EQ(list.groupCount(), 10);
  list.groupListDelAll();
  EXPECT_EQ(list.groupCount(), 10);
}

TEST(GroupList, countWrapsAt16Bits) {
  GroupList list;
  list.groupCountIs(65535);
  EXPECT_EQ(list.groupCountInc(2), 1);
}

TEST(GroupList, groupsAndCountBothCountForEquality) {
  GroupList one;
  GroupList two;
  EXPECT_TRUE(one == two);
  one.groupListIs(addrGroup, true);
  EXPECT_FALSE(one == two);
  two.groupListIs(addrGroup, true);
  EXPECT_TRUE(one == two);
  two.groupCountInc(1);
  EXPECT_FALSE(one == two);
}

TEST(GroupList, printsBothItsFields) {
  GroupList list;
  list.groupListIs(addrGroup, true);
  list.groupCountIs(7);
  EXPECT_EQ(valueToStrep(list),
            "Value('Gmp::Igmp::GroupList', ** {'groupList': {'239.1.1.1': "
            "True}, 'groupCount': 7})");
}

// A traced value has its textual form, both at the trace sink and in the trace ring, even if the
// value changes later.
template <class V>
void expectTraced(V value) {
  Mox::TraceHandle& handle = Mox::TraceHandle::named("IgmpValuesTest");
  handle.facilityLevelIs(3);
  std::string line;
  Mox::traceSinkIs([&](const Mox::TraceLine& traced) { line = traced.text; });
  const std::string text = valueToStrep(value);
  Mox::trace<3>(handle, "( ", value, " )");
  value = V();
  std::string recorded;
  Mox::brevlog().forEach([&](const Brevlog::Ring::Line& last) { recorded = last.text(); });
  Mox::traceSinkIs({});
  EXPECT_EQ(line, "( " + text + " )");
  EXPECT_EQ(recorded, "IgmpValuesTest ( " + text + " )");
  EXPECT_NE(text, valueToStrep(value));
}

TEST(IgmpValues, areTracedInTheirTextualForm) {
  expectTraced(IgmpQuery{true, igmpVersion3, 255, addrGroup, true, 7, 31744, {addrA, addrB}});
  expectTraced(IgmpGroupRecord{igmpVersion3, RecordType(4), addrGroup, {addrA, addrB}});
  IgmpReport report;
  report.groupRecordIs(0).newSource(addrA, true);
  expectTraced(report);
  GroupList list;
  list.groupListIs(addrGroup, true);
  expectTraced(list);
}

}  // namespace
}  // namespace Gmp::Igmp
