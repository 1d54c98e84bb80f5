#include <Client/CopyWatcher.h>

#include <array>
#include <optional>
#include <utility>
#include <vector>

#include <Events/StatusWatcher.h>
#include <Mox/ActivityClock.h>
#include <Mox/TypeInfo.h>

namespace Agent {

using Gmp::Igmp::QuerierStatus;
using Mox::AttrInfo;
using Mox::AttrKind;

namespace {

// The values that were last reported of the stored attributes, or of the counters, of one entity.
class ReportedValues {
 public:
  // Of no entity, there are none.
  ReportedValues(Mox::Ptr<const Mox::EntityBase> entity, AttrKind kind)
      : entity_(std::move(entity)) {
    if (!entity_) return;
    for (const AttrInfo& attr : entity_->type().attrs) {
      if (attr.kind == kind) values_.emplace_back(&attr, attr.get(*entity_));
    }
  }

  // Calls f(name, value) for each value that differs from the one reported.
  template <class F>
  void forEachChange(F f) {
    for (auto& [attr, reported] : values_) {
      Mox::Value value = attr->get(*entity_);
      if (value == reported) continue;
      reported = std::move(value);
      f(attr->name, reported);
    }
  }

 private:
  const Mox::Ptr<const Mox::EntityBase> entity_;
  std::vector<std::pair<const AttrInfo*, Mox::Value>> values_;
};

// Sets a flag at any change of an entity and of those below it.
class ChangeFlag final : public Mox::TreeNotifiee {
 public:
  ChangeFlag(Mox::Ptr<const Mox::EntityBase> entity, bool& flag)
      : entity_(std::move(entity)), flag_(flag) {
    entity_->treeNotifieeAdd(this);
  }
  ~ChangeFlag() override { entity_->treeNotifieeRemove(this); }

  void onAttr(const Mox::EntityBase&, Mox::AttrId) override { flag_ = true; }
  void onMember(const Mox::EntityBase&, Mox::AttrId, Mox::U32) override { flag_ = true; }
  void onCollection(const Mox::EntityBase&, Mox::AttrId) override { flag_ = true; }

 private:
  const Mox::Ptr<const Mox::EntityBase> entity_;
  bool& flag_;
};

// Reports that the querier of an interface stops or runs again: its status does not say so.
class RunningWatcher {
 public:
  RunningWatcher(Mox::Ptr<const InterfaceState> state, bool& changed)
      : state_(std::move(state)),
        flag_(state_, changed),
        running_(state_->running()),
        address_(state_->address()) {}

  void flush(const std::string& interface, EventSink& sink) {
    const bool ran = std::exchange(running_, state_->running());
    const Ilvo::IpAddr was = std::exchange(address_, state_->address());
    if (ran == running_ && (!running_ || was == address_)) return;
    Event event{.time = Mox::now(), .interface = interface, .kind = Event::addressChanged};
    if (ran != running_) event.kind = running_ ? Event::interfaceUp : Event::interfaceDown;
    event.address = address_;
    sink.event(event);
  }

 private:
  const Mox::Ptr<const InterfaceState> state_;
  ChangeFlag flag_;
  bool running_;
  Ilvo::IpAddr address_;
};

}  // namespace

// Passes events on; at first the roles only, since the rest is of the time before the watcher.
class CopyWatcher::RoleFilter final : public EventSink {
 public:
  explicit RoleFilter(EventSink& sink) : sink_(sink) {}
  void rolesOnlyIs(bool rolesOnly) { rolesOnly_ = rolesOnly; }
  void event(const Event& event) override {
    if (!rolesOnly_ || event.kind == Event::role) sink_.event(event);
  }

