// The state that an agent before has left in a store, at the start.
#include <stdexcept>

#include <fmt/format.h>

#include <Local/EventLoop.h>
#include <Mox/ActivityClock.h>

#include "AgentLoopImpl.h"
#include "TakeOver.h"

namespace Agent {

// Readers wait at the sockets meanwhile. Without these no store could follow this agent: the copy
// is another one's.
KeptState AgentLoop::Impl::readStore() {
  const std::string& path = configured_.agent.store;
  if (path.empty() || attrLog_ == nullptr) return {};
  try {
    EventLoop loop;
    loop.stopAtSignals();
    return keptState(loop, path);
  } catch (const std::runtime_error& error) {
    Event event{.time = Mox::now(), .kind = Event::error};
    event.text = fmt::format("{}; this agent begins without groups", error.what());
    services_.sink.event(event);
    return {};
  }
}

void AgentLoop::Impl::notice(const std::string& interface, std::string text) {
  Event event{.time = Mox::now(), .interface = interface, .kind = Event::notice};
  event.text = std::move(text);
  services_.sink.event(event);
}

void AgentLoop::Impl::takeOver(const KeptState& kept, InterfaceSetup& setup) {
  const auto found = kept.interfaces.find(setup.name);
  if (found == kept.interfaces.end() || !found->second.state) return;
  const AttrLogCopy::Interface& interface = found->second;
  const std::string why = whyAnother(*interface.state, links_.links().find(setup.name));
  if (!why.empty()) {
    return notice(setup.name, "its state of the agent before is not taken over: " + why);
  }
  const SettingEntities& configured = configured_.interfaces.at(setup.name).values;
  takeOverSettings(setup.name, interface.config, interface.configuredConfig, configured.config,
                   setup.config);
  takeOverSettings(setup.name, interface.intake, interface.configuredIntakeConfig,
                   configured.intake, setup.intake);
  leavePassed(*interface.status,
              {.lost = kept.lostTime, .now = Mox::now(), .grace = configured_.agent.stallTimeout});
  setup.kept = interface.status;
}

void AgentLoop::Impl::takeOverProcess(const KeptState& kept) {
  if (kept.interfaces.empty()) return;
  const AttrLogCopy::Interface& any = kept.interfaces.begin()->second;
  takeOverSettings({}, any.process, any.configuredProcess, configured_.values.process,
                   process_.config);
}

void AgentLoop::Impl::takeOverSettings(const std::string& interface,
                                       const Mox::Ptr<Mox::EntityBase>& kept,
                                       const Mox::Ptr<Mox::EntityBase>& keptConfigured,
                                       const Mox::Ptr<Mox::EntityBase>& configured,
                                       const Mox::Ptr<Mox::EntityBase>& present) {
  if (!kept || !keptConfigured) return;
  const std::string why = returnSettings(*kept, *keptConfigured, *configured, *present);
  if (!why.empty()) notice(interface, "settings made at run time do not return: " + why);
}

}  // namespace Agent
