#include "Wire.h"

#include <algorithm>
#include <array>

namespace Sim {

using Ilvo::IpAddr;

namespace {

U32 word(std::span<const U8> bytes, size_t at) {
  return U32{bytes[at]} << 24 | U32{bytes[at + 1]} << 16 | U32{bytes[at + 2]} << 8 | bytes[at + 3];
}

// RFC 3376 4.1.1 and 4.1.7.
unsigned floatingCode(U8 code) {
  if (code < 128) return code;
  return ((code & 0x0fU) | 0x10U) << ((code >> 4 & 7U) + 3);
}

std::vector<IpAddr> addressesOf(Mask sources) {
  std::vector<IpAddr> out;
  for (unsigned s = 0; s < sourcesMost; ++s) {
    if ((sources >> s & 1U) != 0) out.push_back(sourceAddr(s));
  }
  return out;
}

}  // namespace

std::optional<Query> queryOf(std::span<const U8> packet) {
  const size_t header = size_t{packet[0] & 0x0fU} * 4;
  const std::span<const U8> igmp = packet.subspan(header);
  if (igmp.size() < 8 || igmp[0] != 0x11) return {};
  const U8 code = igmp[1];
  Query query{.isGeneral = word(igmp, 4) == 0, .group = groupOf(IpAddr(word(igmp, 4)))};
  if (!query.isGeneral && query.group == groupsMost) return {};
  if (igmp.size() == 8) {
    query.version = code == 0 ? 1 : 2;
    query.maxResponse = code == 0 ? 10.0 : code / 10.0;
    return query;
  }
  if (igmp.size() < 12) return {};
  query.suppresses = (igmp[8] & 8U) != 0;
  query.maxResponse = floatingCode(code) / 10.0;
  query.robustness = igmp[8] & 7U;
  query.interval = floatingCode(igmp[9]);
  const unsigned count = U32{igmp[10]} << 8 | igmp[11];
  query.namesSources = count != 0;
  for (size_t at = 12; at + 4 <= igmp.size(); at += 4) {
    const unsigned source = sourceOf(IpAddr(word(igmp, at)));
    if (source < sourcesMost) query.sources |= 1U << source;
  }
  return query;
}

Mask askedBy(const Query& query) {
  if (query.isGeneral) return allChannels;
  return inGroup(query.group, query.namesSources ? query.sources : wholeGroup);
}

Mask assertedBy(const Record& record) {
  switch (record.type) {
    case Record::isIn:
    case Record::toIn:
    case Record::allow: return inGroup(record.group, record.sources);
    case Record::isEx:
    case Record::toEx: return inGroup(record.group, wholeGroup & ~record.sources);
    case Record::block: break;
  }
  return 0;
}

Mask droppedBy(const Record& record) {
  switch (record.type) {
    case Record::isIn:
    case Record::allow: break;
    case Record::toIn: return inGroup(record.group, wholeGroup & ~record.sources);
    case Record::isEx:
    case Record::toEx:
    case Record::block: return inGroup(record.group, record.sources);
  }
  return 0;
}

IpAddr hostAddr(Node host) { return {10, 0, 0, static_cast<U8>(200 + host)}; }

std::vector<U8> frameOf(Node sender, std::span<const U8> packet) {
  const std::array<U8, 14> header{
      0x01, 0x00, 0x5e, static_cast<U8>(packet[17] & 0x7fU), packet[18], packet[19], 0x02, 0x00,
      0x00, 0x00, 0x00, static_cast<U8>(sender + 1),         0x08,       0x00};
  std::vector<U8> frame(header.size() + packet.size());
  std::ranges::copy(header, frame.begin());
  std::ranges::copy(packet, frame.begin() + header.size());
  return frame;
}

std::vector<U8> v3ReportFrame(Node host, std::span<const Record> records) {
  std::vector<Ilvo::V3Record> all;
  for (const Record& each : records) {
    all.push_back(
        {.type = each.type, .group = groupAddr(each.group), .sources = addressesOf(each.sources)});
  }
  return frameOf(host, Ilvo::buildV3Report(all, {.src = hostAddr(host)}));
}

std::vector<U8> oldReportFrame(Node host, unsigned version, unsigned group) {
  const Ilvo::IpOptions from{.src = hostAddr(host)};
  const IpAddr addr = groupAddr(group);
  return frameOf(host,
                 version == 1 ? Ilvo::buildV1Report(addr, from) : Ilvo::buildV2Report(addr, from));
}

std::vector<U8> leaveFrame(Node host, unsigned group) {
  return frameOf(host, Ilvo::buildV2Leave(groupAddr(group), {.src = hostAddr(host)}));
}

std::string textOf(const Frame& frame) {
  static constexpr std::array kinds{"general query", "specific query", "report", "leave"};
  static constexpr std::array types{"", "IS_IN", "IS_EX", "TO_IN", "TO_EX", "ALLOW", "BLOCK"};
  std::string text = "n" + std::to_string(frame.sender) + " sends v" +
                     std::to_string(frame.version) + " " + kinds[frame.kind];
  const auto list = [&](const char* name, Mask mask) {
    if (mask == 0 || mask == allChannels) return;
    text += name;
    forEachChannel(mask, [&](unsigned channel) { text += " " + channelText(channel); });
  };
  for (const Record& each : frame.records) text += std::string(" ") + types[each.type];
  list(" about", frame.asks);
  list(" for", frame.asserts);
  list(" without", frame.drops);
  return text;
}

}  // namespace Sim
