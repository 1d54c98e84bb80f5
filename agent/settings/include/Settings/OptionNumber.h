// Reads the number that an option was given, or says what it must be.
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
  const char* zero = nullptr;       // what 0 means where it is allowed beside the range
  const char* reference = nullptr;  // where the range comes from
};

// Whether a number is in the range, or the 0 that is allowed beside it; not a number never is.
bool fits(double number, const NumberRange& range);
// What a number must be, for instance "must be from 1 to 7 (RFC 3376 8.1)".
std::string mustText(const NumberRange& range);

// Throws CLI::ValidationError, with a text such as "--robustness 9: must be from 1 to 7 (RFC
// 3376 8.1)".
double optionNumber(std::string_view option, std::string_view text, const NumberRange& range);

}  // namespace Agent
