// Whole IPv4 packets with IGMP messages, byte by byte as hosts and routers send them, or broken in
// one place on purpose. Checksums are correct unless the test asks otherwise; destinations are
// those of the RFCs.
//
//   std::vector<U8> join = buildV3Report({{.type = 4, .group = IpAddr(239, 1, 1, 1)}});
//   std::vector<U8> cut = buildV2Leave(group, {.badIgmpChecksum = true});
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <Ilvo/Types.h>

namespace Ilvo {

// The IPv4 packet around a message.
struct IpOptions {
  IpAddr src = IpAddr(10, 0, 0, 1);
  std::optional<IpAddr> dst = std::nullopt;  // where the RFC of the message sends it
  bool routerAlert = true;
  U8 ttl = 1;
  U8 tos = 0xc0;
  U8 protocol = 2;
  std::size_t trailingPayload = 0;  // zero bytes behind the message, within the IP length
  std::size_t padding = 0;          // zero bytes behind the IP packet, as Ethernet adds them
  bool badIpChecksum = false;
  bool badIgmpChecksum = false;
};

struct V3QueryFields {
  IpAddr group = IpAddr();
  U8 code = 100;
  bool sFlag = false;
  U8 qrv = 2;
  U8 qqic = 125;
  std::vector<IpAddr> sources = {};
  std::optional<U16> numSources = std::nullopt;  // the claim of the message, if not the truth
  U8 reserved = 0;                               // four bits
};

struct V3Record {
  U8 type = 0;
  IpAddr group = IpAddr();
  std::vector<IpAddr> sources = {};
  U8 auxWords = 0;                               // words of auxiliary data, all 0xaa
  std::optional<U16> numSources = std::nullopt;  // the claim of the record, if not the truth
};

std::vector<U8> buildV1Report(IpAddr group, const IpOptions& options = {});
std::vector<U8> buildV2Report(IpAddr group, const IpOptions& options = {});
std::vector<U8> buildV2Leave(IpAddr group, const IpOptions& options = {});
std::vector<U8> buildV1Query(const IpOptions& options = {});
std::vector<U8> buildV2Query(IpAddr group = IpAddr(), U8 code = 100, const IpOptions& options = {});
std::vector<U8> buildV3Query(const V3QueryFields& fields = {}, const IpOptions& options = {});
// `numRecords` is the claim of the report, if not the truth.
std::vector<U8> buildV3Report(const std::vector<V3Record>& records, const IpOptions& options = {},
                              std::optional<U16> numRecords = std::nullopt);

// Any message: its checksum field (bytes 2 and 3) is filled in, if it has one. `dst` is used unless
// the options name another. Throws std::length_error for more than an IPv4 packet can hold.
std::vector<U8> buildIgmpPacket(std::vector<U8> message, IpAddr dst, const IpOptions& options = {});

}  // namespace Ilvo
