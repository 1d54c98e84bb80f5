// Closes packet sockets in threads of their own.
//
// The kernel waits tens of milliseconds before it has closed one. The loop must not wait for that
// when a link goes down, and an agent with a thousand of them must end within a second: what waits
// at the same time takes hardly longer than one.
//
//   SocketCloser::ofProcess().close(std::move(socket));
#pragma once

#include <cstddef>
#include <memory>

#include <Local/Descriptor.h>

namespace Agent {

class SocketCloser {
 public:
  static constexpr std::size_t mostThreads = 128;

  SocketCloser();
  // Waits until all are closed.
  ~SocketCloser();
  SocketCloser(const SocketCloser&) = delete;
  SocketCloser& operator=(const SocketCloser&) = delete;

  // The end of the process waits for it.
  static SocketCloser& ofProcess();

  // Returns at once, unless there can be no thread.
  void close(Descriptor socket);

 private:
  struct Work;

  static void closeAll(Work& work);

  const std::shared_ptr<Work> work_;  // with the threads, which may end a little later
};

}  // namespace Agent
