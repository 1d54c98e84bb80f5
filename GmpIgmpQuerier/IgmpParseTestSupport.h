// Fixture of the parsers' tests: messages as the receive path hands them over, and the traces and
// events of the parsers.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <GmpIgmpQuerier/IgmpParse.h>
#include <GmpIgmpQuerier/ModelLogs.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {

using Texts = std::vector<std::string>;

class IgmpParseFixture : public testing::Test {
 protected:
  IgmpParseFixture() {
    igmpPacketTrace->facilityLevelIs(8);
    Mox::traceSinkIs([this](const Mox::TraceLine& line) {
      if (&line.handle == &*igmpPacketTrace) {
        traces_.push_back(std::to_string(line.level) + " " + std::string(line.text));
      }
    });
    Mox::eventLogSinkIs([this](const Mox::EventLogEntry& entry) {
      events_.push_back(std::string(entry.message.name) + ": " + entry.text);
      EXPECT_FALSE(entry.limited);
    });
  }
  ~IgmpParseFixture() override {
    igmpPacketTrace->facilityLevelIs(Mox::TraceHandle::off);
    Mox::traceSinkIs({});
    Mox::eventLogSinkIs({});
  }

  // The message of an IPv4 packet, without its last `cut` bytes.
  static Ptr<Ilvo::Pkt> messageOf(const std::vector<U8>& packet, size_t cut = 0) {
    Ptr<Ilvo::Pkt> pkt = makePtr<Ilvo::Pkt>(packet);
    pkt->frontOffsetInc(24);  // the IP header with Router Alert
    pkt->endOffsetDec(cut);
    return pkt;
  }

  Texts traces() { return std::exchange(traces_, {}); }
  Texts events() { return std::exchange(events_, {}); }

  Texts traces_;
  Texts events_;
  const IpAddr group_{239, 1, 1, 1};
  const IpAddr a_{10, 0, 0, 1};
  const IpAddr b_{10, 0, 0, 2};
};

}  // namespace Gmp::Igmp
