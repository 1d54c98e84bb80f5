// Ranges of numbers, and the number that an option was given.
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

// Whether a number is in the range, or the 0 that is allowed outside it; not a number never is.
bool fits(double number, const NumberRange& range);
// What a number must be, for instance "must be from 1 to 7 (RFC 3376 8.1)".
std::string mustText(const NumberRange& range);

// Throws SettingError, with a text such as "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)".
double optionNumber(std::string_view option, std::string_view text, const NumberRange& range);

}  // namespace Agent
