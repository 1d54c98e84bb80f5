// The agent's request socket: a Unix stream socket at which a client sends requests and receives
// answers, both as lines of one JSON object each.
//
// Any process that can connect can read. Calls and trace levels need the rights of root, of the
// agent's own user or of its group. A line that is no request ends its connection with an error and
// has no other effect. An answer is made part by part as its client takes it, so a client costs the
// same bounded memory however slowly it reads and however much it asks for.
//
//   RequestServer server(io, "/run/igmpq/request.sock", wheel, services);
//   while (io.run_one() != 0) server.followUp();
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Local/IoContext.h>
#include <Local/LocalListener.h>
#include <MoxBase/Ptr.h>
#include <Obel/TimerWheel.h>
#include <Server/RequestServices.h>

namespace Agent {

class RequestServer {
 public:
  static constexpr size_t mostClients = 32;
  // A client that has idled that long is disconnected when its place is needed.
  static constexpr Mox::Seconds longestIdle = 30.0;

  // Throws std::runtime_error with what to do when it cannot serve that path.
  RequestServer(boost::asio::io_context& io, const std::string& path,
                const Mox::Ptr<const Obel::TimerWheel>& wheel, RequestServices services);
  ~RequestServer();
  RequestServer(const RequestServer&) = delete;
  RequestServer& operator=(const RequestServer&) = delete;

  // Sends the traces that were recorded since the last call to the clients that follow them; to be
  // called after each round of the loop. Costs a comparison when there are none.
  void followUp();
  size_t clients() const { return clients_.size(); }

 private:
  class Client;

  void accept(Descriptor socket);
  // False when no client has idled for too long.
  bool endIdle();
  void clientDel(const Client& client);

  boost::asio::io_context& io_;
  const RequestServices services_;
  std::vector<std::shared_ptr<Client>> clients_;
  Mox::U64 recordedSeen_ = 0;
  LocalListener listener_;
};

}  // namespace Agent
