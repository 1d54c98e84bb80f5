#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include <stdexcept>
#include <utility>

namespace Ilvo {

namespace {

constexpr IpAddr allSystems(224, 0, 0, 1);
constexpr IpAddr allRouters(224, 0, 0, 2);
constexpr IpAddr allV3Routers(224, 0, 0, 22);

void append16(std::vector<U8>& out, unsigned v) {
  out.push_back(static_cast<U8>(v >> 8));
  out.push_back(static_cast<U8>(v));
}

void appendAddr(std::vector<U8>& out, IpAddr addr) {
  append16(out, addr.value() >> 16);
  append16(out, addr.value() & 0xffff);
}

void appendAddrs(std::vector<U8>& out, const std::vector<IpAddr>& addrs) {
  for (const IpAddr addr : addrs) {
    appendAddr(out, addr);
  }
}

// Two bytes at a time, on purpose unlike Checksum.h: a fault there must not repeat itself here.
void fillChecksum(std::vector<U8>& bytes, std::size_t at, bool bad) {
  U32 sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    sum += i % 2 == 0 ? U32{bytes[i]} << 8 : U32{bytes[i]};
    if (sum > 0xffff) sum -= 0xffff;
  }
  const U32 field = (~sum & 0xffff) ^ (bad ? 1U : 0U);
  bytes[at] = static_cast<U8>(field >> 8);
  bytes[at + 1] = static_cast<U8>(field);
}

std::vector<U8> ipHeader(std::size_t payload, IpAddr dst, const IpOptions& options) {
  const unsigned words = options.routerAlert ? 6 : 5;
  const std::size_t total = payload + std::size_t{4} * words;
  if (total > 0xffff) throw std::length_error("longer than an IPv4 packet can be");
  std::vector<U8> header = {static_cast<U8>(0x40 + words), options.tos};
  append16(header, static_cast<unsigned>(total));
  append16(header, 0);  // identification
  append16(header, 0);  // fragment offset
  header.push_back(options.ttl);
  header.push_back(options.protocol);
  append16(header, 0);  // checksum, below
  appendAddr(header, options.src);
  appendAddr(header, options.dst.value_or(dst));
  if (options.routerAlert) {
    append16(header, 0x9404);
    append16(header, 0);
  }
  fillChecksum(header, 10, options.badIpChecksum);
  return header;
}

std::vector<U8> shortMessage(U8 type, U8 code, IpAddr group) {
  std::vector<U8> message = {type, code, 0, 0};
  appendAddr(message, group);
  return message;
}

IpAddr queryDst(IpAddr group) { return group.isZero() ? allSystems : group; }

unsigned claimed(std::optional<U16> claim, std::size_t truth) {
  if (!claim && truth > 0xffff) throw std::length_error("more than a 16-bit count can say");
  return claim ? *claim : static_cast<unsigned>(truth);
}

}  // namespace

std::vector<U8> buildIgmpPacket(std::vector<U8> message, IpAddr dst, const IpOptions& options) {
  message.resize(message.size() + options.trailingPayload);
  if (message.size() >= 4) {
    message[2] = message[3] = 0;
    fillChecksum(message, 2, options.badIgmpChecksum);
  }
  std::vector<U8> packet = ipHeader(message.size(), dst, options);
  packet.insert(packet.end(), message.begin(), message.end());
  packet.resize(packet.size() + options.padding);
  return packet;
}

std::vector<U8> buildV1Report(IpAddr group, const IpOptions& options) {
  return buildIgmpPacket(shortMessage(0x12, 0, group), group, options);
}

std::vector<U8> buildV2Report(IpAddr group, const IpOptions& options) {
  return buildIgmpPacket(shortMessage(0x16, 0, group), group, options);
}

std::vector<U8> buildV2Leave(IpAddr group, const IpOptions& options) {
  return buildIgmpPacket(shortMessage(0x17, 0, group), allRouters, options);
}

std::vector<U8> buildV1Query(const IpOptions& options) {
  return buildIgmpPacket(shortMessage(0x11, 0, IpAddr()), allSystems, options);
}

std::vector<U8> buildV2Query(IpAddr group, U8 code, const IpOptions& options) {
  return buildIgmpPacket(shortMessage(0x11, code, group), queryDst(group), options);
}

std::vector<U8> buildV3Query(const V3QueryFields& fields, const IpOptions& options) {
  std::vector<U8> message = shortMessage(0x11, fields.code, fields.group);
  message.push_back(
      static_cast<U8>(fields.reserved << 4 | (fields.sFlag ? 0x08 : 0) | (fields.qrv & 0x07)));
  message.push_back(fields.qqic);
  append16(message, claimed(fields.numSources, fields.sources.size()));
  appendAddrs(message, fields.sources);
  return buildIgmpPacket(std::move(message), queryDst(fields.group), options);
}

std::vector<U8> buildV3Report(const std::vector<V3Record>& records, const IpOptions& options,
                              std::optional<U16> numRecords) {
  std::vector<U8> message = {0x22, 0, 0, 0, 0, 0};
  append16(message, claimed(numRecords, records.size()));
  for (const V3Record& record : records) {
    message.push_back(record.type);
    message.push_back(record.auxWords);
    append16(message, claimed(record.numSources, record.sources.size()));
    appendAddr(message, record.group);
    appendAddrs(message, record.sources);
    message.insert(message.end(), std::size_t{4} * record.auxWords, 0xaa);
  }
  return buildIgmpPacket(std::move(message), allV3Routers, options);
}

}  // namespace Ilvo
