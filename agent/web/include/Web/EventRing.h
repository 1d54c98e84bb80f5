// The last events of the agent, kept for clients that follow them: each has an id, with which a
// client that was away asks for those that it missed.
//
// An id is "RUN-NUMBER": the run is another one in every process, since a number alone would name
// another event after a restart.
//
//   EventRing ring(4096, 4 << 20, "18c2f0");
//   EventRing::Reader reader(ring, "18c2f0-17");
//   reader.append(out);  // the events after the 17th, as server-sent events
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <Events/Event.h>
#include <MoxBase/Types.h>

namespace Agent {

class EventRing final : public EventSink {
 public:
  class Reader;

  EventRing(size_t mostEvents, size_t mostBytes, std::string run)
      : mostEvents_(mostEvents), mostBytes_(mostBytes), run_(std::move(run)) {}

  void event(const Event& event) override;

  size_t bytes() const { return bytes_; }
  // How many events there were.
  Mox::U64 count() const { return end_; }

 private:
  std::optional<Mox::U64> numberOf(std::string_view id) const;

  const size_t mostEvents_;
  const size_t mostBytes_;
  const std::string run_;
  std::deque<std::string> lines_;  // the last is number end_
  size_t bytes_ = 0;
  Mox::U64 end_ = 0;
  std::map<const Reader*, std::function<void()>> waiting_;
};

// Reads from now on, or after the event of an id. Must not outlive the ring.
class EventRing::Reader {
 public:
  Reader(EventRing& ring, std::string_view lastId);
  ~Reader() { ring_.waiting_.erase(this); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // Appends the next events in the form of server-sent events, to about so many bytes. Events that
  // are no longer kept are replaced by one "eventsLost" with their number; after an id of another
  // run the number is not known, and null.
  void append(std::string& out, size_t bytes);
  // Calls it once there are more.
  void wakeIs(std::function<void()> wake);

 private:
  void appendLost(std::string& out);

  EventRing& ring_;
  Mox::U64 done_ = 0;
  bool isOtherRun_ = false;
};

}  // namespace Agent
