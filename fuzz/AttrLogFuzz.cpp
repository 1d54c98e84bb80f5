// Any bytes are safe to receive on a connection of the attribute log, in chunks of any size. A peer
// that has the right to read changes nothing; one with the right to configure changes nothing but
// the configuration; a connection that has ended stays ended and has a reason; and a copy that has
// received these bytes equals the original after it has received a whole state.
//
// The first byte selects the receiver and the size of the chunks; the other bytes are received.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ActivityClock.h>
#include <NboAttrLog/Session.h>

#include "EntityValues.h"
#include "Property.h"

namespace {

using Fuzz::property;
using Fuzz::valuesOf;
using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::Ptr;
using Mox::NboAttrLog::Access;
using Mox::NboAttrLog::Directory;
using Mox::NboAttrLog::Rights;
using Mox::NboAttrLog::Session;

using Bytes = std::span<const std::uint8_t>;

class Host final : public Mox::NboAttrLog::SessionHost {
 public:
  void onOutput() override {}
  Ptr<Mox::EntityBase> rootIs(std::string_view path, std::string_view, const Mox::Value&) override {
    if (path == "config/eth0") return config;
    if (path == "status/eth0") return status;
    return {};
  }
  const Ptr<QuerierConfig> config = Gmp::Igmp::querierConfigFactory("eth0");
  const Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
};

struct Original {
  Original() {
    status->groupIs(IpAddr(0xef010101))->sourceIs(IpAddr(0x0a000001))->expiryTimeIs(260.0);
    status->groupIs(IpAddr(0xef010102));
    directory.entryIs("config/eth0", config, Access::configurable);
    directory.entryIs("status/eth0", status, Access::readOnly);
  }
  const Ptr<QuerierConfig> config = Gmp::Igmp::querierConfigFactory("eth0");
  const Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
  Directory directory;
};

void takeAll(Session& session) {
  session.drain();
  session.stream().taken(session.stream().pending().size());
}

// Everything in chunks, for as long as the connection lasts.
void receive(Session& session, Bytes bytes, std::size_t chunk) {
  while (!bytes.empty()) {
    const Bytes next = bytes.first(std::min(chunk, bytes.size()));
    bytes = bytes.subspan(next.size());
    const bool goesOn = session.input(next);
    property(goesOn == session.fault().empty(), "a connection ends for a reason");
    takeAll(session);
    if (goesOn) continue;
    property(!session.input(bytes), "a connection that has ended stays ended");
    return;
  }
}

void serve(Rights rights, Bytes bytes, std::size_t chunk) {
  Original original;
  const std::string status = valuesOf(*original.status);
  const std::string config = valuesOf(*original.config);
  Host host;
  Session session(host, {.name = "agent", .peerName = "anyone", .rights = rights},
                  &original.directory);
  receive(session, bytes, chunk);
  property(valuesOf(*original.status) == status, "no peer writes the status");
  property(rights == Rights::configure || valuesOf(*original.config) == config,
           "a peer without the right to configure writes nothing");
}

void copy(Bytes bytes, std::size_t chunk) {
  Host host;
  {
    Session session(host, {.name = "reader", .peerName = "anyone"});
    receive(session, bytes, chunk);
  }
  Original original;
  Host serving;
  Session from(serving, {.name = "agent", .peerName = "reader"}, &original.directory);
  Session to(host, {.name = "reader", .peerName = "agent"});
  from.input(to.stream().pending());
  do {
    from.drain();
    const Bytes waiting = from.stream().pending();
    property(to.input(waiting), "a correct peer is accepted after a wrong one");
    from.stream().taken(waiting.size());
  } while (!from.allSent());
  property(valuesOf(*host.status) == valuesOf(*original.status), "a copy equals the original");
  property(valuesOf(*host.config) == valuesOf(*original.config), "a copy equals the original");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  Mox::virtualTimeIs(1000.0);
  const Bytes bytes = Bytes(data, size).subspan(1);
  const std::size_t chunk = std::size_t{1} << (data[0] >> 4);
  switch (data[0] % 3) {
    case 0: serve(Rights::read, bytes, chunk); break;
    case 1: serve(Rights::configure, bytes, chunk); break;
    default: copy(bytes, chunk); break;
  }
  return 0;
}
