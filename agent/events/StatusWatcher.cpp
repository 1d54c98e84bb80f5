#include <Events/StatusWatcher.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <Mox/ActivityClock.h>
#include <Mox/HashMap.h>

namespace Agent {

using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierSourceStatus;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::Ptr;

namespace {

class GroupWatch;
class SourceWatch;

// A change to be reported, in the order in which changes happened. It holds its entity, which may
// have left its collection by the time of the report.
struct Change {
  enum What { groupCame, groupTouched, groupGone, sourceTouched };
  What what;
  std::shared_ptr<GroupWatch> group;
  std::shared_ptr<SourceWatch> source = nullptr;
};

// Every change marks the watcher as one that has something to report.
class Journal {
 public:
  explicit Journal(StatusWatcher& watcher) : watcher_(watcher) {}
  void add(Change change) {
    changes_.push_back(std::move(change));
    watcher_.markPending();
  }
  std::vector<Change> taken() { return std::exchange(changes_, {}); }

 private:
  StatusWatcher& watcher_;
  std::vector<Change> changes_;
};

template <class Map>
std::vector<IpAddr> sortedKeys(const Map& map) {
  std::vector<IpAddr> keys = map.keys();
  std::sort(keys.begin(), keys.end());
  return keys;
}

class SourceWatch final : public QuerierSourceStatus::NotifieeConst,
                          public std::enable_shared_from_this<SourceWatch> {
 public:
  enum State { none, joined, excluded };

  SourceWatch(const Ptr<QuerierSourceStatus>& source, GroupWatch& group)
      : NotifieeConst(source), group_(group) {}

  void onExpired() override { touch(); }
  void touch();
  void goneIs() {
    gone_ = true;
    touch();
  }

  IpAddr addr() const { return notifier()->sourceAddr(); }
  // In an EXCLUDE group an expired source is an excluded one, in an INCLUDE group it is about to
  // go.
  State state(bool inExclude) const {
    if (gone_) return none;
    if (!notifier()->expired()) return joined;
    return inExclude ? excluded : none;
  }
  // True when the state is not the one that was reported last.
  bool isNews(State state) {
    touched_ = false;
    return std::exchange(reported_, state) != state;
  }

 private:
  GroupWatch& group_;
  State reported_ = none;
  bool touched_ = false;
  bool gone_ = false;
};

class GroupWatch final : public QuerierGroupStatus::NotifieeConst,
                         public std::enable_shared_from_this<GroupWatch> {
 public:
  using Sources = Mox::HashMap<IpAddr, std::shared_ptr<SourceWatch>>;

  GroupWatch(const Ptr<QuerierGroupStatus>& group, Journal& journal)
      : NotifieeConst(group), journal_(journal) {}

  void begin() {
    journal_.add({Change::groupCame, shared_from_this()});
    for (const IpAddr addr : sortedKeys(notifier()->source())) onSource(addr);
  }
  void goneIs() {
    gone_ = true;
    journal_.add({Change::groupGone, shared_from_this()});
  }
  bool gone() const { return gone_; }

  using NotifieeConst::onSource;
  void onSource(IpAddr addr) override {
    const Ptr<QuerierSourceStatus> source = notifier()->source(addr);
    const std::shared_ptr<SourceWatch>* watched = sources_.find(addr);
    if (source && watched == nullptr) {
      sources_.insert(addr, std::make_shared<SourceWatch>(source, *this));
      (*sources_.find(addr))->touch();
    } else if (!source && watched != nullptr) {
      (*watched)->goneIs();
      sources_.erase(addr);
    }
  }
  void onFilterMode() override { touch(); }
  void onCompatibilityMode() override { touch(); }
  void touch() {
    if (!std::exchange(touched_, true)) {
      journal_.add({Change::groupTouched, shared_from_this()});
    }
  }
  void touch(SourceWatch& source) {
    journal_.add({Change::sourceTouched, shared_from_this(), source.shared_from_this()});
  }

  bool inExclude() const { return notifier()->filterMode() == Gmp::Igmp::filterModeExclude; }
  // True when mode or version are not those that were reported last.
  bool isNews() {
    touched_ = false;
    const QuerierGroupStatus& group = *notifier();
    const bool modeIsNews = std::exchange(mode_, group.filterMode()) != group.filterMode();
    const bool versionIsNews =
        std::exchange(version_, group.compatibilityMode()) != group.compatibilityMode();
    return modeIsNews || versionIsNews;
  }
  const Sources& sources() const { return sources_; }

 private:
  Journal& journal_;
  Sources sources_;
  Gmp::Igmp::IgmpFilterMode mode_ = Gmp::Igmp::filterModeInclude;
  Gmp::Igmp::IgmpVersion version_ = Gmp::Igmp::igmpVersionUnknown;
  bool touched_ = false;
  bool gone_ = false;
};

void SourceWatch::touch() {
  if (!std::exchange(touched_, true)) group_.touch(*this);
}

}  // namespace

class StatusWatcher::Watch final : public QuerierStatus::NotifieeConst {
 public:
  Watch(std::string interface, Ptr<const QuerierStatus> status, EventSink& sink,
        StatusWatcher& owner)
      : NotifieeConst(std::move(status)),
        interface_(std::move(interface)),
        sink_(sink),
        owner_(owner),
        journal_(owner) {
    const QuerierStatus::GroupMap& groups = notifier()->group();
    for (auto at = groups.begin(); at != groups.end(); ++at) onGroup(at.key());
  }

