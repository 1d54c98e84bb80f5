// Serves the entities of two interfaces over a Unix socket, and prints their state as JSON, in the
// format of decode.py: so that the state that was read can be compared with the one that was
// served.
//
//   ServeState SOCKET
//
// Prints the state when it accepts connections, and again after each line on standard input:
// "change" changes some of it, "remove" removes an interface. It exits at the end of input.
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>
#include <list>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <NboAttrLog/Session.h>
#include <NboAttrLog/SocketInSm.h>
#include <NboAttrLog/SocketOutSm.h>

namespace {

using Gmp::Igmp::IpAddr;
using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using Mox::NboAttrLog::Moved;
using Mox::NboAttrLog::OutStream;
using Mox::NboAttrLog::Session;

bool isAddress(const std::string& name) {
  return name == "electedQuerierAddr" || name == "lastReporter";
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string jsonOf(const std::string& name, const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  if (const auto* number = std::get_if<Mox::U64>(&value)) {
    if (!isAddress(name)) return std::to_string(*number);
    return quoted(IpAddr(static_cast<Mox::U32>(*number)).stringValue());
  }
  if (const auto* seconds = std::get_if<double>(&value)) {
    if (!std::isfinite(*seconds)) return quoted("infinity");
    std::array<char, 32> digits{};
    std::snprintf(digits.data(), digits.size(), "%.17g", *seconds);
    return digits.data();
  }
  return quoted(std::get<std::string>(value));
}

std::string jsonOf(const Mox::EntityBase& entity) {
  std::string json;
  const auto add = [&](const std::string& name, const std::string& value) {
    json += (json.empty() ? "" : ", ") + quoted(name) + ": " + value;
  };
  for (const Mox::AttrInfo& attr : entity.type().attrs) {
    const bool sent = attr.kind == Mox::AttrKind::stored || attr.kind == Mox::AttrKind::counter ||
                      (attr.kind == Mox::AttrKind::key && entity.parent() == nullptr);
    if (sent) add(attr.name, jsonOf(attr.name, attr.get(entity)));
  }
  for (const Mox::CollectionInfo& collection : entity.type().collections) {
    std::string members;
    for (const Mox::U32 key : collection.keys(entity)) {
      members += (members.empty() ? "" : ", ") + quoted(IpAddr(key).stringValue()) + ": " +
                 jsonOf(*collection.find(entity, key));
    }
    add(collection.name, "{" + members + "}");
  }
  return "{" + json + "}";
}

// The configuration and the status of an interface.
struct Interface {
  Interface(Directory& directory, const std::string& name)
      : config(Gmp::Igmp::querierConfigFactory(name)), status(Gmp::Igmp::querierStatusFactory()) {
    directory.entryIs("config/" + name, config, Access::configurable);
    directory.entryIs("status/" + name, status, Access::readOnly);
  }
  Mox::Ptr<QuerierConfig> config;
  Mox::Ptr<QuerierStatus> status;
};

void fill(const Interface& interface) {
  interface.config->querierVersionIs(Gmp::Igmp::igmpVersion3);
  interface.config->queryIntervalIs(62.5);
  QuerierStatus& status = *interface.status;
  status.stateIs(QuerierStatus::querierStateNonQuerier);
  status.electedQuerierAddrIs(IpAddr(0x0a000001));
  status.joinsIs(std::numeric_limits<Mox::U64>::max());
  status.otherQuerierExpiryTimeIs(1234.0625);
  status.generalQueryExpiryTimeIs(std::numeric_limits<double>::infinity());
  for (Mox::U32 g = 1; g <= 300; ++g) {
    const auto group = status.groupIs(IpAddr(0xef000000 + 77 * g));
    group->expiryTimeIs(1000.0 + 0.1 * g);
    group->lastReporterIs(IpAddr(0x0a000000 + g));
    for (Mox::U32 s = 0; s < g % 7; ++s) {
      group->sourceIs(IpAddr(0xc0000200 + s))->expiredIs(s % 2 == 0);
    }
  }
}

void change(const Interface& interface) {
  interface.config->sendQueryIs(false);
  interface.status->v2QueriesSentInc(3);
  interface.status->groupDel(IpAddr(0xef000000 + 77));
  interface.status->groupIs(IpAddr(0xef020304))->sourceIs(IpAddr(0xc0000201));
}

class Client final : public Mox::NboAttrLog::SessionHost {
 public:
  // A stream as small as it can be: every walk is interrupted.
  Client(int fd, Directory& directory)
      : fd_(fd),
        session_(
            *this,
            {.name = "ServeState", .peerName = "client", .bufferBytes = OutStream::leastCapacity},
            &directory) {}
  ~Client() { ::close(fd_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void onOutput() override {}
  // Reads and writes as much as the socket allows; false when the connection is over.
  bool handle(short events) {
    if ((events & (POLLIN | POLLHUP)) != 0 && in_.handleReadable() == Moved::ended) return false;
    for (session_.drain(); !session_.stream().pending().empty(); session_.drain()) {
      const Moved moved = out_.handleWritable();
      if (moved != Moved::all) return moved == Moved::blocked;
    }
    return true;
  }
  pollfd polled() const {
    const bool waits = !session_.allSent() || !session_.stream().pending().empty();
    return {fd_, static_cast<short>(waits ? POLLIN | POLLOUT : POLLIN), 0};
  }

 private:
  const int fd_;
  mutable Session session_;
  Mox::NboAttrLog::StreamSocketOutSm out_{fd_, session_.stream()};
  Mox::NboAttrLog::SocketInSm in_{fd_, session_};
};

class Server {
 public:
  explicit Server(const char* path) : listening_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (::bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listening_, 4) != 0) {
      std::perror(path);
      std::exit(2);
    }
    fill(first_);
  }

  void run() {
    print();
    while (turn()) {
    }
  }

 private:
  void print() {
    std::string json = "{\"eth0\": {\"config\": " + jsonOf(*first_.config) +
                       ", \"status\": " + jsonOf(*first_.status) + "}";
    if (second_) {
      json += ", \"eth1\": {\"config\": " + jsonOf(*second_->config) +
              ", \"status\": " + jsonOf(*second_->status) + "}";
    }
    std::cout << json << "}" << std::endl;
  }

  bool handleCommand() {
    std::string line;
    if (!std::getline(std::cin, line)) return false;
    if (line == "change") change(first_);
    if (line == "remove") {
      directory_.entryDel("config/eth1");
      directory_.entryDel("status/eth1");
      second_.reset();
    }
    print();
    return true;
  }

  bool turn() {
    std::vector<pollfd> polled{{STDIN_FILENO, POLLIN, 0}, {listening_, POLLIN, 0}};
    for (const Client& client : clients_) polled.push_back(client.polled());
    if (::poll(polled.data(), polled.size(), -1) < 0) return false;
    size_t at = 2;
    clients_.remove_if([&](Client& client) { return !client.handle(polled[at++].revents); });
    if (polled[1].revents != 0) {
      clients_.emplace_back(::accept(listening_, nullptr, nullptr), directory_);
    }
    return polled[0].revents == 0 || handleCommand();
  }

  const int listening_;
  Directory directory_;
  Interface first_{directory_, "eth0"};
  std::optional<Interface> second_{std::in_place, directory_, "eth1"};
  std::list<Client> clients_;
};

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: ServeState SOCKET\n";
    return 2;
  }
  Server(arguments[1]).run();
  return 0;
}
