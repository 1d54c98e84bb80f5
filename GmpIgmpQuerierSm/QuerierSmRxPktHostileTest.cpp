// Damaged, cut and foreign packets: what is counted, what is traced, and that nothing else moves.
#include "RxBench.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class QuerierSmRxPktHostile : public RxBench {
 protected:
  static constexpr size_t ipBytes_ = 24;  // with Router Alert

  // Exactly one more error, and nothing else published.
  void expectError(const std::string& trace) {
    EXPECT_THAT(journal_, ElementsAre("status.errorPacketReceived " +
                                      std::to_string(status_->errorPacketReceived())));
    EXPECT_EQ(traced(trace), 1u) << trace;
    forget();
  }
  static std::vector<U8> report(const Ilvo::IpOptions& options = {}) {
    return Ilvo::buildV2Report(group_, options);
  }
};

const std::string badHeader = "Dropping IP packet with bad header checksum";

TEST_F(QuerierSmRxPktHostile, AnyWrongBitOfTheHeaderIsAnError) {
  startWatched();
  for (size_t bit = 0; bit < ipBytes_ * 8; ++bit) {
    SCOPED_TRACE(bit);
    std::vector<U8> packet = report();
    packet[bit / 8] = static_cast<U8>(packet[bit / 8] ^ (1U << (bit % 8)));
    receive(packet);
    expectError(badHeader);
  }
}

TEST_F(QuerierSmRxPktHostile, ARejectedPacketStillSetsPktSrc) {
  startWatched();
  receive(report({.src = lower_, .badIpChecksum = true}));
  EXPECT_EQ(querier_->pktSrc(), lower_);
  receive(report({.src = higher_, .badIgmpChecksum = true}));
  EXPECT_EQ(querier_->pktSrc(), higher_);
  receive(report({.src = host_, .protocol = 17}));
  EXPECT_EQ(querier_->pktSrc(), host_);
}

