#include <Web/WebState.h>

#include <chrono>

#include <Client/CopyView.h>
#include <fmt/format.h>

namespace Agent {

namespace {

constexpr size_t mostEvents = 10'000;
constexpr size_t mostEventBytes = size_t{4} << 20;

// Different in each process of a machine.
std::string newRun() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return fmt::format("{:x}",
                     std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
}

}  // namespace

WebState::WebState(EventLoop& loop, const std::string& path)
    : events_(mostEvents, mostEventBytes, newRun()),
      watcher_(loop, {.path = path, .waits = true}, events_) {}

std::vector<InterfaceView> WebState::views() const {
  std::vector<InterfaceView> all;
  for (const auto& [name, copy] : interfaces()) {
    if (copy.status) all.push_back(viewOf(name, copy));
  }
  return all;
}

std::optional<InterfaceView> WebState::view(const std::string& name) const {
  const auto found = interfaces().find(name);
  if (found == interfaces().end() || !found->second.status) return std::nullopt;
  return viewOf(name, found->second);
}

}  // namespace Agent
