#include <Local/LocalListener.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sys/un.h>

#include <Mox/ActivityClock.h>

namespace Agent {

using boost::asio::local::stream_protocol;

namespace {

constexpr Mox::Seconds retryInterval = 1.0;

}  // namespace

LocalListener::LocalListener(boost::asio::io_context& io, Setup setup,
                             const Mox::Ptr<const Obel::TimerWheel>& wheel,
                             std::function<void(Socket)> letIn)
    : io_(io),
      setup_(std::move(setup)),
      letIn_(std::move(letIn)),
      acceptor_(io),
      later_(wheel, *this) {
  listen();
  accept();
}

LocalListener::~LocalListener() {
  std::error_code ignored;
  std::filesystem::remove(setup_.path, ignored);
}

void LocalListener::fail(const std::string& why) const {
  throw std::runtime_error(fmt::format("cannot serve {} at {}: {}", setup_.what, setup_.path, why));
}

void LocalListener::listen() {
  const std::string& path = setup_.path;
  if (path.size() >= sizeof(sockaddr_un::sun_path)) fail("the path is too long for a socket");
  try {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (!folder.empty()) std::filesystem::create_directories(folder);
    removeStale();
    acceptor_.open();
    acceptor_.bind(stream_protocol::endpoint(path));
    std::filesystem::permissions(path, std::filesystem::perms(0660));
    acceptor_.listen();
  } catch (const std::system_error& error) {
    fail(error.code().message());
  }
}

// A socket file that nobody listens at is what an agent that was killed left behind.
void LocalListener::removeStale() {
  boost::system::error_code failed;
  stream_protocol::socket(io_).connect(stream_protocol::endpoint(setup_.path), failed);
  if (!failed) fail("another agent serves there; choose another path with --socket");
  if (failed == boost::system::errc::connection_refused) std::filesystem::remove(setup_.path);
}

// Whatever is in the way, asking again at once would find it there again.
void LocalListener::accept() {
  acceptor_.async_accept([this](const boost::system::error_code& failed, Socket socket) {
    if (failed == boost::asio::error::operation_aborted) return;  // the listener has gone
    if (failed) {
      later_.timeMinIs(Mox::now() + retryInterval);
      return;
    }
    letIn_(std::move(socket));
    accept();
  });
}

}  // namespace Agent
