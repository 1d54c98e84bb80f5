// One connection of a client: reads a request, sends its answer, and begins anew.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <Web/WebAnswer.h>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

namespace Agent {

class WebServer;

class WebSession : public std::enable_shared_from_this<WebSession> {
 public:
  using Clock = std::chrono::steady_clock;
  using Socket = boost::asio::generic::stream_protocol::socket;

  WebSession(WebServer& server, Socket socket);
  // Nothing is read or sent after this.
  void close();
  void start() { read(); }

  // Whether it waits for a request, or for the rest of one, and since when.
  bool isReading() const { return isReading_; }
  Clock::time_point readsSince() const { return readsSince_; }

 private:
  using Error = boost::beast::error_code;
  using Request = boost::beast::http::request<boost::beast::http::empty_body>;
  using Head = boost::beast::http::response<boost::beast::http::empty_body>;
  using Whole = boost::beast::http::response<boost::beast::http::string_body>;
  // Goes on, and holds the session until then.
  auto whenSent();

  void read();
  void handleRead(Error error);
  void handleRequest();
  WebAnswer answered(const Request& request);
  void send(WebAnswer answer);
  template <class Message>
  void addFields(Message& message, const WebAnswer& answer) const;
  void sendWhole(WebAnswer answer);
  void sendHead(const WebAnswer& answer);
  void sendPart();
  void waitForPart();
  void handlePartDue();
  void sendChunk(std::string text);
  void handleSent(Error error);
  void sendLastChunk();
  void end();

  WebServer& server_;
  boost::beast::basic_stream<boost::asio::generic::stream_protocol> stream_;
  boost::asio::steady_timer idle_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> parser_;
  std::shared_ptr<void> message_;  // that is being sent
  std::string part_;
  std::unique_ptr<WebBody> body_;
  unsigned version_ = 11;
  bool isHead_ = false;    // the request was for the head only
  bool isLast_ = false;    // no request follows on this connection
  bool isChunked_ = true;  // HTTP/1.0 ends a body with the connection
  bool isOpen_ = true;
  bool isWaiting_ = false;  // for a part of the body
  bool isReading_ = false;
  Clock::time_point readsSince_;
};

}  // namespace Agent
