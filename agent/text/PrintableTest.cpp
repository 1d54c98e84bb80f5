#include <Text/Printable.h>

#include <gtest/gtest.h>

namespace Agent {
namespace {

TEST(Printable, leavesTextAsItIs) {
  EXPECT_EQ(printable("eth0.7 \\ \xc3\xa9t\xc3\xa9"), "eth0.7 \\ \xc3\xa9t\xc3\xa9");
}

TEST(Printable, writesControlBytesInHexadecimal) {
  EXPECT_EQ(printable("a\x1b[2Jb\n\x7f"), "a\\x1b[2Jb\\x0a\\x7f");
  EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
}

TEST(Printable, writesControlCharactersOfTwoBytesInHexadecimal) {
  EXPECT_EQ(printable("\xc2\x9b"
                      "2J"),
            "\\xc2\\x9b2J");
  EXPECT_EQ(printable("\xc2\xa9"), "\xc2\xa9");
}

TEST(Printable, writesBytesThatAreNoUtf8InHexadecimal) {
  EXPECT_EQ(printable("\x9b"
                      "2J"),
            "\\x9b2J");
  EXPECT_EQ(printable("\xc2"), "\\xc2");
  EXPECT_EQ(printable("\xe2\x82"
                      "a"),
            "\\xe2\\x82a");
  EXPECT_EQ(printable("\xe2\x82\xac"), "\xe2\x82\xac");
}

TEST(Printable, writesLongerFormsThanNeededInHexadecimal) {
  EXPECT_EQ(printable("\xe0\x82\x9b"), "\\xe0\\x82\\x9b");
  EXPECT_EQ(printable("\xf0\x80\x82\x9b"), "\\xf0\\x80\\x82\\x9b");
  EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(printable("\xe0\xa0\x80\xf0\x9f\x98\x80"), "\xe0\xa0\x80\xf0\x9f\x98\x80");
}

}  // namespace
}  // namespace Agent
