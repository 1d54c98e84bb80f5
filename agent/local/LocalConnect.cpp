#include <Local/LocalConnect.h>

#include <fmt/format.h>
#include <sys/un.h>

namespace Agent {

using boost::asio::local::stream_protocol;

namespace {

std::string whyNotConnected(const std::string& path, const boost::system::error_code& failed) {
  using boost::system::errc::connection_refused;
  using boost::system::errc::no_such_file_or_directory;
  using boost::system::errc::not_a_directory;
  using boost::system::errc::permission_denied;
  if (failed == no_such_file_or_directory || failed == connection_refused ||
      failed == not_a_directory) {
    return fmt::format(
        "no agent is running: nobody serves {}; start one with `sudo igmpq run`, or name another "
        "one's with --socket",
        path);
  }
  if (failed == permission_denied) {
    return fmt::format(
        "not permitted to connect to the agent at {}: be root, or of the user or the group that it "
        "runs as",
        path);
  }
  return fmt::format("cannot connect to the agent at {}: {}", path, failed.message());
}

}  // namespace

std::string connectToAgent(stream_protocol::socket& socket, const std::string& path) {
  if (path.size() >= sizeof(sockaddr_un::sun_path)) {
    return fmt::format("{} is too long for the path of a socket", path);
  }
  boost::system::error_code failed;
  socket.connect(stream_protocol::endpoint(path), failed);
  return failed ? whyNotConnected(path, failed) : std::string();
}

}  // namespace Agent
