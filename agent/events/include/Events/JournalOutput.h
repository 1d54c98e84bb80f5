// Events as entries of the system's journal, with a priority and with fields for the interface, the
// group and the host, by which `journalctl IGMP_GROUP=239.1.1.1` selects.
//
// An entry is a datagram of lines NAME=VALUE.
//
//   JournalOutput journal;
//   journal.event(event);
//   if (!journal.flush()) tryAgainLater();
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

#include <Events/QueuedEvents.h>
#include <Local/DatagramSender.h>

namespace Agent {

// Whether the journal reads what this process writes into that file, as a service manager says.
bool isJournal(int fd);

class JournalOutput final : public QueuedEvents {
 public:
  static constexpr const char* usualSocket = "/run/systemd/journal/socket";

  explicit JournalOutput(const std::string& socket = usualSocket,
                         std::size_t mostBytes = queueBytes);
  // Sends what is left and can be sent at once.
  ~JournalOutput() override;

 private:
  std::size_t waiting() const override { return waiting_; }
  bool add(const Event& event) override;
  void write() override;
  bool waitWritable(std::chrono::milliseconds patience) override {
    return journal_.waitWritable(patience);
  }

  DatagramSender journal_;
  std::deque<std::string> queue_;
  std::size_t waiting_ = 0;
};

}  // namespace Agent
