// Views of IGMP messages at the front of a packet. A view copies nothing: it is valid while the
// packet lives and its front stays. Making one over too few bytes is a fatal assertion, so ask
// has() first.
//
//   if (!pkt->has(IgmpCommonHdr::bytes)) return;
//   IgmpCommonHdr igmp(*pkt);
//   if (igmp.computedChecksum(ip.payloadLen()) != 0) return;
#pragma once

#include <cstddef>
#include <string>

#include <Ilvo/IpAddr.h>
#include <Ilvo/Pkt.h>
#include <Ilvo/Types.h>
#include <MoxBase/Export.h>

namespace Ilvo {

// IGMP as the protocol of an IP header.
inline constexpr U8 igmpIpProtocol = 2;

enum IgmpMessageType : U8 {
  igmpMembershipQuery = 0x11,
  igmpV1Report = 0x12,
  igmpV2Report = 0x16,
  igmpV2Leave = 0x17,
  igmpV3Report = 0x22,
};

// The fields that all messages begin with.
class MOX_PUBLIC IgmpCommonHdr {
 public:
  static constexpr std::size_t bytes = 8;

  explicit IgmpCommonHdr(const Pkt& pkt) : pkt_(&pkt) {
    Mox::fatalUnless(pkt.has(bytes), "Ilvo", "pkt.has( bytes )");
  }

  U8 messageType() const { return pkt_->u8(0); }
  U8 code() const { return pkt_->u8(1); }
  IpAddr groupAddress() const { return pkt_->ipAddr(4); }
  // Over the first `length` bytes, the field included: 0 if the message is correct.
  U16 computedChecksum(std::size_t length) const;

 private:
  const Pkt* pkt_;
};

// The fields of a version 1 or 2 message that a trace keeps: plain bytes, printed much later.
struct IgmpV12Text {
  IpAddr group;
  U8 type = 0;
  U8 code = 0;
};
MOX_PUBLIC void appendText(std::string& out, const IgmpV12Text& text);

// Every message of versions 1 and 2.
class MOX_PUBLIC IgmpV12Hdr {
 public:
  static constexpr std::size_t bytes = 8;

  explicit IgmpV12Hdr(Pkt& pkt) : pkt_(&pkt) {
    Mox::fatalUnless(pkt.has(bytes), "Ilvo", "pkt.has( bytes )");
  }

  U8 type() const { return pkt_->u8(0); }
  U8 code() const { return pkt_->u8(1); }
  U16 checksum() const { return pkt_->u16(2); }
  IpAddr groupAddress() const { return pkt_->ipAddr(4); }
  double maxResponseSeconds() const { return code() / 10.0; }
  IgmpV12Text text() const { return {groupAddress(), type(), code()}; }

  void typeIs(U8 v) { pkt_->u8Is(0, v); }
  void codeIs(U8 v) { pkt_->u8Is(1, v); }
  void checksumIs(U16 v) { pkt_->u16Is(2, v); }
  void groupAddressIs(IpAddr v) { pkt_->ipAddrIs(4, v); }
  // Tenths of a second, cut off as the product stands; 255 above 25.5 seconds.
  void maxResponseSecondsIs(double seconds);
  // Writes the checksum of a message of `length` bytes; to be called last.
  void checksumUpdate(std::size_t length = bytes);

 private:
  Pkt* pkt_;
};

// The fields of a version 3 query that a trace keeps.
struct IgmpV3QueryText {
  IpAddr group;
  U16 numSources = 0;
  U8 type = 0;
  U8 code = 0;
  U8 qrv = 0;
  U8 qqic = 0;
  bool sFlag = false;
};
MOX_PUBLIC void appendText(std::string& out, const IgmpV3QueryText& text);

// A version 3 query: 12 bytes and four for each source (RFC 3376 4.1).
class MOX_PUBLIC IgmpV3QueryHdr {
 public:
  static constexpr std::size_t bytes = 12;

  explicit IgmpV3QueryHdr(Pkt& pkt) : pkt_(&pkt) {
    Mox::fatalUnless(pkt.has(bytes), "Ilvo", "pkt.has( bytes )");
  }

  U8 type() const { return pkt_->u8(0); }
  U8 code() const { return pkt_->u8(1); }
  U16 checksum() const { return pkt_->u16(2); }
  IpAddr groupAddress() const { return pkt_->ipAddr(4); }
  bool sFlag() const { return (pkt_->u8(8) & 0x08) != 0; }
  U8 qrv() const { return pkt_->u8(8) & 0x07; }
  U8 qqic() const { return pkt_->u8(9); }
  // As the message claims; the packet knows whether it has the bytes for them.
  U16 numSources() const { return pkt_->u16(10); }
  IpAddr source(std::size_t i) const;
  double maxResponseSeconds() const;
  double queryIntervalSeconds() const;
  IgmpV3QueryText text() const;

  void typeIs(U8 v) { pkt_->u8Is(0, v); }
  void codeIs(U8 v) { pkt_->u8Is(1, v); }
  void checksumIs(U16 v) { pkt_->u16Is(2, v); }
  void groupAddressIs(IpAddr v) { pkt_->ipAddrIs(4, v); }
  void reservedIs(U8 v);
  void sFlagIs(bool v);
  // Three bits: more is clamped to 7, since wrapping would announce less robustness than there is.
  void qrvIs(unsigned v);
  void qqicIs(U8 v) { pkt_->u8Is(9, v); }
  void numSourcesIs(U16 v) { pkt_->u16Is(10, v); }
  // Writes behind the sources that are there and counts it; the packet must have the bytes.
  void sourceAppend(IpAddr v);
  // Rounded down to the next time that has a code.
  void maxResponseSecondsIs(double seconds);
  void queryIntervalSecondsIs(double seconds);
  // Writes the checksum of a message of `length` bytes; to be called last.
  void checksumUpdate(std::size_t length);

 private:
  Pkt* pkt_;
};

}  // namespace Ilvo
