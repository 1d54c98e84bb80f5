#include <Text/Printable.h>

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace Agent {

namespace {

// Of three or four bytes: a longer form than needed could hide a control character from us but not
// from a terminal, and surrogates are no characters.
bool isShortest(unsigned char lead, unsigned char second) {
  switch (lead) {
    case 0xe0: return second >= 0xa0;
    case 0xed: return second < 0xa0;
    case 0xf0: return second >= 0x90;
    case 0xf4: return second < 0x90;
    default: return true;
  }
}

// How many bytes the character has that begins here; 0 when it is none of UTF-8.
size_t characterBytes(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const size_t bytes = lead < 0x80   ? 1
                       : lead < 0xc2 ? 0
                       : lead < 0xe0 ? 2
                       : lead < 0xf0 ? 3
                       : lead < 0xf5 ? 4
                                     : 0;
  if (bytes > text.size()) return 0;
  if (bytes > 2 && !isShortest(lead, static_cast<unsigned char>(text[1]))) return 0;
  for (const char c : text.substr(0, bytes).substr(bytes == 0 ? 0 : 1)) {
    if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) return 0;
  }
  return bytes;
}

bool isControl(unsigned char byte) { return byte < 0x20 || byte == 0x7f; }

// U+0080 to U+009F, which some terminals obey as escape sequences.
bool isWideControl(std::string_view character) {
  return character.size() == 2 && character[0] == '\xc2' && character[1] <= '\x9f';
}

// Calls f(bytes, shown): bytes of the text, and whether they can be shown as they are.
template <class F>
void forEachCharacter(std::string_view text, F f) {
  while (!text.empty()) {
    const size_t bytes = characterBytes(text);
    const std::string_view character = text.substr(0, std::max<size_t>(bytes, 1));
    const bool control = isControl(static_cast<unsigned char>(character[0]));
    f(character, bytes != 0 && !control && !isWideControl(character));
    text.remove_prefix(character.size());
  }
}

// What the text begins with that needs no closer look, which is nearly always all of it.
std::string_view plainBegin(std::string_view text) {
  const auto isPlain = [](char c) { return c >= ' ' && c <= '~'; };
  const auto end = std::find_if_not(text.begin(), text.end(), isPlain);
  return text.substr(0, static_cast<size_t>(end - text.begin()));
}

}  // namespace

void appendPrintable(std::string& out, std::string_view text) {
  const std::string_view plain = plainBegin(text);
  out += plain;
  text.remove_prefix(plain.size());
  forEachCharacter(text, [&](std::string_view bytes, bool shown) {
    if (shown) {
      out += bytes;
      return;
    }
    for (const char byte : bytes) {
      fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned char>(byte));
    }
  });
}

bool isPrintable(std::string_view text) {
  text.remove_prefix(plainBegin(text).size());
  bool all = true;
  forEachCharacter(text, [&](std::string_view, bool shown) { all = all && shown; });
  return all;
}

std::string printable(std::string_view text) {
  std::string out;
  appendPrintable(out, text);
  return out;
}

}  // namespace Agent
