#include <Ilvo/IpHdr.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

static_assert(std::is_trivially_copyable_v<IpHdr>);

using Bytes = std::vector<U8>;

// 10.0.0.1 sends 8 bytes of IGMP to 224.0.0.1, with the Router Alert option.
const Bytes generalQuery = {0x46, 0xc0, 0x00, 0x20, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02, 0xfa,
                            0x15, 0x0a, 0x00, 0x00, 0x01, 0xe0, 0x00, 0x00, 0x01, 0x94, 0x04,
                            0x00, 0x00, 0x11, 0x64, 0xee, 0x9b, 0x00, 0x00, 0x00, 0x00};

std::optional<IpHdr> hdrOf(const Bytes& bytes) { return IpHdr::of(*Mox::makePtr<Pkt>(bytes)); }

Bytes withOptions(const Bytes& options) {
  Bytes bytes(generalQuery.begin(), generalQuery.begin() + 20);
  bytes[0] = static_cast<U8>(0x40 + 5 + options.size() / 4);
  bytes.insert(bytes.end(), options.begin(), options.end());
  bytes[3] = static_cast<U8>(bytes.size());
  return bytes;
}

TEST(IpHdr, saysWhatTheBytesSay) {
  const std::optional<IpHdr> hdr = hdrOf(generalQuery);
  ASSERT_TRUE(hdr);
  EXPECT_EQ(hdr->src(), IpAddr(10, 0, 0, 1));
  EXPECT_EQ(hdr->dst(), IpAddr(224, 0, 0, 1));
  EXPECT_EQ(hdr->protocol(), 2);
  EXPECT_EQ(hdr->ttl(), 1);
  EXPECT_EQ(hdr->totalLen(), 32);
  EXPECT_EQ(hdr->headerBytes(), 24);
  EXPECT_EQ(hdr->payloadLen(), 8);
  EXPECT_EQ(hdr->computedChecksum(), 0);
  EXPECT_TRUE(hdr->routerAlert());
}

// Byte 6 holds the flags and the upper bits of the offset, byte 7 the rest; "do not fragment" alone
// says nothing.
TEST(IpHdr, knowsAFragmentByItsFlagOrItsOffset) {
  const auto isFragment = [](U8 flags, U8 offset) {
    Bytes bytes = generalQuery;
    bytes[6] = flags;
    bytes[7] = offset;
    return hdrOf(bytes)->isFragment();
  };
  EXPECT_FALSE(isFragment(0x00, 0x00));
  EXPECT_FALSE(isFragment(0x40, 0x00));
  EXPECT_TRUE(isFragment(0x20, 0x00));
  EXPECT_TRUE(isFragment(0x00, 0x01));
  EXPECT_TRUE(isFragment(0x1f, 0x00));
}

TEST(IpHdr, staysWhenThePacketMovesOn) {
  const auto pkt = Mox::makePtr<Pkt>(generalQuery);
  const std::optional<IpHdr> hdr = IpHdr::of(*pkt);
  ASSERT_TRUE(hdr);
  pkt->frontOffsetInc(24);
  EXPECT_EQ(hdr->src(), IpAddr(10, 0, 0, 1));
  EXPECT_FALSE(IpHdr::of(*pkt));
}

TEST(IpHdr, checksumCoversEveryHeaderByteAndNoOther) {
  for (std::size_t i = 1; i < generalQuery.size(); ++i) {
    Bytes bytes = generalQuery;
    bytes[i] ^= 0x40;
    const std::optional<IpHdr> hdr = hdrOf(bytes);
    ASSERT_TRUE(hdr) << "byte " << i;
    EXPECT_EQ(hdr->computedChecksum() != 0, i < 24) << "byte " << i;
  }
}

