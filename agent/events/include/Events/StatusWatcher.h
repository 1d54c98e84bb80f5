// Turns the changes of one querier's status, of its groups and of their sources into events.
//
// Changes are collected as they are notified and reported by flush(), so that the event of a join
// shows the group as the whole report left it. The host flushes after each packet and each turn of
// the timer wheel. Members that came and went in between are reported in that order; a value that
// changed several times is reported once. The stream is complete: the first flush reports what the
// status holds when the watcher begins, as if it had just come. The sink must outlive the watcher.
// One thread.
//
//   StatusWatcher watcher("eth0", status, *sink);
//   querier->doRxPkt(pkt);
//   watcher.flush();
#pragma once

#include <memory>
#include <string>

#include <Events/Event.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <MoxBase/Ptr.h>

namespace Agent {

class StatusWatcher {
 public:
  StatusWatcher(std::string interface, Mox::Ptr<const Gmp::Igmp::QuerierStatus> status,
                EventSink& sink);
  ~StatusWatcher();
  StatusWatcher(const StatusWatcher&) = delete;
  StatusWatcher& operator=(const StatusWatcher&) = delete;

  void flush();

 private:
  class Watch;
  std::unique_ptr<Watch> watch_;
};

}  // namespace Agent
