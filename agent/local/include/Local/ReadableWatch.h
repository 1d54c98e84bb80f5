// Calls back whenever a file descriptor has something to be read.
//
// Its owner closes the descriptor, after the watch was destroyed. The callback may destroy the
// watch.
//
//   ReadableWatch watch(io, fd, [this] { handleReadable(); });
#pragma once

#include <functional>
#include <memory>

#include <Local/IoContext.h>

namespace Agent {

class ReadableWatch {
 public:
  ReadableWatch(boost::asio::io_context& io, int fd, std::function<void()> onReadable);
  ~ReadableWatch();
  ReadableWatch(const ReadableWatch&) = delete;
  ReadableWatch& operator=(const ReadableWatch&) = delete;

 private:
  class Wait;

  std::shared_ptr<Wait> wait_;
};

}  // namespace Agent
