#include "RxPktOracle.h"

#include <cstddef>

namespace Fuzz {

using Gmp::Igmp::QuerierSm;
using Ilvo::IpAddr;
using Mox::U16;
using Mox::U32;
using Mox::U8;
using Packet = std::span<const U8>;

namespace {

U16 u16At(Packet bytes, std::size_t at) { return static_cast<U16>(bytes[at] << 8 | bytes[at + 1]); }
IpAddr addrAt(Packet bytes, std::size_t at) {
  return {bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]};
}

U16 sumOf(Packet bytes) {
  U32 sum = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    sum += at % 2 == 0 ? U32{bytes[at]} << 8 : U32{bytes[at]};
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return static_cast<U16>(sum);
}

// Where the header ends; 0 when there is none.
std::size_t headerOf(Packet packet) {
  if (packet.size() < 20 || packet[0] >> 4 != 4) return 0;
  const std::size_t header = (packet[0] & 0x0fU) * 4;
  return header >= 20 && header <= packet.size() && header <= u16At(packet, 2) ? header : 0;
}

class Judge {
 public:
  Judge(const Rules& rules, const QuerierSm& querier) : rules_(rules), querier_(querier) {}

  void packet(Packet packet) {
    const std::size_t header = headerOf(packet);
    if (header == 0 || sumOf(packet.first(header)) != 0xffff || packet.size() < u16At(packet, 2)) {
      ++moves().errors;
    } else if (packet[9] != 2) {
      ++moves().others;
    } else {
      message(packet.first(u16At(packet, 2)).subspan(header));
    }
  }

  Verdict verdict_;

 private:
  Gmp::Igmp::testing::ReceiveCounters& moves() { return verdict_.moves; }
  static bool learnable(IpAddr group) {
    return group.value() >> 28 == 0xe && group.value() >> 8 != 0xe00000;
  }
  bool inside(IpAddr group) const { return rules_.boundary && group.value() >> 16 == 0xefff; }

  void message(Packet message) {
    if (message.size() < 8 || sumOf(message) != 0xffff) {
      ++moves().errors;
      return;
    }
    const IpAddr group = addrAt(message, 4);
    switch (message[0]) {
      case 0x11: query(message, group); return;
      case 0x12: report(group, moves().v1Reports); return;
      case 0x16:
        if (rules_.configured != Gmp::Igmp::igmpVersion1) report(group, moves().v2Reports);
        return;
      case 0x17:
        if (rules_.configured != Gmp::Igmp::igmpVersion1) leave(group);
        return;
      case 0x22:
        if (rules_.configured == Gmp::Igmp::igmpVersion3) v3Report(message);
        return;
      default: ++moves().others;
    }
  }

  void query(Packet message, IpAddr group) {
    if (message[1] == 0) {
      ++moves().v1Queries;
    } else if (message.size() == 8) {
      ++moves().v2Queries;
    } else if (message.size() < 12) {
      ++moves().errors;
      return;
    } else {
      ++moves().v3Queries;
    }
    if (inside(group)) {
      ++moves().atBoundary;
    } else {
      verdict_.asked = group;
    }
  }

  void report(IpAddr group, U32& counter) {
    if (!learnable(group)) return;
    if (inside(group)) {
      ++moves().atBoundary;
      return;
    }
    ++counter;
    verdict_.reported.push_back(group);
  }

  void leave(IpAddr group) {
    if (group.value() >> 28 != 0xe) return;
    if (inside(group)) {
      ++moves().atBoundary;
    } else if (querier_.groupSm(group)) {
      ++moves().leaves;
    }
  }

  // Nothing of a report counts when one of its records is not whole.
  void v3Report(Packet message) {
    std::vector<IpAddr> groups;
    std::size_t at = 8;
    for (U16 left = u16At(message, 6); left > 0; --left) {
      if (message.size() < at + 8) return;
      groups.push_back(addrAt(message, at + 4));
      at += 8 + std::size_t{4} * (u16At(message, at + 2) + message[at + 1]);
      if (message.size() < at) return;
    }
    ++moves().v3Reports;
    U32 records = 0;
    for (const IpAddr group : groups) report(group, records);
  }

  const Rules& rules_;
  const QuerierSm& querier_;
};

void fill(std::span<U8> bytes, std::size_t at) {
  bytes[at] = bytes[at + 1] = 0;
  const auto field = static_cast<U16>(~sumOf(bytes));
  bytes[at] = static_cast<U8>(field >> 8);
  bytes[at + 1] = static_cast<U8>(field);
}

}  // namespace

Verdict judge(Packet packet, const Rules& rules, const QuerierSm& querier) {
  Judge judge(rules, querier);
  judge.packet(packet);
  return judge.verdict_;
}

void repair(std::vector<U8>& packet) {
  const std::size_t header = headerOf(packet);
  if (header == 0) return;
  fill(std::span(packet).first(header), 10);
  const std::size_t total = u16At(packet, 2);
  if (total > packet.size() || total < header + 4) return;
  fill(std::span(packet).first(total).subspan(header), 2);
}

}  // namespace Fuzz
