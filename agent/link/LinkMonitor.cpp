#include <Link/LinkMonitor.h>

#include <array>
#include <cerrno>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <Mox/ActivityClock.h>

namespace Agent {

namespace {

constexpr Mox::Seconds resyncInterval = 1.0;
constexpr int mostAttempts = 10;  // until that passes

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

// The next datagram of the kernel, or a negative number with errno set. Other processes can send to
// the socket as well; their datagrams are dropped.
ssize_t receive(mnl_socket* socket, Buffer& buffer, int flags) {
  for (;;) {
    sockaddr_nl sender{};
    socklen_t size = sizeof(sender);
    const ssize_t got =
        recvfrom(mnl_socket_get_fd(socket), buffer.bytes.data(), buffer.bytes.size(), flags,
                 reinterpret_cast<sockaddr*>(&sender), &size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 || sender.nl_pid == 0) return got;
  }
}

enum class DumpEnd { complete, interrupted };

int applyMessage(const nlmsghdr* message, void* table) {
  LinkTable::Former former;
  static_cast<LinkTable*>(table)->apply(*message, former);
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
    const ssize_t got = receive(socket, buffer, 0);
    if (got < 0) fail("cannot read the kernel's interfaces");
    const int more = mnl_cb_run(buffer.bytes.data(), static_cast<size_t>(got), seq,
                                mnl_socket_get_portid(socket), applyMessage, &table);
    if (more == MNL_CB_STOP) return DumpEnd::complete;
    if (more < 0 && errno == EINTR) return DumpEnd::interrupted;
    if (more < 0) fail("cannot read the kernel's interfaces");
  }
}

// A change during a dump may make it miss something, so it is repeated, but not for ever: there may
// be a machine that never rests.
std::optional<LinkTable> wholeLinks(const LinkDump& dump) {
  for (int i = 0; i < mostAttempts; ++i) {
    if (std::optional<LinkTable> table = dump()) return table;
  }
  return {};
}

// All links of the first table, and those that only the second has.
LinkTable::Former formerOf(const LinkTable& before, const LinkTable& after) {
  LinkTable::Former former;
  for (const auto& [index, link] : before.links()) former.emplace(index, link);
  for (const auto& [index, link] : after.links()) former.try_emplace(index, std::nullopt);
  return former;
}

}  // namespace

std::optional<LinkTable> dumpedLinks() {
  const NetlinkSocket socket = openSocket(0);
  LinkTable table;
  ifinfomsg links{};
  links.ifi_family = AF_UNSPEC;
  if (dump(socket.get(), table, RTM_GETLINK, links, 1) == DumpEnd::interrupted) return {};
  ifaddrmsg addresses{};
  addresses.ifa_family = AF_INET;
  if (dump(socket.get(), table, RTM_GETADDR, addresses, 2) == DumpEnd::interrupted) return {};
  return table;
}

LinkTable currentLinks(const LinkDump& dump) {
  if (std::optional<LinkTable> table = wholeLinks(dump)) return *std::move(table);
  throw std::system_error(EAGAIN, std::generic_category(),
                          "the interfaces change too fast to be listed");
}

// It watches before it asks: a change in between is reported twice, and none is lost.
LinkMonitor::LinkMonitor(boost::asio::io_context& io, const Mox::Ptr<const Obel::TimerWheel>& wheel,
                         Handler handler, LinkDump dump)
    : socket_(openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR)),
      handler_(std::move(handler)),
      dump_(std::move(dump)),
      resyncTimer_(wheel, *this),
      watch_(io, mnl_socket_get_fd(socket_.get()), [this] { handleReadable(); }) {
  if (std::optional<LinkTable> table = wholeLinks(dump_)) {
    table_ = *std::move(table);
    isWhole_ = true;
  } else {
    resyncTimer_.timeMinIs(Mox::now() + resyncInterval);
  }
}

void LinkMonitor::handleReadable() {
  LinkTable::Former former;
  const bool complete = readAll(former);
  notify(former);
  if (!complete) resynchronise();
}

bool LinkMonitor::readAll(LinkTable::Former& former) {
  Buffer buffer;
  bool complete = true;
  for (;;) {
    const ssize_t got = receive(socket_.get(), buffer, MSG_DONTWAIT);
    if (got > 0) {
      table_.apply(std::span(buffer.bytes).first(static_cast<size_t>(got)), former);
    } else if (got < 0 && errno == ENOBUFS) {
      complete = false;
    } else {
      return complete;
    }
  }
}

// An answer that may lack a link is not used: its querier would be ended. The attempts that follow
// one that was interrupted are each a timer of their own, since each keeps the host from its work.
void LinkMonitor::resynchronise() {
  resyncTimer_.timeMinIs(Mox::now() + resyncInterval);
  if (notifying_) return;  // of links of the table that is there
  try {
    if (std::optional<LinkTable> table = dump_()) {
      resyncTimer_.timeMinIs(Mox::never);
      attempts_ = 0;
      const LinkTable::Former former = formerOf(table_, *table);
      table_ = *std::move(table);
      isWhole_ = true;
      notify(former);
    } else if (++attempts_ < mostAttempts) {
      resyncTimer_.timeMinIs(Mox::now());
    } else {
      attempts_ = 0;
    }
  } catch (const std::system_error&) {
    // No descriptor or no memory now: the table stays as it is until the next attempt.
  }
}

void LinkMonitor::notify(const LinkTable::Former& former) {
  std::map<std::string, const Link*> before;
  std::map<std::string, const Link*> after;
  for (const auto& [index, old] : former) {
    if (old && !old->name.empty()) before.emplace(old->name, &*old);
    const auto link = table_.links().find(index);
    if (link != table_.links().end() && !link->second.name.empty()) {
      after.emplace(link->second.name, &link->second);
    }
  }
  notifying_ = true;
  for (const auto& [name, link] : before) {
    if (!after.contains(name)) handler_(name, nullptr);
  }
  for (const auto& [name, link] : after) {
    const auto was = before.find(name);
    if (was == before.end() || *was->second != *link) handler_(name, link);
  }
  notifying_ = false;
}

}  // namespace Agent
