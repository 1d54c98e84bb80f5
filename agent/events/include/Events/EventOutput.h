// Events as lines into a file that may take them slowly or not at all.
//
//   EventOutput output(STDOUT_FILENO, EventOutput::json);
//   output.event(event);
//   if (!output.flush()) tryAgainLater();
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <Events/QueuedEvents.h>
#include <Local/OutputFile.h>

namespace Agent {

class EventOutput final : public QueuedEvents {
 public:
  enum Form { text, json };

  EventOutput(int fd, Form form, std::size_t mostBytes = queueBytes);
  // Writes what is left and can be written at once.
  ~EventOutput() override;

  // Lines that are no event. They may exceed the queue's size, unless it is full already.
  void lines(std::string_view more);

 private:
  std::size_t waiting() const override { return queue_.size() - written_; }
  bool add(const Event& event) override;
  void write() override;
  bool waitWritable(std::chrono::milliseconds patience) override {
    return file_.waitWritable(patience);
  }
  const std::string& timeText(Mox::Seconds time);

  OutputFile file_;
  const Form form_;
  std::string queue_;
  std::size_t written_ = 0;  // of the queue
  std::string line_;         // its memory is used again
  Mox::Seconds time_ = 0.0;  // that timeText_ is of
  std::string timeText_;
};

}  // namespace Agent
