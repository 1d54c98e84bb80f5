// The fields of an IPv4 header, copied out of a packet: they stay valid when the packet's front
// moves on, and may be recorded as plain bytes.
//
// A header with an impossible length is refused. One with a wrong checksum is accepted, and
// computedChecksum() is not 0.
//
//   std::optional<IpHdr> ip = IpHdr::of(*pkt);
//   if (!ip || ip->computedChecksum() != 0) drop();
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include <Ilvo/IpAddr.h>
#include <Ilvo/Pkt.h>
#include <Ilvo/Types.h>
#include <MoxBase/Export.h>

namespace Ilvo {

class MOX_PUBLIC IpHdr {
 public:
  IpHdr() = default;

  // The header at the front of these bytes. Empty with fewer than 20 bytes, a version other than 4,
  // a header length below 20 or beyond the packet, or a total length below the header length. A
  // total length beyond the packet is for the caller to judge: such a packet was cut, but its
  // header is sound.
  static std::optional<IpHdr> of(std::span<const U8> packet);
  static std::optional<IpHdr> of(const Pkt& pkt) { return of(pkt.data()); }

  IpAddr src() const { return src_; }
  IpAddr dst() const { return dst_; }
  U8 protocol() const { return protocol_; }
  U8 ttl() const { return ttl_; }
  U16 totalLen() const { return totalLen_; }
  U8 headerBytes() const { return headerBytes_; }
  U16 payloadLen() const { return static_cast<U16>(totalLen_ - headerBytes_); }
  // Over the header with its options; 0 if it is correct.
  U16 computedChecksum() const { return computedChecksum_; }
  // The Router Alert option is there (RFC 2113).
  bool routerAlert() const { return routerAlert_; }
  // More of the datagram is in other packets.
  bool isFragment() const { return isFragment_; }

 private:
  IpAddr src_;
  IpAddr dst_;
  U16 totalLen_ = 0;
  U16 computedChecksum_ = 0;
  U8 headerBytes_ = 0;
  U8 protocol_ = 0;
  U8 ttl_ = 0;
  bool routerAlert_ = false;
  bool isFragment_ = false;
};

MOX_PUBLIC void appendText(std::string& out, const IpHdr& hdr);

}  // namespace Ilvo
