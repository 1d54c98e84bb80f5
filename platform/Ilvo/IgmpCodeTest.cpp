#include <Ilvo/IgmpCode.h>

#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

struct CodeCase {
  const char* rule;
  U8 code;
  unsigned value;
};
class IgmpCodeTest : public testing::TestWithParam<CodeCase> {};

TEST_P(IgmpCodeTest, decodes) { EXPECT_EQ(igmpCodeDecode(GetParam().code), GetParam().value); }
TEST_P(IgmpCodeTest, encodes) { EXPECT_EQ(igmpCodeEncode(GetParam().value), GetParam().code); }

INSTANTIATE_TEST_SUITE_P(Rfc3376Section411, IgmpCodeTest,
                         testing::Values(CodeCase{"zero", 0x00, 0}, CodeCase{"one", 0x01, 1},
                                         CodeCase{"largestLinear", 0x7f, 127},
                                         CodeCase{"smallestFloating", 0x80, 128},
                                         CodeCase{"mantissaCounts", 0x8a, 208},
                                         CodeCase{"lastOfFirstExponent", 0x8f, 248},
                                         CodeCase{"exponentCounts", 0x90, 256},
                                         CodeCase{"largest", 0xff, 31744}),
                         [](const auto& test) { return std::string(test.param.rule); });

TEST(IgmpCode, encodingUndoesDecodingForEveryCode) {
  for (unsigned code = 0; code < 256; ++code) {
    const auto c = static_cast<U8>(code);
    EXPECT_EQ(igmpCodeEncode(igmpCodeDecode(c)), c) << "code " << code;
  }
}

TEST(IgmpCode, grows) {
  for (unsigned code = 1; code < 256; ++code) {
    EXPECT_LT(igmpCodeDecode(static_cast<U8>(code - 1)), igmpCodeDecode(static_cast<U8>(code)));
  }
}

TEST(IgmpCode, roundsEveryValueDownToTheNextCode) {
  unsigned code = 0;
  for (unsigned value = 0; value <= igmpCodeMax; ++value) {
    while (code < 255 && igmpCodeDecode(static_cast<U8>(code + 1)) <= value) {
      ++code;
    }
    ASSERT_EQ(igmpCodeEncode(value), code) << "value " << value;
    ASSERT_EQ(igmpCodeEncode(value + 0.99), code) << "value " << value << ".99";
  }
}

TEST(IgmpCode, clampsToTheLargest) {
  EXPECT_EQ(igmpCodeEncode(31745), 0xff);
  EXPECT_EQ(igmpCodeEncode(1e30), 0xff);
  EXPECT_EQ(igmpCodeEncode(std::numeric_limits<double>::infinity()), 0xff);
  EXPECT_EQ(igmpCodeEncode(31743.9), 0xfe);
}

TEST(IgmpCode, takesNegativeAndNotANumberForZero) {
  EXPECT_EQ(igmpCodeEncode(-0.0), 0);
  EXPECT_EQ(igmpCodeEncode(-1), 0);
  EXPECT_EQ(igmpCodeEncode(-std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(igmpCodeEncode(std::numeric_limits<double>::quiet_NaN()), 0);
}

}  // namespace
}  // namespace Ilvo
