// The agent's request socket: a Unix stream socket at which a client sends requests and receives
// answers, both as lines of one JSON object each.
//
// The kernel reports the identity of a client, which decides about its rights; one without rights
// is refused. Calls and trace levels need the right to configure. A line that is no request ends
// its connection with an error and has no other effect. The parts of an answer are made as its
// client takes them, so the memory for a client is bounded, even if it reads slowly or requests
// much.
//
//   RequestServer server(io, {.path = "/run/igmpq/request.sock"}, wheel, services);
//   while (io.run_one() != 0) server.followUp();
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <Local/IoContext.h>
#include <Local/LocalListener.h>
#include <Local/LocalPeer.h>
#include <MoxBase/Ptr.h>
#include <Obel/TimerWheel.h>
#include <Server/RequestServices.h>

namespace Agent {

class RequestServer {
 public:
  static constexpr size_t mostClients = 32;
  // When there are too many clients, one that has been idle for longer than this is disconnected.
  static constexpr Mox::Seconds longestIdle = 30.0;

  struct Setup {
    std::string path;
    RightsOf rightsOf = peerRights({});
  };

  // Throws std::runtime_error with the reason and a remedy when it cannot serve that path.
  RequestServer(boost::asio::io_context& io, Setup setup,
                const Mox::Ptr<const Obel::TimerWheel>& wheel, RequestServices services);
  ~RequestServer();
  RequestServer(const RequestServer&) = delete;
  RequestServer& operator=(const RequestServer&) = delete;

  // As those of AttrLogServer.
  std::unique_ptr<LocalListener> socketAt(const std::string& path);
  void socketIs(std::unique_ptr<LocalListener> socket) { socket_ = std::move(socket); }
  void rightsAre(const RightsOf& rightsOf) { rightsOf_ = rightsOf; }

  // Sends the traces that were recorded since the last call to the clients that follow them; to be
  // called after each round of the loop. Without such traces, it costs one comparison.
  void followUp();
  size_t clients() const { return clients_.size(); }

 private:
  class Client;

  void accept(Descriptor socket);
  // Sends an error in the place of answers.
  void refuse(const Descriptor& socket, const std::string& why) const;
  // Returns false when no client has been idle for long enough.
  bool endIdle();
  void clientDel(const Client& client);

  boost::asio::io_context& io_;
  const Mox::Ptr<const Obel::TimerWheel> wheel_;
  RightsOf rightsOf_;
  const RequestServices services_;
  std::vector<std::shared_ptr<Client>> clients_;
  Mox::U64 recordedSeen_ = 0;
  std::unique_ptr<LocalListener> socket_;
};

}  // namespace Agent
