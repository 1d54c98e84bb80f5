// Turns the changes of one querier's status, of its groups and of their sources into events.
//
// Changes are collected as they are notified and reported by flush(), so that the event of a join
// shows the group as the whole report left it. The host flushes after each batch of packets and
// each turn of the timer wheel, and between two packets where many changes wait. A member that came
// and went in between is no event; a value that changed several times is reported once. The stream
// is complete: the first flush reports what the status holds when the watcher begins, as if it had
// just come, unless its groups are known already. The sink must outlive the watcher. One thread.
//
// A host with many watchers gives them a list, in which they put themselves when something changes.
//
//   StatusWatcher::Pending pending;
//   StatusWatcher watcher("eth0", status, *sink, &pending);
//   querier->doRxPkt(pkt);
//   pending.flush();
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Events/Event.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <MoxBase/Ptr.h>

namespace Agent {

class StatusJournal;

// Which changes of groups and sources are events: each; each, but those of more than 32 sources of
// a group in one batch as their number; none.
enum class EventScope { all, changes, none };

// Of the groups that a status has when its watcher begins: they are reported, or were before.
enum class FirstGroups { reported, known };

class StatusWatcher {
 public:
  // The watchers that have changes to report. It outlives them.
  class Pending {
   public:
    // How many changes wait at most while packets are handled: to report them keeps the loop from
    // its rings.
    static constexpr size_t mostChanges = 1024;

    void flush();
    // Between two packets of a batch.
    void flushIfMany() {
      if (changes_ >= mostChanges) flush();
    }

   private:
    friend class StatusWatcher;
    size_t changes_ = 0;  // at least as many as there are notes
    std::vector<StatusWatcher*> watchers_;
    std::vector<StatusWatcher*> flushed_;  // empty between two flushes
  };

  StatusWatcher(std::string interface, Mox::Ptr<const Gmp::Igmp::QuerierStatus> status,
                EventSink& sink, Pending* pending = nullptr, EventScope scope = EventScope::all,
                FirstGroups first = FirstGroups::reported);
  ~StatusWatcher();
  StatusWatcher(const StatusWatcher&) = delete;
  StatusWatcher& operator=(const StatusWatcher&) = delete;

  void flush();
  // Something has changed that a flush reports.
  void markPending();

 private:
  Pending* const pending_;
  bool isPending_ = false;
  std::unique_ptr<StatusJournal> journal_;
};

}  // namespace Agent
