#include "RequestClient.h"

#include <csignal>
#include <stdexcept>

#include <fmt/format.h>

#include <Local/AttrLogSocket.h>
#include <Local/LocalConnect.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>

#include "Client.h"
#include "Verb.h"

namespace Igmpq {

using boost::system::error_code;

RequestClient::RequestClient(const std::string& attrLogSocket)
    : path_(Agent::requestSocketPath(socketPath(attrLogSocket))) {
  const std::string why = Agent::connectToAgent(socket_, path_);
  if (!why.empty()) throw std::runtime_error(why);
}

// An agent that takes no request may have said why before.
void RequestClient::ask(const Json& request) {
  error_code failed;
  boost::asio::write(
      socket_,
      boost::asio::buffer(request.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'),
      failed);
}

void RequestClient::follow() {
  following_ = true;
  for (const int number : {SIGINT, SIGTERM}) signals_.add(number);
  signals_.async_wait([this](const error_code& failed, int) { signalled_ = !failed; });
}

std::optional<RequestClient::Json> RequestClient::next() {
  while (!ready()) {
    read();
    if (signalled_) return std::nullopt;
  }
  return taken();
}

void RequestClient::read() {
  bool done = false;
  error_code ended;
  socket_.async_read_some(boost::asio::buffer(bytes_), [&](const error_code& failed, size_t got) {
    done = true;
    ended = failed;
    in_.append(bytes_.data(), got);
  });
  const auto end = std::chrono::steady_clock::now() + longestSilence;
  io_.restart();
  while (!done && !signalled_) {
    const size_t ran = following_ ? io_.run_one() : io_.run_one_until(end);
    if (ran != 0) continue;
    throw std::runtime_error(silenceText(path_));
  }
  if (done && ended) throw std::runtime_error("the agent has gone");
}

void RequestClient::notUnderstood(const std::string& why) const {
  throw std::runtime_error(fmt::format(
      "what serves {} is not understood: {}; have the agent and this command from the same version "
      "of igmpq",
      path_, why));
}

RequestClient::Json RequestClient::taken() {
  const size_t end = in_.find('\n');
  Json line = Json::parse(in_.substr(0, end), nullptr, false);
  in_.erase(0, end + 1);
  if (!line.is_object()) notUnderstood("no JSON object");
  if (const auto error = line.find("error"); error != line.end()) {
    const std::string text = error->is_string() ? error->get<std::string>() : error->dump();
    if (line.contains("badUse")) throw BadUse(text);
    throw std::runtime_error(text);
  }
  return line;
}

}  // namespace Igmpq
