// A verb's way to ask the running agent for something: a request, then the lines of its answer.
//
//   RequestClient client(socket);
//   client.ask({{"op", "trace"}});
//   while (const auto line = client.next()) ...
#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/signal_set.hpp>
#include <nlohmann/json.hpp>

namespace Igmpq {

class RequestClient {
 public:
  using Json = nlohmann::ordered_json;

  // To the agent whose attribute log is at that path, as --socket of a verb gives it. Throws
  // std::runtime_error with what to do when it cannot be.
  explicit RequestClient(const std::string& attrLogSocket);

  void ask(const Json& request);
  // From here on answers may take any time, and SIGINT and SIGTERM end them.
  void follow();
  // The next line of the answer; none once a signal has ended it. BadUse or std::runtime_error with
  // the agent's words where those are an error; std::runtime_error when the agent goes or hangs.
  std::optional<Json> next();
  // Throws std::runtime_error: an answer lacks what it should say.
  [[noreturn]] void notUnderstood(const std::string& why) const;
  // The next line is here already.
  bool ready() const { return in_.find('\n') != std::string::npos; }

 private:
  void read();
  Json taken();

  const std::string path_;
  boost::asio::io_context io_{1};
  boost::asio::local::stream_protocol::socket socket_{io_};
  boost::asio::signal_set signals_{io_};
  std::array<char, 65536> bytes_;
  std::string in_;
  bool following_ = false;
  bool signalled_ = false;
};

}  // namespace Igmpq
