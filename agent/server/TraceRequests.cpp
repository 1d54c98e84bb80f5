// What clients ask of the traces: the ring, the handles and their levels.
#include <algorithm>
#include <limits>
#include <string>
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

// Those that a request names: one, or all.
std::vector<TraceHandle*> handlesOf(const Request& request) {
  const auto name = request.optionalText("handle");
  return name ? std::vector{&handleNamed(*name)} : knownHandles();
}

// The ring from its oldest record on, up to what was there when it was asked for, or without end.
// The records stay in the ring until the client has room for them.
class TraceAnswer final : public Answer {
 public:
  // Of all handles where there is none.
  TraceAnswer(const TraceHandle* only, bool follow)
      : only_(only), end_(follow ? noEnd : Mox::brevlog().recorded()) {}

  Progress append(std::string& out) override {
    while (out.size() < pieceBytes) {
      tellLost(out);
      if (reader_.position() >= end_) {
        out += jsonLine(Json{{"end", true}}) + '\n';
        return Progress::done;
      }
      if (!reader_.next([&](const Ring::Line& line) { tell(out, line); })) return Progress::waiting;
    }
    return Progress::more;
  }

 private:
  void tellLost(std::string& out) {
    const Mox::U64 lost = std::min(reader_.takeLost(), end_ - told_);
    if (lost != 0) out += jsonLine(Json{{"lost", lost}}) + '\n';
    told_ = reader_.position();
  }

  // A line's facility is the name of its handle, which has one place for as long as the process
  // lives.
  void tell(std::string& out, const Ring::Line& line) {
    ++told_;
    if (only_ != nullptr && line.facility != only_->name()) return;
    Json json;
    json["time"] = secondsJson(line.time);
    json["level"] = line.level;
    json["handle"] = line.facility;
    json["text"] = line.parts();
    out += jsonLine(json) + '\n';
  }

  const TraceHandle* const only_;
  Ring::Reader reader_{Mox::brevlog()};
  const Mox::U64 end_;
  Mox::U64 told_ = reader_.position();  // or told to be lost
};

}  // namespace

std::unique_ptr<Answer> answerTrace(const RequestServices&, const Request& request) {
  request.allow({"handle", "follow"});
  const auto name = request.optionalText("handle");
  return std::make_unique<TraceAnswer>(name ? &handleNamed(*name) : nullptr,
                                       request.flag("follow"));
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
