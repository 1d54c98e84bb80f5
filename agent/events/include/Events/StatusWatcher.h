// Turns the changes of one querier's status, of its groups and of their sources into events.
//
// Notified changes are collected, and flush() reports them, so that the event of a join shows the
// group as it is after the whole packet. The host flushes after each packet and each turn of the
// timer wheel. Members that were added and removed between two flushes are reported in that order;
// a value that changed several times is reported once. The first flush reports the contents that
// the status had when the watcher was created, as if they were new. The sink must outlive the
// watcher. One thread.
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
