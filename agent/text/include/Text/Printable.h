// Text for a terminal, which would obey control bytes that another host or the link chose.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// Appends the text with each byte of a control character, and each that is no UTF-8, as \x1b. All
// else stays as it is.
void appendPrintable(std::string& out, std::string_view text);

// Whether that would change nothing.
bool isPrintable(std::string_view text);

std::string printable(std::string_view text);

}  // namespace Agent
