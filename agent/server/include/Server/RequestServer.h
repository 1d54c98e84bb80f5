// The agent's request socket: a Unix stream socket at which a client says a line and is answered
// with lines, each of them one JSON object.
//
// Who may connect may read. Calls and trace levels need the rights of root or of the agent's own
// user or group. What is no request ends its connection with an error and touches nothing else. An
// answer is made piece by piece as its client takes it, so a client costs the same bounded memory
// however slowly it reads and whatever it asks for.
//
//   RequestServer server(io, "/run/igmpq/request.sock", wheel, services);
//   while (io.run_one() != 0) server.followUp();
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Local/LocalListener.h>
#include <MoxBase/Ptr.h>
#include <Obel/TimerWheel.h>
#include <Server/RequestServices.h>
#include <boost/asio/io_context.hpp>

namespace Agent {

class RequestServer {
 public:
  static constexpr size_t mostClients = 32;
  // Who has idled that long goes when the place is needed.
  static constexpr Mox::Seconds longestIdle = 30.0;

  // Throws std::runtime_error with what to do when it cannot listen there.
  RequestServer(boost::asio::io_context& io, const std::string& path,
                const Mox::Ptr<const Obel::TimerWheel>& wheel, RequestServices services);
  ~RequestServer();
  RequestServer(const RequestServer&) = delete;
  RequestServer& operator=(const RequestServer&) = delete;

  // Tells those who follow the traces what was recorded since; after each thing that the loop did.
  // Costs a comparison when nothing was.
  void followUp();
  size_t clients() const { return clients_.size(); }

 private:
  class Client;

  void letIn(LocalListener::Socket socket);
  // False when nobody has idled for too long.
  bool endIdle();
  void clientDel(const Client& client);

  const RequestServices services_;
  std::vector<std::shared_ptr<Client>> clients_;
  Mox::U64 recordedSeen_ = 0;
  LocalListener listener_;
};

}  // namespace Agent
