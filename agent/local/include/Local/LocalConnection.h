// One connection over a Unix stream socket: it moves bytes between the socket and a derived class,
// and waits for the socket in the event loop.
//
// A shared_ptr owns it and is held during each call of a virtual function, so that each of them may
// close and release the connection. Virtual functions are called from the loop, never from within a
// call by the derived class, except sendOnce. Each round of the loop reads and writes a limited
// number of bytes, so that a busy peer does not block others. Input without room stays in the
// kernel.
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
  // The most bytes that one round of the loop reads.
  static constexpr size_t mostInput = size_t{16} * 1024;

  LocalConnection(const LocalConnection&) = delete;
  LocalConnection& operator=(const LocalConnection&) = delete;

  // Starts to read and write. To be called once, after a shared_ptr owns the connection.
  void start();
  // After this call nothing is read or written and no virtual function is called.
  void close();

  int fd() const;
  // True while output cannot be sent until the peer reads.
  bool isBlocked() const { return isBlocked_; }
  // How many bytes are in the kernel and not read by the peer.
  int bytesQueued() const;
  // How many bytes the kernel has taken since the connection was made.
  Mox::U64 bytesSent() const { return bytesSent_; }
  // In so many calls.
  Mox::U64 sends() const { return sends_; }

 protected:
  LocalConnection(boost::asio::io_context& io, Descriptor socket);
  virtual ~LocalConnection();

  bool isOpen() const { return isOpen_; }
  // To be called when there may be output: a later round of the loop calls output(), once for all
  // calls until then.
  void outputDue();
  // To be called when there may be room for input again.
  void inputDue();
  // Tries once to send the output at once: for the reason that is sent before the connection ends.
  void sendOnce();

 private:
  // How many bytes of input can be handled now; while it is 0, nothing is read.
  virtual size_t inputRoom() const { return mostInput; }
  virtual void handleInput(std::string_view bytes) = 0;
  // The peer sends nothing more.
  virtual void handleInputEnd() = 0;
  // The bytes to be sent, which stay valid until outputTaken; empty when there are none.
  virtual std::string_view output() = 0;
  virtual void outputTaken(size_t bytes) = 0;
  // The peer reads nothing more. Bytes that it sent before can still be read.
  virtual void handleOutputEnd() = 0;
  // Called with true when output is blocked, again each time the peer has read a part of it, and
  // with false when output can be sent again.
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
  Mox::U64 sends_ = 0;
};

}  // namespace Agent
