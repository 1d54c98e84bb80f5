// One connection over a Unix stream socket: it moves bytes between the socket and the class that is
// derived from it, waits for the socket in the event loop, and ends.
//
// A shared_ptr owns it and is held during each of its calls, so that any of them may close and
// release it. They come from the loop, not from within a call of the derived class, except for
// sendOnce. Each round of the loop reads and writes one part, so that a busy peer leaves
// the loop to others. Input that there is no room for waits in the kernel.
//
//   class Echo final : public LocalConnection { ... };
//   const auto echo = std::make_shared<Echo>(io, std::move(descriptor));
//   echo->start();
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include <Local/Descriptor.h>
#include <Local/IoContext.h>
#include <MoxBase/Types.h>

namespace Agent {

class LocalConnection : public std::enable_shared_from_this<LocalConnection> {
 public:
  // Bytes of one part of the input.
  static constexpr size_t mostInput = size_t{16} * 1024;

  LocalConnection(const LocalConnection&) = delete;
  LocalConnection& operator=(const LocalConnection&) = delete;

  // Reads and writes from here on. Once, when a shared_ptr owns it.
  void start();
  // Nothing is read, written or called from here on.
  void close();

  int fd() const;
  // Output waits until the peer reads.
  bool isBlocked() const { return isBlocked_; }
  // Bytes in the kernel that the peer has not read.
  int bytesQueued() const;
  // Bytes that the kernel has taken since the connection exists.
  Mox::U64 bytesSent() const { return bytesSent_; }

 protected:
  LocalConnection(boost::asio::io_context& io, Descriptor socket);
  virtual ~LocalConnection();

  bool isOpen() const { return isOpen_; }
  // There may be output: it is asked for in a later round of the loop, once for all calls until
  // then.
  void outputDue();
  // There may be room for input again.
  void inputDue();
  // One attempt to send what waits, at once: for the reason of an end that follows.
  void sendOnce();

 private:
  // Bytes of input that can be handled now; while there are none, nothing is read.
  virtual size_t inputRoom() const { return mostInput; }
  virtual void handleInput(std::string_view bytes) = 0;
  // The peer sends nothing more.
  virtual void handleInputEnd() = 0;
  // Bytes to be sent, made when asked for and kept until they are taken; none when nothing waits.
  virtual std::string_view output() = 0;
  virtual void outputTaken(size_t bytes) = 0;
  // The peer reads nothing more. Bytes that it sent before can still be read.
  virtual void handleOutputEnd() = 0;
  // Output is blocked, also when it was before and the peer read a part; or it flows again.
  virtual void handleBlocked(bool) {}

  class Socket;

  void read();
  void write();
  void blockedIs(bool isBlocked);

  const std::unique_ptr<Socket> socket_;
  bool isOpen_ = true;
  bool inputEnded_ = false;
  bool outputEnded_ = false;
  bool isReadDue_ = false;   // waits for the socket
  bool isWriteDue_ = false;  // posted, or waits for the socket
  bool isBlocked_ = false;
  Mox::U64 bytesSent_ = 0;
};

}  // namespace Agent
