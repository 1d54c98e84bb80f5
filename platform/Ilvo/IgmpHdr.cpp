#include <Ilvo/IgmpHdr.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include <Ilvo/Checksum.h>
#include <Ilvo/IgmpCode.h>

namespace Ilvo {

namespace {

U16 checksumOf(const Pkt& pkt, std::size_t length) {
  Mox::fatalUnless(pkt.has(length), "Ilvo", "pkt.has( length )");
  return checksum(pkt.data().first(length));
}

void appendCommon(std::string& out, U8 type, U8 code, IpAddr group) {
  char typeText[8];
  std::snprintf(typeText, sizeof typeText, "0x%02x", unsigned{type});
  out += "( type ";
  out += typeText;
  out += " code " + std::to_string(unsigned{code}) + " group ";
  appendText(out, group);
}

}  // namespace

U16 IgmpCommonHdr::computedChecksum(std::size_t length) const { return checksumOf(*pkt_, length); }

void IgmpV12Hdr::maxResponseSecondsIs(double seconds) {
  if (seconds > 25.5) {
    codeIs(255);
  } else {
    codeIs(seconds > 0.0 ? static_cast<U8>(seconds * 10) : U8{0});
  }
}

void IgmpV12Hdr::checksumUpdate(std::size_t length) {
  checksumIs(0);
  checksumIs(checksumOf(*pkt_, length));
}

void appendText(std::string& out, const IgmpV12Text& text) {
  out += "IgmpV12Hdr";
  appendCommon(out, text.type, text.code, text.group);
  out += " )";
}

IpAddr IgmpV3QueryHdr::source(std::size_t i) const {
  Mox::fatalUnless(i < numSources(), "Ilvo", "i < numSources( )");
  return pkt_->ipAddr(bytes + 4 * i);
}

double IgmpV3QueryHdr::maxResponseSeconds() const { return igmpCodeDecode(code()) / 10.0; }

double IgmpV3QueryHdr::queryIntervalSeconds() const { return igmpCodeDecode(qqic()); }

IgmpV3QueryText IgmpV3QueryHdr::text() const {
  IgmpV3QueryText text;
  text.group = groupAddress();
  text.numSources = numSources();
  text.type = type();
  text.code = code();
  text.qrv = qrv();
  text.qqic = qqic();
  text.sFlag = sFlag();
  return text;
}

void IgmpV3QueryHdr::reservedIs(U8 v) {
  Mox::fatalUnless(v <= 0x0f, "Ilvo", "reserved <= 0x0f");
  pkt_->u8Is(8, static_cast<U8>((pkt_->u8(8) & 0x0f) | v << 4));
}

void IgmpV3QueryHdr::sFlagIs(bool v) {
  pkt_->u8Is(8, static_cast<U8>((pkt_->u8(8) & ~0x08) | (v ? 0x08 : 0)));
}

void IgmpV3QueryHdr::qrvIs(unsigned v) {
  pkt_->u8Is(8, static_cast<U8>((pkt_->u8(8) & 0xf8U) | std::min(v, 7U)));
}

void IgmpV3QueryHdr::sourceAppend(IpAddr v) {
  const U16 n = numSources();
  Mox::fatalUnless(n < std::numeric_limits<U16>::max(), "Ilvo", "numSources( ) < 65535");
  pkt_->ipAddrIs(bytes + std::size_t{4} * n, v);
  numSourcesIs(static_cast<U16>(n + 1));
}

// Ten times the double nearest to a number of tenths is that number exactly, so nothing has to be
// added before it is rounded down.
void IgmpV3QueryHdr::maxResponseSecondsIs(double seconds) { codeIs(igmpCodeEncode(seconds * 10)); }

void IgmpV3QueryHdr::queryIntervalSecondsIs(double seconds) { qqicIs(igmpCodeEncode(seconds)); }

void IgmpV3QueryHdr::checksumUpdate(std::size_t length) {
  checksumIs(0);
  checksumIs(checksumOf(*pkt_, length));
}

void appendText(std::string& out, const IgmpV3QueryText& text) {
  out += "IgmpV3QueryHdr";
  appendCommon(out, text.type, text.code, text.group);
  out += text.sFlag ? " s 1" : " s 0";
  out += " qrv " + std::to_string(unsigned{text.qrv});
  out += " qqic " + std::to_string(unsigned{text.qqic});
  out += " sources " + std::to_string(unsigned{text.numSources});
  out += " )";
}

}  // namespace Ilvo
