// The answer to a request: lines that are made as the client takes them.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "JsonLine.h"

namespace Agent {

class Answer {
 public:
  enum class Progress {
    more,     // to be called again when these lines have been taken; at once if there are none
    waiting,  // there will be more, but not now
    done,
  };
  // About the bytes that one call appends.
  static constexpr size_t partBytes = 16384;

  Answer() = default;
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;
  virtual ~Answer() = default;

  // Appends whole lines that are there: as many as begin within a part. It returns within a
  // millisecond, without a line if need be, so that packets do not wait for it.
  virtual Progress append(std::string& out) = 0;
};

// An answer of one line.
class LineAnswer final : public Answer {
 public:
  explicit LineAnswer(const Json& json) : line_(jsonLine(json) + '\n') {}
  Progress append(std::string& out) override {
    out += line_;
    return Progress::done;
  }

 private:
  const std::string line_;
};

inline std::unique_ptr<Answer> lineAnswer(const Json& json) {
  return std::make_unique<LineAnswer>(json);
}

}  // namespace Agent
