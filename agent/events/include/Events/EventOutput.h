// Events as lines into a file that may take them slowly or not at all.
//
// The lines wait in a queue of a bounded size and are written once a batch, without ever waiting
// for the file. An event that finds no room is lost; how many were lost is an event of its own as
// soon as the file takes lines again.
//
//   EventOutput output(STDOUT_FILENO, EventOutput::json);
//   output.event(event);
//   if (!output.flush()) tryAgainLater();
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <Events/Event.h>
#include <Local/OutputFile.h>
#include <MoxBase/Types.h>

namespace Agent {

class EventOutput final : public EventSink {
 public:
  enum Form { text, json };
  static constexpr std::size_t queueBytes = 1024 * 1024;

  EventOutput(int fd, Form form, std::size_t mostBytes = queueBytes);
  // Writes what is left and can be written at once.
  ~EventOutput() override;

  void event(const Event& event) override;
  bool flush() override;
  bool isEmpty() const override { return waiting() == 0; }
  // Lines that are no event. They may exceed the queue's size, unless it is full already.
  void lines(std::string_view more);
  // Writes what is left, and waits for the file until that time at most.
  void finish(Mox::Seconds end);
  // All that were lost so far.
  Mox::U64 lost() const { return lost_; }

 private:
  std::size_t waiting() const { return queue_.size() - written_; }
  bool add(const Event& event);
  void write();
  void reportLost();
  const std::string& timeText(Mox::Seconds time);

  OutputFile file_;
  const Form form_;
  const std::size_t mostBytes_;
  std::string queue_;
  std::size_t written_ = 0;  // of the queue
  std::string line_;         // its memory is used again
  Mox::Seconds time_ = 0.0;  // that timeText_ is of
  std::string timeText_;
  Mox::U64 lost_ = 0;
  Mox::U64 lostReported_ = 0;
};

}  // namespace Agent
