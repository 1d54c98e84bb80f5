// Datagrams to another program's Unix socket, sent without ever waiting for it.
//
// The other program may start later, restart or stop reading: a datagram that finds no place is
// refused, and can be sent again.
//
//   DatagramSender manager("/run/systemd/notify");
//   if (manager.send("READY=1") == DatagramSender::sent) ...
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <Local/Descriptor.h>

namespace Agent {

class DatagramSender {
 public:
  enum Outcome { sent, notNow, tooLong };

  // A path, or after "@" a name that is no file.
  explicit DatagramSender(std::string address);

  Outcome send(std::string_view bytes);
  // Waits until there is room for a datagram, at most that long. False when there is none, or
  // nobody who reads.
  bool waitWritable(std::chrono::milliseconds patience);

 private:
  bool connect();

  const std::string address_;
  Descriptor socket_;
};

}  // namespace Agent
