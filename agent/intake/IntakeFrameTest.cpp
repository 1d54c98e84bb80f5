// Rules about destination, TTL, fragments and sender, and what the intake does not look into.
#include <Ilvo/Checksum.h>

#include "IntakeTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Ilvo::IpOptions;
using Mox::U8;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<U8>;

// With another byte of the IPv4 header, and its checksum right again.
Bytes withHeaderByte(Bytes packet, size_t at, U8 value) {
  packet[at] = value;
  packet[10] = packet[11] = 0;
  const auto sum = Ilvo::checksum(std::span(packet).first(size_t{packet[0] & 0x0fU} * 4));
  packet[10] = static_cast<U8>(sum >> 8);
  packet[11] = static_cast<U8>(sum);
  return packet;
}

class IntakeFrameTest : public IntakeTest {
 protected:
  static constexpr IpAddr foreign_{172, 16, 0, 1};
  static constexpr size_t flagsAt_ = 6;

  void SetUp() override { start(); }

  static Bytes report(const IpOptions& options = {.src = host_}) {
    return Ilvo::buildV2Report(group_, options);
  }
};

TEST_F(IntakeFrameTest, messagesOfConformingHostsAndRoutersPass) {
  EXPECT_EQ(received(Ilvo::buildV1Report(group_, {.src = host_, .routerAlert = false})), "passes");
  EXPECT_EQ(received(report()), "passes");
  EXPECT_EQ(received(Ilvo::buildV2Leave(group_, {.src = host_})), "passes");
  EXPECT_EQ(receivedRecord(2, group_), "passes");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = higher_})), "passes");
  EXPECT_EQ(received(Ilvo::buildV2Query({}, 100, {.src = higher_})), "passes");
  EXPECT_EQ(received(Ilvo::buildV1Query({.src = higher_, .routerAlert = false})), "passes");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = IpAddr()})), "passes");
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(IntakeFrameTest, packetToAUnicastAddressIsRefused) {
  EXPECT_EQ(received(report({.src = host_, .dst = own_})), "refused: notMulticast");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = lower_, .dst = own_})),
            "refused: notMulticast");
  EXPECT_EQ(groups(), 0u);
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), own_);
  EXPECT_EQ(counted(IntakeRule::notMulticast), 2u);
}

TEST_F(IntakeFrameTest, frameToAUnicastMacIsRefused) {
  EXPECT_EQ(received(report(), hostMac_, ownMac_), "refused: notMulticast");
  config_->multicastOnlyIs(false);
  EXPECT_EQ(received(report(), hostMac_, ownMac_), "passes");
}

// It could win the election unseen.
TEST_F(IntakeFrameTest, queryThatHostsDoNotReceiveIsRefused) {
  constexpr IpAddr allRouters(224, 0, 0, 2);
  const Bytes query = Ilvo::buildV3Query({}, {.src = lower_});
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = lower_, .dst = allRouters})),
            "refused: notMulticast");
  EXPECT_EQ(received(query, hostMac_, groupMac_), "refused: notMulticast");
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), own_);
  EXPECT_EQ(received(query, hostMac_, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff}), "passes");
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), lower_);
}

TEST_F(IntakeFrameTest, specificQueryToAllHostsPasses) {
  received(report());
  received(Ilvo::buildV3Query({}, {.src = lower_}));
  EXPECT_EQ(received(Ilvo::buildV2Query(group_, 10, {.src = lower_, .dst = IpAddr(224, 0, 0, 1)})),
            "passes");
  EXPECT_EQ(received(Ilvo::buildV2Query(group_, 10, {.src = lower_, .dst = IpAddr(239, 9, 9, 9)})),
            "refused: notMulticast");
}

TEST_F(IntakeFrameTest, linkWithoutMacsIsJudgedByAddressesAlone) {
  EXPECT_EQ(receivedWithoutMacs(report()), "passes");
  EXPECT_EQ(receivedWithoutMacs(report({.src = host_, .dst = own_})), "refused: notMulticast");
}

TEST_F(IntakeFrameTest, aTtlOtherThanOneIsRefused) {
  for (const int ttl : {0, 2, 255}) {
    EXPECT_EQ(received(report({.src = host_, .ttl = static_cast<U8>(ttl)})), "refused: wrongTtl");
  }
  config_->ttlOneIs(false);
  EXPECT_EQ(received(report({.src = host_, .ttl = 64})), "passes");
}

