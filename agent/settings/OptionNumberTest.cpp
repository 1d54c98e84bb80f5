#include <Settings/OptionNumber.h>

#include <string>

#include <gtest/gtest.h>

#include <Settings/SettingError.h>

namespace Agent {
namespace {

std::string refusalOf(const char* text, const NumberRange& range) {
  try {
    optionNumber("--seed", text, range);
  } catch (const SettingError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(OptionNumber, takesBothEndsOfTheRange) {
  EXPECT_EQ(optionNumber("--x", "0.1", {.least = 0.1, .most = 3174.4}), 0.1);
  EXPECT_EQ(optionNumber("--x", "3174.4", {.least = 0.1, .most = 3174.4}), 3174.4);
}

TEST(OptionNumber, takesZeroWhereItHasAMeaningOfItsOwn) {
  EXPECT_EQ(optionNumber("--x", "0", {.least = 1, .most = 9, .zero = "none"}), 0.0);
  EXPECT_EQ(refusalOf("0.5", {.least = 1, .most = 9, .zero = "none"}),
            "--seed 0.5: must be 0 (none) or from 1 to 9");
}

TEST(OptionNumber, namesTheRangeAndItsReference) {
  EXPECT_EQ(refusalOf("8", {.least = 1, .most = 7, .whole = true, .reference = "RFC 3376 8.1"}),
            "--seed 8: must be from 1 to 7 (RFC 3376 8.1)");
}

TEST(OptionNumber, refusesTextThatIsNoNumber) {
  const NumberRange range{.least = 0, .most = 9};
  for (const char* text : {"", " ", "x", "1x", "1 ", " 1", "+1", "0x1", "nan", "inf", "-inf", "1,5",
                           "1.5.2", "--", "1e999"}) {
    EXPECT_EQ(refusalOf(text, range),
              "--seed " + std::string(text) + ": not a number; must be from 0 to 9");
  }
}

TEST(OptionNumber, refusesFractionsWhereAWholeNumberIsNeeded) {
  const NumberRange range{.least = 0, .most = 9, .whole = true};
  for (const char* text : {"1.0", "1e0", "nan", ""}) {
    EXPECT_EQ(refusalOf(text, range),
              "--seed " + std::string(text) + ": not a whole number; must be from 0 to 9");
  }
}

TEST(OptionNumber, aNumberTooBigForAnyTypeIsOutOfRange) {
  EXPECT_EQ(refusalOf("99999999999999999999999", {.least = 0, .most = 9, .whole = true}),
            "--seed 99999999999999999999999: must be from 0 to 9");
}

}  // namespace
}  // namespace Agent
