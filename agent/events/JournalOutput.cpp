#include <Events/JournalOutput.h>

#include <cstdlib>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

#include "EventLine.h"

namespace Agent {

// The variable is inherited by programs whose output goes elsewhere, so the file decides.
bool isJournal(int fd) {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  return stream != nullptr && fstat(fd, &status) == 0 &&
         fmt::format("{}:{}", status.st_dev, status.st_ino) == std::string_view(stream);
}

JournalOutput::JournalOutput(const std::string& socket, std::size_t mostBytes)
    : QueuedEvents(mostBytes), journal_(socket) {}

JournalOutput::~JournalOutput() { JournalOutput::flush(); }

bool JournalOutput::add(const Event& event) {
  std::string entry = eventJournalEntry(event);
  if (waiting_ + entry.size() > mostBytes()) return false;
  waiting_ += entry.size();
  queue_.push_back(std::move(entry));
  return true;
}

void JournalOutput::write() {
  while (!queue_.empty()) {
    const DatagramSender::Outcome outcome = journal_.send(queue_.front());
    if (outcome == DatagramSender::notNow) return;
    if (outcome == DatagramSender::tooLong) lose();
    waiting_ -= queue_.front().size();
    queue_.pop_front();
  }
}

}  // namespace Agent
