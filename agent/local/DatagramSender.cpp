#include <Local/DatagramSender.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>

#include "UnixAddress.h"
#include "Writable.h"

namespace Agent {

DatagramSender::DatagramSender(std::string address) : address_(std::move(address)) {}

DatagramSender::Outcome DatagramSender::send(std::string_view bytes) {
  if (!socket_.isOpen() && !connect()) return notNow;
  if (::send(socket_.fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
    return sent;
  }
  if (errno == EMSGSIZE) return tooLong;
  // Any other error means that the socket at the other end is gone: there may be a new one.
  if (errno != EAGAIN && errno != ENOBUFS && errno != EINTR) socket_.close();
  return notNow;
}

// Only a connected socket can wait for room in the queue of the other end.
bool DatagramSender::connect() {
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  if (address_.empty() || address_.size() >= sizeof(to.sun_path)) return false;
  std::memcpy(to.sun_path, address_.data(), address_.size());
  if (address_.front() == '@') to.sun_path[0] = '\0';
  const auto bytes = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
  socket_ = Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket_.isOpen()) return false;
  if (::connect(socket_.fd(), genericAddress(to), bytes) == 0) return true;
  socket_.close();
  return false;
}

bool DatagramSender::waitWritable(std::chrono::milliseconds patience) {
  return (socket_.isOpen() || connect()) && isWritableWithin(socket_.fd(), patience);
}

}  // namespace Agent
