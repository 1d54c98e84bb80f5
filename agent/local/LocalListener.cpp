#include <Local/LocalListener.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <sys/socket.h>

#include <Mox/ActivityClock.h>
#include "SocketFile.h"

namespace Agent {

namespace {

constexpr Mox::Seconds retryInterval = 1.0;

std::unique_ptr<SocketFile> servedFile(const LocalListener::Setup& setup) {
  try {
    return std::make_unique<SocketFile>(setup.path);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(
        fmt::format("cannot serve {} at {}: {}", setup.what, setup.path, error.what()));
  }
}

bool isOfThatConnectionOnly(int error) {
  return error == EAGAIN || error == EINTR || error == ECONNABORTED;
}

}  // namespace

LocalListener::LocalListener(boost::asio::io_context& io, Setup setup,
                             const Mox::Ptr<const Obel::TimerWheel>& wheel,
                             std::function<void(Descriptor)> onAccepted)
    : io_(io),
      setup_(std::move(setup)),
      onAccepted_(std::move(onAccepted)),
      socket_(servedFile(setup_)),
      retry_(wheel, *this) {
  waitForConnections();
}

LocalListener::~LocalListener() = default;

void LocalListener::waitForConnections() {
  watch_.emplace(io_, socket_->fd(), [this] { accept(); });
}

// Another attempt at once would fail for the same reason: descriptors or memory are used up.
void LocalListener::accept() {
  Descriptor accepted(::accept4(socket_->fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (accepted.isOpen()) return onAccepted_(std::move(accepted));
  if (isOfThatConnectionOnly(errno)) return;
  watch_.reset();
  retry_.timeMinIs(Mox::now() + retryInterval);
}

}  // namespace Agent
