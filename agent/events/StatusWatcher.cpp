#include <Events/StatusWatcher.h>

#include <algorithm>
#include <utility>

#include <Mox/ActivityClock.h>
#include "StatusJournal.h"

namespace Agent {

StatusWatcher::StatusWatcher(std::string interface, Mox::Ptr<const Gmp::Igmp::QuerierStatus> status,
                             EventSink& sink, Pending* pending, EventScope scope, FirstGroups first)
    : pending_(pending) {
  markPending();  // the contents of the status are yet to be reported
  journal_ = std::make_unique<StatusJournal>(std::move(interface), std::move(status), sink, scope,
                                             first, *this);
}

StatusWatcher::~StatusWatcher() {
  if (!isPending_) return;
  std::erase(pending_->watchers_, this);
  std::ranges::replace(pending_->flushed_, this, nullptr);
}

void StatusWatcher::markPending() {
  if (pending_ == nullptr) return;
  ++pending_->changes_;
  if (std::exchange(isPending_, true)) return;
  pending_->watchers_.push_back(this);
}

void StatusWatcher::flush() { journal_->flush(); }

// The two lists take turns, so that neither is allocated anew.
// The changes of a batch have one time.
void StatusWatcher::Pending::flush() {
  const Mox::StandingClock oneTime;
  changes_ = 0;
  std::swap(watchers_, flushed_);
  for (StatusWatcher*& watcher : flushed_) {
    if (watcher == nullptr) continue;
    StatusWatcher& one = *std::exchange(watcher, nullptr);
    one.isPending_ = false;
    one.flush();
  }
  flushed_.clear();
}

}  // namespace Agent
