#include "WebSession.h"

#include <utility>

#include <Web/WebServer.h>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/chunk_encode.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

namespace Agent {

namespace http = boost::beast::http;
namespace asio = boost::asio;

namespace {

constexpr size_t sentBytes = size_t{64} * 1024;

std::string_view view(boost::beast::string_view text) { return {text.data(), text.size()}; }

// The answer to what is no request; none where the client has gone.
std::optional<WebAnswer> answerTo(const boost::beast::error_code& error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) {
    return webError(431, "the head of the request is too long");
  }
  if (error == http::error::body_limit || error == http::error::unexpected_body) {
    return webError(413, "a request has no body here");
  }
  if (error == http::error::end_of_stream || error == http::error::partial_message) return {};
  if (error.category() == make_error_code(http::error::bad_method).category()) {
    return webError(400, "this is no HTTP request: " + error.message());
  }
  return {};
}

}  // namespace

WebSession::WebSession(WebServer& server, Socket socket)
    : server_(server),
      stream_(std::move(socket)),
      idle_(stream_.get_executor()),
      buffer_(WebServer::mostHeaderBytes) {}

auto WebSession::whenSent() {
  return [self = shared_from_this()](Error error, size_t) {
    if (self->isOpen_) self->handleSent(error);
  };
}

void WebSession::close() {
  isOpen_ = false;
  body_.reset();
  // Closing cannot fail here, and a destructor calls it.
  Error ignored;
  idle_.cancel(ignored);
  stream_.socket().close(ignored);
}

void WebSession::end() {
  close();
  server_.ended(this);
}

void WebSession::read() {
  isReading_ = true;
  readsSince_ = Clock::now();
  parser_.emplace();
  parser_->header_limit(WebServer::mostHeaderBytes);
  parser_->body_limit(0);
  stream_.expires_after(server_.setup_.patience);
  http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](Error error, size_t) {
    if (self->isOpen_) self->handleRead(error);
  });
}

void WebSession::handleRead(Error error) {
  isReading_ = false;
  if (!error) {
    handleRequest();
    return;
  }
  std::optional<WebAnswer> answer = answerTo(error);
  if (!answer) {
    end();
    return;
  }
  isLast_ = true;
  isHead_ = false;
  send(std::move(*answer));
}

void WebSession::handleRequest() {
  const Request& request = parser_->get();
  version_ = request.version();
  isChunked_ = version_ >= 11;
  isHead_ = request.method() == http::verb::head;
  isLast_ = !request.keep_alive();
  send(answered(request));
}

WebAnswer WebSession::answered(const Request& request) {
  if (request.method() != http::verb::get && !isHead_) {
    WebAnswer answer = webError(405, "everything can be read here, and nothing changed");
    answer.headers.emplace_back("Allow", "GET, HEAD");
    return answer;
  }
  if (request.count(http::field::host) != 1) {  // RFC 9112 section 3.2
    return webError(400, "a request has one field Host");
  }
  if (!server_.hosts_.isAccepted(view(request[http::field::host]))) {
    return webError(421, "the field Host has a name that is not this server's");
  }
  return server_.answer(
      {.target = view(request.target()), .lastEventId = view(request["Last-Event-ID"])});
}

void WebSession::send(WebAnswer answer) {
  if (answer.body && !isHead_) {
    sendHead(answer);
    body_ = std::move(answer.body);
  } else {
    sendWhole(std::move(answer));
  }
}

// No page of another origin may show what is served here, and nothing is loaded from elsewhere.
template <class Message>
void WebSession::addFields(Message& message, const WebAnswer& answer) const {
  message.result(answer.status);
  message.version(version_);
  message.set(http::field::content_type, answer.type);
  message.set(http::field::cache_control, "no-store");
  message.set("Content-Security-Policy", "default-src 'self'");
  message.set("Cross-Origin-Resource-Policy", "same-origin");
  message.set("Referrer-Policy", "no-referrer");
  message.set("X-Content-Type-Options", "nosniff");
  message.set("X-Frame-Options", "DENY");
  for (const auto& [name, value] : answer.headers) message.set(name, value);
  message.keep_alive(!isLast_);
}

void WebSession::sendWhole(WebAnswer answer) {
  const auto message = std::make_shared<Whole>();
  addFields(*message, answer);
  message->body() = std::move(answer.text);
  if (answer.body == nullptr) message->content_length(message->body().size());
  if (isHead_) message->body().clear();
  message_ = message;
  stream_.expires_after(server_.setup_.patience);
  http::async_write(stream_, *message, whenSent());
}

void WebSession::sendHead(const WebAnswer& answer) {
  if (!isChunked_) isLast_ = true;
  const auto message = std::make_shared<Head>();
  addFields(*message, answer);
  if (isChunked_) message->chunked(true);
  const auto serializer = std::make_shared<http::response_serializer<http::empty_body>>(*message);
  message_ =
      std::make_shared<std::pair<decltype(message), decltype(serializer)>>(message, serializer);
  stream_.expires_after(server_.setup_.patience);
  http::async_write_header(stream_, *serializer, whenSent());
}

void WebSession::handleSent(Error error) {
  message_.reset();
  if (error || (!body_ && isLast_)) {
    end();
  } else if (body_) {
    sendPart();
  } else {
    read();
  }
}

void WebSession::sendPart() {
  std::string text;
  WebBody::Progress progress = WebBody::Progress::more;
  while (text.size() < sentBytes && progress == WebBody::Progress::more) {
    progress = body_->append(text);
  }
  if (!text.empty()) {
    sendChunk(std::move(text));
  } else if (progress == WebBody::Progress::waits) {
    waitForPart();
  } else {
    sendLastChunk();
  }
}

// The client may go meanwhile, which only sending shows.
void WebSession::waitForPart() {
  isWaiting_ = true;
  const std::weak_ptr<WebSession> weak = weak_from_this();
  body_->wakeIs([weak] {
    const auto self = weak.lock();
    if (!self) return;
    asio::post(self->stream_.get_executor(), [self] { self->handlePartDue(); });
  });
  stream_.expires_never();
  idle_.expires_after(server_.setup_.idleInterval);
  idle_.async_wait([self = shared_from_this()](Error error) {
    if (error || !self->isOpen_ || !std::exchange(self->isWaiting_, false)) return;
    self->sendChunk(self->body_->idleText());
  });
}

void WebSession::handlePartDue() {
  if (!isOpen_ || !std::exchange(isWaiting_, false)) return;
  idle_.cancel();
  sendPart();
}

void WebSession::sendChunk(std::string text) {
  part_ = std::move(text);
  stream_.expires_after(server_.setup_.patience);
  if (isChunked_) {
    asio::async_write(stream_, http::make_chunk(asio::buffer(part_)), whenSent());
  } else {
    asio::async_write(stream_, asio::buffer(part_), whenSent());
  }
}

void WebSession::sendLastChunk() {
  body_.reset();
  if (!isChunked_) {
    end();
    return;
  }
  stream_.expires_after(server_.setup_.patience);
  asio::async_write(stream_, http::make_chunk_last(), whenSent());
}

}  // namespace Agent
