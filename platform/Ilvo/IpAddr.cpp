#include <Ilvo/IpAddr.h>

#include <charconv>

#include "ParseDecimal.h"

namespace Ilvo {

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  U32 value = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (!text.starts_with('.')) return std::nullopt;
      text.remove_prefix(1);
    }
    const std::optional<unsigned> number = takeDecimal(text, 255);
    if (!number) return std::nullopt;
    value = value << 8 | *number;
  }
  if (!text.empty()) return std::nullopt;
  return IpAddr(value);
}

std::string IpAddr::stringValue() const {
  std::string out;
  appendText(out, *this);
  return out;
}

void appendText(std::string& out, IpAddr addr) {
  char text[16];
  char* p = text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    p = std::to_chars(p, text + sizeof text, addr.value() >> shift & 0xff).ptr;
    if (shift > 0) *p++ = '.';
  }
  out.append(text, p);
}

std::string valueToStrep(IpAddr addr) {
  std::string out = "'";
  appendText(out, addr);
  out += '\'';
  return out;
}

}  // namespace Ilvo
