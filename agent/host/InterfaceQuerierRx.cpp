// Received packets on their way to the querier, and the intake that decides which of them it sees.
#include "InterfaceQuerier.h"

#include <algorithm>

#include <Events/IntakeEvents.h>
#include <GmpIgmpQuerierSm/GroupLookahead.h>
#include <Ilvo/IpHdr.h>
#include <Link/QueryDatagram.h>
#include <Mox/ActivityClock.h>
#include <Mox/GenericAccess.h>
#include <fmt/format.h>

namespace Agent {

using Gmp::Igmp::GroupLookahead;

namespace {

constexpr size_t usualCost = ReceivedFrame::usualCost;
// Of a block, which is not left before its packets have been handled.
constexpr size_t mostBlockCost = 4 * usualCost;

// Packets are handed in by name, as by a host that knows the library by its registry only.
const Mox::Call<Mox::Ptr<Ilvo::Pkt>> doRxPkt(Mox::typeInfoOf<Gmp::Igmp::QuerierSm>(), "doRxPkt");

// 0.0.0.0 for what is too short for an IPv4 header.
Ilvo::IpAddr senderOf(const ReceivedBatch::Received& received) {
  const auto header = Ilvo::IpHdr::of(received.pkt->data());
  return header ? header->src() : Ilvo::IpAddr();
}

ReceivedBatch::Received copyOf(const ReceivedBatch::Received& received,
                               std::span<const Mox::U8> packet) {
  return {
      .pkt = Mox::makePtr<Ilvo::Pkt>(packet), .macs = received.macs, .hasMacs = received.hasMacs};
}

}  // namespace

void InterfaceQuerier::rxPacket(const RxPacket& packet) {
  if (!querier_ || (packet.outgoing && isQueryFrom(sentFrom_, packet.packet))) return;
  services_.batch.add(packet);
}

// A packet is judged when those before it have been handled: its limits count what they made. The
// kernel hands the packets of a block out at once, so they have one time.
void InterfaceQuerier::rxBatchEnd() {
  const Mox::StandingClock oneTime;
  const auto packets = services_.batch.packets();
  const auto prefetch = [&](size_t at) {
    if (at < packets.size()) querier_->prefetchRxPkt(*packets[at].pkt);
  };
  blockCost_ = 0;
  for (size_t i = 0; i < GroupLookahead::ahead; ++i) prefetch(i);
  for (size_t i = 0; i < packets.size(); ++i) {
    prefetch(i + GroupLookahead::ahead);
    handIn(packets[i]);
  }
  services_.batch.clear();
}

// The packets of a sender are handled in their order.
void InterfaceQuerier::handIn(const ReceivedBatch::Received& received) {
  if (!deferred_.empty()) {
    const Ilvo::IpAddr sender = senderOf(received);
    if (deferred_.holds(sender)) {
      return handInLater(deferred_.add(sender, copyOf(received, received.pkt->data())));
    }
  }
  handInNow(received, std::min(usualCost, mostBlockCost - std::min(mostBlockCost, blockCost_)));
}

void InterfaceQuerier::handInNow(const ReceivedBatch::Received& received, size_t mostCost) {
  ReceivedFrame frame{.packet = received.pkt->data(), .mostCost = mostCost};
  if (received.hasMacs) frame.macs = received.macs;
  const IntakeVerdict verdict = intake_.judge(frame);
  blockCost_ += verdict.cost;
  if (!verdict.rest.empty()) {
    handInLater(deferred_.addRest(senderOf(received), copyOf(received, verdict.rest)));
  }
  if (verdict.isRefused) return;
  if (verdict.isChanged()) received.pkt->bytesIs(verdict.packet);
  doRxPkt(*querier_, received.pkt);
}

// They have room for a turn of the wheel: the packets of others that have arrived come first.
void InterfaceQuerier::handInLater(bool isRoomLeft) {
  if (!isRoomLeft) deferredLost(1);
  deferredTimer_.timeMinIs(Mox::now());
}

void InterfaceQuerier::handleDeferredTimer() {
  handInNow(deferred_.take(), usualCost);
  deferredTimer_.timeMinIs(deferred_.empty() ? Mox::never : Mox::now());
}

void InterfaceQuerier::deferredLost(Mox::U64 packets) {
  if (packets == 0) return;
  state_->deferredLostInc(packets);
  reportProblem("deferred",
                fmt::format("costly reports come faster than they can be handled: {} lost so far",
                            state_->deferredLost()));
}

void InterfaceQuerier::onIntakeEvent(const IntakeEvent& event) {
  services_.sink.event(intakeEvent(setup_.name, event));
}

}  // namespace Agent
