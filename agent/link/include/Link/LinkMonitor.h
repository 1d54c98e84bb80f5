// Watches the machine's network interfaces: it requests all of them from the kernel once, and the
// kernel reports changes from then on. When messages were lost because changes came faster than
// they were read, it requests all interfaces again.
//
// The handler is called for each interface that changed, after all waiting messages were read: an
// interface that went down and up between two reads has not changed.
//
//   LinkMonitor monitor(io, [](const std::string& name, const Link* link) { ... });
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <Link/LinkTable.h>
#include <Local/IoContext.h>
#include <Local/ReadableWatch.h>

struct mnl_socket;

namespace Agent {

using NetlinkSocket = std::unique_ptr<mnl_socket, int (*)(mnl_socket*)>;

// All interfaces as they are now. Throws std::system_error when the kernel does not give them.
LinkTable currentLinks();

class LinkMonitor {
 public:
  // The link is null when there is no interface of that name any more. It is valid during the call.
  using Handler = std::function<void(const std::string& name, const Link* link)>;

  // Throws std::system_error when the kernel cannot be asked.
  LinkMonitor(boost::asio::io_context& io, Handler handler);
  LinkMonitor(const LinkMonitor&) = delete;
  LinkMonitor& operator=(const LinkMonitor&) = delete;

  const LinkTable& links() const { return table_; }

 private:
  void handleReadable();
  // False when messages were lost.
  bool readAll(LinkTable& table);
  void tableIs(LinkTable table);

  NetlinkSocket socket_;
  Handler handler_;
  LinkTable table_;
  ReadableWatch watch_;  // of the socket, so it must be destroyed before the socket
};

}  // namespace Agent