TEST_F(QuerierSmRxPktHostile, FewerBytesThanAHeaderAreAnError) {
  startWatched();
  const std::vector<U8> whole = report({.src = lower_});
  for (size_t length = 0; length < 20; ++length) {
    SCOPED_TRACE(length);
    receive({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
    expectError(badHeader);
    EXPECT_EQ(querier_->pktSrc(), length < 16 ? IpAddr() : lower_);
    querier_->pktSrcIs(IpAddr());
  }
}

TEST_F(QuerierSmRxPktHostile, AnotherIpVersionIsAnError) {
  startWatched();
  for (unsigned version = 0; version < 16; ++version) {
    if (version == 4) continue;
    SCOPED_TRACE(version);
    std::vector<U8> packet = report({.src = lower_});
    packet[0] = static_cast<U8>(version << 4 | 6);
    receive(packet);
    expectError(badHeader);
    EXPECT_EQ(querier_->pktSrc(), lower_);
  }
}

TEST_F(QuerierSmRxPktHostile, AHeaderLengthBelowFiveWordsIsAnError) {
  startWatched();
  for (U8 words = 0; words < 5; ++words) {
    std::vector<U8> packet = report();
    packet[0] = static_cast<U8>(0x40 + words);
    receive(packet);
    expectError(badHeader);
  }
}

TEST_F(QuerierSmRxPktHostile, AHeaderLengthBeyondThePacketIsAnError) {
  startWatched();
  std::vector<U8> packet = report();  // 32 bytes
  for (U8 words = 9; words <= 15; ++words) {
    packet[0] = static_cast<U8>(0x40 + words);
    receive(packet);
    expectError(badHeader);
  }
}

TEST_F(QuerierSmRxPktHostile, ATotalLengthBelowTheHeaderLengthIsAnError) {
  startWatched();
  for (U8 total = 0; total < ipBytes_; ++total) {
    std::vector<U8> packet = report({.src = lower_});
    packet[2] = 0;
    packet[3] = total;
    // The checksum is put right again: only the length is wrong.
    packet[10] = packet[11] = 0;
    unsigned sum = 0;
    for (size_t at = 0; at < ipBytes_; at += 2) sum += packet[at] * 256U + packet[at + 1];
    while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
    packet[10] = static_cast<U8>(~sum >> 8 & 0xff);
    packet[11] = static_cast<U8>(~sum & 0xff);
    receive(packet);
    expectError(badHeader);
    EXPECT_EQ(querier_->pktSrc(), lower_);
  }
}

TEST_F(QuerierSmRxPktHostile, APacketCutAnywhereBehindItsHeaderHasTooFewBytes) {
  startWatched();
  const std::vector<U8> whole = report();
  for (size_t length = ipBytes_; length < whole.size(); ++length) {
    receive({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
    expectError("Dropping IP packet with too few bytes (have " + std::to_string(length) +
                " want 32)");
  }
}

TEST_F(QuerierSmRxPktHostile, TheHeaderChecksumIsAskedBeforeTheLength) {
  startWatched();
  std::vector<U8> packet = report({.badIpChecksum = true});
  packet.pop_back();
  receive(packet);
  expectError(badHeader);
}

TEST_F(QuerierSmRxPktHostile, BytesBehindTheIpPacketAreCutOff) {
  startWatched();
  receive(report({.padding = 14}));
  EXPECT_EQ(traced("Truncating pkt to ip payload len: 8frm 22"), 1u);
  EXPECT_EQ(status_->v2ReportReceived(), 1u);
  forget();
  receive(report());
  EXPECT_EQ(tracedBegin("Truncating"), 0u);
}

TEST_F(QuerierSmRxPktHostile, PaddingDoesNotMakeAQueryLonger) {
  startWatched();
  receive(Ilvo::buildV2Query({}, 100, {.src = higher_, .padding = 4}));
  EXPECT_EQ(status_->v2QueriesReceived(), 1u);
  EXPECT_EQ(status_->v3QueriesReceived(), 0u);
}

TEST_F(QuerierSmRxPktHostile, BytesBehindTheMessageWithinTheIpPacketBelongToIt) {
  startWatched();
  receive(report({.trailingPayload = 6}));
  EXPECT_EQ(status_->v2ReportReceived(), 1u);
  receive(Ilvo::buildV2Query({}, 100, {.src = higher_, .trailingPayload = 2}));
  EXPECT_EQ(status_->errorPacketReceived(), 1u);  // ten bytes and a code: no version has that
}

TEST_F(QuerierSmRxPktHostile, AnOddLengthIsChecksummedAsIfPadded) {
  startWatched();
  receive(report({.trailingPayload = 1}));
  EXPECT_EQ(status_->v2ReportReceived(), 1u);
}

TEST_F(QuerierSmRxPktHostile, AHeaderWithoutOptionsIsFine) {
  startWatched();
  receive(report({.routerAlert = false}));
  EXPECT_EQ(status_->v2ReportReceived(), 1u);
}

TEST_F(QuerierSmRxPktHostile, OtherProtocolsAreCountedAsOther) {
  startWatched();
  receive(report({.protocol = 17, .badIgmpChecksum = true}));
  EXPECT_THAT(journal_, ElementsAre("status.otherPacketReceived 1"));
  ASSERT_FALSE(traces_.empty());
  EXPECT_EQ(traces_.back().text, std::string("Dropping non-IGMP protocol ") + '\x11');
  EXPECT_EQ(traces_.back().level, 3);
}

TEST_F(QuerierSmRxPktHostile, EveryProtocolByteButTwoIsOther) {
  startWatched();
  for (unsigned protocol = 0; protocol <= 0xff; ++protocol) {
    receive(report({.protocol = static_cast<U8>(protocol)}));
  }
  EXPECT_EQ(status_->otherPacketReceived(), 255u);
  EXPECT_EQ(status_->v2ReportReceived(), 1u);
  EXPECT_EQ(status_->errorPacketReceived(), 0u);
}

TEST_F(QuerierSmRxPktHostile, TheProtocolIsAskedBeforeTheSizeOfTheMessage) {
  startWatched();
  receive(Ilvo::buildIgmpPacket({}, group_, {.protocol = 1}));
  EXPECT_EQ(status_->otherPacketReceived(), 1u);
  EXPECT_EQ(status_->errorPacketReceived(), 0u);
}

TEST_F(QuerierSmRxPktHostile, FewerThanEightIgmpBytesAreAnError) {
  startWatched();
  for (size_t length = 0; length < 8; ++length) {
    std::vector<U8> message(length, 0x16);
    receive(Ilvo::buildIgmpPacket(message, group_));
    expectError("Dropping too-small IGMPv2 message on vlan10");
  }
}

TEST_F(QuerierSmRxPktHostile, AnyWrongBitOfTheMessageIsAnError) {
  startWatched();
  for (size_t bit = 0; bit < 64; ++bit) {
    std::vector<U8> packet = report();
    U8& byte = packet[ipBytes_ + bit / 8];
    byte = static_cast<U8>(byte ^ (1U << (bit % 8)));
    receive(packet);
    expectError("Dropping packet with bad IGMP checksum on vlan10");
  }
}

TEST_F(QuerierSmRxPktHostile, TheChecksumCoversTheWholePayload) {
  startWatched();
  std::vector<U8> packet = Ilvo::buildV3Report({{.type = 4, .group = group_}});
  packet.back() ^= 1;
  receive(packet);
  expectError("Dropping packet with bad IGMP checksum on vlan10");
}

TEST_F(QuerierSmRxPktHostile, RandomBytesNeverEndTheProcess) {
  startWatched();
  tracingIs(false);
  for (long seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    srand48(seed);
    const auto byte = [] { return static_cast<U8>(lrand48()); };
    std::vector<U8> message(static_cast<size_t>(lrand48() % 64));
    for (U8& b : message) b = byte();
    if (!message.empty() && seed % 2 == 0) message[0] = 0x22;
    if (message.size() > 7 && seed % 4 == 0) message[6] = 0;
    const U64 before = status_->errorPacketReceived() + status_->otherPacketReceived() +
                       status_->v3ReportReceived();
    receive(seed % 3 == 0 ? message : Ilvo::buildIgmpPacket(message, group_));
    const U64 after = status_->errorPacketReceived() + status_->otherPacketReceived() +
                      status_->v3ReportReceived();
    EXPECT_LE(after - before, 1u);
  }
}

TEST_F(QuerierSmRxPktHostile, PrefetchingAnyBytesMovesNothing) {
  startWatched();
  receiveV2Report(group_);
  forget();
  for (const std::vector<U8>& packet :
       {std::vector<U8>(), {0x4f}, report(), std::vector<U8>(64, 0xff)}) {
    for (int times = 0; times < 20; ++times) {
      querier_->prefetchRxPkt(Ilvo::Pkt(std::span<const U8>(packet)));
    }
  }
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_THAT(traceTexts(), IsEmpty());
  EXPECT_EQ(querier_->pktSrc(), host_);
}

TEST_F(QuerierSmRxPktHostile, NoPacketIsFatal) {
  startWatched();
  EXPECT_DEATH(querier_->doRxPkt(nullptr),
               "GmpIgmpQuerierSm.tin:.*: doRxPkt: Assertion 'pkt' failed");
}

TEST_F(QuerierSmRxPktHostile, AnUninitializedQuerierIsFatal) {
  startWatched();
  querier_->initializedIs(false);
  EXPECT_DEATH(receive(report()),
               "GmpIgmpQuerierSm.tin:.*: doRxPkt: Assertion 'initialized\\( \\)' failed");
  querier_->initializedIs(true);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
