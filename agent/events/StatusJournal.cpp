#include "StatusJournal.h"

#include <algorithm>
#include <utility>

#include <Mox/ActivityClock.h>

namespace Agent {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::filterModeInclude;
using Gmp::Igmp::igmpVersionUnknown;
using Gmp::Igmp::QuerierStatus;
using Mox::AttrId;
using Mox::EntityBase;
using Mox::Ptr;

namespace {

// Beyond this number the changed sources of a group are one event.
constexpr size_t sourcesListed = 32;

template <class Map>
std::vector<Ilvo::IpAddr> sortedKeys(const Map& map) {
  std::vector<Ilvo::IpAddr> keys = map.keys();
  std::ranges::sort(keys);
  return keys;
}

// The memory of usual batches is kept; that of a first walk through a million groups is not.
template <class Notes>
void forget(Notes& notes) {
  constexpr size_t usually = 4096;
  if (notes.capacity() > usually) {
    notes = Notes();
  } else {
    notes.clear();
  }
}

template <class Entity>
AttrId attrId(const char* name) {
  return Mox::typeInfoOf<Entity>().attr(name)->id;
}

}  // namespace

StatusJournal::StatusJournal(std::string interface, Ptr<const QuerierStatus> status,
                             EventSink& sink, EventScope scope, FirstGroups first,
                             StatusWatcher& watcher)
    : interface_(std::move(interface)),
      status_(std::move(status)),
      sink_(sink),
      scope_(scope),
      watcher_(watcher) {
  status_->treeNotifieeAdd(this);
  begin(first);
}

StatusJournal::~StatusJournal() { status_->treeNotifieeRemove(this); }

void StatusJournal::begin(FirstGroups first) {
  if (scope_ == EventScope::none) return;
  const QuerierStatus::GroupMap& groups = status_->group();
  for (auto at = groups.begin(); at != groups.end(); ++at) {
    if (first == FirstGroups::reported) {
      noteGroupCame(**at);
    } else {
      noteKnown(**at);
    }
  }
}

void StatusJournal::noteKnown(const Group& group) {
  group.treeWatchedIs();
  for (const auto& [addr, source] : group.source()) source->treeWatchedIs();
  noteVersion(group);
}

// The querier has no version before its machine runs, but has no groups then either.
void StatusJournal::noteVersion(const Group& group) {
  if (usualVersion_ == igmpVersionUnknown) usualVersion_ = status_->querierVersion();
  if (group.compatibilityMode() == usualVersion_) {
    otherVersions_.erase(group.groupAddr());
  } else {
    otherVersions_.insert(group.groupAddr(), group.compatibilityMode());
  }
}

void StatusJournal::onAttr(const EntityBase& entity, AttrId id) {
  static const AttrId state = attrId<QuerierStatus>("state");
  static const AttrId elected = attrId<QuerierStatus>("electedQuerierAddr");
  static const AttrId mode = attrId<Group>("filterMode");
  static const AttrId version = attrId<Group>("compatibilityMode");
  static const AttrId expired = attrId<Source>("expired");
  if (&entity == status_.get()) {
    if (id == state || id == elected) watcher_.markPending();
  } else if (scope_ == EventScope::none) {
    return;
  } else if (entity.parent() == status_.get()) {
    if (id != mode && id != version) return;
    const auto& group = static_cast<const Group&>(entity);
    const Place place = placeOf(group);
    GroupNote& note = groups_[place];
    if (id == mode && !std::exchange(note.modeChanged, true)) {
      note.modeBefore =
          group.filterMode() == filterModeExclude ? filterModeInclude : filterModeExclude;
    }
    add(Line::groupChanged, place);
  } else if (id == expired) {
    const auto& source = static_cast<const Source&>(entity);
    const Place group = placeOf(static_cast<const Group&>(*entity.parent()));
    if (groups_[group].sources.contains(source.sourceAddr())) return;
    noteSource(group, source, false, !source.expired());
  }
}

void StatusJournal::onMember(const EntityBase& entity, AttrId, Mox::U32 key) {
  if (scope_ == EventScope::none) return;
  if (&entity == status_.get()) {
    const Ptr<Group> group = status_->group(Addr(key));
    if (group && !placeOfGroup_.contains(Addr(key))) noteGroupCame(*group);
    return;
  }
  const auto& group = static_cast<const Group&>(entity);
  const Ptr<Source> source = group.source(Addr(key));
  if (!source) return;
  const Place place = placeOf(group);
  if (!groups_[place].sources.contains(Addr(key))) noteSource(place, *source, true, false);
}

void StatusJournal::onMemberGone(const EntityBase& entity, AttrId, const EntityBase& member) {
  if (scope_ == EventScope::none) return;
  if (&entity == status_.get()) {
    const auto& group = static_cast<const Group&>(member);
    const Place place = placeOf(group);
    groups_[place].isGone = true;
    placeOfGroup_.erase(group.groupAddr());
    add(Line::groupGone, place);
    return;
  }
  const auto& source = static_cast<const Source&>(member);
  const Place group = placeOf(static_cast<const Group&>(entity));
  const Place* noted = groups_[group].sources.find(source.sourceAddr());
  const Place place =
      noted != nullptr ? *noted : noteSource(group, source, false, source.expired());
  sources_[place].isGone = true;
  groups_[group].sources.erase(source.sourceAddr());
}

void StatusJournal::add(Line::What what, Place place) {
  lines_.push_back({what, place});
  watcher_.markPending();
}

StatusJournal::Place StatusJournal::noteGroup(const Group& group, bool isNew) {
  const auto place = static_cast<Place>(groups_.size());
  groups_.push_back({.group = &group, .isNew = isNew, .modeBefore = group.filterMode()});
  placeOfGroup_.insert(group.groupAddr(), place);
  return place;
}

StatusJournal::Place StatusJournal::placeOf(const Group& group) {
  const Place* found = placeOfGroup_.find(group.groupAddr());
  return found != nullptr ? *found : noteGroup(group, false);
}

StatusJournal::Place StatusJournal::noteSource(Place group, const Source& source, bool isNew,
                                               bool wasExpired) {
  const auto place = static_cast<Place>(sources_.size());
  sources_.push_back({.source = &source, .group = group, .isNew = isNew, .wasExpired = wasExpired});
  groups_[group].sources.insert(source.sourceAddr(), place);
  add(Line::source, place);
  return place;
}

// With the sources that it has already, in the order of their addresses.
void StatusJournal::noteGroupCame(const Group& group) {
  group.treeWatchedIs();
  const Place place = noteGroup(group, true);
  add(Line::groupCame, place);
  for (const Addr addr : sortedKeys(group.source())) {
    const Ptr<Source> source = group.source(addr);
    source->treeWatchedIs();
    noteSource(place, *source, true, false);
  }
}

StatusJournal::SourceState StatusJournal::before(const SourceNote& note) const {
  if (note.isNew) return absent;
  if (!note.wasExpired) return joined;
  return groups_[note.group].modeBefore == filterModeExclude ? excluded : absent;
}

StatusJournal::SourceState StatusJournal::now(const SourceNote& note) const {
  if (note.isGone) return absent;
  if (!note.source->expired()) return joined;
  return groups_[note.group].group->filterMode() == filterModeExclude ? excluded : absent;
}

void StatusJournal::flush() {
  reportRole();
  noteMeaningsChanged();
  countSources();
  for (const Line& line : lines_) report(line);
  forget(lines_);
  forget(groups_);
  forget(sources_);
  placeOfGroup_.clear();
}

void StatusJournal::noteMeaningsChanged() {
  for (Place place = 0; place < groups_.size(); ++place) {
    const Group& group = *groups_[place].group;
    if (groups_[place].isNew || groups_[place].isGone ||
        groups_[place].modeBefore == group.filterMode()) {
      continue;
    }
    for (const auto& [addr, source] : group.source()) {
      if (source->expired() && !groups_[place].sources.contains(addr)) {
        noteSource(place, *source, false, true);
      }
    }
  }
}

void StatusJournal::countSources() {
  for (const SourceNote& note : sources_) {
    const SourceState state = now(note);
    GroupNote& group = groups_[note.group];
    if (state == before(note)) continue;
    ++(state == joined     ? group.joinedSources
       : state == excluded ? group.excludedSources
                           : group.leftSources);
  }
}

Event StatusJournal::eventOf(Event::Kind kind) const {
  return {.time = Mox::now(), .interface = interface_, .kind = kind};
}

void StatusJournal::reportRole() {
  const bool stateIsNews = std::exchange(state_, status_->state()) != status_->state();
  const bool addressIsNews =
      std::exchange(elected_, status_->electedQuerierAddr()) != status_->electedQuerierAddr();
  if (!stateIsNews && !addressIsNews) return;
  Event event = eventOf(Event::role);
  event.state = state_;
  event.address = elected_;
  sink_.event(event);
}

void StatusJournal::report(const Line& line) {
  if (line.what == Line::source) {
    SourceNote& source = sources_[line.place];
    if (!groups_[source.group].cameAndWent()) reportSource(source);
    return;
  }
  const GroupNote& note = groups_[line.place];
  if (note.cameAndWent()) return;
  switch (line.what) {
    case Line::groupCame: return reportGroup(Event::groupJoined, *note.group);
    case Line::groupGone: return reportGroup(Event::groupLeft, *note.group);
    default: return reportChanged(line.place);
  }
}

void StatusJournal::reportGroup(Event::Kind kind, const Group& group) {
  Event event = eventOf(kind);
  event.group = group.groupAddr();
  event.address = group.lastReporter();
  event.version = group.compatibilityMode();
  event.filterMode = group.filterMode();
  if (kind == Event::groupLeft) {
    otherVersions_.erase(group.groupAddr());
  } else {
    noteVersion(group);
  }
  sink_.event(event);
}

Gmp::Igmp::IgmpVersion StatusJournal::reportedVersion(Addr group) const {
  const Gmp::Igmp::IgmpVersion* other = otherVersions_.find(group);
  return other == nullptr ? usualVersion_ : *other;
}

// A new mode changes what the sources mean, so they follow it at once.
void StatusJournal::reportChanged(Place place) {
  GroupNote& note = groups_[place];
  const Group& group = *note.group;
  if (note.isNew || note.isGone || std::exchange(note.isReported, true)) return;
  const bool modeIsNews = note.modeBefore != group.filterMode();
  const bool versionIsNews = group.compatibilityMode() != reportedVersion(group.groupAddr());
  if (modeIsNews || versionIsNews) reportGroup(Event::groupChanged, group);
  if (!modeIsNews) return;
  for (const Addr addr : sortedKeys(group.source())) {
    // One that is new has its own place, perhaps behind the end of one of the same address.
    const Place* source = note.sources.find(addr);
    if (source != nullptr && !sources_[*source].isNew) reportSource(sources_[*source]);
  }
}

void StatusJournal::reportSource(SourceNote& note) {
  if (std::exchange(note.isReported, true)) return;
  const SourceState state = now(note);
  if (state == before(note)) return;
  GroupNote& group = groups_[note.group];
  if (scope_ == EventScope::changes &&
      group.joinedSources + group.excludedSources + group.leftSources > sourcesListed) {
    if (!std::exchange(group.sourcesReported, true)) reportSum(group);
    return;
  }
  Event event = eventOf(state == joined     ? Event::sourceJoined
                        : state == excluded ? Event::sourceExcluded
                                            : Event::sourceLeft);
  event.group = group.group->groupAddr();
  event.source = note.source->sourceAddr();
  sink_.event(event);
}

void StatusJournal::reportSum(const GroupNote& note) {
  Event event = eventOf(Event::sourcesChanged);
  event.group = note.group->groupAddr();
  event.sourcesJoined = note.joinedSources;
  event.sourcesExcluded = note.excludedSources;
  event.sourcesLeft = note.leftSources;
  sink_.event(event);
}

}  // namespace Agent