  void onState() override { owner_.markPending(); }
  void onElectedQuerierAddr() override { owner_.markPending(); }
  using NotifieeConst::onGroup;
  void onGroup(IpAddr addr) override {
    const Ptr<QuerierGroupStatus> group = notifier()->group(addr);
    const std::shared_ptr<GroupWatch>* watched = groups_.find(addr);
    if (group && watched == nullptr) {
      const auto added = std::make_shared<GroupWatch>(group, journal_);
      groups_.insert(addr, added);
      added->begin();
    } else if (!group && watched != nullptr) {
      (*watched)->goneIs();
      groups_.erase(addr);
    }
  }

  void flush() {
    reportRole();
    for (const Change& change : journal_.taken()) report(change);
  }

 private:
  Event eventOf(Event::Kind kind) const {
    return {.time = Mox::now(), .interface = interface_, .kind = kind};
  }

  void reportRole() {
    const QuerierStatus& status = *notifier();
    const bool stateIsNews = std::exchange(state_, status.state()) != status.state();
    const bool addressIsNews =
        std::exchange(elected_, status.electedQuerierAddr()) != status.electedQuerierAddr();
    if (!stateIsNews && !addressIsNews) return;
    Event event = eventOf(Event::role);
    event.state = state_;
    event.address = elected_;
    sink_.event(event);
  }

  void report(const Change& change) {
    switch (change.what) {
      case Change::groupCame:
        change.group->isNews();  // so that only a later change is
        reportGroup(Event::groupJoined, *change.group);
        return;
      case Change::groupTouched:
        if (change.group->gone()) return;  // it fell back to INCLUDE before it went
        if (change.group->isNews()) reportGroup(Event::groupChanged, *change.group);
        // The meaning of an expired source depends on the filter mode.
        for (const IpAddr addr : sortedKeys(change.group->sources())) {
          reportSource(*change.group, **change.group->sources().find(addr));
        }
        return;
      case Change::groupGone: reportGroup(Event::groupLeft, *change.group); return;
      case Change::sourceTouched: reportSource(*change.group, *change.source); return;
    }
  }

  void reportGroup(Event::Kind kind, const GroupWatch& watch) {
    const QuerierGroupStatus& group = *watch.notifier();
    Event event = eventOf(kind);
    event.group = group.groupAddr();
    event.address = group.lastReporter();
    event.version = group.compatibilityMode();
    event.filterMode = group.filterMode();
    sink_.event(event);
  }

  void reportSource(const GroupWatch& group, SourceWatch& source) {
    const SourceWatch::State state = source.state(group.inExclude());
    if (!source.isNews(state)) return;
    Event event = eventOf(state == SourceWatch::joined     ? Event::sourceJoined
                          : state == SourceWatch::excluded ? Event::sourceExcluded
                                                           : Event::sourceLeft);
    event.group = group.notifier()->groupAddr();
    event.source = source.addr();
    sink_.event(event);
  }

  const std::string interface_;
  EventSink& sink_;
  StatusWatcher& owner_;
  Journal journal_;
  Mox::HashMap<IpAddr, std::shared_ptr<GroupWatch>> groups_;
  QuerierStatus::QuerierState state_ = QuerierStatus::querierStateInitial;
  IpAddr elected_;
};

StatusWatcher::StatusWatcher(std::string interface, Ptr<const QuerierStatus> status,
                             EventSink& sink, Pending* pending)
    : pending_(pending) {
  markPending();  // the contents of the status are yet to be reported
  watch_ = std::make_unique<Watch>(std::move(interface), std::move(status), sink, *this);
}

StatusWatcher::~StatusWatcher() {
  if (!isPending_) return;
  std::erase(pending_->watchers_, this);
  std::ranges::replace(pending_->flushed_, this, nullptr);
}

void StatusWatcher::markPending() {
  if (pending_ == nullptr || std::exchange(isPending_, true)) return;
  pending_->watchers_.push_back(this);
}

void StatusWatcher::flush() { watch_->flush(); }

// The two lists take turns, so that neither is allocated anew.
void StatusWatcher::Pending::flush() {
  std::swap(watchers_, flushed_);
  for (StatusWatcher*& watcher : flushed_) {
    if (watcher == nullptr) continue;
    StatusWatcher& one = *std::exchange(watcher, nullptr);
    one.isPending_ = false;
    one.flush();
  }
  flushed_.clear();
}

}  // namespace Agent
