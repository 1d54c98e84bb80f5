#include <GmpIgmpQuerier/IgmpParse.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "IgmpParseTestSupport.h"

namespace Gmp::Igmp {
namespace {

class IgmpQueryParse : public IgmpParseFixture {
 protected:
  static IgmpQuery parse(const Ilvo::V3QueryFields& fields, size_t cut = 0) {
    return doIgmpMembershipQueryParse(messageOf(Ilvo::buildV3Query(fields), cut));
  }
  static IgmpQuery invalid() {
    IgmpQuery query;
    query.version = igmpVersion3;
    return query;
  }
};

TEST_F(IgmpQueryParse, readsEveryField) {
  const IgmpQuery query = parse({.group = group_,
                                 .code = 0x8a,
                                 .sFlag = true,
                                 .qrv = 5,
                                 .qqic = 60,
                                 .sources = {b_, a_},
                                 .reserved = 0xf});
  EXPECT_EQ(query, (IgmpQuery{true, igmpVersion3, 0x8a, group_, true, 5, 60, {a_, b_}}));
  EXPECT_EQ(traces(), (Texts{
                          "6 qqic: 60, qqi: 60",
                          "6 version: igmpVersion3 maxRespCode: 138 groupAddr: 239.1.1.1 s: true "
                          "qrv: 5 qqic: 60 qqi: 60",
                          "6 Source 0 is 10.0.0.2",
                          "6 Source 1 is 10.0.0.1",
                      }));
  EXPECT_EQ(events(), Texts{});
}

TEST_F(IgmpQueryParse, readsAGeneralQuery) {
  const IgmpQuery query = parse({});
  EXPECT_EQ(query, (IgmpQuery{true, igmpVersion3, 100, IpAddr(), false, 2, 125, {}}));
  EXPECT_EQ(traces(), (Texts{
                          "6 qqic: 125, qqi: 125",
                          "6 version: igmpVersion3 maxRespCode: 100 groupAddr: 0.0.0.0 s: false "
                          "qrv: 2 qqic: 125 qqi: 125",
                      }));
}

TEST_F(IgmpQueryParse, takesTheFlagsFromTheirBitsOnly) {
  EXPECT_FALSE(parse({.sFlag = false, .qrv = 7, .reserved = 0xf}).s);
  EXPECT_EQ(parse({.sFlag = true, .qrv = 0, .reserved = 0xf}).qrv, 0);
}

TEST_F(IgmpQueryParse, leavesThePacketAsItIs) {
  const Ptr<Ilvo::Pkt> pkt = messageOf(Ilvo::buildV3Query({.sources = {a_}}));
  EXPECT_TRUE(doIgmpMembershipQueryParse(pkt).validPacket);
  EXPECT_EQ(pkt->offsetBytes(), 16u);
  EXPECT_EQ(pkt->u8(0), 0x11);
}

struct IntervalCase {
  U8 qqic;
  U32 qqi;
  const char* trace;
};
TEST_F(IgmpQueryParse, decodesTheQueryIntervalCode) {
  const IntervalCase cases[]{
      {0, 0, "6 qqic: 0, qqi: 0"},
      {127, 127, "6 qqic: 127, qqi: 127"},
      {0x80, 128, "6 qqic: 128, mantissa: 0, exp: 0, qqi: 128"},
      {0x8a, 208, "6 qqic: 138, mantissa: 10, exp: 0, qqi: 208"},
      {0xb5, 1344, "6 qqic: 181, mantissa: 5, exp: 3, qqi: 1344"},
      {0xff, 31744, "6 qqic: 255, mantissa: 15, exp: 7, qqi: 31744"},
  };
  for (const auto& [qqic, qqi, trace] : cases) {
    EXPECT_EQ(parse({.qqic = qqic}).qqi, qqi);
    EXPECT_EQ(traces()[0], trace);
  }
}

TEST_F(IgmpQueryParse, messageShorterThanTheHeaderIsInvalid) {
  for (size_t cut = 1; cut <= 12; ++cut) {
    SCOPED_TRACE(12 - cut);
    EXPECT_EQ(parse({.group = group_, .sFlag = true}, cut), invalid());
    EXPECT_EQ(traces(), cut <= 2 ? Texts{"6 qqic: 125, qqi: 125"} : Texts{});
  }
}

TEST_F(IgmpQueryParse, sourceListBeyondTheMessageMakesItInvalidWithoutSources) {
  EXPECT_EQ(parse({.group = group_, .sources = {a_, b_}, .numSources = 3}), invalid());
  EXPECT_EQ(parse({.group = group_, .sources = {a_, b_}}, 1), invalid());
  EXPECT_EQ(parse({.group = group_, .numSources = 65535}), invalid());
  EXPECT_EQ(traces(), Texts(3, "6 qqic: 125, qqi: 125"));
}

TEST_F(IgmpQueryParse, sourcesOfATruncatedListAreNotReported) {
  EXPECT_EQ(parse({.sources = {IpAddr(224, 0, 0, 1)}, .numSources = 2}), invalid());
  EXPECT_EQ(events(), Texts{});
}

TEST_F(IgmpQueryParse, bytesBehindTheSourcesAreIgnored) {
  const IgmpQuery query = parse({.sources = {a_, b_}, .numSources = 1});
  EXPECT_TRUE(query.validPacket);
  EXPECT_EQ(query.source, IpAddrSet{a_});
}

TEST_F(IgmpQueryParse, repeatedSourceIsKeptOnceAndTracedEachTime) {
  const IgmpQuery query = parse({.sources = {a_, b_, a_}});
  EXPECT_EQ(query.source, (IpAddrSet{a_, b_}));
  const Texts lines = traces();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[2], "6 Source 0 is 10.0.0.1");
  EXPECT_EQ(lines[4], "6 Source 2 is 10.0.0.1");
}

TEST_F(IgmpQueryParse, sourceThatIsNotUnicastIsReportedAndLeftOut) {
  const IgmpQuery query =
      parse({.group = group_, .sources = {a_, IpAddr(224, 0, 0, 1), IpAddr(240, 0, 0, 1), b_}});
  EXPECT_TRUE(query.validPacket);
  EXPECT_EQ(query.source, (IpAddrSet{a_, b_}));
  const Texts lines = traces();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[2], "6 Source 0 is 10.0.0.1");
  EXPECT_EQ(lines[3], "6 Source 3 is 10.0.0.2");
  const std::string name = "IGMP_MESSAGE_INVALID_SOURCE: ";
  EXPECT_EQ(events(), (Texts{
                          name + "Received invalid source 224.0.0.1 for group 239.1.1.1.",
                          name + "Received invalid source 240.0.0.1 for group 239.1.1.1.",
                      }));
}

