// What a request is answered with: lines that are made as the client takes them.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "JsonLine.h"

namespace Agent {

class Answer {
 public:
  enum class Progress {
    more,     // ask again when what is there has been taken
    waiting,  // there is more to come, but not now
    done,
  };
  // About as much as one call appends.
  static constexpr size_t pieceBytes = 16384;

  Answer() = default;
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;
  virtual ~Answer() = default;

  // Appends whole lines: as many as begin within a piece, and none that is waited for.
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
