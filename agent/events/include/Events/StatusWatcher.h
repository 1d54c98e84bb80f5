// Turns the changes of one querier's status, of its groups and of their sources into events.
//
// Changes are collected as they are notified and told by flush(), so that the event of a join shows
// what the whole report made of the group. The host flushes after each packet and each turn of the
// timer wheel. What came and went in between is told in its order; values that changed several
// times are told once. The stream is complete: what the status holds when the watcher begins is
// told by the first flush, as if it had just come. The sink must outlive the watcher. One thread.
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
