// For tests: an intake before a real querier, in virtual time, with its events and what it sends.
//
// Time begins at 1000. The querier is 10.0.0.5 with version 3, elected and silent unless it is
// asked; hosts and routers are in 10.0.0.0/24. A test changes config_ and processConfig() at any
// time.
//
//   start();
//   EXPECT_EQ(received(buildV2Report(group)), "passes");
//   EXPECT_EQ(received(buildV2Report(group, {.ttl = 2})), "refused: wrongTtl");
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Intake/Intake.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {

class IntakeTest : public testing::Test, private IntakeWatcher {
 protected:
  using IpAddr = Ilvo::IpAddr;
  using Bytes = std::vector<Mox::U8>;
  using Mac = std::array<Mox::U8, 6>;
  static constexpr IpAddr own_{10, 0, 0, 5};
  static constexpr IpAddr lower_{10, 0, 0, 2};
  static constexpr IpAddr lowest_{10, 0, 0, 1};
  static constexpr IpAddr higher_{10, 0, 0, 9};
  static constexpr IpAddr host_{10, 0, 0, 77};
  static constexpr IpAddr group_{239, 1, 1, 1};
  static constexpr IpAddr source_{192, 0, 2, 1};
  static constexpr Mac ownMac_{2, 0, 0, 0, 0, 5};
  static constexpr Mac hostMac_{2, 0, 0, 0, 0, 77};
  static constexpr Mac groupMac_{1, 0, 0x5e, 1, 1, 1};

  struct Sent {
    IpAddr group;
    size_t bytes;  // of the IGMP message
  };

  IntakeTest() {
    Mox::virtualTimeIs(1000.0);
    srand48(1);
    querierConfig_->querierVersionIs(Gmp::Igmp::igmpVersion3);
  }
  ~IntakeTest() override {
    stop();
    Mox::realTimeIs();
  }

  void start(Mox::U32 mtu = 1500) {
    wheel_ = Mox::makePtr<Obel::TimerWheel>(Mox::now());
    IntakeWatcher& watcher = *this;
    intake_ = std::make_unique<Intake>(process_, config_, status_, querierStatus_, watcher);
    intake_->linkIs(ownMac_, PrefixList("10.0.0.5/24"));
    querier_ = Gmp::Igmp::querierSmFactory(querierConfig_, querierStatus_, own_, mtu, 0, wheel_,
                                           wheel_, wheel_, false);
    querier_->doSetTimer(Gmp::Igmp::QuerierSm::queryIntervalTimerId, Mox::never);
    output_ = std::make_unique<Output>(querier_, sent_);
    intake_->querierIs(querier_);
  }
  void stop() {
    output_.reset();
    if (intake_) intake_->querierIs(nullptr);
    querier_ = nullptr;
    intake_.reset();
  }

  // Judges the packet and hands it to the querier: "passes", "refused: RULE" or "changed: RULE".
  // What the intake leaves of it is in rest_.
  std::string received(const Bytes& packet) { return received(packet, hostMac_); }
  std::string received(const Bytes& packet, const Mac& from) {
    const Mac to{1, 0, 0x5e, static_cast<Mox::U8>(packet[17] & 0x7f), packet[18], packet[19]};
    return received(packet, from, to);
  }
  std::string received(const Bytes& packet, const Mac& from, const Mac& to) {
    Bytes macs(to.begin(), to.end());
    macs.insert(macs.end(), from.begin(), from.end());
    return handed(packet, intake_->judge({.packet = packet, .macs = macs}));
  }
  std::string receivedWithoutMacs(const Bytes& packet) {
    return handed(packet, intake_->judge({.packet = packet}));
  }
  std::string receivedRecord(Mox::U8 type, IpAddr group, std::vector<IpAddr> sources = {}) {
    return received(Ilvo::buildV3Report(
        {{.type = type, .group = group, .sources = std::move(sources)}}, {.src = host_}));
  }
  std::string receivedRecords(const std::vector<Ilvo::V3Record>& records) {
    return received(Ilvo::buildV3Report(records, {.src = host_}));
  }
  // The router wins the election.
  void elect(IpAddr router) {
    received(Ilvo::buildV3Query({}, {.src = router}));
    ASSERT_EQ(querierStatus_->electedQuerierAddr(), router);
  }
  static std::vector<IpAddr> sources(size_t count, Mox::U32 first = 0x0a010001) {
    std::vector<IpAddr> all;
    for (size_t i = 0; i < count; ++i) all.emplace_back(first + static_cast<Mox::U32>(i));
    return all;
  }

  void advance(Mox::Seconds seconds) {
    const Mox::Seconds until = Mox::now() + seconds;
    while (wheel_->nextDue() <= until) {
      Mox::virtualTimeIs(std::max(Mox::now(), wheel_->nextDue()));
      wheel_->turn(Mox::now());
    }
    Mox::virtualTimeIs(until);
    wheel_->turn(until);
  }

  size_t groups() const { return querierStatus_->group().size(); }
  size_t sourcesOf(IpAddr group) const {
    const auto status = querierStatus_->group(group);
    return status ? status->source().size() : 0;
  }
  Mox::U64 counted(IntakeRule rule) const { return status_->counted(rule); }
  IntakeProcessConfig& processConfig() { return *process_.config; }
  std::vector<std::string> events() { return std::exchange(events_, {}); }

  const Mox::Ptr<IntakeConfig> config_ = Mox::makePtr<IntakeConfig>("eth0");
  const Mox::Ptr<IntakeStatus> status_ = Mox::makePtr<IntakeStatus>("eth0");
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> querierConfig_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> querierStatus_ = Gmp::Igmp::querierStatusFactory();
  IntakeProcess process_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Mox::Ptr<Gmp::Igmp::QuerierSm> querier_;
  std::unique_ptr<Intake> intake_;
  std::vector<Sent> sent_;
  Bytes rest_;

 private:
  class Output final : public Gmp::Igmp::QuerierSm::NotifieeConst {
   public:
    Output(const Mox::Ptr<Gmp::Igmp::QuerierSm>& querier, std::vector<Sent>& sent)
        : NotifieeConst(querier), sent_(sent) {}
    void onWritableCount() override {
      sent_.push_back({notifier()->dstGroup(), notifier()->sendPkt()->offsetBytes()});
    }

   private:
    std::vector<Sent>& sent_;
  };

  std::string handed(const Bytes& packet, const IntakeVerdict& verdict) {
    const std::string rule = verdict.rule ? nameOf(*verdict.rule).name : "";
    rest_.assign(verdict.rest.begin(), verdict.rest.end());
    if (verdict.isRefused) return "refused: " + rule;
    querier_->doRxPkt(Mox::makePtr<Ilvo::Pkt>(verdict.packet));
    if (verdict.rule) return "changed: " + rule;
    if (verdict.isChanged()) return "passes in part";
    EXPECT_EQ(verdict.packet.data(), packet.data()) << "what passes is not copied";
    EXPECT_EQ(verdict.packet.size(), packet.size());
    return "passes";
  }

  void onIntakeEvent(const IntakeEvent& event) override {
    std::string text = std::string(nameOf(event.rule).name) + " " + event.sender.stringValue() +
                       " mac " + std::to_string(event.mac.empty() ? 0 : event.mac.back());
    if (!event.group.isZero()) text += " group " + event.group.stringValue();
    events_.push_back(text + " count " + std::to_string(event.count));
  }

  std::unique_ptr<Output> output_;
  std::vector<std::string> events_;
};

}  // namespace Agent
