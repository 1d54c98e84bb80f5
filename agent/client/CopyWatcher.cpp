#include <Client/CopyWatcher.h>

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

// What is told of the stored attributes, or of the counters, of one entity.
class Told {
 public:
  Told(Mox::Ptr<const Mox::EntityBase> entity, AttrKind kind) : entity_(std::move(entity)) {
    for (const AttrInfo& attr : entity_->type().attrs) {
      if (attr.kind == kind) values_.emplace_back(&attr, attr.get(*entity_));
    }
  }

  // Calls f(name, value) for each one that is not as it was told.
  template <class F>
  void forEachChange(F f) {
    for (auto& [attr, told] : values_) {
      Mox::Value value = attr->get(*entity_);
      if (value == told) continue;
      told = std::move(value);
      f(attr->name, told);
    }
  }

 private:
  const Mox::Ptr<const Mox::EntityBase> entity_;
  std::vector<std::pair<const AttrInfo*, Mox::Value>> values_;
};

// Sets a mark at any change of an entity and of those below it.
class ChangeMark final : public Mox::TreeNotifiee {
 public:
  ChangeMark(Mox::Ptr<const Mox::EntityBase> entity, bool& mark)
      : entity_(std::move(entity)), mark_(mark) {
    entity_->treeNotifieeAdd(this);
  }
  ~ChangeMark() override { entity_->treeNotifieeRemove(this); }

  void onAttr(const Mox::EntityBase&, Mox::AttrId) override { mark_ = true; }
  void onMember(const Mox::EntityBase&, Mox::AttrId, Mox::U32) override { mark_ = true; }
  void onCollection(const Mox::EntityBase&, Mox::AttrId) override { mark_ = true; }

 private:
  const Mox::Ptr<const Mox::EntityBase> entity_;
  bool& mark_;
};

// Tells of an interface whose querier stops or runs again, as its status stays as it was.
class RunningWatcher {
 public:
  RunningWatcher(Mox::Ptr<const InterfaceState> state, bool& changed)
      : state_(std::move(state)),
        mark_(state_, changed),
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
  ChangeMark mark_;
  bool running_;
  Ilvo::IpAddr address_;
};

}  // namespace

// Lets nothing but roles through while what is already there goes by.
class CopyWatcher::Entrance final : public EventSink {
 public:
  explicit Entrance(EventSink& sink) : sink_(sink) {}
  void rolesOnlyIs(bool rolesOnly) { rolesOnly_ = rolesOnly; }
  void event(const Event& event) override {
    if (!rolesOnly_ || event.kind == Event::role) sink_.event(event);
  }

 private:
  EventSink& sink_;
  bool rolesOnly_ = false;
};

class CopyWatcher::Watch {
 public:
  Watch(std::string interface, const AttrLogCopy::Interface& copy, EventSink& sink, bool& changed)
      : interface_(std::move(interface)),
        status_(copy.status),
        sink_(sink),
        configMark_(copy.config, changed),
        statusMark_(copy.status, changed),
        settings_(copy.config, AttrKind::stored),
        counters_(copy.status, AttrKind::counter),
        watcher_(interface_, copy.status, sink) {
    if (copy.state) running_.emplace(copy.state, changed);
  }

  bool isOf(const AttrLogCopy::Interface& copy) const { return copy.status == status_; }

  void flush() {
    if (running_) running_->flush(interface_, sink_);
    settings_.forEachChange([&](const char* name, const Mox::Value& value) {
      Event event = eventOf(Event::configChanged);
      event.attribute = name;
      event.value = value;
      sink_.event(event);
    });
    watcher_.flush();
  }

  void flushCounters() {
    Event event = eventOf(Event::counters);
    counters_.forEachChange([&](const char* name, const Mox::Value& value) {
      event.counts.emplace_back(name, std::get<Mox::U64>(value));
    });
    if (!event.counts.empty()) sink_.event(event);
  }

  void tellGone() { sink_.event(eventOf(Event::interfaceGone)); }

 private:
  Event eventOf(Event::Kind kind) const {
    return {.time = Mox::now(), .interface = interface_, .kind = kind};
  }

  const std::string interface_;
  const Mox::Ptr<const QuerierStatus> status_;
  EventSink& sink_;
  ChangeMark configMark_;
  ChangeMark statusMark_;
  Told settings_;
  Told counters_;
  StatusWatcher watcher_;
  std::optional<RunningWatcher> running_;
};

CopyWatcher::CopyWatcher(const AttrLogCopy::Interfaces& copies, Options options, EventSink& sink)
    : copies_(copies), options_(std::move(options)), sink_(std::make_unique<Entrance>(sink)) {}

CopyWatcher::~CopyWatcher() = default;

bool CopyWatcher::wanted(const std::string& name) const {
  return options_.interfaces.empty() || options_.interfaces.contains(name);
}

bool CopyWatcher::sameInterfaces() const {
  size_t same = 0;
  for (const auto& [name, copy] : copies_) {
    if (!wanted(name)) continue;
    const auto watch = watched_.find(name);
    if (watch == watched_.end() || !watch->second->isOf(copy)) return false;
    ++same;
  }
  return same == watched_.size();
}

void CopyWatcher::flush() {
  changed_ = false;
  dropThoseGone();
  addThoseNew();
  sink_->rolesOnlyIs(!begun_ && !options_.fromTheBeginning);
  for (const auto& [name, watch] : watched_) watch->flush();
  sink_->rolesOnlyIs(false);
  begun_ = true;
}

void CopyWatcher::flushCounters() {
  for (const auto& [name, watch] : watched_) watch->flushCounters();
}

void CopyWatcher::dropThoseGone() {
  for (auto at = watched_.begin(); at != watched_.end();) {
    const auto copy = copies_.find(at->first);
    if (copy != copies_.end() && at->second->isOf(copy->second)) {
      ++at;
    } else {
      at->second->tellGone();
      at = watched_.erase(at);
    }
  }
}

void CopyWatcher::addThoseNew() {
  for (const auto& [name, copy] : copies_) {
    if (!wanted(name) || watched_.contains(name)) continue;
    watched_[name] = std::make_unique<Watch>(name, copy, *sink_, changed_);
  }
}

}  // namespace Agent
