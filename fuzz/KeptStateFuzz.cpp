// Whatever bytes a store sends to an agent that begins, the agent either refuses them with a reason
// or begins with a state that is within its rules: its settings are permitted ones, its groups have
// a member's time left or a source that somebody wants, and without reports all of them are gone
// after the group membership interval of its own settings.
//
// The first byte holds the size of the chunks, and in its lowest bit whether the bytes come after
// what the store of this machine sends about itself, or are all that is sent.
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestLink.h>
#include <Client/KeptState.h>
#include <Events/Event.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Local/EventLoop.h>
#include <Local/MachineIdentity.h>
#include <Mox/ActivityClock.h>
#include <NboAttrLog/Frame.h>
#include <NboAttrLog/Session.h>
#include <Settings/ConfigWrites.h>

#include "InterfaceQuerier.h"
#include "Messages.h"
#include "Property.h"
#include "ServedBytes.h"
#include "TakeOver.h"
#include "WheelInPlace.h"

namespace {

using Fuzz::property;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Ptr;
using Mox::Seconds;
using Mox::U8;
using namespace Mox::NboAttrLog;

constexpr Seconds begin = 1000.0;
constexpr Seconds grace = 30.0;
constexpr IpAddr member{10, 0, 0, 77};
const Agent::MacAddr ourMac{2, 0, 0, 0, 0, 5};

class NoHost final : public SessionHost {
 public:
  void onOutput() override {}
};

// Everything that a store of this boot sends before its copy.
std::vector<U8> introduction() {
  const Ptr<Agent::StoreState> state = makePtr<Agent::StoreState>();
  state->formatVersionIs(protocolVersion);
  state->machineIdIs(Agent::machineId());
  state->bootIdIs(Agent::bootId());
  state->completeIs(true);
  state->lostTimeIs(begin - 10.0);
  Directory directory;
  directory.entryIs(Agent::AttrLogCopy::storePath, state, Access::readOnly);
  NoHost host;
  Session from(host, {.name = "store", .peerName = "agent"}, &directory);
  Session to(host, {.name = "agent", .peerName = "store"});
  from.input(to.stream().pending());
  from.drain();
  const auto sent = from.stream().pending();
  std::vector<U8> bytes;
  for (size_t at = 0; at < sent.size();) {
    const size_t length = frameHead - 1 + (size_t{sent[at]} << 8 | sent[at + 1]);
    const auto frame = sent.subspan(at, length);
    if (frame[2] != static_cast<U8>(FrameType::current)) {
      bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    at += length;
  }
  return bytes;
}

std::optional<Agent::KeptState> received(std::span<const U8> bytes, size_t chunk) {
  static const Agent::TempFolder folder;
  const std::string path = folder.path() + "/store.sock";
  Agent::EventLoop loop;
  const Fuzz::ServedBytes store(loop.io(), path, bytes, chunk);
  try {
    return Agent::keptState(loop, path, {.begin = {}, .complete = {}});
  } catch (const std::runtime_error& refusal) {
    property(!std::string(refusal.what()).empty(), "a refusal has a reason");
    return std::nullopt;
  }
}

class NoEvents final : public Agent::EventSink {
 public:
  void event(const Agent::Event&) override {}
};

void checkSettings(const Mox::EntityBase& settings) {
  std::vector<Written> all;
  for (const Mox::AttrInfo& attr : settings.type().attrs) {
    if (attr.set != nullptr) all.push_back({&attr, attr.get(settings)});
  }
  property(Agent::whyConfigRefused(settings, all).empty(), "its settings are permitted ones");
}

void checkGroups(const Gmp::Igmp::QuerierStatus& status) {
  for (auto at = status.group().begin(); at != status.group().end(); ++at) {
    const Gmp::Igmp::QuerierGroupStatus& group = **at;
    bool isWanted =
        group.filterMode() == Gmp::Igmp::filterModeExclude && group.expiryTime() > begin;
    for (const IpAddr addr : group.source().keys()) {
      isWanted = isWanted || !group.source(addr)->expired();
    }
    property(isWanted && group.creationTime() != 0.0, "a group that is taken over is wanted");
  }
}

// The querier of one interface, which begins with what was kept of it.
class World {
 public:
  World(const Agent::KeptState& kept, const Agent::AttrLogCopy::Interface& interface)
      : config_(settingsOf(interface.config, interface.configuredConfig,
                           [] { return Gmp::Igmp::querierConfigFactory("eth0"); })),
        intake_(settingsOf(interface.intake, interface.configuredIntakeConfig,
                           [] { return makePtr<Agent::IntakeConfig>("eth0"); })) {
    srand48(1);
    Agent::leavePassed(*interface.status,
                       {.lost = kept.lostTime, .now = Mox::now(), .grace = grace});
    checkGroups(*interface.status);
    querier_ = std::make_unique<Agent::InterfaceQuerier>(
        services_,
        Agent::InterfaceSetup{
            .name = "eth0", .config = config_, .intake = intake_, .kept = interface.status});
    querier_->linkIs(&link_);
  }

  void run() {
    const Gmp::Igmp::QuerierStatus& status = *querier_->status();
    for (int turns = 0; wheel_->nextDue() <= begin; ++turns) {
      property(turns < 10000, "all groups are rebuilt");
      turn(begin);
    }
    property(querier_->querier()->groupSm().size() == status.group().size(),
             "each group has a machine");
    std::vector<IpAddr> groups;
    for (auto at = status.group().begin(); at != status.group().end(); ++at) {
      groups.push_back(at.key());
    }
    receive(Ilvo::buildV2Report(IpAddr(239, 1, 1, 5), {.src = member}));
    for (const IpAddr group : groups) receive(Ilvo::buildV2Leave(group, {.src = member}));
    const Seconds interval = status.groupMembershipInterval();
    property(interval == config_->robustness() * config_->queryInterval() +
                             config_->queryResponseInterval(),
             "the times are those of its own settings");
    pass(interval + 1.0);
    property(status.group().empty(), "without reports all groups end");
  }

 private:
  struct Port final : Agent::FramePort {
    std::error_code send(std::span<const U8>) override { return {}; }
    Agent::PortCounts counts() override { return {}; }
  };

  // With what was set at run time, as far as that is permitted.
  template <class E, class Make>
  static Ptr<E> settingsOf(const Ptr<E>& kept, const Ptr<E>& configured, Make make) {
    Ptr<E> present = make();
    if (kept && configured) Agent::returnSettings(*kept, *configured, *make(), *present);
    checkSettings(*present);
    return present;
  }

  void receive(const std::vector<U8>& packet) {
    receiver_->rxPacket({.frame = {}, .packet = packet});
    receiver_->rxBatchEnd();
  }
  void pass(Seconds duration) {
    const Seconds until = Mox::now() + duration;
    for (int turns = 0; wheel_->nextDue() <= until; ++turns) {
      property(turns < 100000, "timers settle");
      turn(std::max(Mox::now(), wheel_->nextDue()));
    }
    turn(until);
  }
  void turn(Seconds time) {
    Mox::virtualTimeIs(time);
    wheel_->turn(time);
    pending_.flush();
  }

  const Fuzz::WheelInPlace wheel_{begin};
  const Agent::Link link_ = Agent::runningLink(IpAddr(10, 0, 0, 5), ourMac);
  NoEvents events_;
  Agent::IntakeProcess process_;
  Agent::ReceivedBatch batch_;
  Agent::StatusWatcher::Pending pending_;
  Agent::FrameReceiver* receiver_ = nullptr;
  const Agent::InterfaceQuerier::Services services_{
      .wheel = wheel_.ptr(),
      .openPort =
          [this](const Agent::Link&, Agent::FrameReceiver& receiver) {
            receiver_ = &receiver;
            return std::make_unique<Port>();
          },
      .sink = events_,
      .process = process_,
      .batch = batch_,
      .pending = &pending_};
  const Ptr<Gmp::Igmp::QuerierConfig> config_;
  const Ptr<Agent::IntakeConfig> intake_;
  std::unique_ptr<Agent::InterfaceQuerier> querier_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Fuzz::MessageWorld messages(false);
  Mox::virtualTimeIs(begin);
  static const std::vector<U8> known = introduction();
  const bool isIntroduced = (data[0] & 1) != 0;
  std::vector<U8> bytes(isIntroduced ? known : std::vector<U8>());
  bytes.insert(bytes.end(), data + 1, data + size);
  const auto kept = received(bytes, std::size_t{1} << (data[0] >> 4));
  if (!kept) return 0;
  for (const auto& [name, interface] : kept->interfaces) {
    Mox::virtualTimeIs(begin);
    World(*kept, interface).run();
  }
  return 0;
}
