// One interface through the kernel: a ring of the frames that pass it, and queries out through the
// IP stack. The multicast-routing socket of the kernel is left to routing daemons, as a network
// namespace has only one.
//
// All ports are polled together: a batch is what the rings hold at that moment, block by block in
// turn, so that no port waits for another that receives without end.
//
//   RingPolls polls;
//   RingPort port(polls, querySocket, link, receiver, ringSizeFor(1));
//   polls.readReady();  // whenever polls.fd() is readable
#pragma once

#include <list>
#include <memory>
#include <span>
#include <system_error>

#include <Link/FramePort.h>
#include <Link/QuerySocket.h>
#include <Link/RingSize.h>
#include <Local/Descriptor.h>
#include <Mox/ActivityClock.h>
#include <MoxBase/Types.h>

namespace Agent {

class FrameRing;
class RingPort;

// The rings that are read in turn.
class RingPolls {
 public:
  // Throws std::system_error when the kernel has no such descriptor.
  RingPolls();
  RingPolls(const RingPolls&) = delete;
  RingPolls& operator=(const RingPolls&) = delete;

  // Readable while a ring is.
  int fd() const { return epoll_.fd(); }
  // Hands over what the rings hold. It ends early when that takes longer: fd() stays readable then,
  // and the next call goes on with the ring whose turn it is.
  void readReady(Mox::Seconds longest = usualBatch);
  // Whether the last reading has left nothing behind, for which it would have had time.
  bool isDrained() const { return ready_.empty(); }
  // How long the oldest frame has been waiting that the last reading has left behind; 0 for none.
  // Wrong by as much as the wall clock was set meanwhile.
  Mox::Seconds backlog() const;
  static constexpr Mox::Seconds usualBatch = 0.005;

 private:
  friend class RingPort;

  void add(RingPort& port);
  void remove(RingPort& port);
  void addReady();
  void toReady(RingPort& port);
  void toIdle(RingPort& port);

  Descriptor epoll_;
  std::list<RingPort*> idle_;
  std::list<RingPort*> ready_;  // in the order of their turns
};

class RingPort final : public FramePort {
 public:
  // Throws std::runtime_error when the interface cannot be opened.
  RingPort(RingPolls& polls, QuerySocket& sender, const Link& link, FrameReceiver& receiver,
           const RingSize& size);
  ~RingPort() override;

  std::error_code send(std::span<const Mox::U8> packet) override;
  void handOver() override;
  PortCounts counts() override;

 private:
  friend class RingPolls;

  // False when no block was ready; nothing of the port is used after that.
  bool readBlock();
  bool readRing();

  RingPolls& polls_;
  QuerySocket& sender_;
  const Mox::U32 interfaceIndex_;
  FrameReceiver& receiver_;
  const std::unique_ptr<FrameRing> ring_;
  PortCounts counts_;     // without the lost ones
  bool isReady_ = false;  // in which list of polls_ it is
  std::list<RingPort*>::iterator place_;
};

}  // namespace Agent
