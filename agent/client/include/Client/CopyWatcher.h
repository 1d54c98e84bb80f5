// Reports changes in the copies of an agent's state as events: the events that the agent itself
// reports about its state and its interfaces, changes of the configuration, and counters on
// request.
//
// The first flush reports only the roles, or on request the whole state as if it were new. Flush
// when the copies have the agent's state of one moment: once they are complete, and at each answer.
// Copies and sink must outlive the watcher.
//
//   CopyWatcher watcher(copy.interfaces(), {}, *sink);
//   onCurrent: watcher.flush();
//   onInput: if (watcher.changed()) copy.ask(1);
//   onAnswer: watcher.flush();
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include <Client/AttrLogCopy.h>
#include <Events/Event.h>

namespace Agent {

class CopyWatcher {
 public:
  struct Options {
    std::set<std::string> interfaces = {};  // all of them if none
    bool fromTheBeginning = false;          // the first flush reports the whole state
  };

  CopyWatcher(const AttrLogCopy::Interfaces& copies, Options options, EventSink& sink);
  ~CopyWatcher();
  CopyWatcher(const CopyWatcher&) = delete;
  CopyWatcher& operator=(const CopyWatcher&) = delete;

  // A watched interface has changed since the last flush.
  bool changed() const { return changed_ || !sameInterfaces(); }
  void flush();
  // Reports the counters that changed since the last call.
  void flushCounters();

 private:
  class InterfaceWatch;
  class RoleFilter;

  bool isWanted(const std::string& name) const;
  bool sameInterfaces() const;
  void dropOldInterfaces();
  void addNewInterfaces();

  const AttrLogCopy::Interfaces& copies_;
  const Options options_;
  std::unique_ptr<RoleFilter> sink_;
  std::map<std::string, std::unique_ptr<InterfaceWatch>> watched_;
  bool begun_ = false;
  bool changed_ = false;
};

}  // namespace Agent
