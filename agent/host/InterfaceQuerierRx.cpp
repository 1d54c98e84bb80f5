// Received packets on their way to the querier, and the intake that decides which of them it sees.
#include "InterfaceQuerier.h"

#include <Events/IntakeEvents.h>
#include <GmpIgmpQuerierSm/GroupLookahead.h>
#include <Link/QueryDatagram.h>
#include <Mox/GenericAccess.h>

namespace Agent {

using Gmp::Igmp::GroupLookahead;

namespace {

// Each is at most a packet, and took as long to make as a packet may cost.
constexpr size_t mostRests = 64;

// Packets are handed in by name, as by a host that knows the library by its registry only.
const Mox::Call<Mox::Ptr<Ilvo::Pkt>> doRxPkt(Mox::typeInfoOf<Gmp::Igmp::QuerierSm>(), "doRxPkt");

}  // namespace

void InterfaceQuerier::rxPacket(const RxPacket& packet) {
  if (!querier_ || (packet.outgoing && isQueryFrom(sentFrom_, packet.packet))) return;
  services_.batch.add(packet);
}

// A packet is judged when those before it have been handled: its limits count what they made.
void InterfaceQuerier::rxBatchEnd() {
  const auto packets = services_.batch.packets();
  const auto prefetch = [&](size_t at) {
    if (at < packets.size()) querier_->prefetchRxPkt(*packets[at].pkt);
  };
  for (size_t i = 0; i < GroupLookahead::ahead; ++i) prefetch(i);
  for (size_t i = 0; i < packets.size(); ++i) {
    prefetch(i + GroupLookahead::ahead);
    handIn(packets[i]);
  }
  services_.batch.clear();
}

void InterfaceQuerier::handIn(const ReceivedBatch::Received& received) {
  ReceivedFrame frame{.packet = received.pkt->data()};
  if (received.hasMacs) frame.macs = received.macs;
  const IntakeVerdict verdict = intake_.judge(frame);
  if (!verdict.rest.empty()) handInLater(received, verdict.rest);
  if (verdict.isRefused) return;
  if (verdict.isChanged()) received.pkt->bytesIs(verdict.packet);
  doRxPkt(*querier_, received.pkt);
}

// The rest has room for a turn of the wheel: all packets that have arrived meanwhile come first.
void InterfaceQuerier::handInLater(const ReceivedBatch::Received& received,
                                   std::span<const Mox::U8> rest) {
  if (rests_.size() == mostRests) {
    state_->framesLostInc(1);
    return;
  }
  rests_.push_back(
      {.pkt = Mox::makePtr<Ilvo::Pkt>(rest), .macs = received.macs, .hasMacs = received.hasMacs});
  restTimer_.timeMinIs(Mox::now());
}

void InterfaceQuerier::handleRestTimer() {
  const ReceivedBatch::Received received = std::move(rests_.front());
  rests_.pop_front();
  handIn(received);
  restTimer_.timeMinIs(rests_.empty() ? Mox::never : Mox::now());
}

void InterfaceQuerier::onIntakeEvent(const IntakeEvent& event) {
  services_.sink.event(intakeEvent(setup_.name, event));
}

}  // namespace Agent
