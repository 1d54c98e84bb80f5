// Any bytes are safe to replay as a capture file. Two replays give the same output, their time
// never runs backwards, each frame is received or skipped for a reason, and the events add up to
// the groups and sources that the querier has in the end.
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <Mox/ActivityClock.h>
#include <Replay/CaptureReplay.h>

#include "MemoryFile.h"
#include "Property.h"

namespace {

using Agent::Event;
using Fuzz::property;
using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierGroupStatus;
using Ilvo::IpAddr;
using Mox::Ptr;

using Sources = std::map<IpAddr, bool>;  // true: excluded
using Groups = std::map<IpAddr, Sources>;

// Builds its groups from the events alone.
class Follower final : public Agent::EventSink {
 public:
  void event(const Event& event) override {
    property(event.time >= time_, "the time of events never runs backwards");
    time_ = event.time;
    text_ += eventText(event) + "\n" + eventJson(event) + "\n";
    follow(event);
  }

  const std::string& text() const { return text_; }
  const Groups& groups() const { return groups_; }

 private:
  void follow(const Event& event) {
    switch (event.kind) {
      case Event::groupJoined:
        property(groups_.try_emplace(event.group).second, "only an absent group joins");
        return;
      case Event::groupLeft:
        property(groups_.erase(event.group) == 1, "only a present group leaves");
        return;
      case Event::sourceJoined: sourcesOf(event)[event.source] = false; return;
      case Event::sourceExcluded: sourcesOf(event)[event.source] = true; return;
      case Event::sourceLeft:
        property(sourcesOf(event).erase(event.source) == 1, "only a present source leaves");
        return;
      default: return;
    }
  }
  Sources& sourcesOf(const Event& event) {
    const auto found = groups_.find(event.group);
    property(found != groups_.end(), "a source belongs to a present group");
    return found->second;
  }

  std::string text_;
  Groups groups_;
  Mox::Seconds time_ = 0.0;
};

Groups groupsOf(const Agent::CaptureReplay& replay) {
  Groups groups;
  for (const Agent::InterfaceView& interface : replay.interfaces()) {
    const auto& entries = interface.status->group();
    for (auto at = entries.begin(); at != entries.end(); ++at) {
      const QuerierGroupStatus& group = **at;
      Sources& sources = groups[group.groupAddr()];
      const bool excludes = group.filterMode() == Gmp::Igmp::filterModeExclude;
      for (const auto& [addr, source] : group.source()) {
        if (excludes || !source->expired()) sources[addr] = source->expired();
      }
    }
  }
  return groups;
}

// All output of a replay. Gaps are cut short to limit the work.
std::string outputOf(Agent::CaptureFile& file) {
  const Ptr<QuerierConfig> config = Gmp::Igmp::querierConfigFactory("capture");
  config->querierVersionIs(Gmp::Igmp::igmpVersion3);
  Follower follower;
  Agent::CaptureReplay replay(
      {.address = IpAddr(10, 0, 0, 5), .seed = 1, .until = 300.0, .maxGap = 600.0}, config, nullptr,
      follower);
  replay.run(file);
  const Agent::ReplaySummary& summary = replay.summary();
  property(summary.frames == summary.igmp + summary.skippedInAll(),
           "each frame is received or skipped for a reason");
  property(follower.groups() == groupsOf(replay), "the events add up to the groups and sources");
  return follower.text() +
         stateText(Agent::StatePart::everything, replay.interfaces(), Mox::now()) +
         stateJson(Agent::StatePart::everything, replay.interfaces(), Mox::now()) +
         summaryText(summary) + summaryJson(summary, Mox::now());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fuzz::MemoryFile input({data, size});
  try {
    Agent::CaptureFile first(input.path());
    const std::string output = outputOf(first);
    Agent::CaptureFile second(input.path());
    property(outputOf(second) == output, "the second replay is like the first");
  } catch (const Agent::CaptureError& error) {
    property(*error.what() != '\0', "an error has a text");
  }
  return 0;
}
