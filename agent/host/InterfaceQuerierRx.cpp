// Received packets on their way to the querier, and the intake that decides which of them it sees.
#include "InterfaceQuerier.h"

#include <algorithm>

#include <Events/IntakeEvents.h>
#include <GmpIgmpQuerierSm/GroupLookahead.h>
#include <Link/QueryDatagram.h>
#include <Mox/GenericAccess.h>

namespace Agent {

using Gmp::Igmp::GroupLookahead;
using Mox::makePtr;

namespace {

// Packets are handed in by name, as by a host that knows the library by its registry only.
const Mox::Call<Mox::Ptr<Ilvo::Pkt>> doRxPkt(Mox::typeInfoOf<Gmp::Igmp::QuerierSm>(), "doRxPkt");

}  // namespace

void InterfaceQuerier::rxPacket(const RxPacket& packet) {
  if (!querier_ || (packet.outgoing && isQueryFrom(sentFrom_, packet.packet))) return;
  Received& received = batch_.emplace_back(makePtr<Ilvo::Pkt>(packet.packet));
  received.hasMacs = packet.frame.size() >= received.macs.size();
  if (received.hasMacs)
    std::copy_n(packet.frame.begin(), received.macs.size(), received.macs.begin());
}

// A packet is judged when those before it have been handled: its limits count what they made.
void InterfaceQuerier::rxBatchEnd() {
  const auto prefetch = [this](size_t at) {
    if (at < batch_.size()) querier_->prefetchRxPkt(*batch_[at].pkt);
  };
  for (size_t i = 0; i < GroupLookahead::ahead; ++i) prefetch(i);
  for (size_t i = 0; i < batch_.size(); ++i) {
    prefetch(i + GroupLookahead::ahead);
    handIn(batch_[i]);
  }
  batch_.clear();
}

void InterfaceQuerier::handIn(const Received& received) {
  ReceivedFrame frame{.packet = received.pkt->data()};
  if (received.hasMacs) frame.macs = received.macs;
  const IntakeVerdict verdict = intake_.judge(frame);
  if (verdict.isRefused) return;
  doRxPkt(*querier_, verdict.isChanged() ? makePtr<Ilvo::Pkt>(verdict.packet) : received.pkt);
}

void InterfaceQuerier::onIntakeEvent(const IntakeEvent& event) {
  services_.sink.event(intakeEvent(setup_.name, event));
}

}  // namespace Agent
