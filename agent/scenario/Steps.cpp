// The steps of a scenario, each with the keys that it takes.
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "AttrValues.h"
#include "ConfigChange.h"
#include "Dump.h"
#include "Step.h"

namespace Agent::Scenario {

using Gmp::Igmp::QuerierSm;
using Ilvo::IpAddr;
using Mox::Ptr;

namespace {

using Boundary = Ptr<const Ilvo::IntfBoundaryStatus>;

Boundary boundaryOf(const std::vector<Ilvo::IpGenPrefix>& prefixes) {
  auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  for (const Ilvo::IpGenPrefix& prefix : prefixes) boundary->boundaryIs(prefix, true);
  return boundary;
}

// A step that acts on one interface that is there.
class InterfaceStep : public Step {
 public:
  InterfaceStep(Keys& keys, const World* world) : name_(keys.text("interface")) {
    if (world == nullptr || world->interface(name_) == nullptr) {
      throw StepError(fmt::format("there is no interface \"{}\"", name_));
    }
  }
  void run(World& world) const final { run(world, *world.interface(name_)); }

 protected:
  virtual void run(World& world, Interface& interface) const = 0;

 private:
  std::string name_;
};

// A group that is in the status before the querier is.
struct PreloadedGroup {
  IpAddr addr;
  std::optional<Gmp::Igmp::IgmpFilterMode> filterMode;
  std::optional<Gmp::Igmp::IgmpVersion> compatibilityMode;
  std::vector<std::pair<IpAddr, std::optional<bool>>> sources;
};

PreloadedGroup readGroup(const Json& object) {
  Keys keys(object, "group");
  PreloadedGroup group;
  group.addr = keys.addr("groupAddr");
  if (keys.has("filterMode")) {
    fromJson(keys.value("filterMode"), "\"filterMode\"", group.filterMode.emplace());
  }
  if (keys.has("compatibilityMode")) {
    fromJson(keys.value("compatibilityMode"), "\"compatibilityMode\"",
             group.compatibilityMode.emplace());
  }
  if (keys.has("sources")) {
    for (const Json& source : keys.list("sources", "objects")) {
      Keys sourceKeys(source, "source");
      const IpAddr addr = sourceKeys.addr("sourceAddr");
      const auto expired =
          sourceKeys.has("expired") ? std::optional(sourceKeys.flag("expired")) : std::nullopt;
      sourceKeys.done();
      group.sources.emplace_back(addr, expired);
    }
  }
  keys.done();
  return group;
}

void preload(Gmp::Igmp::QuerierStatus& status, const PreloadedGroup& group) {
  const auto entry = status.groupIs(group.addr);
  if (group.filterMode) entry->filterModeIs(*group.filterMode);
  if (group.compatibilityMode) entry->compatibilityModeIs(*group.compatibilityMode);
  for (const auto& [addr, expired] : group.sources) {
    const auto source = entry->sourceIs(addr);
    if (expired) source->expiredIs(*expired);
  }
}

class CreateStep final : public Step {
 public:
  CreateStep(Keys& keys, const World* world) : name_(keys.text("name")) {
    if (world != nullptr && world->interface(name_) != nullptr) {
      throw StepError(fmt::format("there is an interface \"{}\" already", name_));
    }
    arguments_.ipAddr = keys.addr("ipAddr");
    if (keys.has("mtu")) arguments_.mtu = keys.u32("mtu");
    if (keys.has("startupQueryIntervalDefault")) {
      arguments_.startupQueryIntervalDefault = keys.u32("startupQueryIntervalDefault");
    }
    if (keys.has("debugYieldAfterOne")) {
      arguments_.debugYieldAfterOne = keys.flag("debugYieldAfterOne");
    }
    if (keys.has("config")) config_ = readConfigChanges(keys.value("config"), "config");
    if (keys.has("groups")) {
      for (const Json& group : keys.list("groups", "objects")) groups_.push_back(readGroup(group));
    }
    if (keys.has("boundary")) boundary_ = boundaryOf(keys.prefixes("boundary"));
  }
  void run(World& world) const override {
    Interface& interface = world.interfaceIs(name_, arguments_);
    for (const ConfigChange& change : config_) change(interface.config());
    for (const PreloadedGroup& group : groups_) preload(interface.status(), group);
    interface.create();
    if (boundary_) interface.boundaryIs(boundary_);
  }

