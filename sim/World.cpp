#include "World.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <Mox/ActivityClock.h>
#include <MoxBase/Pool.h>

#include "Wire.h"

namespace Sim {

namespace {

constexpr Seconds checkInterval = 5.0;
// Packets whose memory a router may keep for the next ones, beside those of a full ring.
constexpr size_t keptPackets = 4;
constexpr size_t packetBytes = 192;
constexpr size_t timersOfIdleRouter = 3;

}  // namespace

World::World(const Story& story, Canary canary) : story_(story) {
  facts_.seed = story.seed;
  Mox::virtualTimeIs(Facts::begin);
  srand48(static_cast<long>(story.seed));
  const auto nodes = static_cast<Node>(story.routers.size() + story.hosts.size());
  Lan::Watcher& watcher = *this;
  facts_.lan = std::make_unique<Lan>(facts_.queue, nodes, story.seed, watcher);
  makeNodes(canary);
  ledger_ = std::make_unique<Ledger>(facts_);
  election_ = std::make_unique<ElectionRules>(facts_);
  membership_ = std::make_unique<MembershipRules>(facts_, *ledger_);
  queries_ = std::make_unique<QueryRules>(facts_);
  seen_.resize(facts_.routers.size());
  hostDue_.resize(facts_.hosts.size(), Mox::never);
  for (U32 at = 0; at < story.lines.size(); ++at) {
    facts_.queue.push(
        {.time = Facts::begin + story.lines[at].time, .kind = Event::storyLine, .subject = at});
  }
  facts_.queue.push({.time = Facts::begin + checkInterval, .kind = Event::check});
}

World::~World() { Mox::realTimeIs(); }

void World::makeNodes(Canary canary) {
  for (const Story::RouterSetup& setup : story_.routers) {
    const auto node = static_cast<Node>(facts_.routers.size());
    facts_.bounds.add(setup.settings);
    facts_.wasSilenced |= setup.settings.sendQuery == 0;
    facts_.routers.push_back(std::make_unique<Router>(
        node, setup.address, setup.settings,
        [this, node](std::span<const U8> packet) { transmit(node, packet); }));
  }
  for (const Line& line : story_.lines) {
    if (line.verb == Line::kill && line.node < facts_.routers.size()) {
      facts_.routers[line.node]->storeIs();
    }
  }
  facts_.routers.back()->faultIs(faultOf(canary));
  for (Node host = 0; host < story_.hosts.size(); ++host) {
    facts_.hosts.push_back(
        Host({.number = host,
              .node = static_cast<Node>(facts_.routers.size()) + host,
              .version = story_.hosts[host],
              .robustness = static_cast<unsigned>(facts_.bounds.most().robustness),
              .fault = host == 0 ? hostFaultOf(canary) : Host::Fault::none,
              .seed = story_.seed}));
  }
  doubleAsks_ = canary == Canary::askingDouble;
}

const Findings& World::run() {
  const size_t cells = Mox::poolUse().cells;
  Seconds last = 0.0;
  for (const Line& line : story_.lines) last = std::max(last, line.time);
  runUntil(Facts::begin + last);
  finish(cells);
  Counts& counts = facts_.findings.counts;
  counts.worlds = 1;
  counts.simulatedTime = Mox::now() - Facts::begin;
  return facts_.findings;
}

// Then the link is perfect and all routers are there; in the end all members leave.
void World::finish(size_t cells) {
  for (const auto& each : facts_.routers) start(*each);
  facts_.lan->qualityIs({});
  cut("0");
  const Settings& most = facts_.bounds.most();
  runUntil(Mox::now() + facts_.settleTime() + facts_.bounds.groupMembershipInterval() +
           2 * most.queryInterval);
  if (facts_.findings.breach) return;
  election_->check();
  membership_->checkAllServed();
  for (Node host = 0; host < facts_.hosts.size(); ++host) {
    for (unsigned g = 0; g < groupsMost; ++g) facts_.hosts[host].wantIs(Mox::now(), g, 0);
    act(host);
  }
  runUntil(Mox::now() + 2 * facts_.bounds.groupMembershipInterval() + most.queryInterval);
  if (!facts_.findings.breach) checkMemory(cells);
}

void World::checkMemory(size_t cells) {
  for (const auto& each : facts_.routers) each->sendToStore();
  const auto left = Gmp::Igmp::membershipInProcess();
  size_t timers = 0;
  for (const auto& each : facts_.routers) timers += each->timers();
  const size_t idle = timersOfIdleRouter * facts_.routers.size();
  if (left.groups != 0 || left.sources != 0 || timers > idle) {
    facts_.breach(Invariant::memoryReturns, std::to_string(left.groups) + " groups, " +
                                                std::to_string(left.sources) + " sources and " +
                                                std::to_string(timers) + " timers are left");
  }
  const size_t now = Mox::poolUse().cells;
  const size_t kept = keptPackets * facts_.routers.size() + facts_.ringPackets;
  if (now > cells + kept * packetBytes) {
    facts_.breach(Invariant::memoryReturns,
                  std::to_string(now - cells) + " bytes more than at the beginning");
  }
}

Seconds World::nextTimer() const {
  Seconds next = Mox::never;
  for (const auto& each : facts_.routers) next = std::min(next, each->nextDue());
  return next;
}

// Packets first, then the timers that are due, as the agent does it.
void World::runUntil(Seconds time) {
  while (!facts_.findings.breach) {
    const Seconds next = std::min(facts_.queue.nextDue(), nextTimer());
    if (next > time) break;
    Mox::virtualTimeIs(std::max(Mox::now(), next));
    if (facts_.queue.nextDue() <= Mox::now()) {
      handle(facts_.queue.pop());
    } else {
      turnRouters();
    }
  }
  Mox::virtualTimeIs(std::max(Mox::now(), time));
}

void World::turnRouters() {
  for (const auto& each : facts_.routers) {
    if (each->nextDue() <= Mox::now() && each->turn()) afterStep(*each);
  }
}

void World::handle(const Event& event) {
  switch (event.kind) {
    case Event::storyLine: return carryOut(story_.lines[event.subject]);
    case Event::delivery: return deliver(facts_.lan->frame(event.subject), event.node);
    case Event::hostTimer: return hostIsDue(event.node);
    case Event::followCheck: return membership_->checkFollows(event.subject, event.node);
    case Event::check: break;
  }
  election_->check();
  if (doubleAsks_) askAsDouble();
  facts_.queue.push({.time = Mox::now() + checkInterval, .kind = Event::check});
}

void World::deliver(const Frame& frame, Node receiver) {
  if (receiver < facts_.routers.size()) {
    Router& router = *facts_.routers[receiver];
    if (router.isRunning()) receive(frame, router);
    return;
  }
  const auto host = static_cast<Node>(receiver - facts_.routers.size());
  Host& asked = facts_.hosts[host];
  if (frame.kind == Frame::specificQuery) {
    ledger_->onAskedAgain(frame.asks & asked.answeringSpecific() & asked.wants(Mox::now()));
  }
  asked.receive(Mox::now(), frame);
  act(host);
}

void World::receive(const Frame& frame, Router& router) {
  ++facts_.findings.counts.packets;
  if (frame.sender != router.node()) queries_->onReceived(frame, router);
  if (router.isStopped() || frame.sender == router.node()) return router.receive(frame);
  noteRecords(frame, router);
  const Ledger::Before before{.tracked = router.tracked(),
                              .disregarded = router.disregarded(frame)};
  router.receive(frame);
  ledger_->onReceived(frame, router, before);
  membership_->onReceived(frame, router, before);
  afterStep(router);
}

void World::resume(Router& router) {
  if (!router.isStopped()) return;
  const Mask before = router.served();
  queries_->onRestart(router);
  const std::deque<const Frame*> frames = router.resume();
  facts_.ringPackets += frames.size();
  for (const Frame* frame : frames) {
    if (frame->sender != router.node()) ledger_->onReceived(*frame, router, {});
  }
  // It may have begun anew on its state.
  ledger_->allow(router, before | router.served(), facts_.bounds.groupMembershipInterval());
  afterStep(router);
}

void World::afterStep(Router& router) {
  if (!router.isRunning()) return;
  noteRole(router);
  membership_->onStep(router);
}

void World::noteRole(Router& router) {
  Seen& seen = seen_[router.node()];
  Counts& counts = facts_.findings.counts;
  if (seen.elected != router.status().electedQuerierAddr()) {
    seen.elected = router.status().electedQuerierAddr();
    ++counts.elections;
  }
  const bool isHandingOver = router.querierSm()->transitionToNonQuerier();
  if (isHandingOver && !seen.isHandingOver) ++counts.handOvers;
  seen.isHandingOver = isHandingOver;
  if (seen.role == router.role()) return;
  ++counts.roles[seen.role][router.role()];
  seen.role = router.role();
  election_->onRole(router);
  queries_->onChange(router);
  facts_.disturb();
}

// Each row of the table of records, in each compatibility mode of the group.
void World::noteRecords(const Frame& frame, const Router& router) {
  if (frame.records.empty() || router.settings().version != 3) return;
  for (const Record& record : frame.records) {
    const auto group = router.status().group(groupAddr(record.group));
    if (!group) continue;
    const auto version = static_cast<unsigned>(group->compatibilityMode());
    if (version < 1 || version > 3) continue;
    ++facts_.findings.counts.records[group->filterMode()][version - 1][record.type - 1];
  }
}

void World::act(Node host) {
  Host& acting = facts_.hosts[host];
  while (std::optional<Frame> frame = acting.act(Mox::now())) {
    if (acting.isMute(*frame)) continue;
    facts_.lan->transmit(std::move(*frame));
  }
  if (const Mask unanswered = acting.takeUnanswered(); unanswered != 0) {
    facts_.findings.counts.suppressed += 1;
    ledger_->onUnanswered(unanswered);
  }
  const Seconds due = acting.nextDue();
  if (due >= hostDue_[host]) return;
  hostDue_[host] = due;
  facts_.queue.push({.time = due, .kind = Event::hostTimer, .node = host});
}

void World::hostIsDue(Node host) {
  if (Mox::now() >= hostDue_[host]) hostDue_[host] = Mox::never;
  act(host);
}

void World::transmit(Node router, std::span<const U8> packet) {
  const std::optional<Query> query = queryOf(packet);
  if (!query) return;
  const Frame frame{.sender = router,
                    .sent = Mox::now(),
                    .kind = query->isGeneral ? Frame::generalQuery : Frame::specificQuery,
                    .version = static_cast<U8>(query->version),
                    .suppresses = query->suppresses,
                    .asks = askedBy(*query),
                    .bytes = frameOf(router, packet)};
  const U32 number = facts_.lan->transmit(frame);
  // Its own socket sees what it sends.
  facts_.queue.push(
      {.time = Mox::now(), .kind = Event::delivery, .subject = number, .node = router});
}

void World::askAsDouble() {
  for (const auto& each : facts_.routers) {
    if (!each->isRunning() || each->isQuerier()) continue;
    transmit(each->node(), Ilvo::buildV3Query({}, {.src = each->address()}));
  }
}

void World::onSent(const Frame& frame) {
  if (log) say(textOf(frame));
  ledger_->onSent(frame);
  election_->onSent(frame);
  queries_->onSent(frame);
}

void World::onLost(const Frame& frame, Node receiver) {
  ++facts_.findings.counts.losses;
  if (log) say("  lost to n" + std::to_string(receiver));
  ledger_->onLost(frame, receiver);
  if (frame.kind == Frame::generalQuery && receiver < facts_.routers.size()) {
    election_->onQueryLost();
  }
}

void World::say(const std::string& text) const {
  char time[32];
  std::snprintf(time, sizeof time, "%10.4f  ", Mox::now() - Facts::begin);
  log(time + text);
}

}  // namespace Sim
