#include "RequestSession.h"

#include <utility>

#include <fmt/format.h>

#include "RequestHandlers.h"

namespace Agent {

std::string RequestSession::errorLine(const std::string& why, bool badUse) {
  Json json;
  json["error"] = why;
  if (badUse) json["badUse"] = true;
  return jsonLine(json) + '\n';
}

namespace {

struct TooManyKeys {};

// Discarded when the line is no JSON.
Json parsed(const std::string& line) {
  size_t keys = 0;
  const auto countKeys = [&](int, Json::parse_event_t event, Json&) {
    if (event == Json::parse_event_t::key && ++keys > RequestSession::mostKeys) throw TooManyKeys();
    return true;
  };
  return Json::parse(line, countKeys, false);
}

}  // namespace

size_t RequestSession::room() const {
  if (failed_) return 0;
  return longestLine + 1 - in_.size();
}

void RequestSession::in(std::string_view bytes) {
  if (failed_) return;
  in_ += bytes;
  if (in_.size() > longestLine && in_.find('\n') == std::string::npos) {
    fail(fmt::format("a line of more than {} bytes is no request", longestLine));
  }
}

std::string_view RequestSession::out() {
  if (out_.empty()) advance();
  return out_;
}

bool RequestSession::ended() const {
  if (!out_.empty()) return false;
  return failed_ || (inEnded_ && answer_ == nullptr && in_.find('\n') == std::string::npos);
}

// One part of one answer, so that no client keeps the host from its own work.
void RequestSession::advance() {
  while (out_.empty() && !failed_) {
    if (answer_ == nullptr) {
      const auto line = takeLine();
      if (!line) return;
      answer(*line);
      if (answer_ == nullptr) return;
    }
    const Answer::Progress progress = answer_->append(out_);
    isWorking_ = progress == Answer::Progress::more;
    if (isWorking_) return;
    // A client that sends nothing more may have gone: no answer waits for later traces.
    const bool waits = progress == Answer::Progress::waiting;
    if (progress == Answer::Progress::done || (waits && inEnded_)) answer_.reset();
    if (waits && !inEnded_) return;
  }
}

std::optional<std::string> RequestSession::takeLine() {
  const size_t end = in_.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string line = in_.substr(0, end);
  in_.erase(0, end + 1);
  return line;
}

void RequestSession::answer(const std::string& line) {
  try {
    Json json = parsed(line);
    if (!json.is_object()) {
      fail("a request is one JSON object a line, such as {\"op\":\"traceHandles\"}");
      return;
    }
    answer_ = answerTo(services_, Request(std::move(json), rights_));
  } catch (const TooManyKeys&) {
    fail(fmt::format("a request has at most {} keys", mostKeys));
  } catch (const RequestError& error) {
    out_ += errorLine(error.what(), error.kind() == RequestError::badUse);
  }
}

void RequestSession::fail(const std::string& why) {
  failed_ = true;
  isWorking_ = false;
  in_.clear();
  answer_.reset();
  out_ += errorLine(why, true);
}

}  // namespace Agent
