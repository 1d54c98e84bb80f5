// Calls back whenever a file descriptor has something to be read.
//
// The descriptor stays its owner's to close, after the watch has gone. The callback may end the
// watch.
//
//   ReadableWatch watch(io, fd, [this] { handleReadable(); });
#pragma once

#include <functional>
#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace Agent {

class ReadableWatch {
 public:
  ReadableWatch(boost::asio::io_context& io, int fd, std::function<void()> readable);
  ~ReadableWatch();
  ReadableWatch(const ReadableWatch&) = delete;
  ReadableWatch& operator=(const ReadableWatch&) = delete;

 private:
  void wait();

  boost::asio::posix::stream_descriptor descriptor_;
  // What outlives the watch asks whether it is still there, and keeps what it is just calling.
  std::shared_ptr<const std::function<void()>> readable_;
};

}  // namespace Agent
