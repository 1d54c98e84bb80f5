// One interface through the kernel's packet socket: receives every IGMP packet on it, for any
// group, and sends frames. The multicast-routing socket of the kernel is left to routing daemons,
// as a network namespace has only one.
//
// Needs CAP_NET_RAW. Frames are read in bounded batches, so that timers are handled even during a
// flood of packets.
//
//   PacketPort port(io, *link, receiver);
//   port.send(frame);
#pragma once

#include <memory>
#include <string>

#include <Link/FramePort.h>
#include <Link/LinkTable.h>
#include <Local/IoContext.h>
#include <Local/ReadableWatch.h>

struct pcap;

namespace Agent {

class PacketPort final : public FramePort {
 public:
  // Throws std::runtime_error when the interface cannot be opened.
  PacketPort(boost::asio::io_context& io, const Link& link, FrameReceiver& receiver);

  std::string send(std::span<const Mox::U8> frame) override;
  Mox::U64 dropped() override;

 private:
  struct PcapClose {
    void operator()(pcap* handle) const;
  };
  // A socket that makes the interface receive all groups while it is open; it reads nothing itself.
  class AllMulticast {
   public:
    explicit AllMulticast(const Link& link);
    ~AllMulticast();
    AllMulticast(const AllMulticast&) = delete;
    AllMulticast& operator=(const AllMulticast&) = delete;

   private:
    int socket_;
  };
  using Handle = std::unique_ptr<pcap, PcapClose>;

  static Handle opened(const Link& link);
  void readBatch();

  FrameReceiver& receiver_;
  AllMulticast allMulticast_;
  Handle handle_;
  ReadableWatch watch_;  // of the handle, so it must be destroyed before the handle
};

}  // namespace Agent
