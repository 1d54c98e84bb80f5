#include "IgmpFilter.h"

#include <array>

#include <linux/filter.h>
#include <linux/if_ether.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace Agent {

namespace {

constexpr unsigned typeAt = 12;
constexpr unsigned tagBytes = 4;
constexpr unsigned fromTypeToProtocol = 2 + 9;  // of the IPv4 header

constexpr sock_filter load(unsigned short size, unsigned at) {
  return BPF_STMT(static_cast<unsigned short>(BPF_LD | BPF_ABS | size), at);
}
// A jump counts the instructions that it leaves out.
constexpr sock_filter ifEqual(unsigned value, unsigned char then, unsigned char otherwise) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, then, otherwise);
}
constexpr sock_filter keep(unsigned bytes) { return BPF_STMT(BPF_RET | BPF_K, bytes); }

// The same steps behind no tag, one tag and two: IPv4 is asked for its protocol, a tag leads to the
// next type. A frame that ends before a load is refused.
constexpr std::array igmpFrames{
    load(BPF_H, typeAt),
    ifEqual(ETH_P_IP, 0, 2),
    load(BPF_B, typeAt + fromTypeToProtocol),
    ifEqual(IPPROTO_IGMP, 15, 14),
    ifEqual(ETH_P_8021Q, 2, 0),
    ifEqual(ETH_P_8021AD, 1, 0),
    ifEqual(ETH_P_QINQ1, 0, 11),

    load(BPF_H, typeAt + tagBytes),
    ifEqual(ETH_P_IP, 0, 2),
    load(BPF_B, typeAt + tagBytes + fromTypeToProtocol),
    ifEqual(IPPROTO_IGMP, 8, 7),
    ifEqual(ETH_P_8021Q, 2, 0),
    ifEqual(ETH_P_8021AD, 1, 0),
    ifEqual(ETH_P_QINQ1, 0, 4),

    load(BPF_H, typeAt + 2 * tagBytes),
    ifEqual(ETH_P_IP, 0, 2),
    load(BPF_B, typeAt + 2 * tagBytes + fromTypeToProtocol),
    ifEqual(IPPROTO_IGMP, 1, 0),

    keep(0),
    keep(0xffffffff),
};

constexpr std::array nothing{keep(0)};

template <std::size_t n>
bool filterIs(int socket, const std::array<sock_filter, n>& program) {
  // The kernel copies the program; only its type is not const.
  const sock_fprog filter{.len = n, .filter = const_cast<sock_filter*>(program.data())};
  return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) == 0;
}

}  // namespace

bool igmpFilterIs(int socket) { return filterIs(socket, igmpFrames); }

bool refuseAllFilterIs(int socket) { return filterIs(socket, nothing); }

}  // namespace Agent