TEST_F(IgmpQueryParse, sourceZeroCountsAsUnicastHere) {
  EXPECT_EQ(parse({.sources = {IpAddr()}}).source, IpAddrSet{IpAddr()});
  EXPECT_EQ(events(), Texts{});
}

TEST(IgmpMessageInvalidSource, saysWhatItMeansAndWhatToDo) {
  const Mox::EventLogMessage& message = igmpMessageInvalidSource.message();
  EXPECT_STREQ(message.name, "IGMP_MESSAGE_INVALID_SOURCE");
  EXPECT_EQ(message.severity, 3);
  EXPECT_STREQ(message.format, "Received invalid source %s for group %s.");
  EXPECT_STREQ(message.explanation, "Source sent by host is not a unicast address.");
  EXPECT_STREQ(message.recommendedAction, "Capture the packet using tcpdump and contact support.");
  EXPECT_EQ(message.interval, 0.0);
  EXPECT_EQ(message.burst, 1.0);
  EXPECT_EQ(message.flag, 0);
}

TEST(IgmpPacketTrace, isKnownByItsName) {
  EXPECT_EQ(&Mox::TraceHandle::named("IgmpPacket"), &*igmpPacketTrace);
  EXPECT_STREQ(igmpPacketTrace->modelFile(), "GmpIgmpQuerierSm.tin");
}

}  // namespace
}  // namespace Gmp::Igmp
