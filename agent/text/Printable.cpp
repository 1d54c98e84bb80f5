#include <Text/Printable.h>

#include <iterator>

#include <fmt/format.h>

namespace Agent {

namespace {

bool isControl(unsigned char byte) { return byte < 0x20 || byte == 0x7f; }

// U+0080 to U+009F, which some terminals obey as escape sequences.
bool isWideControl(unsigned char first, unsigned char second) {
  return first == 0xc2 && second >= 0x80 && second <= 0x9f;
}

}  // namespace

void appendPrintable(std::string& out, std::string_view text) {
  for (size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const unsigned char next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    if (isWideControl(byte, next)) {
      fmt::format_to(std::back_inserter(out), "\\x{:02x}\\x{:02x}", byte, next);
      ++at;
    } else if (isControl(byte)) {
      fmt::format_to(std::back_inserter(out), "\\x{:02x}", byte);
    } else {
      out += text[at];
    }
  }
}

bool isPrintable(std::string_view text) {
  for (size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const unsigned char next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    if (isControl(byte) || isWideControl(byte, next)) return false;
  }
  return true;
}

std::string printable(std::string_view text) {
  std::string out;
  appendPrintable(out, text);
  return out;
}

}  // namespace Agent
