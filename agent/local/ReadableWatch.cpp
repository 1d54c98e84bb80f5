#include <Local/ReadableWatch.h>

#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace Agent {

// A handler that is due outlives the watch: it asks whether the watch is still there, and keeps the
// function that it calls.
class ReadableWatch::Wait final : public std::enable_shared_from_this<Wait> {
 public:
  Wait(boost::asio::io_context& io, int fd, std::function<void()> onReadable)
      : descriptor_(io, fd), onReadable_(std::move(onReadable)) {}

  void start() {
    descriptor_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                           [wait = weak_from_this()](const boost::system::error_code& failed) {
                             const auto self = wait.lock();
                             if (failed || !self || self->ended_) return;
                             self->onReadable_();
                             if (!self->ended_) self->start();
                           });
  }
  void end() {
    ended_ = true;
    descriptor_.release();
  }

 private:
  boost::asio::posix::stream_descriptor descriptor_;
  const std::function<void()> onReadable_;
  bool ended_ = false;
};

ReadableWatch::ReadableWatch(boost::asio::io_context& io, int fd, std::function<void()> onReadable)
    : wait_(std::make_shared<Wait>(io, fd, std::move(onReadable))) {
  wait_->start();
}

ReadableWatch::~ReadableWatch() { wait_->end(); }

}  // namespace Agent
