// Turns the changes of the copies of an agent's state into events: what the agent's own events tell
// of its state and its interfaces, changes of the configuration, and on request of the counters.
//
// What is there when the first flush comes is where the telling begins: of it only the roles are
// told, or all of it as if it had just come. Flush when the copies are as the agent's state was at
// one moment: once they are current, and at each answer. Copies and sink must outlive the watcher.
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
    bool fromTheBeginning = false;          // tell what is there, too
  };

  CopyWatcher(const AttrLogCopy::Interfaces& copies, Options options, EventSink& sink);
  ~CopyWatcher();
  CopyWatcher(const CopyWatcher&) = delete;
  CopyWatcher& operator=(const CopyWatcher&) = delete;

  // Something of what is watched has changed since the last flush.
  bool changed() const { return changed_ || !sameInterfaces(); }
  void flush();
  // Tells the counters that changed since the last call.
  void flushCounters();

 private:
  class Watch;
  class Entrance;

  bool wanted(const std::string& name) const;
  bool sameInterfaces() const;
  void dropThoseGone();
  void addThoseNew();

  const AttrLogCopy::Interfaces& copies_;
  const Options options_;
  std::unique_ptr<Entrance> sink_;
  std::map<std::string, std::unique_ptr<Watch>> watched_;
  bool begun_ = false;
  bool changed_ = false;
};

}  // namespace Agent