 private:
  std::string name_;
  QuerierArguments arguments_;
  std::vector<ConfigChange> config_;
  std::vector<PreloadedGroup> groups_;
  Boundary boundary_;
};

class ConfigStep final : public InterfaceStep {
 public:
  ConfigStep(Keys& keys, const World* world)
      : InterfaceStep(keys, world), changes_(readConfigChanges(keys.value("set"), "set")) {}
  void run(World&, Interface& interface) const override {
    for (const ConfigChange& change : changes_) change(interface.config());
  }

 private:
  std::vector<ConfigChange> changes_;
};

class RxStep final : public InterfaceStep {
 public:
  RxStep(Keys& keys, const World* world)
      : InterfaceStep(keys, world), packet_(keys.hex("packet")) {}
  void run(World&, Interface& interface) const override {
    if (QuerierSm* querier = interface.querier()) {
      querier->doRxPkt(Mox::makePtr<Ilvo::Pkt>(std::span<const Mox::U8>(packet_)));
    }
  }

 private:
  std::vector<Mox::U8> packet_;
};

class BoundaryStep final : public InterfaceStep {
 public:
  BoundaryStep(Keys& keys, const World* world) : InterfaceStep(keys, world) {
    if (!keys.value("prefixes").is_null()) boundary_ = boundaryOf(keys.prefixes("prefixes"));
  }
  void run(World&, Interface& interface) const override { interface.boundaryIs(boundary_); }

 private:
  Boundary boundary_;
};

class CongestStep final : public Step {
 public:
  CongestStep(Keys& keys, const World*) : on_(keys.flag("on")) {}
  void run(World& world) const override { world.congestedIs(on_); }

 private:
  bool on_;
};

class CallStep final : public InterfaceStep {
 public:
  CallStep(Keys& keys, const World* world) : InterfaceStep(keys, world) {
    const std::string name = keys.text("name");
    operation_ = Mox::typeInfoOf<QuerierSm>().attr(name);
    if (operation_ == nullptr || operation_->call == nullptr || operation_->parameter != nullptr) {
      throw StepError(fmt::format("a querier has no operation \"{}\"", name));
    }
  }
  void run(World&, Interface& interface) const override {
    if (QuerierSm* querier = interface.querier()) operation_->call(*querier, nullptr);
  }

 private:
  const Mox::AttrInfo* operation_ = nullptr;
};

class RestartStep final : public InterfaceStep {
 public:
  using InterfaceStep::InterfaceStep;
  void run(World&, Interface& interface) const override { interface.create(); }
};

class RemoveStep final : public InterfaceStep {
 public:
  using InterfaceStep::InterfaceStep;
  void run(World&, Interface& interface) const override { interface.remove(); }
};

class DumpStep final : public InterfaceStep {
 public:
  using InterfaceStep::InterfaceStep;
  void run(World& world, Interface& interface) const override { writeDump(world, interface); }
};

class AdvanceStep final : public Step {
 public:
  AdvanceStep(Keys&, const World*) {}
  void run(World&) const override {}
};

using ReadStep = std::unique_ptr<Step> (*)(Keys&, const World*);

template <class S>
std::unique_ptr<Step> read(Keys& keys, const World* world) {
  return std::make_unique<S>(keys, world);
}

const std::map<std::string, ReadStep, std::less<>>& operations() {
  static const std::map<std::string, ReadStep, std::less<>> all{
      {"interface", read<CreateStep>},  {"config", read<ConfigStep>},   {"rx", read<RxStep>},
      {"boundary", read<BoundaryStep>}, {"congest", read<CongestStep>}, {"call", read<CallStep>},
      {"restart", read<RestartStep>},   {"remove", read<RemoveStep>},   {"dump", read<DumpStep>},
      {"advance", read<AdvanceStep>}};
  return all;
}

}  // namespace

std::unique_ptr<Step> readStep(const Json& object, const World* world) {
  Keys keys(object, "step");
  keys.number("at");
  const std::string op = keys.text("op");
  const auto found = operations().find(op);
  if (found == operations().end()) throw StepError(fmt::format("unknown op \"{}\"", op));
  std::unique_ptr<Step> step = found->second(keys, world);
  keys.done();
  return step;
}

}  // namespace Agent::Scenario
