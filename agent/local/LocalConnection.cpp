#include <Local/LocalConnection.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

namespace Agent {

using boost::asio::posix::stream_descriptor;
using boost::system::error_code;

namespace {

bool isForLater(int error) { return error == EAGAIN || error == EINTR; }

ssize_t sendSome(int fd, std::string_view bytes) {
  return ::send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

class LocalConnection::Socket {
 public:
  Socket(boost::asio::io_context& io, Descriptor socket)
      : io_(io), descriptor_(io, socket.released()) {}

  int fd() { return descriptor_.native_handle(); }
  void close() {
    error_code ignored;
    descriptor_.close(ignored);
  }
  // Calls it once, in the loop, if the connection is still there and open.
  void wait(stream_descriptor::wait_type event, LocalConnection& of,
            void (LocalConnection::*handler)()) {
    descriptor_.async_wait(event, [self = of.weak_from_this(), handler](const error_code& failed) {
      const auto connection = self.lock();
      if (connection && connection->isOpen_ && !failed) ((*connection).*handler)();
    });
  }
  void post(LocalConnection& of, void (LocalConnection::*handler)()) {
    boost::asio::post(io_, [self = of.weak_from_this(), handler] {
      const auto connection = self.lock();
      if (connection && connection->isOpen_) ((*connection).*handler)();
    });
  }

 private:
  boost::asio::io_context& io_;
  stream_descriptor descriptor_;
};

LocalConnection::LocalConnection(boost::asio::io_context& io, Descriptor socket)
    : socket_(std::make_unique<Socket>(io, std::move(socket))) {}

LocalConnection::~LocalConnection() = default;

void LocalConnection::start() {
  outputDue();
  inputDue();
}

void LocalConnection::close() {
  isOpen_ = false;
  socket_->close();
}

void LocalConnection::sendOnce() {
  const std::string_view waiting = output();
  if (!waiting.empty()) sendSome(fd(), waiting);
}

int LocalConnection::fd() const { return socket_->fd(); }

int LocalConnection::bytesQueued() const {
  int bytes = 0;
  return isOpen_ && ioctl(fd(), TIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

void LocalConnection::inputDue() {
  if (!isOpen_ || inputEnded_ || isReadDue_ || inputRoom() == 0) return;
  isReadDue_ = true;
  socket_->wait(stream_descriptor::wait_read, *this, &LocalConnection::read);
}

void LocalConnection::outputDue() {
  if (!isOpen_ || outputEnded_ || std::exchange(isWriteDue_, true)) return;
  socket_->post(*this, &LocalConnection::write);
}

void LocalConnection::read() {
  isReadDue_ = false;
  std::array<char, mostInput> bytes;
  const size_t wanted = std::min(bytes.size(), inputRoom());
  if (wanted == 0) return;  // inputDue says when there is room again
  const ssize_t got = ::recv(fd(), bytes.data(), wanted, MSG_DONTWAIT);
  if (got > 0) {
    handleInput({bytes.data(), static_cast<size_t>(got)});
  } else if (got == 0 || !isForLater(errno)) {
    inputEnded_ = true;
    handleInputEnd();
  }
  inputDue();
}

void LocalConnection::write() {
  isWriteDue_ = false;
  const std::string_view waiting = output();
  if (waiting.empty()) return;
  const ssize_t sent = sendSome(fd(), waiting);
  if (sent < 0 && !isForLater(errno)) {
    outputEnded_ = true;
    return handleOutputEnd();
  }
  const size_t taken = sent < 0 ? 0 : static_cast<size_t>(sent);
  const bool all = taken == waiting.size();
  bytesSent_ += taken;
  if (taken != 0) ++sends_;
  if (taken != 0) outputTaken(taken);
  if (!all) {
    isWriteDue_ = true;
    socket_->wait(stream_descriptor::wait_write, *this, &LocalConnection::write);
  }
  blockedIs(!all);
  if (all) outputDue();  // perhaps there is more
}

void LocalConnection::blockedIs(bool isBlocked) {
  const bool wasBlocked = std::exchange(isBlocked_, isBlocked);
  if (isBlocked || wasBlocked) handleBlocked(isBlocked);
}

}  // namespace Agent
