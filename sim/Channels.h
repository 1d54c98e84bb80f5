// What hosts can want: a few groups, each with a few sources and "rest", which stands for all other
// sources. Each is a channel, so that sets of wanted, reported and served traffic are bits: a host
// in EXCLUDE mode wants the rest of the group and each source that it does not exclude.
#pragma once

#include <string>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

namespace Sim {

using Mask = Mox::U32;

inline constexpr unsigned groupsMost = 4;
inline constexpr unsigned sourcesMost = 3;
inline constexpr unsigned channelsOfGroup = sourcesMost + 1;
inline constexpr unsigned channelsMost = groupsMost * channelsOfGroup;

// Within the bits of one group.
inline constexpr Mask namedSources = (1U << sourcesMost) - 1;
inline constexpr Mask rest = 1U << sourcesMost;
inline constexpr Mask wholeGroup = namedSources | rest;
inline constexpr Mask allChannels = (1U << channelsMost) - 1;

constexpr Mask inGroup(unsigned group, Mask mask) { return mask << group * channelsOfGroup; }
constexpr Mask inEachGroup(Mask mask) { return mask * 0x1111U; }
constexpr Mask ofGroup(Mask all, unsigned group) {
  return all >> group * channelsOfGroup & wholeGroup;
}

constexpr Ilvo::IpAddr groupAddr(unsigned group) {
  return {239, 1, 1, static_cast<Mox::U8>(group + 1)};
}
constexpr Ilvo::IpAddr sourceAddr(unsigned source) {
  return {10, 9, 0, static_cast<Mox::U8>(source + 1)};
}
// groupsMost or sourcesMost for an address that is none of them.
constexpr unsigned groupOf(Ilvo::IpAddr addr) {
  const Mox::U32 at = addr.value() - groupAddr(0).value();
  return at < groupsMost ? at : groupsMost;
}
constexpr unsigned sourceOf(Ilvo::IpAddr addr) {
  const Mox::U32 at = addr.value() - sourceAddr(0).value();
  return at < sourcesMost ? at : sourcesMost;
}

inline std::string channelText(unsigned channel) {
  const unsigned source = channel % channelsOfGroup;
  std::string text = "g" + std::to_string(channel / channelsOfGroup);
  return source == sourcesMost ? text + " rest" : text + " s" + std::to_string(source);
}

// Calls f(channel) for each one in the mask, in order.
template <class F>
void forEachChannel(Mask mask, F f) {
  for (; mask != 0; mask &= mask - 1) f(static_cast<unsigned>(__builtin_ctz(mask)));
}

}  // namespace Sim
