// Queries of other routers: which may take part in the election, which may lower timers, and within
// which bounds their times are adopted.
#include <algorithm>
#include <cmath>
#include <utility>

#include <Ilvo/Checksum.h>
#include <Ilvo/IgmpCode.h>
#include <Ilvo/IgmpHdr.h>
#include <Intake/Intake.h>
#include <Mox/ActivityClock.h>

namespace Agent {

using Ilvo::IpAddr;
using Mox::Seconds;
using Mox::U8;

namespace {

constexpr IpAddr allHosts(224, 0, 0, 1);
constexpr size_t codeAt = 1;
constexpr size_t checksumAt = 2;
constexpr size_t qrvAt = 8;
constexpr size_t qqicAt = 9;

// The times that a version 3 query announces, as the querier adopts them.
struct Times {
  double robustness;
  Seconds interval;
  Seconds response;

  Seconds otherQuerierInterval() const { return robustness * interval + 0.5 * response; }
};

Times timesOf(const PacketView& view, const Gmp::Igmp::QuerierConfig& config) {
  const Mox::U32 qrv = view.message()[qrvAt] & 0x07U;
  const unsigned interval = Ilvo::igmpCodeDecode(view.message()[qqicAt]);
  const unsigned response = Ilvo::igmpCodeDecode(view.code());
  return {.robustness = static_cast<double>(qrv != 0 ? qrv : config.robustness()),
          .interval = interval != 0 ? interval : config.queryInterval(),
          .response = response != 0 ? response / 10.0 : config.queryResponseInterval()};
}

}  // namespace

IntakeVerdict Intake::judgeQuery(const PacketView& view) {
  if (const Refusal rule = queryRefusal(view)) return refuse(*rule, view, view.group());
  if (config_->reportNewQueriers()) noteNewQuerier(view);
  if (const auto limited = limitTimes(view)) return *limited;
  return {view.received()};
}

Intake::Refusal Intake::queryRefusal(const PacketView& view) const {
  if (const Refusal rule = frameRefusal(view)) return rule;
  if (config_->multicastOnly() && !isSentToHosts(view)) return IntakeRule::notMulticast;
  // It can be no query of this querier.
  if (isFromOwnAddressElsewhere(view)) return IntakeRule::ownAddress;
  const IpAddr source = view.ip().src();
  if (config_->localQueries() && !isLocal(source)) return IntakeRule::foreignQuery;
  if (!config_->permittedQueriers().allows(source)) return IntakeRule::unpermittedQuerier;
  if (view.group().isZero()) return {};
  // It would make the group, beyond all limits.
  if (known(view.group()) == nullptr) return IntakeRule::specificQuery;
  if (config_->guardSpecificQueries() && !isTrustedForSpecific(source)) {
    return IntakeRule::specificQuery;
  }
  return {};
}

// A query that no host receives would win the election, and nobody would ask the hosts.
bool Intake::isSentToHosts(const PacketView& view) {
  const IpAddr to = view.ip().dst();
  if (to != allHosts && to != view.group()) return false;
  return !view.hasMacs() || view.isSentToMacOfDestination();
}

// A querier that lost the election still finishes its retransmissions, as this one does. While this
// router is elected, nobody else may lower its timers (RFC 3376 6.6.1).
bool Intake::isTrustedForSpecific(IpAddr querier) const {
  const IpAddr own = querier_->ipAddr();
  if (elected_.isZero() || elected_ == own || querier == own) return false;
  if (querier == elected_) return true;
  if (querier != previous_ || previous_.isZero()) return false;
  return Mox::now() < handOverTime_ + querier_->querierConfig()->lastMemberQueryTime();
}

void Intake::handleElectedQuerierAddr() {
  previous_ = std::exchange(elected_, querierStatus_->electedQuerierAddr());
  handOverTime_ = Mox::now();
}

// A querier of version 1 holds no election.
bool Intake::winsElection(IpAddr source) const {
  if (querier_->querierConfig()->querierVersion() == Gmp::Igmp::igmpVersion1) return false;
  if (source.isZero() || source == querier_->ipAddr()) return false;
  return elected_.isZero() || source < elected_;
}

// A querier whose event had to wait for the one before is reported by a later query, when it is
// still elected.
void Intake::noteNewQuerier(const PacketView& view) {
  const IpAddr querier = view.ip().src();
  const bool wins = winsElection(querier);
  if (!wins && (querier != elected_ || querier == querier_->ipAddr())) return;
  if (std::ranges::find(seenQueriers_, querier) != seenQueriers_.end()) return;
  if (!count(IntakeRule::newQuerier, view, {}, wins ? 1 : 0)) return;
  seenQueriers_[seenNext_] = querier;
  seenNext_ = (seenNext_ + 1) % seenQueriers_.size();
}

// Forged times could silence this querier for days, or let groups end between two queries. What a
// query without these fields leaves open comes from the configuration, and needs no limit.
std::optional<IntakeVerdict> Intake::limitTimes(const PacketView& view) {
  if (!config_->limitQuerierTimes()) return {};
  if (view.message().size() < Ilvo::IgmpV3QueryHdr::bytes) return {};
  Times times = timesOf(view, *querier_->querierConfig());
  const Seconds announced = times.otherQuerierInterval();
  if (announced >= leastOtherQuerierInterval && announced <= mostOtherQuerierInterval) return {};
  U8 code = view.code();
  U8 qqic = 0;
  if (announced > mostOtherQuerierInterval) {
    // The response time stays below the interval that is left for it (RFC 3376 8.3). The codes
    // round down.
    const Seconds mostResponse = mostOtherQuerierInterval / (times.robustness + 0.5);
    if (times.response > mostResponse) {
      code = Ilvo::igmpCodeEncode(mostResponse * 10.0);
      times.response = Ilvo::igmpCodeDecode(code) / 10.0;
    }
    qqic =
        Ilvo::igmpCodeEncode((mostOtherQuerierInterval - 0.5 * times.response) / times.robustness);
  } else {
    qqic = static_cast<U8>(
        std::ceil((leastOtherQuerierInterval - 0.5 * times.response) / times.robustness));
  }
  count(IntakeRule::querierTimes, view, view.group());
  std::vector<U8>& copy = process_.copy;
  copy.assign(view.packet().begin(), view.packet().end());
  const std::span<U8> message = std::span(copy).subspan(view.ip().headerBytes());
  message[codeAt] = code;
  message[qqicAt] = qqic;
  message[checksumAt] = message[checksumAt + 1] = 0;
  const Mox::U16 sum = Ilvo::checksum(message);
  message[checksumAt] = static_cast<U8>(sum >> 8);
  message[checksumAt + 1] = static_cast<U8>(sum);
  return IntakeVerdict{.packet = copy, .rule = IntakeRule::querierTimes};
}

}  // namespace Agent
