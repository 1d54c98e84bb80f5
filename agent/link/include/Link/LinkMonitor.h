// Watches the machine's network interfaces: the kernel is asked once for all of them and reports
// changes from then on. When changes came faster than they were read, all are asked for again, once
// a second until the kernel's answer is whole.
//
// Changes are notified by name, for the state that holds when everything that had arrived was read:
// an interface that went down and came up in between has not changed.
//
//   LinkMonitor monitor(io, wheel, [](const std::string& name, const Link* link) { ... });
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <Link/LinkTable.h>
#include <Local/IoContext.h>
#include <Local/ReadableWatch.h>
#include <MoxBase/Ptr.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>

struct mnl_socket;

namespace Agent {

using NetlinkSocket = std::unique_ptr<mnl_socket, int (*)(mnl_socket*)>;

// What the kernel answers when it is asked for all interfaces; nothing when changes interrupted the
// answer, which may then lack some. Throws std::system_error when the kernel does not answer.
using LinkDump = std::function<std::optional<LinkTable>()>;
std::optional<LinkTable> dumpedLinks();

// All interfaces as they are now. Throws std::system_error when the kernel does not report them, or
// when each of several answers was interrupted.
LinkTable currentLinks(const LinkDump& dump = dumpedLinks);

class LinkMonitor {
 public:
  // The link is null when there is no interface of that name any more. It is valid during the call.
  using Handler = std::function<void(const std::string& name, const Link* link)>;

  // Throws std::system_error when the kernel does not report its interfaces.
  LinkMonitor(boost::asio::io_context& io, const Mox::Ptr<const Obel::TimerWheel>& wheel,
              Handler handler, LinkDump dump = dumpedLinks);
  LinkMonitor(const LinkMonitor&) = delete;
  LinkMonitor& operator=(const LinkMonitor&) = delete;

  // Notifies of all changes that the kernel has reported by now.
  void readNow() { handleReadable(); }

  const LinkTable& links() const { return table_; }
  // False until the kernel has given a whole answer: an interface that is missing may exist.
  bool isWhole() const { return isWhole_; }

 private:
  void handleReadable();
  // False when messages were lost.
  bool readAll(LinkTable::Former& former);
  void resynchronise();
  void notify(const LinkTable::Former& former);

  NetlinkSocket socket_;
  Handler handler_;
  const LinkDump dump_;
  LinkTable table_;
  bool isWhole_ = false;
  bool notifying_ = false;
  int attempts_ = 0;  // that were interrupted, one after the other
  Obel::TimerReactor<LinkMonitor, &LinkMonitor::resynchronise> resyncTimer_;
  ReadableWatch watch_;  // of the socket, so it goes before it
};

}  // namespace Agent
