#include <Web/EventRing.h>

#include <charconv>
#include <utility>

#include <Mox/ActivityClock.h>
#include <Text/Json.h>
#include <fmt/format.h>

namespace Agent {

namespace {

// With the words that people read.
std::string eventLine(const Event& event) {
  std::string line = eventJson(event);
  line.back() = ',';
  return line += JsonObject().text("message", eventText(event)).line().substr(1);
}

}  // namespace

void EventRing::event(const Event& event) {
  lines_.push_back(eventLine(event));
  bytes_ += lines_.back().size();
  ++end_;
  while (lines_.size() > mostEvents_ || bytes_ > mostBytes_) {
    bytes_ -= lines_.front().size();
    lines_.pop_front();
  }
  for (const auto& [reader, wake] : std::exchange(waiting_, {})) wake();
}

std::optional<Mox::U64> EventRing::numberOf(std::string_view id) const {
  if (!id.starts_with(run_ + '-')) return std::nullopt;
  id.remove_prefix(run_.size() + 1);
  Mox::U64 number = 0;
  const char* const end = id.data() + id.size();
  const auto [stop, error] = std::from_chars(id.data(), end, number);
  if (error != std::errc() || stop != end || number > end_) return std::nullopt;
  return number;
}

EventRing::Reader::Reader(EventRing& ring, std::string_view lastId)
    : ring_(ring), done_(ring.end_) {
  if (lastId.empty()) return;
  const std::optional<Mox::U64> number = ring.numberOf(lastId);
  isOtherRun_ = !number;
  done_ = number.value_or(0);
}

void EventRing::Reader::append(std::string& out, size_t bytes) {
  const Mox::U64 first = ring_.end_ - ring_.lines_.size();  // the number before the first
  if (isOtherRun_ || done_ < first) appendLost(out);
  for (; done_ < ring_.end_ && out.size() < bytes; ++done_) {
    out += fmt::format("id: {}-{}\ndata: {}\n\n", ring_.run_, done_ + 1,
                       ring_.lines_[static_cast<size_t>(done_ - first)]);
  }
}

void EventRing::Reader::appendLost(std::string& out) {
  const Mox::U64 first = ring_.end_ - ring_.lines_.size();
  JsonObject json;
  json.times(Mox::now()).text("event", eventName(Event::eventsLost));
  if (std::exchange(isOtherRun_, false)) {
    json.null("count");
  } else {
    json.number("count", first - done_);
  }
  done_ = std::max(done_, first);
  out += fmt::format("id: {}-{}\ndata: {}\n\n", ring_.run_, done_, json.line());
}

void EventRing::Reader::wakeIs(std::function<void()> wake) {
  ring_.waiting_[this] = std::move(wake);
}

}  // namespace Agent
