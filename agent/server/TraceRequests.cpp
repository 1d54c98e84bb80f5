// Requests about traces: the ring, the handles and their levels.
#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <Brevlog/Ring.h>
#include <Mox/Trace.h>

#include "RequestHandlers.h"

namespace Agent {

using Brevlog::Ring;
using Mox::TraceHandle;

namespace {

constexpr int lowestLevel = TraceHandle::off;
constexpr int highestLevel = 9;
constexpr Mox::U64 noEnd = std::numeric_limits<Mox::U64>::max();

// A handle is made when its code first traces; the monitor's is named here so that its level can be
// set before that.
std::vector<TraceHandle*> knownHandles() {
  TraceHandle::named("GmpAttrLogSm");
  return TraceHandle::all();
}

TraceHandle& handleNamed(const std::string& name) {
  std::vector<std::string> names;
  for (TraceHandle* handle : knownHandles()) {
    if (handle->name() == name) return *handle;
    names.emplace_back(handle->name());
  }
  throw RequestError(RequestError::badUse, fmt::format("there is no trace handle {}; there are: {}",
                                                       name, listed(names)));
}

// The handles that a request names: one, or all.
std::vector<TraceHandle*> handlesOf(const Request& request) {
  const auto name = request.optionalText("handle");
  return name ? std::vector{&handleNamed(*name)} : knownHandles();
}

// One of the places of clients that follow, for as long as it exists.
class FollowerPlace {
 public:
  explicit FollowerPlace(std::shared_ptr<size_t> followers) : followers_(std::move(followers)) {
    if (*followers_ >= mostFollowers) {
      throw RequestError(
          RequestError::failure,
          fmt::format("{} clients follow the traces already; end one of them", *followers_));
    }
    ++*followers_;
  }
  ~FollowerPlace() { --*followers_; }
  FollowerPlace(const FollowerPlace&) = delete;
  FollowerPlace& operator=(const FollowerPlace&) = delete;

 private:
  const std::shared_ptr<size_t> followers_;
};

// The ring from its oldest record on, up to the newest one at the time of the request, or without
// end.
// The records stay in the ring until the client has room for them.
class TraceAnswer final : public Answer {
 public:
  // Of all handles if `only` is null. With a place it follows.
  TraceAnswer(const TraceHandle* only, std::unique_ptr<FollowerPlace> place)
      : only_(only), place_(std::move(place)), end_(place_ ? noEnd : Mox::brevlog().recorded()) {}

  Progress append(std::string& out) override {
    while (out.size() < partBytes) {
      addLost(out);
      if (reader_.position() >= end_) {
        out += jsonLine(Json{{"end", true}}) + '\n';
        return Progress::done;
      }
      if (!reader_.next([&](const Ring::Line& line) { add(out, line); })) return Progress::waiting;
    }
    return Progress::more;
  }

 private:
  void addLost(std::string& out) {
    const Mox::U64 lost = std::min(reader_.takeLost(), end_ - answered_);
    if (lost != 0) out += jsonLine(Json{{"lost", lost}}) + '\n';
    answered_ = reader_.position();
  }

  // A line's facility is the name of its handle, at one address for as long as the process lives.
  void add(std::string& out, const Ring::Line& line) {
    ++answered_;
    if (only_ != nullptr && line.facility != only_->name()) return;
    Json json;
    json["time"] = secondsJson(line.time);
    json["level"] = line.level;
    json["handle"] = line.facility;
    json["text"] = line.parts();
    out += jsonLine(json) + '\n';
  }

  const TraceHandle* const only_;
  const std::unique_ptr<FollowerPlace> place_;
  Ring::Reader reader_{Mox::brevlog()};
  const Mox::U64 end_;
  Mox::U64 answered_ = reader_.position();  // or reported as lost
};

}  // namespace

std::unique_ptr<Answer> answerTrace(const RequestServices& services, const Request& request) {
  request.allow({"handle", "follow"});
  const auto name = request.optionalText("handle");
  const TraceHandle* const only = name ? &handleNamed(*name) : nullptr;
  std::unique_ptr<FollowerPlace> place;
  if (request.flag("follow")) place = std::make_unique<FollowerPlace>(services.followers);
  return std::make_unique<TraceAnswer>(only, std::move(place));
}

std::unique_ptr<Answer> answerTraceHandles(const RequestServices&, const Request& request) {
  request.allow({"handle"});
  Json handles = Json::array();
  for (const TraceHandle* handle : handlesOf(request)) {
    handles.push_back(Json{{"name", handle->name()}, {"level", handle->ringLevel()}});
  }
  return lineAnswer(Json{{"handles", handles}});
}

std::unique_ptr<Answer> answerTraceLevel(const RequestServices&, const Request& request) {
  request.allow({"handle", "level"});
  request.needConfigure("set trace levels");
  const int level = request.number("level", lowestLevel, highestLevel);
  for (TraceHandle* handle : handlesOf(request)) handle->ringLevelIs(level);
  return lineAnswer(Json::object());
}

}  // namespace Agent
