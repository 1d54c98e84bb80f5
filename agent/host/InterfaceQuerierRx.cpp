// Received packets on their way to the querier, and the intake that decides which of them it sees.
#include "InterfaceQuerier.h"

#include <algorithm>

#include <Events/IntakeEvents.h>
#include <GmpIgmpQuerierSm/GroupLookahead.h>
#include <Ilvo/IgmpHdr.h>
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
DeferredPackets::Sender senderOf(const ReceivedBatch::Received& received,
                                 std::span<const Mox::U8> packet) {
  DeferredPackets::Sender sender;
  if (const auto header = Ilvo::IpHdr::of(packet)) sender.addr = header->src();
  if (received.hasMacs) {
    std::copy_n(received.macs.begin() + PacketView::macBytes, PacketView::macBytes,
                sender.mac.begin());
  }
  return sender;
}

bool isQuery(const ReceivedBatch::Received& received) {
  const std::span<const Mox::U8> packet = received.pkt->data();
  const auto header = Ilvo::IpHdr::of(packet);
  return header && header->headerBytes() < packet.size() &&
         packet[header->headerBytes()] == Ilvo::igmpMembershipQuery;
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
    if (services_.pending != nullptr) services_.pending->flushIfMany();
  }
  services_.batch.clear();
}

// The packets of a sender are handled in their order, as far as there is room. A whole packet is
// not lost: a sender that forges a host's address could end the host's groups otherwise. Queries do
// not wait: they change no group at once, and the election depends on them.
void InterfaceQuerier::handIn(const ReceivedBatch::Received& received) {
  if (!deferred_.empty() && deferred_.hasRoom() && !isQuery(received)) {
    const std::span<const Mox::U8> packet = received.pkt->data();
    const DeferredPackets::Sender sender = senderOf(received, packet);
    if (deferred_.holds(sender)) {
      deferred_.add(sender, copyOf(received, packet));
      return;
    }
  }
  deferRest(received, handInNow(received, costLeft()));
}

size_t InterfaceQuerier::costLeft() const {
  return std::min(usualCost, mostBlockCost - std::min(mostBlockCost, blockCost_));
}

// Returns what has to wait.
std::span<const Mox::U8> InterfaceQuerier::handInNow(const ReceivedBatch::Received& received,
                                                     size_t mostCost) {
  ReceivedFrame frame{.packet = received.pkt->data(), .mostCost = mostCost};
  if (received.hasMacs) frame.macs = received.macs;
  const IntakeVerdict verdict = intake_.judge(frame);
  blockCost_ += verdict.cost;
  if (verdict.isRefused) return verdict.rest;
  if (verdict.isChanged()) received.pkt->bytesIs(verdict.packet);
  doRxPkt(*querier_, received.pkt);
  return verdict.rest;
}

// It has room for a turn of the wheel: the packets of others that have arrived come first. A whole
// packet that it pushes out is handled now.
void InterfaceQuerier::deferRest(const ReceivedBatch::Received& received,
                                 std::span<const Mox::U8> rest) {
  if (rest.empty()) return;
  deferredTimer_.timeMinIs(Mox::now());
  const auto pushedOut = deferred_.addRest(senderOf(received, rest), copyOf(received, rest));
  if (!pushedOut) return;
  if (pushedOut->isRest || !handInNow(pushedOut->received, costLeft()).empty()) deferredLost();
}

void InterfaceQuerier::handleDeferredTimer() {
  blockCost_ = 0;
  const ReceivedBatch::Received received = deferred_.take();
  deferRest(received, handInNow(received, usualCost));
  deferredTimer_.timeMinIs(deferred_.empty() ? Mox::never : Mox::now());
}

void InterfaceQuerier::deferredLost() {
  const Mox::U64 lost = state_->deferredLostInc(1);
  reportProblem("deferred", fmt::format("costly reports come faster than they can be handled: {} "
                                        "lost so far",
                                        lost));
}

void InterfaceQuerier::onIntakeEvent(const IntakeEvent& event) {
  services_.sink.event(intakeEvent(setup_.name, event));
}

}  // namespace Agent