 private:
  EventSink& sink_;
  bool rolesOnly_ = false;
};

class CopyWatcher::InterfaceWatch {
 public:
  InterfaceWatch(std::string interface, const AttrLogCopy::Interface& copy, EventSink& sink,
                 bool& changed)
      : interface_(std::move(interface)),
        status_(copy.status),
        sink_(sink),
        configFlag_(copy.config, changed),
        statusFlag_(copy.status, changed),
        settings_{ReportedValues(copy.config, AttrKind::stored),
                  ReportedValues(copy.intake, AttrKind::stored)},
        counters_{ReportedValues(copy.status, AttrKind::counter),
                  ReportedValues(copy.state, AttrKind::counter),
                  ReportedValues(copy.intakeStatus, AttrKind::counter)},
        watcher_(interface_, copy.status, sink) {
    if (copy.state) running_.emplace(copy.state, changed);
    if (copy.intake) intakeFlag_.emplace(copy.intake, changed);
  }

  bool isOf(const AttrLogCopy::Interface& copy) const { return copy.status == status_; }

  void flush() {
    if (running_) running_->flush(interface_, sink_);
    for (ReportedValues& settings : settings_) {
      settings.forEachChange([&](const char* name, const Mox::Value& value) {
        Event event = eventOf(Event::configChanged);
        event.attribute = name;
        event.value = value;
        sink_.event(event);
      });
    }
    watcher_.flush();
  }

  void flushCounters() {
    Event event = eventOf(Event::counters);
    for (ReportedValues& counters : counters_) {
      counters.forEachChange([&](const char* name, const Mox::Value& value) {
        event.counts.emplace_back(name, std::get<Mox::U64>(value));
      });
    }
    if (!event.counts.empty()) sink_.event(event);
  }

  void reportGone() { sink_.event(eventOf(Event::interfaceGone)); }

 private:
  Event eventOf(Event::Kind kind) const {
    return {.time = Mox::now(), .interface = interface_, .kind = kind};
  }

  const std::string interface_;
  const Mox::Ptr<const QuerierStatus> status_;
  EventSink& sink_;
  ChangeFlag configFlag_;
  ChangeFlag statusFlag_;
  std::optional<ChangeFlag> intakeFlag_;
  std::array<ReportedValues, 2> settings_;
  std::array<ReportedValues, 3> counters_;
  StatusWatcher watcher_;
  std::optional<RunningWatcher> running_;
};

CopyWatcher::CopyWatcher(const AttrLogCopy::Interfaces& copies, Options options, EventSink& sink)
    : copies_(copies), options_(std::move(options)), sink_(std::make_unique<RoleFilter>(sink)) {}

CopyWatcher::~CopyWatcher() = default;

bool CopyWatcher::isWanted(const std::string& name) const {
  return options_.interfaces.empty() || options_.interfaces.contains(name);
}

bool CopyWatcher::sameInterfaces() const {
  size_t same = 0;
  for (const auto& [name, copy] : copies_) {
    if (!isWanted(name)) continue;
    const auto watch = watched_.find(name);
    if (watch == watched_.end() || !watch->second->isOf(copy)) return false;
    ++same;
  }
  return same == watched_.size();
}

void CopyWatcher::flush() {
  changed_ = false;
  dropOldInterfaces();
  addNewInterfaces();
  sink_->rolesOnlyIs(!begun_ && !options_.fromTheBeginning);
  for (const auto& [name, watch] : watched_) watch->flush();
  sink_->rolesOnlyIs(false);
  begun_ = true;
}

void CopyWatcher::flushCounters() {
  for (const auto& [name, watch] : watched_) watch->flushCounters();
}

void CopyWatcher::dropOldInterfaces() {
  for (auto at = watched_.begin(); at != watched_.end();) {
    const auto copy = copies_.find(at->first);
    if (copy != copies_.end() && at->second->isOf(copy->second)) {
      ++at;
    } else {
      at->second->reportGone();
      at = watched_.erase(at);
    }
  }
}

void CopyWatcher::addNewInterfaces() {
  for (const auto& [name, copy] : copies_) {
    if (!isWanted(name) || watched_.contains(name)) continue;
    watched_[name] = std::make_unique<InterfaceWatch>(name, copy, *sink_, changed_);
  }
}

}  // namespace Agent
