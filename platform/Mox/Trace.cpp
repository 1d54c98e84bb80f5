#include <Mox/Trace.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

namespace Mox {

namespace {

constexpr size_t ringBytes = size_t{1} << 20;

std::map<std::string, std::unique_ptr<TraceHandle>, std::less<>>& handles() {
  static auto* all = new std::map<std::string, std::unique_ptr<TraceHandle>, std::less<>>;
  return *all;
}

TraceSink& sink() {
  static auto* current = new TraceSink;
  return *current;
}

}  // namespace

TraceHandle& TraceHandle::named(std::string_view name, const char* modelFile) {
  auto found = handles().find(name);
  if (found == handles().end()) {
    std::unique_ptr<TraceHandle> made(new TraceHandle(Name(name), modelFile));
    found = handles().emplace(std::string(name), std::move(made)).first;
  } else if (found->second->modelFile_.empty()) {
    found->second->modelFile_ = modelFile;  // its levels were set before its code first ran
  }
  return *found->second;
}

std::vector<TraceHandle*> TraceHandle::all() {
  std::vector<TraceHandle*> list;
  for (const auto& [name, handle] : handles()) list.push_back(handle.get());
  return list;
}

void TraceHandle::ringLevelIs(int level) {
  ringLevel_ = level;
  inForce_ = std::max(ringLevel_, facilityLevel_);
}

void TraceHandle::facilityLevelIs(int level) {
  facilityLevel_ = level;
  inForce_ = std::max(ringLevel_, facilityLevel_);
}

void traceSinkIs(TraceSink newSink) { sink() = std::move(newSink); }

void traceSinkWrite(const TraceLine& line) {
  if (sink()) sink()(line);
}

Brevlog::Ring& brevlog() {
  static auto* ring = new Brevlog::Ring(ringBytes);  // outlives every static that may still trace
  return *ring;
}

}  // namespace Mox
