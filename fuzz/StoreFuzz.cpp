// Whatever bytes an agent sends to the store, the store goes on: it serves what it has to readers,
// copies the next agent, and then has that agent's state and nothing else.
//
// The first byte holds the size of the chunks in which the other bytes are sent.
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <AgentTestSupport/TempFolder.h>
#include <Client/AttrLogCopy.h>
#include <Events/Event.h>
#include <Local/EventLoop.h>
#include <Mox/ActivityClock.h>
#include <Server/AttrLogServer.h>
#include <Store/StateStore.h>

#include "EntityValues.h"
#include "Messages.h"
#include "Property.h"
#include "ServedBytes.h"

namespace {

using Agent::AttrLogCopy;
using Agent::StateStore;
using Fuzz::property;
using Ilvo::IpAddr;
using Mox::Ptr;
using Mox::U8;
using Mox::NboAttrLog::Access;

constexpr Mox::Seconds begin = 1000.0;

class NoEvents final : public Agent::EventSink {
 public:
  void event(const Agent::Event&) override {}
};

// What an attribute log has, by path.
using State = std::map<std::string, std::string>;

class World {
 public:
  World() { store_.start(); }

  void receive(std::span<const U8> bytes, size_t chunk) {
    loop_.poll();
    const Fuzz::ServedBytes agent(loop_.io(), agentPath(), bytes, chunk);
    advance();
  }

  // What a reader of the store is sent.
  State shown() {
    bool isCurrent = false;
    AttrLogCopy reader(loop_.io(), path(), {.onCurrent = [&] { isCurrent = true; }});
    reader.connect();
    loop_.poll();
    property(isCurrent && reader.storeState(), "a reader is sent everything");
    size_t groups = 0;
    for (const auto& [name, interface] : reader.interfaces()) {
      groups += interface.status->group().size();
    }
    property(reader.storeState()->groups() == groups, "the number of groups is that of the copy");
    State state;
    reader.forEachEntry([&](const std::string& where, const auto& entity) {
      state.emplace(where, Fuzz::valuesOf(*entity));
    });
    return state;
  }

  void copyNextAgent() {
    const Ptr<Gmp::Igmp::QuerierConfig> config = Gmp::Igmp::querierConfigFactory("eth0");
    const Ptr<Gmp::Igmp::QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
    status->groupIs(IpAddr(239, 1, 1, 5))->sourceIs(IpAddr(10, 0, 0, 7))->expiryTimeIs(1260.0);
    status->groupIs(IpAddr(239, 1, 1, 6));
    const State original{{"config/eth0", Fuzz::valuesOf(*config)},
                         {"status/eth0", Fuzz::valuesOf(*status)}};
    {
      Agent::AttrLogServer agent(loop_.io(), {.path = agentPath()}, loop_.wheel(), [] {});
      agent.directory().entryIs("config/eth0", config, Access::configurable);
      agent.directory().entryIs("status/eth0", status, Access::readOnly);
      advance();
      property(store_.state().complete() && store_.state().lostTime() == 0.0,
               "the next agent is copied");
      check(original);
    }
    loop_.poll();
    property(store_.state().lostTime() != 0.0, "the end of the agent is noticed");
    check(original);
  }

 private:
  static const std::string& folder() {
    static const Agent::TempFolder folder;
    return folder.path();
  }
  static std::string path() { return folder() + "/store.sock"; }
  static std::string agentPath() { return folder() + "/agent.sock"; }

  // What the agents before have had beside it, of the interface and of the process, is kept as
  // long as it is not known to be gone.
  void check(const State& original) {
    const State copied = shown();
    for (const auto& [where, text] : original) {
      const auto found = copied.find(where);
      property(found != copied.end() && found->second == text, "the copy is that of the agent");
    }
    for (const auto& [where, text] : copied) {
      property(!where.starts_with("status/") || original.contains(where),
               "an interface that is gone is forgotten");
    }
  }

  // Until the store has tried to connect again, also after it was refused.
  void advance() {
    const Mox::Seconds end = Mox::now() + StateStore::refusedInterval;
    for (; Mox::now() <= end; Mox::virtualTimeIs(Mox::now() + StateStore::refusedInterval)) {
      loop_.poll();
    }
    loop_.poll();
  }

  Agent::EventLoop loop_;
  NoEvents events_;
  StateStore store_{loop_, {.path = path(), .agentPath = agentPath()}, events_};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Fuzz::MessageWorld messages(false);
  Mox::virtualTimeIs(begin);
  World world;
  world.receive({data + 1, size - 1}, std::size_t{1} << (data[0] >> 4));
  world.shown();
  world.copyNextAgent();
  return 0;
}