TEST_F(IntakeFrameTest, fragmentsAreRefused) {
  EXPECT_EQ(received(withHeaderByte(report(), flagsAt_, 0x20)), "refused: fragment");
  EXPECT_EQ(received(withHeaderByte(report(), flagsAt_ + 1, 0x01)), "refused: fragment");
  EXPECT_EQ(received(withHeaderByte(report(), flagsAt_, 0x40)), "passes");
  EXPECT_EQ(counted(IntakeRule::fragment), 2u);
  config_->refuseFragmentsIs(false);
  EXPECT_EQ(received(withHeaderByte(report(), flagsAt_, 0x20)), "passes");
}

TEST_F(IntakeFrameTest, brokenPacketsPassAndAreCountedByTheQuerier) {
  Bytes tooShort = report();
  tooShort.resize(tooShort.size() - 1);
  EXPECT_EQ(received(report({.src = host_, .dst = own_, .badIpChecksum = true})), "passes");
  EXPECT_EQ(received(report({.src = host_, .dst = own_, .badIgmpChecksum = true})), "passes");
  EXPECT_EQ(received(tooShort), "passes");
  EXPECT_EQ(received(Ilvo::buildIgmpPacket({0x16, 0, 0, 0}, own_)), "passes");
  EXPECT_EQ(querierStatus_->errorPacketReceived(), 4u);
}

TEST_F(IntakeFrameTest, messagesThatAQuerierDoesNotActOnPass) {
  EXPECT_EQ(received(Ilvo::buildIgmpPacket({0x13, 1, 0, 0, 0, 0, 0, 0}, own_, {.ttl = 64})),
            "passes");
  EXPECT_EQ(received(report({.src = host_, .dst = own_, .protocol = 17})), "passes");
  EXPECT_EQ(querierStatus_->otherPacketReceived(), 2u);
}

TEST_F(IntakeFrameTest, paddingDoesNotMatter) {
  EXPECT_EQ(received(report({.src = host_, .padding = 14})), "passes");
  EXPECT_EQ(groups(), 1u);
}

TEST_F(IntakeFrameTest, queriesComeFromHostsOfTheSubnets) {
  for (const IpAddr source : {foreign_, IpAddr(10, 0, 0, 0), IpAddr(10, 0, 0, 255),
                              IpAddr(0, 0, 0, 1), IpAddr(224, 0, 0, 1)}) {
    EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = source})), "refused: foreignQuery")
        << source.stringValue();
  }
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), own_);
  config_->localQueriesIs(false);
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = IpAddr(0, 0, 0, 1)})), "passes");
}

TEST_F(IntakeFrameTest, withoutSubnetsEachUnicastAddressIsLocal) {
  intake_->linkIs(ownMac_, PrefixList());
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = foreign_})), "passes");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = IpAddr(224, 0, 0, 1)})),
            "refused: foreignQuery");
}

TEST_F(IntakeFrameTest, onlyPermittedQueriersAreTaken) {
  config_->permittedQueriersIs(PrefixList("10.0.0.2,192.168.0.0/16"));
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = lowest_})), "refused: unpermittedQuerier");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = IpAddr()})), "refused: unpermittedQuerier");
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), own_);
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = lower_})), "passes");
  EXPECT_EQ(counted(IntakeRule::unpermittedQuerier), 2u);
}

TEST_F(IntakeFrameTest, reportsOfOtherSubnetsAreRefusedOnRequest) {
  EXPECT_EQ(received(report({.src = foreign_})), "passes");
  config_->localReportsIs(true);
  EXPECT_EQ(received(report({.src = foreign_})), "refused: foreignReport");
  EXPECT_EQ(received(report({.src = IpAddr()})), "passes");
  EXPECT_EQ(received(report()), "passes");
}

TEST_F(IntakeFrameTest, routerAlertIsRequiredOfVersions2And3OnRequest) {
  const IpOptions without{.src = host_, .routerAlert = false};
  EXPECT_EQ(received(report(without)), "passes");
  config_->requireRouterAlertIs(true);
  EXPECT_EQ(received(report(without)), "refused: noRouterAlert");
  EXPECT_EQ(received(Ilvo::buildV2Leave(group_, without)), "refused: noRouterAlert");
  EXPECT_EQ(received(Ilvo::buildV3Report({{.type = 2, .group = group_}}, without)),
            "refused: noRouterAlert");
  EXPECT_EQ(received(Ilvo::buildV1Report(group_, without)), "passes");
  EXPECT_EQ(received(report()), "passes");
}

