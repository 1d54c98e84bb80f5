#include <Link/QuerySocket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>

#include "IgmpFilter.h"

namespace Agent {

using Mox::U8;

namespace {

template <class Option>
bool setOption(int socket, int level, int name, const Option& option) {
  return setsockopt(socket, level, name, &option, sizeof(option)) == 0;
}

// It would receive every IGMP packet of the machine: the filter drops them before they are queued.
//
// The kernel reports that a device drops a packet only where errors are asked for. That includes
// ICMP errors, by which any machine of a link could make queries fail: a socket that is bound to
// the loopback device gets none of them. Each packet names the device that it leaves through.
Descriptor opened() {
  constexpr int on = 1;
  constexpr char loopback[] = "lo";
  constexpr int least = 1;  // the kernel makes it as small as it can be
  Descriptor socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_IGMP));
  const bool ready = socket.isOpen() && refuseAllFilterIs(socket.fd()) &&
                     setOption(socket.fd(), SOL_SOCKET, SO_RCVBUF, least) &&
                     setOption(socket.fd(), SOL_SOCKET, SO_BINDTODEVICE, loopback) &&
                     setOption(socket.fd(), IPPROTO_IP, IP_RECVERR, on) &&
                     setOption(socket.fd(), IPPROTO_IP, IP_HDRINCL, on) &&
                     setOption(socket.fd(), IPPROTO_IP, IP_MULTICAST_LOOP, on);
  return ready ? std::move(socket) : Descriptor();
}

sockaddr_in destinationOf(std::span<const U8> packet) {
  constexpr std::size_t destinationAt = 16;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  std::memcpy(&address.sin_addr, packet.data() + destinationAt, sizeof(address.sin_addr));
  return address;
}

// One socket serves all interfaces.
bool sent(int socket, Mox::U32 interfaceIndex, std::span<const U8> packet) {
  sockaddr_in destination = destinationOf(packet);
  iovec bytes{.iov_base = const_cast<U8*>(packet.data()), .iov_len = packet.size()};
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(in_pktinfo))> control{};
  msghdr message{};
  message.msg_name = &destination;
  message.msg_namelen = sizeof(destination);
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = IPPROTO_IP;
  header->cmsg_type = IP_PKTINFO;
  header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  const in_pktinfo interface {
    .ipi_ifindex = static_cast<int>(interfaceIndex), .ipi_spec_dst = {}, .ipi_addr = {}
  };
  std::memcpy(CMSG_DATA(header), &interface, sizeof(interface));
  return sendmsg(socket, &message, 0) >= 0;
}

}  // namespace

// A device that takes nothing keeps the packets for it, and they count against the buffer of the
// socket that sent them. A new socket has a buffer of its own, so that other interfaces can go on.
std::error_code QuerySocket::send(Mox::U32 interfaceIndex, std::span<const U8> packet) {
  if (socket_.isOpen() && sent(socket_.fd(), interfaceIndex, packet)) return {};
  if (socket_.isOpen() && errno != EAGAIN) return {errno, std::generic_category()};
  socket_ = opened();
  if (socket_.isOpen() && sent(socket_.fd(), interfaceIndex, packet)) return {};
  return {errno, std::generic_category()};
}

}  // namespace Agent
