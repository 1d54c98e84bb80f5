// The changes of one querier's status since the last flush, and their events.
//
// Notified of the whole tree of the status, it notes each change with what stood there before. So
// no object is kept for a group or a source that does not change. A note holds its entity, which
// may have left its collection by the time of the flush.
#pragma once

#include <string>
#include <vector>

#include <Events/Event.h>
#include <Events/StatusWatcher.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/HashMap.h>
#include <Mox/Notifiee.h>
#include <MoxBase/Ptr.h>

namespace Agent {

class StatusJournal final : public Mox::TreeNotifiee {
 public:
  StatusJournal(std::string interface, Mox::Ptr<const Gmp::Igmp::QuerierStatus> status,
                EventSink& sink, EventScope scope, FirstGroups first, StatusWatcher& watcher);
  ~StatusJournal() override;

  void flush();

  void onAttr(const Mox::EntityBase& entity, Mox::AttrId id) override;
  void onMember(const Mox::EntityBase& entity, Mox::AttrId id, Mox::U32 key) override;
  void onCollection(const Mox::EntityBase&, Mox::AttrId) override {}
  void onMemberGone(const Mox::EntityBase& entity, Mox::AttrId id,
                    const Mox::EntityBase& member) override;

 private:
  using Group = Gmp::Igmp::QuerierGroupStatus;
  using Source = Gmp::Igmp::QuerierSourceStatus;
  using Addr = Ilvo::IpAddr;
  using Place = Mox::U32;  // in the vector of notes

  // What a source is to those who send to the group. In an EXCLUDE group an expired source is an
  // excluded one, in an INCLUDE group it is about to go.
  enum SourceState { absent, joined, excluded };

  struct SourceNote {
    Mox::Ptr<const Source> source;
    Place group;
    bool isNew;
    bool wasExpired;
    bool isGone = false;
    bool isReported = false;
  };
  struct GroupNote {
    Mox::Ptr<const Group> group;
    bool isNew;
    Gmp::Igmp::IgmpFilterMode modeBefore;
    bool isGone = false;
    bool modeChanged = false;
    Mox::HashMap<Addr, Place> sources = {};
    Mox::U32 joinedSources = 0;
    Mox::U32 excludedSources = 0;
    Mox::U32 leftSources = 0;
    bool sourcesReported = false;
    bool isReported = false;  // as changed
    bool cameAndWent() const { return isNew && isGone; }
  };
  // The notes in the order in which they were made.
  struct Line {
    enum What { groupCame, groupChanged, groupGone, source } what;
    Place place;
  };

  void begin(FirstGroups first);
  void noteKnown(const Group& group);
  void noteVersion(const Group& group);
  Place noteGroup(const Group& group, bool isNew);
  Place noteSource(Place group, const Source& source, bool isNew, bool wasExpired);
  void noteGroupCame(const Group& group);
  // The note of that group in this journal, made if need be.
  Place placeOf(const Group& group);
  void add(Line::What what, Place place);

  SourceState before(const SourceNote& note) const;
  SourceState now(const SourceNote& note) const;
  // A mode decides what expired sources are, those that did not change included.
  void noteMeaningsChanged();
  void countSources();

  Event eventOf(Event::Kind kind) const;
  void reportRole();
  void report(const Line& line);
  void reportGroup(Event::Kind kind, const Group& group);
  Gmp::Igmp::IgmpVersion reportedVersion(Addr group) const;
  void reportChanged(Place place);
  void reportSource(SourceNote& note);
  void reportSum(const GroupNote& note);

  const std::string interface_;
  const Mox::Ptr<const Gmp::Igmp::QuerierStatus> status_;
  EventSink& sink_;
  const EventScope scope_;
  StatusWatcher& watcher_;
  // The version that was reported last of each group, as far as it is not the usual one.
  Gmp::Igmp::IgmpVersion usualVersion_ = Gmp::Igmp::igmpVersionUnknown;
  Mox::HashMap<Addr, Gmp::Igmp::IgmpVersion> otherVersions_;
  std::vector<Line> lines_;
  std::vector<GroupNote> groups_;
  std::vector<SourceNote> sources_;
  Mox::HashMap<Addr, Place> placeOfGroup_;  // of those that are there
  Gmp::Igmp::QuerierStatus::QuerierState state_ =
      Gmp::Igmp::QuerierStatus::querierStateInitial;  // the role that was reported last
  Addr elected_;
};

}  // namespace Agent
