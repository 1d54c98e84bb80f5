// Random bytes: readers that ask has() first never fail, and the fields that they read agree with
// each other. Sanitizers check the rest.

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Ilvo/Checksum.h>
#include <Ilvo/IgmpCode.h>
#include <Ilvo/IgmpHdr.h>
#include <Ilvo/IpHdr.h>
#include <Ilvo/IpPrefix.h>

namespace Ilvo {
namespace {

class RandomBytesTest : public testing::Test {
 protected:
  U8 byte() { return static_cast<U8>(random_()); }
  std::vector<U8> bytes(std::size_t length) {
    std::vector<U8> out(length);
    for (U8& b : out) {
      b = byte();
    }
    return out;
  }

  const unsigned seed_ = std::random_device{}();
  std::mt19937 random_{seed_};
  const testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};
};

TEST_F(RandomBytesTest, makeAnIpHeaderOrNone) {
  unsigned headers = 0;
  for (std::size_t round = 0; round < 65 * 200; ++round) {
    std::vector<U8> in = bytes(round % 65);
    // Most first bytes are no version 4 header, and most lengths are too long: help half of them.
    if (in.size() >= 4 && round % 2 == 0) {
      in[0] = static_cast<U8>(0x40 | (in[0] & 0x0f));
      in[2] = 0;
    }
    const auto pkt = Mox::makePtr<Pkt>(in);
    const std::optional<IpHdr> hdr = IpHdr::of(*pkt);
    if (!hdr) continue;
    ++headers;
    ASSERT_GE(hdr->headerBytes(), 20);
    ASSERT_LE(hdr->headerBytes(), in.size());
    ASSERT_EQ(hdr->payloadLen() + hdr->headerBytes(), hdr->totalLen());
    ASSERT_EQ(hdr->computedChecksum(), checksum(pkt->data().first(hdr->headerBytes())));
    std::string text;
    appendText(text, *hdr);
    ASSERT_TRUE(text.starts_with("IpHdr( ") && text.ends_with(" )")) << text;
  }
  EXPECT_GT(headers, 0u);
}

TEST_F(RandomBytesTest, areReadByEveryIgmpViewThatFits) {
  for (std::size_t round = 0; round < 65 * 200; ++round) {
    const auto pkt = Mox::makePtr<Pkt>(bytes(round % 65));
    if (!pkt->has(IgmpCommonHdr::bytes)) continue;
    const IgmpCommonHdr common(*pkt);
    const IgmpV12Hdr v12(*pkt);
    ASSERT_EQ(common.computedChecksum(pkt->offsetBytes()), checksum(pkt->data()));
    ASSERT_EQ(common.messageType(), v12.type());
    if (!pkt->has(IgmpV3QueryHdr::bytes)) continue;
    IgmpV3QueryHdr query(*pkt);
    ASSERT_EQ(query.queryIntervalSeconds(), igmpCodeDecode(query.qqic()));
    for (std::size_t i = 0; i < query.numSources() && pkt->has(16 + 4 * i); ++i) {
      ASSERT_EQ(query.source(i), pkt->ipAddr(12 + 4 * i));
    }
    std::string text;
    appendText(text, query.text());
    ASSERT_TRUE(text.starts_with("IgmpV3QueryHdr( type 0x")) << text;
    query.checksumUpdate(pkt->offsetBytes());
    ASSERT_EQ(common.computedChecksum(pkt->offsetBytes()), 0);
  }
}

TEST_F(RandomBytesTest, asTextParseToWhatPrintsAndParsesTheSame) {
  const std::string alphabet("0123456789.:/af \0", 17);
  unsigned parsed = 0;
  for (int round = 0; round < 50000; ++round) {
    std::string text(random_() % 20, ' ');
    for (char& c : text) {
      c = alphabet[random_() % alphabet.size()];
    }
    if (round % 2 == 0) {
      text = IpAddr(static_cast<U32>(random_())).stringValue() + text.substr(0, 2);
    }
    const std::optional<IpGenPrefix> prefix = IpGenPrefix::parse(text);
    if (!prefix) continue;
    ++parsed;
    ASSERT_EQ(IpGenPrefix::parse(prefix->stringValue()), prefix) << text;
  }
  EXPECT_GT(parsed, 0u);
}

}  // namespace
}  // namespace Ilvo
