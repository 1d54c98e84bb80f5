// A peer of a Unix socket that serves a path: it accepts one connection and sends the given bytes
// there in chunks, each between two handlers of the loop. Received bytes are discarded.
//
//   ServedBytes peer(loop.io(), path, bytes, 64);
//   reader.connectTo(path);
//   loop.poll();
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <utility>

#include <MoxBase/Types.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include "Property.h"

namespace Fuzz {

class ServedBytes {
 public:
  ServedBytes(boost::asio::io_context& io, std::string path, std::span<const Mox::U8> bytes,
              std::size_t chunk)
      : io_(io), path_(std::move(path)), rest_(bytes), chunk_(chunk) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
    property(::bind(serving_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
                 ::listen(serving_, 1) == 0,
             "the peer can serve");
    descriptor_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                           [this](const boost::system::error_code& failed) {
                             if (!failed) accept();
                           });
  }
  ~ServedBytes() {
    if (connection_ >= 0) ::close(connection_);
    ::unlink(path_.c_str());
  }
  ServedBytes(const ServedBytes&) = delete;
  ServedBytes& operator=(const ServedBytes&) = delete;

 private:
  void accept() {
    connection_ = ::accept4(serving_, nullptr, nullptr, SOCK_CLOEXEC);
    property(connection_ >= 0, "the peer can accept");
    sendNext();
  }
  // After the last chunk the connection stays open.
  void sendNext() {
    while (::recv(connection_, discarded_, sizeof(discarded_), MSG_DONTWAIT) > 0) {
    }
    const auto next = rest_.first(std::min(chunk_, rest_.size()));
    const ssize_t sent = ::send(connection_, next.data(), next.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) return;  // the reader has ended the connection
    rest_ = rest_.subspan(static_cast<std::size_t>(sent));
    if (!rest_.empty()) boost::asio::post(io_, [this] { sendNext(); });
  }

  boost::asio::io_context& io_;
  const std::string path_;
  std::span<const Mox::U8> rest_;
  const std::size_t chunk_;
  const int serving_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  boost::asio::posix::stream_descriptor descriptor_{io_, serving_};  // closes it
  int connection_ = -1;
  char discarded_[4096];
};

}  // namespace Fuzz
