// Any bytes of an HTTP client are answered with a known status, or end the connection.
//
// The first byte of the input is how many bytes are sent at a time.
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <Web/WebServer.h>

#include <AgentTestSupport/ServedAgent.h>

#include "Property.h"

namespace {

using Fuzz::property;

// An agent with some groups, and the copy of its state: clients change neither.
class Served {
 public:
  Served() {
    for (unsigned i = 0; i < 700; ++i) {
      agent_.status()->groupIs(Ilvo::IpAddr((239u << 24) + i))->sourceIs(Ilvo::IpAddr(10, 0, 0, 1));
    }
    agent_.start();
    state_.start();
    while (!state_.agent().isCurrent()) agent_.loop().poll();
  }

  Agent::EventLoop& loop() { return agent_.loop(); }
  const Agent::WebRoutes& routes() const { return routes_; }

 private:
  Agent::ServedAgent agent_;
  Agent::WebState state_{agent_.loop(), agent_.path()};
  const Agent::WebRoutes routes_{state_};
};

class World {
 public:
  explicit World(Served& served) : served_(served) {
    std::array<int, 2> pair{};
    property(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()) == 0,
             "there is a pair of sockets");
    client_ = Agent::Descriptor(pair[0]);
    server_.accepted(Agent::Descriptor(pair[1]));
  }

  void send(std::string_view bytes) {
    ::send(client_.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    receive();
  }
  // A stream of events goes on until the client has gone, which the next event shows.
  void end() {
    shutdown(client_.fd(), SHUT_WR);
    receive();
    client_.close();
    served_.loop().poll();
    property(server_.sessions() <= 1, "no client has two sessions");
  }
  void check() const {
    if (answers_.empty()) return;
    property(answers_.starts_with("HTTP/1."), "an answer has a head");
    const std::string_view status = std::string_view(answers_).substr(8, 5);
    property(std::ranges::find(statuses, status) != statuses.end(), "a status is a known one");
  }

 private:
  static constexpr std::array<std::string_view, 7> statuses{" 200 ", " 400 ", " 404 ", " 405 ",
                                                            " 413 ", " 421 ", " 431 "};

  void receive() {
    served_.loop().poll();
    std::array<char, 65536> bytes;
    ssize_t count = 0;
    while ((count = recv(client_.fd(), bytes.data(), bytes.size(), 0)) > 0) {
      answers_.append(bytes.data(), static_cast<size_t>(count));
      served_.loop().poll();
    }
  }

  Served& served_;
  Agent::WebServer server_{
      served_.loop(), served_.routes(), {.address = Agent::WebAddress::of("unix:/web")}};
  Agent::Descriptor client_;
  std::string answers_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static Served served;
  std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const size_t part = 1 + size_t{data[0]} * 8;
  World world(served);
  while (!bytes.empty()) {
    world.send(bytes.substr(0, part));
    bytes.remove_prefix(std::min(part, bytes.size()));
  }
  world.end();
  world.check();
  return 0;
}
