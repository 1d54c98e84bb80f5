// A Unix stream socket at which the agent lets processes of this machine in.
//
// Its file is for the user and the group that the agent runs as, and goes with the listener. What a
// killed agent left behind is replaced; where another one listens, nobody else does. When there is
// no free descriptor for who comes, the kernel keeps them, and they are let in when there is.
//
//   LocalListener listener(io, {.path = "/run/igmpq/attrlog.sock", .what = "the attribute log"},
//                          wheel, [&](LocalListener::Socket socket) { ... });
#pragma once

#include <functional>
#include <string>

#include <MoxBase/Ptr.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>

namespace Agent {

class LocalListener {
 public:
  using Socket = boost::asio::local::stream_protocol::socket;
  struct Setup {
    std::string path;
    std::string what;  // is served there, for errors
  };

  // Throws std::runtime_error with what to do when it cannot listen there.
  LocalListener(boost::asio::io_context& io, Setup setup,
                const Mox::Ptr<const Obel::TimerWheel>& wheel, std::function<void(Socket)> letIn);
  ~LocalListener();
  LocalListener(const LocalListener&) = delete;
  LocalListener& operator=(const LocalListener&) = delete;

 private:
  [[noreturn]] void fail(const std::string& why) const;
  void listen();
  void removeStale();
  void accept();

  boost::asio::io_context& io_;
  const Setup setup_;
  const std::function<void(Socket)> letIn_;
  boost::asio::local::stream_protocol::acceptor acceptor_;
  Obel::TimerReactor<LocalListener, &LocalListener::accept> later_;
};

}  // namespace Agent