TEST(IpHdr, mayClaimMoreThanThePacketHolds) {
  Bytes bytes = generalQuery;
  bytes[2] = 0xff;
  bytes[3] = 0xff;
  const std::optional<IpHdr> hdr = hdrOf(bytes);
  ASSERT_TRUE(hdr);
  EXPECT_EQ(hdr->totalLen(), 65535);
  EXPECT_EQ(hdr->payloadLen(), 65511);
}

struct BrokenCase {
  const char* name;
  std::function<void(Bytes&)> damage;
};
class IpHdrBrokenTest : public testing::TestWithParam<BrokenCase> {};

TEST_P(IpHdrBrokenTest, isNone) {
  Bytes bytes = generalQuery;
  GetParam().damage(bytes);
  EXPECT_FALSE(hdrOf(bytes));
}

INSTANTIATE_TEST_SUITE_P(
    EachForm, IpHdrBrokenTest,
    testing::Values(BrokenCase{"noBytes", [](Bytes& b) { b.clear(); }},
                    BrokenCase{"nineteenBytes", [](Bytes& b) { b.resize(19); }},
                    BrokenCase{"version6", [](Bytes& b) { b[0] = 0x66; }},
                    BrokenCase{"version0", [](Bytes& b) { b[0] = 0x06; }},
                    BrokenCase{"fourWords", [](Bytes& b) { b[0] = 0x44; }},
                    BrokenCase{"noWords", [](Bytes& b) { b[0] = 0x40; }},
                    BrokenCase{"headerBeyondPacket", [](Bytes& b) { b.resize(23); }},
                    BrokenCase{"fifteenWordsIn32Bytes", [](Bytes& b) { b[0] = 0x4f; }},
                    BrokenCase{"totalBelowHeader", [](Bytes& b) { b[3] = 23; }},
                    BrokenCase{"totalZero", [](Bytes& b) { b[3] = 0; }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(IpHdr, mayBeAllThereIs) {
  Bytes bytes(generalQuery.begin(), generalQuery.begin() + 24);
  bytes[3] = 24;
  const std::optional<IpHdr> hdr = hdrOf(bytes);
  ASSERT_TRUE(hdr);
  EXPECT_EQ(hdr->payloadLen(), 0);
}

struct AlertCase {
  const char* name;
  Bytes options;
  bool alert;
};
class RouterAlertTest : public testing::TestWithParam<AlertCase> {};

TEST_P(RouterAlertTest, isFound) {
  const std::optional<IpHdr> hdr = hdrOf(withOptions(GetParam().options));
  ASSERT_TRUE(hdr);
  EXPECT_EQ(hdr->routerAlert(), GetParam().alert);
}

INSTANTIATE_TEST_SUITE_P(
    Options, RouterAlertTest,
    testing::Values(AlertCase{"none", {}, false}, AlertCase{"alone", {148, 4, 0, 0}, true},
                    AlertCase{"behindNoOperations", {1, 1, 1, 148, 4, 0, 0, 0}, true},
                    AlertCase{"behindAnother", {130, 4, 0, 0, 148, 4, 0, 0}, true},
                    AlertCase{"behindTheEnd", {0, 0, 0, 0, 148, 4, 0, 0}, false},
                    AlertCase{"behindLengthZero", {130, 0, 0, 0, 148, 4, 0, 0}, false},
                    AlertCase{"behindLengthOne", {130, 1, 0, 0, 148, 4, 0, 0}, false},
                    AlertCase{"behindLengthBeyond", {130, 9, 0, 0, 148, 4, 0, 0}, false},
                    AlertCase{"cutBeforeItsLength", {1, 1, 1, 148}, false},
                    AlertCase{"cut", {1, 1, 148, 4}, false},
                    AlertCase{"ofWrongLength", {148, 3, 0, 0}, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(IpHdr, printsOnOneLine) {
  std::string out;
  appendText(out, hdrOf(generalQuery).value());
  EXPECT_EQ(out, "IpHdr( 10.0.0.1 -> 224.0.0.1 protocol 2 length 32 )");
}

}  // namespace
}  // namespace Ilvo
