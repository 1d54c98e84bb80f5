#include <Local/ReadableWatch.h>

#include <utility>

namespace Agent {

ReadableWatch::ReadableWatch(boost::asio::io_context& io, int fd, std::function<void()> readable)
    : descriptor_(io, fd),
      readable_(std::make_shared<const std::function<void()>>(std::move(readable))) {
  wait();
}

ReadableWatch::~ReadableWatch() { descriptor_.release(); }

void ReadableWatch::wait() {
  const std::weak_ptr<const std::function<void()>> watched = readable_;
  descriptor_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                         [this, watched](const boost::system::error_code& failed) {
                           {
                             const auto readable = watched.lock();
                             if (failed || !readable) return;
                             (*readable)();
                           }
                           if (!watched.expired()) wait();
                         });
}

}  // namespace Agent
