// One world: it carries out a story, then makes the link perfect, lets all members leave, and ends.
// All invariants are judged as it goes; it stops at the first that is broken.
//
//   World world(makeStory(7));
//   const Findings& found = world.run();
//   if (found.breach) print(found.breach->text);
#pragma once

#include <functional>

#include "Canary.h"
#include "ElectionRules.h"
#include "Facts.h"
#include "MembershipRules.h"
#include "QueryRules.h"
#include "Story.h"

namespace Sim {

class World final : private Lan::Watcher {
 public:
  explicit World(const Story& story, Canary canary = Canary::none);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  const Findings& run();
  // Called for each event that is carried out, with its time.
  std::function<void(const std::string&)> log = {};

 private:
  void makeNodes(Canary canary);
  void runUntil(Seconds time);
  void handle(const Event& event);
  void carryOut(const Line& line);
  void carryOutRouter(const Line& line, Router& router);
  void change(const Line& line);
  void cut(const std::string& parts);
  void start(Router& router);
  void startProcess(Router& router);
  void deliver(const Frame& frame, Node receiver);
  void receive(const Frame& frame, Router& router);
  void resume(Router& router);
  void act(Node host);
  void hostIsDue(Node host);
  void turnRouters();
  void afterStep(Router& router);
  void noteRole(Router& router);
  void noteRecords(const Frame& frame, const Router& router);
  void askAsDouble();
  void transmit(Node router, std::span<const U8> packet);
  void finish(size_t cells);
  void checkMemory(size_t cells);
  Seconds nextTimer() const;
  void say(const std::string& text) const;

  void onSent(const Frame& frame) override;
  void onLost(const Frame& frame, Node receiver) override;

  const Story& story_;
  Facts facts_;
  std::unique_ptr<Ledger> ledger_;
  std::unique_ptr<ElectionRules> election_;
  std::unique_ptr<MembershipRules> membership_;
  std::unique_ptr<QueryRules> queries_;
  bool doubleAsks_ = false;
  std::vector<Seconds> hostDue_;
  struct Seen {
    Router::QuerierState role = Router::QuerierState::querierStateInitial;
    Ilvo::IpAddr elected = {};
    bool isHandingOver = false;
  };
  std::vector<Seen> seen_;
};

}  // namespace Sim
