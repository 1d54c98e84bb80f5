// Text for a terminal, which would obey control bytes that another host or the link chose.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// Appends the text with each control byte as \x1b, and each control character that UTF-8 writes in
// two bytes as \xc2\x9b. All else stays as it is.
void appendPrintable(std::string& out, std::string_view text);

// Whether that would change nothing.
bool isPrintable(std::string_view text);

std::string printable(std::string_view text);

}  // namespace Agent
