#include <Ilvo/IpHdr.h>

#include <Ilvo/Checksum.h>

namespace Ilvo {

namespace {

constexpr std::size_t minHeaderBytes = 20;

// Walks the options as far as they are valid; those behind a broken one are ignored.
bool hasRouterAlert(std::span<const U8> options) {
  constexpr U8 endOfOptions = 0;
  constexpr U8 noOperation = 1;
  constexpr U8 routerAlert = 148;
  while (!options.empty() && options[0] != endOfOptions) {
    if (options[0] == noOperation) {
      options = options.subspan(1);
      continue;
    }
    if (options.size() < 2 || options[1] < 2 || options[1] > options.size()) return false;
    if (options[0] == routerAlert && options[1] == 4) return true;
    options = options.subspan(options[1]);
  }
  return false;
}

U16 u16At(std::span<const U8> bytes, std::size_t at) {
  return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]);
}

IpAddr ipAddrAt(std::span<const U8> bytes, std::size_t at) {
  return {bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]};
}

}  // namespace

std::optional<IpHdr> IpHdr::of(std::span<const U8> packet) {
  if (packet.size() < minHeaderBytes) return std::nullopt;
  const auto headerBytes = static_cast<U8>((packet[0] & 0x0f) * 4);
  if (packet[0] >> 4 != 4 || headerBytes < minHeaderBytes || packet.size() < headerBytes) {
    return std::nullopt;
  }
  constexpr unsigned moreFragmentsAndOffset = 0x3fff;
  const std::span<const U8> header = packet.first(headerBytes);
  IpHdr hdr;
  hdr.totalLen_ = u16At(header, 2);
  if (hdr.totalLen_ < headerBytes) return std::nullopt;
  hdr.headerBytes_ = headerBytes;
  hdr.isFragment_ = (u16At(header, 6) & moreFragmentsAndOffset) != 0;
  hdr.ttl_ = header[8];
  hdr.protocol_ = header[9];
  hdr.src_ = ipAddrAt(header, 12);
  hdr.dst_ = ipAddrAt(header, 16);
  hdr.computedChecksum_ = checksum(header);
  hdr.routerAlert_ = hasRouterAlert(header.subspan(minHeaderBytes));
  return hdr;
}

void appendText(std::string& out, const IpHdr& hdr) {
  out += "IpHdr( ";
  appendText(out, hdr.src());
  out += " -> ";
  appendText(out, hdr.dst());
  out += " protocol " + std::to_string(unsigned{hdr.protocol()});
  out += " length " + std::to_string(unsigned{hdr.totalLen()});
  out += " )";
}

}  // namespace Ilvo
