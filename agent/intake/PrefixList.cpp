#include <Intake/PrefixList.h>

#include <algorithm>
#include <bit>
#include <optional>

#include <Ilvo/IpPrefix.h>
#include <Mox/Errors.h>

namespace Agent {

using Ilvo::IpAddr;
using Mox::U32;

namespace {

constexpr U32 maskOf(unsigned length) { return length == 0 ? 0 : ~U32{0} << (32 - length); }

// The address before the length; nothing for one of the other family.
std::optional<IpAddr> addressOf(std::string_view prefix) {
  return IpAddr::parse(prefix.substr(0, prefix.find('/')));
}

}  // namespace

PrefixList::PrefixList(std::string_view text) {
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find(','));
    const auto prefix = Ilvo::IpGenPrefix::parse(part);
    const std::optional<IpAddr> addr = addressOf(part);
    if (!prefix || !addr) {
      throw Mox::RangeError("'" + std::string(part) + "' is no IPv4 prefix such as 10.0.0.0/8");
    }
    add(*addr, prefix->length());
    if (part.size() + 1 == text.size()) throw Mox::RangeError("a comma without a prefix behind it");
    text.remove_prefix(part.size() == text.size() ? text.size() : part.size() + 1);
  }
  if (string().size() > longestText) {
    throw Mox::RangeError("the list has more than " + std::to_string(longestText) + " characters");
  }
}

void PrefixList::add(IpAddr addr, unsigned bits) {
  const U32 mask = maskOf(bits);
  const Prefix prefix{addr.value() & mask, mask};
  if (std::ranges::find(prefixes_, prefix) == prefixes_.end()) prefixes_.push_back(prefix);
}

// A network of two addresses or one has neither (RFC 3021).
bool PrefixList::containsHost(IpAddr addr) const {
  for (const Prefix& prefix : prefixes_) {
    if ((addr.value() & prefix.mask) != prefix.bits) continue;
    const U32 host = addr.value() & ~prefix.mask;
    if (~prefix.mask <= 1 || (host != 0 && host != ~prefix.mask)) return true;
  }
  return false;
}

std::string PrefixList::string() const {
  std::string text;
  for (const Prefix& prefix : prefixes_) {
    if (!text.empty()) text += ',';
    text += IpAddr(prefix.bits).stringValue() + "/" + std::to_string(std::popcount(prefix.mask));
  }
  return text;
}

void appendText(std::string& out, const PrefixList& list) { out += list.string(); }

}  // namespace Agent
