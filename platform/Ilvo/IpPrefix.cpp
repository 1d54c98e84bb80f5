#include <Ilvo/IpPrefix.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>

#include <MoxBase/Fatal.h>

#include "ParseDecimal.h"

namespace Ilvo {

namespace {

constexpr U32 maskOf(unsigned length) { return length == 0 ? 0 : ~U32{0} << (32 - length); }

// The address with the bits behind `length` cleared.
Ip6Addr masked(const Ip6Addr& addr, unsigned length) {
  Ip6Addr::Bytes bytes = addr.bytes();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const unsigned before = static_cast<unsigned>(i) * 8;
    const unsigned kept = length <= before ? 0 : std::min(length - before, 8U);
    bytes[i] = static_cast<U8>(bytes[i] & 0xff00U >> kept);
  }
  return Ip6Addr(bytes);
}

Ip6Addr inFirstBytes(IpAddr addr) {
  const U32 v = addr.value();
  return Ip6Addr({static_cast<U8>(v >> 24), static_cast<U8>(v >> 16), static_cast<U8>(v >> 8),
                  static_cast<U8>(v)});
}

IpAddr fromFirstBytes(const Ip6Addr& addr) {
  const Ip6Addr::Bytes& b = addr.bytes();
  return IpAddr(b[0], b[1], b[2], b[3]);
}

}  // namespace

std::optional<Ip6Addr> Ip6Addr::parse(std::string_view text) {
  // The system's parser ends at a zero byte, which must not hide what follows it.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  Bytes bytes{};
  if (inet_pton(AF_INET6, std::string(text).c_str(), bytes.data()) != 1) return std::nullopt;
  return Ip6Addr(bytes);
}

std::string Ip6Addr::stringValue() const {
  std::string out;
  appendText(out, *this);
  return out;
}

void appendText(std::string& out, const Ip6Addr& addr) {
  char text[INET6_ADDRSTRLEN];
  out += inet_ntop(AF_INET6, addr.bytes().data(), text, sizeof text);
}

IpGenPrefix::IpGenPrefix(IpAddr addr, unsigned length) : length_(static_cast<U8>(length)) {
  Mox::fatalUnless(length <= 32, "Ilvo", "length <= 32");
  addr_ = inFirstBytes(IpAddr(addr.value() & maskOf(length)));
}

IpGenPrefix::IpGenPrefix(const Ip6Addr& addr, unsigned length)
    : family_(Family::ipv6), addr_(masked(addr, length)), length_(static_cast<U8>(length)) {
  Mox::fatalUnless(length <= 128, "Ilvo", "length <= 128");
}

std::optional<IpGenPrefix> IpGenPrefix::parse(std::string_view text) {
  const std::size_t slash = text.find('/');
  const std::string_view addrText = text.substr(0, slash);
  const std::optional<IpAddr> addr = IpAddr::parse(addrText);
  const std::optional<Ip6Addr> addr6 = addr ? std::nullopt : Ip6Addr::parse(addrText);
  if (!addr && !addr6) return std::nullopt;
  unsigned length = addr ? 32 : 128;
  if (slash != std::string_view::npos) {
    std::string_view rest = text.substr(slash + 1);
    const std::optional<unsigned> number = takeDecimal(rest, length);
    if (!number || !rest.empty()) return std::nullopt;
    length = *number;
  }
  return addr ? IpGenPrefix(*addr, length) : IpGenPrefix(*addr6, length);
}

bool IpGenPrefix::contains(IpAddr addr) const {
  return family_ == Family::ipv4 &&
         (addr.value() & maskOf(length_)) == fromFirstBytes(addr_).value();
}

bool IpGenPrefix::contains(const Ip6Addr& addr) const {
  return family_ == Family::ipv6 && masked(addr, length_) == addr_;
}

std::string IpGenPrefix::stringValue() const {
  std::string out =
      family_ == Family::ipv4 ? fromFirstBytes(addr_).stringValue() : addr_.stringValue();
  out += '/';
  out += std::to_string(unsigned{length_});
  return out;
}

void appendText(std::string& out, const IpGenPrefix& prefix) { out += prefix.stringValue(); }

std::string valueToStrep(const IpGenPrefix& prefix) { return "'" + prefix.stringValue() + "'"; }

}  // namespace Ilvo
