// How a world carries out the lines of its story.
#include "TakeOverRules.h"
#include "World.h"

namespace Sim {

void World::carryOut(const Line& line) {
  if (log) say(textOf(line));
  switch (line.verb) {
    case Line::want:
      if (line.node >= facts_.hosts.size()) return;
      facts_.hosts[line.node].wantIs(Mox::now(), line.group, line.channels);
      return act(line.node);
    case Line::hostCrash:
      if (line.node < facts_.hosts.size()) facts_.hosts[line.node].crash();
      return;
    case Line::link: return facts_.lan->qualityIs(line.quality);
    case Line::cut: return cut(line.name);
    case Line::set: return change(line);
    default:
      if (line.node < facts_.routers.size()) carryOutRouter(line, *facts_.routers[line.node]);
  }
}

void World::carryOutRouter(const Line& line, Router& router) {
  const bool ends = line.verb == Line::crash || line.verb == Line::kill;
  if (!ends) resume(router);
  facts_.disturb();
  switch (line.verb) {
    case Line::crash: router.crash(); break;
    case Line::kill: router.kill(); break;
    case Line::start: return start(router);
    case Line::down: router.upIs(false); break;
    case Line::up: return start(router);
    case Line::stop: router.stop(); return;
    case Line::address:
      queries_->onChange(router);
      router.addressIs(line.addr);
      return;
    default: return;
  }
  membership_->onRestart(router);
}

// Whatever it lacks to run: its interface, its process, or that it is stopped.
void World::start(Router& router) {
  resume(router);
  if (router.isRunning()) return;
  ++facts_.findings.counts.restarts;
  facts_.disturb();
  queries_->onRestart(router);
  if (!router.isUp() || router.hasProcess()) {
    const Mask before = router.served();
    router.upIs(true);
    if (router.hasProcess()) {
      if ((before & ~router.served()) != 0) {
        facts_.breach(Invariant::restartKeeps,
                      facts_.nameOf(router) + " has lost members over a restart on its state");
      }
    }
  }
  if (!router.hasProcess()) startProcess(router);
  ledger_->onRestart(router);
  membership_->onRestart(router);
  noteRole(router);
}

void World::startProcess(Router& router) {
  const Store::Status kept = router.keptState();
  if (!kept) return router.start();
  const TakeOverRules rules(facts_, *kept);
  router.start();
  rules.check(router);
  ++facts_.findings.counts.takeOvers;
}

void World::change(const Line& line) {
  for (const auto& each : facts_.routers) {
    if (line.node != Line::everyRouter && line.node != each->node()) continue;
    Settings settings = each->settings();
    *settings.find(line.name) = line.value;
    facts_.bounds.add(settings);
    facts_.wasSilenced |= settings.sendQuery == 0;
    facts_.disturb();
    resume(*each);
    queries_->onChange(*each);
    each->settingsIs(settings);
    afterStep(*each);
  }
}

// A node without a digit is in the part of the first.
void World::cut(const std::string& parts) {
  facts_.disturb();
  facts_.isCut = false;
  const size_t nodes = facts_.routers.size() + facts_.hosts.size();
  for (Node node = 0; node < nodes; ++node) {
    const char part = node < parts.size() ? parts[node] : parts[0];
    facts_.lan->partIs(node, static_cast<unsigned>(part));
    facts_.isCut |= part != parts[0];
  }
}

}  // namespace Sim