TEST_F(IntakeFrameTest, reportsOfOldVersionsAreRefusedOnRequest) {
  const Bytes version1 = Ilvo::buildV1Report(group_, {.src = host_});
  const Bytes leave = Ilvo::buildV2Leave(group_, {.src = host_});
  config_->leastReportVersionIs(2);
  EXPECT_EQ(received(version1), "refused: oldVersion");
  EXPECT_EQ(received(report()), "passes");
  EXPECT_EQ(received(leave), "passes");
  config_->leastReportVersionIs(3);
  EXPECT_EQ(received(version1), "refused: oldVersion");
  EXPECT_EQ(received(report()), "refused: oldVersion");
  EXPECT_EQ(received(leave), "refused: oldVersion");
  EXPECT_EQ(receivedRecord(2, group_), "passes");
}

TEST_F(IntakeFrameTest, stationWithThisAddressIsReported) {
  EXPECT_EQ(received(report({.src = own_})), "passes");
  EXPECT_EQ(receivedRecord(2, group_), "passes");
  EXPECT_EQ(counted(IntakeRule::ownAddress), 1u);
  EXPECT_THAT(events(), ElementsAre("ownAddress 10.0.0.5 mac 77 count 1"));
}

TEST_F(IntakeFrameTest, queryOfAStationWithThisAddressIsRefusedAndCountedOnce) {
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = own_})), "refused: ownAddress");
  EXPECT_EQ(querierStatus_->v3QueriesReceived(), 0u);
  EXPECT_EQ(counted(IntakeRule::ownAddress), 1u);
}

TEST_F(IntakeFrameTest, stationWithThisAddressIsNotReportedForWhatIsRefused) {
  EXPECT_EQ(received(report({.src = own_, .ttl = 64})), "refused: wrongTtl");
  EXPECT_EQ(received(Ilvo::buildV2Leave(group_, {.src = own_, .ttl = 64})), "refused: wrongTtl");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = own_, .ttl = 64})), "refused: wrongTtl");
  EXPECT_EQ(received(Ilvo::buildV3Report({{.type = 2, .group = group_}}, {.src = own_, .ttl = 64})),
            "refused: wrongTtl");
  EXPECT_EQ(counted(IntakeRule::ownAddress), 0u);
}

// Members on the machine itself report from its address, and their frames come back. A station that
// reflects frames brings back queries as well.
TEST_F(IntakeFrameTest, packetsOfThisMachineAreNone) {
  EXPECT_EQ(received(report({.src = own_}), ownMac_), "passes");
  EXPECT_EQ(received(Ilvo::buildV3Query({}, {.src = own_}), ownMac_), "passes");
  EXPECT_EQ(counted(IntakeRule::ownAddress), 0u);
}

TEST_F(IntakeFrameTest, eventsOfOneRuleAreAMinuteApart) {
  const Bytes wrong = report({.src = host_, .ttl = 9});
  received(wrong);
  received(wrong);
  EXPECT_THAT(events(), ElementsAre("wrongTtl 10.0.0.77 mac 77 group 239.1.1.1 count 1"));
  received(report({.src = host_, .dst = own_}));
  EXPECT_THAT(events(), ElementsAre("notMulticast 10.0.0.77 mac 77 group 239.1.1.1 count 1"));
  advance(59.9);
  received(wrong);
  EXPECT_THAT(events(), IsEmpty());
  advance(0.1);
  received(wrong);
  EXPECT_THAT(events(), ElementsAre("wrongTtl 10.0.0.77 mac 77 group 239.1.1.1 count 4"));
}

TEST_F(IntakeFrameTest, withoutAQuerierEverythingPasses) {
  intake_->querierIs(nullptr);
  EXPECT_EQ(received(report({.src = host_, .dst = own_})), "passes");
  EXPECT_EQ(counted(IntakeRule::notMulticast), 0u);
}

}  // namespace
}  // namespace Agent
