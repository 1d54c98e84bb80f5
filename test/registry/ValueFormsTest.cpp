// The textual forms of values through the registry, and values that cannot be made of text.
#include <string>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/GroupList.h>
#include <GmpIgmpQuerier/IgmpGroupRecord.h>
#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/IgmpReport.h>
#include <GmpIgmpQuerier/RecordType.h>
#include <Mox/Errors.h>
#include <Mox/ModelTypes.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {
namespace {

template <class V>
std::string textOf(const char* type, const V& value) {
  return Mox::typeNamed(type)->text(&value);
}

TEST(ValueForms, aQueryReadsAsOneLineWithItsFieldsInOrder) {
  IgmpQuery query;
  query.validPacket = true;
  query.version = igmpVersion3;
  query.maxResponseCode = 100;
  query.groupAddress = IpAddr(239, 1, 1, 1);
  query.qrv = 2;
  query.qqi = 125;
  query.newSource(IpAddr(10, 0, 0, 1), true);
  EXPECT_EQ(textOf("Gmp::Igmp::IgmpQuery", query),
            "Value('Gmp::Igmp::IgmpQuery', ** {'validPacket': True, 'version': 'igmpVersion3', "
            "'maxResponseCode': 100, 'groupAddress': '239.1.1.1', 's': False, 'qrv': 2, "
            "'qqi': 125, 'source': {'10.0.0.1': True}})");
}

TEST(ValueForms, aRecordReadsAsOneLineWithItsFieldsInOrder) {
  IgmpGroupRecord record;
  record.version = igmpVersion3;
  record.rType = RecordType(4);
  record.multicastAddr = IpAddr(239, 1, 1, 1);
  EXPECT_EQ(textOf("Gmp::Igmp::IgmpGroupRecord", record),
            "Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': 'igmpVersion3', 'rType': 4, "
            "'multicastAddr': '239.1.1.1', 'source': {}})");
}

TEST(ValueForms, aReportWithoutRecordsStillHasBothKeys) {
  EXPECT_EQ(textOf("Gmp::Igmp::IgmpReport", IgmpReport()),
            "Value('Gmp::Igmp::IgmpReport', ** {'validPacket': False, 'groupRecord': {}})");
}

TEST(ValueForms, aReportHoldsItsRecordsByTheirPlaces) {
  IgmpReport report;
  report.newGroupRecord(0, {});
  report.newGroupRecord(2, {});
  const std::string record = valueToStrep(IgmpGroupRecord());
  EXPECT_EQ(textOf("Gmp::Igmp::IgmpReport", report),
            "Value('Gmp::Igmp::IgmpReport', ** {'validPacket': False, 'groupRecord': {0: " +
                record + ", 2: " + record + "}})");
}

TEST(ValueForms, aGroupListReadsLikeTheOthers) {
  GroupList list;
  list.groupListIs(IpAddr(239, 1, 1, 1), true);
  list.groupCountIs(1);
  EXPECT_EQ(textOf("Gmp::Igmp::GroupList", list),
            "Value('Gmp::Igmp::GroupList', ** {'groupList': {'239.1.1.1': True}, "
            "'groupCount': 1})");
}

TEST(ValueForms, aRecordTypeReadsAsItsDecimalNumber) {
  EXPECT_EQ(textOf("Gmp::Igmp::RecordType", RecordType(2)), "2");
  EXPECT_EQ(textOf("Gmp::Igmp::RecordType", RecordType(255)), "255");
}

TEST(ValueForms, everyEnumeratorReadsAndANumberWithoutANameDoesToo) {
  EXPECT_EQ(textOf("Gmp::Igmp::TimerState", timerRunning), "'timerRunning'");
  EXPECT_EQ(textOf("Gmp::Igmp::TimerState", static_cast<TimerState>(9)), "'9'");
}

TEST(ValueForms, anUnknownNameMakesNoEnumerator) {
  EXPECT_THROW(Mox::typeNamed("Gmp::Igmp::IgmpVersion")->fromText("igmpVersion4"), Mox::RangeError);
  EXPECT_THROW(Mox::typeNamed("Gmp::Igmp::IgmpVersion")->fromText(""), Mox::RangeError);
}

TEST(ValueFormsDeathTest, valuesThatHoldACollectionAreNotMadeOfText) {
  EXPECT_DEATH(Mox::typeNamed("Gmp::Igmp::IgmpQuery")->fromText("x"),
               "GmpIgmpQuerier.tin:.*'No String constructor for IgmpQuery - has collection'");
  EXPECT_DEATH(Mox::typeNamed("Gmp::Igmp::IgmpGroupRecord")->fromText("x"),
               "'No String constructor for IgmpGroupRecord - has collection'");
  EXPECT_DEATH(Mox::typeNamed("Gmp::Igmp::IgmpReport")->fromText("x"),
               "'No String constructor for IgmpReport - has collection'");
  EXPECT_DEATH(IgmpReportInstance(""), "'No String constructor for IgmpReport - has collection'");
}

TEST(ValueForms, fieldsOfAQueryAreThoseOfItsTable) {
  std::string text;
  for (const Mox::FieldInfo& field : Mox::typeNamed("Gmp::Igmp::IgmpQuery")->fields) {
    text += std::to_string(field.id) + field.name + ":" + field.typeName + " ";
  }
  EXPECT_EQ(text,
            "1validPacket:bool 2version:Gmp::Igmp::IgmpVersion 3maxResponseCode:U8 "
            "4groupAddress:Ilvo::IpAddr 5s:bool 6qrv:U8 7qqi:U32 8source:set of Ilvo::IpAddr ");
}

}  // namespace
}  // namespace Gmp::Igmp
