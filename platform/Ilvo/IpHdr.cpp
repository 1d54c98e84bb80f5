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

}  // namespace

std::optional<IpHdr> IpHdr::of(const Pkt& pkt) {
  if (!pkt.has(minHeaderBytes)) return std::nullopt;
  const U8 first = pkt.u8(0);
  const auto headerBytes = static_cast<U8>((first & 0x0f) * 4);
  if (first >> 4 != 4 || headerBytes < minHeaderBytes || !pkt.has(headerBytes)) {
    return std::nullopt;
  }
  IpHdr hdr;
  hdr.totalLen_ = pkt.u16(2);
  if (hdr.totalLen_ < headerBytes) return std::nullopt;
  const std::span<const U8> header = pkt.data().first(headerBytes);
  hdr.headerBytes_ = headerBytes;
  hdr.protocol_ = pkt.u8(9);
  hdr.src_ = pkt.ipAddr(12);
  hdr.dst_ = pkt.ipAddr(16);
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
