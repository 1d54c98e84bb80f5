#include <Events/Event.h>

#include <utility>

#include <Text/Printable.h>

#include "EventLine.h"

namespace Agent {

namespace {

// Flushed line by line: a reader at the other end of a pipe acts on each.
void writeLine(std::FILE* out, const std::string& line) {
  std::fputs((line + '\n').c_str(), out);
  std::fflush(out);
}

class TextSink final : public EventSink {
 public:
  TextSink(std::FILE* out, TimeText timeText) : out_(out), timeText_(std::move(timeText)) {}

  void event(const Event& event) override {
    writeLine(out_, eventTextLine(event, timeText_(event.time)));
  }

 private:
  std::FILE* out_;
  TimeText timeText_;
};

class JsonSink final : public EventSink {
 public:
  explicit JsonSink(std::FILE* out) : out_(out) {}

  void event(const Event& event) override { writeLine(out_, eventJson(event)); }

 private:
  std::FILE* out_;
};

}  // namespace

std::string eventTextLine(const Event& event, std::string_view time, std::string memory) {
  std::string line = std::move(memory);
  line = time;
  line += "  ";
  if (!event.interface.empty()) {
    line += event.interface;
    line += "  ";
  }
  appendEventText(line, event);
  if (isPrintable(line)) return line;
  return printable(line);
}

EventSink::~EventSink() = default;

std::unique_ptr<EventSink> textEventSink(std::FILE* out, TimeText timeText) {
  return std::make_unique<TextSink>(out, std::move(timeText));
}

std::unique_ptr<EventSink> jsonEventSink(std::FILE* out) { return std::make_unique<JsonSink>(out); }

}  // namespace Agent
