// A Unix stream socket at which the agent accepts processes of this machine.
//
// Every process can connect; `onAccepted` decides about its rights. While there is no free
// descriptor for a connection, it waits in the kernel.
//
//   LocalListener listener(io, {.path = "/run/igmpq/attrlog.sock", .what = "the attribute log"},
//                          wheel, [&](Descriptor socket) { ... });
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <Local/Descriptor.h>
#include <Local/IoContext.h>
#include <Local/ReadableWatch.h>
#include <MoxBase/Ptr.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>

namespace Agent {

class SocketFile;

class LocalListener {
 public:
  struct Setup {
    std::string path;
    std::string what;  // the name of the service, for errors
  };

  // Throws std::runtime_error with the reason and a remedy when it cannot serve that path.
  LocalListener(boost::asio::io_context& io, Setup setup,
                const Mox::Ptr<const Obel::TimerWheel>& wheel,
                std::function<void(Descriptor)> onAccepted);
  ~LocalListener();
  LocalListener(const LocalListener&) = delete;
  LocalListener& operator=(const LocalListener&) = delete;

 private:
  void waitForConnections();
  void accept();

  boost::asio::io_context& io_;
  const Setup setup_;
  const std::function<void(Descriptor)> onAccepted_;
  const std::unique_ptr<const SocketFile> socket_;
  std::optional<ReadableWatch> watch_;  // of the socket, so it must be destroyed before the socket
  Obel::TimerReactor<LocalListener, &LocalListener::waitForConnections> retry_;
};

}  // namespace Agent
