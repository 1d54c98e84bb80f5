#include <Link/LinkMonitor.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Agent {

namespace {

// As large as the kernel makes a datagram of a dump.
struct alignas(nlmsghdr) Buffer {
  std::array<std::byte, 32768> bytes;
};

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

NetlinkSocket openSocket(unsigned groups) {
  NetlinkSocket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), &mnl_socket_close);
  if (!socket) fail("cannot open a netlink socket");
  if (mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
    fail("cannot bind a netlink socket");
  }
  return socket;
}

enum class DumpEnd { complete, interrupted };

int applyMessage(const nlmsghdr* message, void* table) {
  static_cast<LinkTable*>(table)->apply(*message);
  return MNL_CB_OK;
}

// `family` is the first field of both requests; the rest is zero.
template <class Request>
DumpEnd dump(mnl_socket* socket, LinkTable& table, Mox::U16 type, Request request, unsigned seq) {
  Buffer buffer;
  nlmsghdr* const header = mnl_nlmsg_put_header(buffer.bytes.data());
  header->nlmsg_type = type;
  header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  header->nlmsg_seq = seq;
  *static_cast<Request*>(mnl_nlmsg_put_extra_header(header, sizeof(Request))) = request;
  if (mnl_socket_sendto(socket, header, header->nlmsg_len) < 0) {
    fail("cannot ask the kernel for interfaces");
  }
  for (;;) {
    const ssize_t got = mnl_socket_recvfrom(socket, buffer.bytes.data(), buffer.bytes.size());
    if (got < 0 && errno == EINTR) continue;
    int more = MNL_CB_ERROR;
    if (got >= 0) {
      more = mnl_cb_run(buffer.bytes.data(), static_cast<size_t>(got), seq,
                        mnl_socket_get_portid(socket), applyMessage, &table);
    }
    if (more == MNL_CB_STOP) return DumpEnd::complete;
    if (more < 0 && errno == EINTR) return DumpEnd::interrupted;
    if (more < 0) fail("cannot read the kernel's interfaces");
  }
}

DumpEnd dumpAll(LinkTable& table) {
  const NetlinkSocket socket = openSocket(0);
  ifinfomsg links{};
  links.ifi_family = AF_UNSPEC;
  ifaddrmsg addresses{};
  addresses.ifa_family = AF_INET;
  const DumpEnd linksEnd = dump(socket.get(), table, RTM_GETLINK, links, 1);
  const DumpEnd addressesEnd = linksEnd == DumpEnd::complete
                                   ? dump(socket.get(), table, RTM_GETADDR, addresses, 2)
                                   : linksEnd;
  return addressesEnd;
}

std::map<std::string, const Link*> byName(const LinkTable& table) {
  std::map<std::string, const Link*> named;
  for (const auto& [index, link] : table.links()) named.emplace(link.name, &link);
  return named;
}

}  // namespace

// A change during a dump may make it incomplete, so it is requested again, but not for ever: on a
// machine whose interfaces change all the time the last dump is the best there is, and messages
// about the changes follow.
LinkTable currentLinks() {
  constexpr int attempts = 10;
  LinkTable table;
  for (int i = 0; i < attempts; ++i) {
    table = LinkTable();
    if (dumpAll(table) == DumpEnd::complete) break;
  }
  return table;
}

// The socket is bound before the dump is requested: a change in between is reported twice and not
// lost.
LinkMonitor::LinkMonitor(boost::asio::io_context& io, Handler handler)
    : socket_(openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR)),
      handler_(std::move(handler)),
      table_(currentLinks()),
      watch_(io, mnl_socket_get_fd(socket_.get()), [this] { handleReadable(); }) {}

void LinkMonitor::handleReadable() {
  LinkTable next = table_;
  if (!readAll(next)) next = currentLinks();
  tableIs(std::move(next));
}

bool LinkMonitor::readAll(LinkTable& table) {
  Buffer buffer;
  bool complete = true;
  for (;;) {
    const ssize_t got = recv(mnl_socket_get_fd(socket_.get()), buffer.bytes.data(),
                             buffer.bytes.size(), MSG_DONTWAIT);
    if (got > 0) {
      table.apply(std::span(buffer.bytes).first(static_cast<size_t>(got)));
    } else if (got < 0 && errno == ENOBUFS) {
      complete = false;
    } else if (got == 0 || errno != EINTR) {
      return complete;
    }
  }
}

void LinkMonitor::tableIs(LinkTable table) {
  const LinkTable old = std::exchange(table_, std::move(table));
  const std::map<std::string, const Link*> before = byName(old);
  const std::map<std::string, const Link*> after = byName(table_);
  for (const auto& [name, link] : before) {
    if (!after.contains(name)) handler_(name, nullptr);
  }
  for (const auto& [name, link] : after) {
    const auto was = before.find(name);
    if (was == before.end() || *was->second != *link) handler_(name, link);
  }
}

}  // namespace Agent
