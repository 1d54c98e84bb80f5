// Queries on their way to the link, and those that the kernel has no memory for.
#include "InterfaceQuerier.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include <Link/QueryDatagram.h>
#include <Mox/ActivityClock.h>

namespace Agent {

using Gmp::Igmp::PublishedQuery;
using Ilvo::IpAddr;
using Mox::Seconds;

namespace {

constexpr Seconds resendInterval = 0.05;
// By then the query is not worth sending: hosts are asked again, or the group's time is over.
constexpr Seconds resendDuration = 1.0;
constexpr int sendsAtOnce = 64;  // of a step of the resending

bool isWantOfMemory(const std::error_code& error) {
  return error == std::errc::no_buffer_space || error == std::errc::not_enough_memory ||
         error == std::errc::resource_unavailable_try_again;
}

}  // namespace

void InterfaceQuerier::transmit(const PublishedQuery& query) {
  const IpAddr group = query.dstGroup;
  // Another router's group-specific query may name any address, and this querier retransmits the
  // query once that router falls silent.
  if (!queryDestination(group).isMulticast()) {
    reportProblem("notMulticast", "a query for " + group.stringValue() +
                                      " is due, which is no multicast group: not sent");
    return;
  }
  if (group.isZero()) reportDelay();
  if (!send(query)) resendLater({.query = query, .until = Mox::now() + resendDuration});
}

// The status still has the time that the query was due at. One that a querier sends because it has
// become one, perhaps while it is constructed, was not due before.
void InterfaceQuerier::reportDelay() const {
  const Seconds due = status_->generalQueryExpiryTime();
  if (!services_.onQuery || setup_.intake->listenOnly()) return;
  if (querier_ && due != 0.0 && due <= Mox::now()) {
    services_.onQuery(Mox::now() - due);
  }
}

bool InterfaceQuerier::send(const PublishedQuery& query) {
  if (setup_.intake->listenOnly()) return true;
  if (std::ranges::find(sentFrom_, query.src) == sentFrom_.end()) sentFrom_.push_back(query.src);
  const std::error_code failed =
      port_->send(queryDatagram(query.src, query.dstGroup, query.message->data()));
  if (failed) {
    state_->sendFailuresInc(1);
    reportProblem("send", fmt::format("cannot send a query: {}; {} failures so far",
                                      failed.message(), state_->sendFailures()));
    return !isWantOfMemory(failed);
  }
  if (services_.reportQueries) {
    services_.sink.event(querySentEvent(setup_.name, query.dstGroup, query.message));
  }
  return true;
}

// As many specific queries wait as hosts may cause at once. A general query always waits: without
// it all groups would end.
void InterfaceQuerier::resendLater(Unsent unsent) {
  if (!unsent.query.dstGroup.isZero() && unsent_.size() >= setup_.intake->maxQueryBurst()) {
    state_->queriesLostInc(1);
    return;
  }
  unsent_.push_back(std::move(unsent));
  if (resendTimer_.timeMin() == Mox::never) resendTimer_.timeMinIs(Mox::now() + resendInterval);
}

void InterfaceQuerier::dropUnsent() {
  state_->queriesLostInc(unsent_.size());
  unsent_.clear();
}

// While there is no memory for one query, there is none for those behind it.
void InterfaceQuerier::handleResendTimer() {
  Seconds next = Mox::now();
  for (int i = 0; i < sendsAtOnce && !unsent_.empty(); ++i) {
    if (!send(unsent_.front().query)) {
      if (Mox::now() < unsent_.front().until) {
        next += resendInterval;
        break;
      }
      state_->queriesLostInc(1);
    }
    unsent_.pop_front();
  }
  resendTimer_.timeMinIs(unsent_.empty() ? Mox::never : next);
}

}  // namespace Agent
