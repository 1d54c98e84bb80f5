#include "RunOutput.h"

#include <unistd.h>

namespace Igmpq {

using Agent::EventOutput;

RunOutput::RunOutput(bool isJson)
    : output_(STDOUT_FILENO, isJson ? EventOutput::json : EventOutput::text),
      isRead_(isJson || !Agent::isJournal(STDOUT_FILENO)) {
  if (!isJson && Agent::isJournal(STDERR_FILENO)) journal_.emplace();
}

void RunOutput::event(const Agent::Event& event) {
  if (journal_) journal_->event(event);
  if (!journal_ || isRead_) output_.event(event);
}

bool RunOutput::isEmpty() const { return output_.isEmpty() && (!journal_ || journal_->isEmpty()); }

void RunOutput::finish(Mox::Seconds end) {
  output_.finish(end);
  if (journal_) journal_->finish(end);
}

bool RunOutput::flush() {
  const bool isJournalFlushed = !journal_ || journal_->flush();
  return output_.flush() && isJournalFlushed;
}

}  // namespace Igmpq
