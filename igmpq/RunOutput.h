// Where events of `igmpq run` go, and its state.
//
// They are lines of standard output. Where the journal reads standard error, events are entries of
// the journal, with fields and priorities, and no lines for it besides. With JSON they are lines in
// any case, as that was asked for.
#pragma once

#include <optional>
#include <string_view>

#include <Events/EventOutput.h>
#include <Events/JournalOutput.h>

namespace Igmpq {

class RunOutput final : public Agent::EventSink {
 public:
  explicit RunOutput(bool isJson);

  void event(const Agent::Event& event) override;
  bool flush() override;
  bool isEmpty() const override;
  // Hands out what is left, and waits for the outputs until that time at most.
  void finish(Mox::Seconds end);
  // Lines of the state.
  void lines(std::string_view more) { output_.lines(more); }
  // False where only the journal reads the lines: the state of each end would fill it.
  bool isRead() const { return isRead_; }

 private:
  Agent::EventOutput output_;
  std::optional<Agent::JournalOutput> journal_;
  const bool isRead_;
};

}  // namespace Igmpq
