// Ranges of numbers, and the conversion of an option's text to a number in a range.
//
//   optionNumber("--seed", text, {.least = 0, .most = 4294967295, .whole = true});
#pragma once

#include <string>
#include <string_view>

namespace Agent {

struct NumberRange {
  double least;
  double most;
  bool whole = false;
  const char* zero = nullptr;       // the meaning of 0 where it is allowed outside the range
  const char* reference = nullptr;  // the document that gives the range
};

// Whether a number is in the range, or is the 0 that is allowed outside it. False for NaN.
bool fits(double number, const NumberRange& range);
// The condition for a number as a text, for instance "must be from 1 to 7 (RFC 3376 8.1)".
std::string mustText(const NumberRange& range);

// Throws SettingError, with a text such as "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)".
double optionNumber(std::string_view option, std::string_view text, const NumberRange& range);

}  // namespace Agent
