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
  EXPECT_EQ(printable("\xc2"), "\xc2");
}

}  // namespace
}  // namespace Agent
