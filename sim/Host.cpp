#include "Host.h"

#include <algorithm>

namespace Sim {

namespace {

constexpr Seconds v1QuerierPresent = 400.0;       // RFC 2236 4
constexpr Seconds v3UnsolicitedInterval = 1.0;    // RFC 3376 8.11
constexpr Seconds oldUnsolicitedInterval = 10.0;  // RFC 2236 8.10

}  // namespace

unsigned Host::mode(Seconds now) const {
  unsigned mode = setup_.version;
  if (now < v2QuerierUntil_) mode = std::min(mode, 2U);
  if (now < v1QuerierUntil_) mode = std::min(mode, 1U);
  return mode;
}

Mask Host::wants(Seconds now) const {
  const bool old = mode(now) < 3;
  Mask all = 0;
  for (unsigned g = 0; g < groupsMost; ++g) {
    if (groups_[g].isGhost) continue;
    const Mask want = groups_[g].want;
    all |= inGroup(g, old && want != 0 ? wholeGroup : want);
  }
  return all;
}

Seconds Host::wantsSince(unsigned channel, Seconds now) const {
  if ((wants(now) >> channel & 1U) == 0) return Mox::never;
  const Group& group = groups_[channel / channelsOfGroup];
  const unsigned at = channel % channelsOfGroup;
  if ((group.want >> at & 1U) != 0) return group.since[at];
  return std::max(group.joined, modeSince_);  // its version asks for the whole group
}

Mask Host::answering() const {
  Mask all = generalAnswer_ < Mox::never ? allChannels : 0;
  for (unsigned g = 0; g < groupsMost; ++g) {
    const Group& group = groups_[g];
    if (group.answer < Mox::never) all |= inGroup(g, answerOf(group));
  }
  return all;
}

Mask Host::answeringSpecific() const {
  Mask all = 0;
  for (unsigned g = 0; g < groupsMost; ++g) {
    if (groups_[g].isAsked) all |= inGroup(g, answerOf(groups_[g]));
  }
  return all;
}

Mask Host::answerOf(const Group& group) {
  return group.answersSources ? group.askedSources : wholeGroup;
}

void Host::endAnswer(Group& group) {
  group.answer = Mox::never;
  group.isAsked = false;
}

Seconds Host::nextDue() const {
  if (!leaves_.empty()) return 0.0;
  Seconds due = std::min(generalAnswer_, nextChange_);
  for (const Group& group : groups_) due = std::min(due, group.answer);
  return due;
}

void Host::crash() {
  groups_ = {};
  generalAnswer_ = nextChange_ = Mox::never;
  leaves_.clear();
  v1QuerierUntil_ = v2QuerierUntil_ = 0.0;
  robustness_ = setup_.robustness;
  mode_ = 0;
}

// A change of the mode drops pending answers and repetitions (RFC 3376 7.2.1).
void Host::enterMode(Seconds now) {
  const unsigned next = mode(now);
  if (next == mode_) return;
  unanswered_ |= answering() & wants(now);
  mode_ = next;
  modeSince_ = now;
  generalAnswer_ = nextChange_ = Mox::never;
  for (Group& group : groups_) {
    group = {
        .want = group.want, .since = group.since, .joined = group.joined, .isGhost = group.isGhost};
  }
}

void Host::wantIs(Seconds now, unsigned number, Mask mask) {
  enterMode(now);
  Group& group = groups_[number];
  const Mask former = group.isGhost ? 0 : group.want;
  group.isGhost = setup_.fault == Fault::ghost && mask == 0;
  if (mask == former || group.isGhost) return;
  group.want = mask;
  if (former == 0) group.joined = now;
  forEachChannel(mask & ~former, [&](unsigned at) { group.since[at] = now; });
  if (mode_ == 3) {
    changeV3(now, group, former);
  } else {
    changeOld(now, number, former);
  }
}

// RFC 3376 5.1: a change of the filter mode is repeated as such; later changes of sources merge.
void Host::changeV3(Seconds now, Group& group, Mask former) {
  const Mask changed = group.want ^ former;
  if ((changed & rest) != 0) {
    group.modeChanges = robustness_;
    group.sourceChanges = {};
  } else {
    for (unsigned s = 0; s < sourcesMost; ++s) {
      if ((changed >> s & 1U) != 0) group.sourceChanges[s] = robustness_;
    }
  }
  nextChange_ = now;
}

void Host::changeOld(Seconds now, unsigned number, Mask former) {
  Group& group = groups_[number];
  if (former == 0) {
    group.unsolicited = robustness_;
    group.answer = now;
  } else if (group.want == 0) {
    if (mode_ == 2 && group.isLastReporter) leaves_.push_back(number);
    group = {};
  }
}

void Host::receive(Seconds now, const Frame& frame) {
  if (frame.isQuery()) {
    if (const std::optional<Query> query = queryOf(frame.packet())) {
      followQuerier(now, *query);
      enterMode(now);
      answer(now, *query);
    }
    return;
  }
  enterMode(now);
  // A host of version 1 knows reports of its own version only; version 3 suppresses nothing.
  const bool suppresses =
      frame.kind == Frame::report && (mode_ == 1 ? frame.version == 1 : frame.version <= 2);
  if (mode_ == 3 || !suppresses) return;
  for (unsigned g = 0; g < groupsMost; ++g) {
    Group& group = groups_[g];
    if (ofGroup(frame.asserts, g) == 0 || group.answer == Mox::never) continue;
    endAnswer(group);
    group.unsolicited = 0;
    group.isLastReporter = false;
    unanswered_ |= inGroup(g, wholeGroup);
  }
}

// RFC 3376 7.2.1: a query of version 1, or a general one of version 2, comes from an older querier.
void Host::followQuerier(Seconds now, const Query& query) {
  if (query.version == 1 && setup_.version > 1) {
    const Seconds present =
        setup_.version == 2 ? v1QuerierPresent : robustness_ * queryInterval_ + query.maxResponse;
    v1QuerierUntil_ = now + present;
  } else if (query.version == 2 && query.isGeneral && setup_.version == 3) {
    v2QuerierUntil_ = now + robustness_ * queryInterval_ + query.maxResponse;
  } else if (query.version == 3 && setup_.version == 3) {
    if (query.robustness != 0) robustness_ = query.robustness;
    if (query.interval != 0.0) queryInterval_ = query.interval;
  }
}

void Host::answer(Seconds now, const Query& query) {
  // RFC 1112 has no queries for a group, and they are not sent to the group that it knows.
  if (mode_ == 1 && setup_.version == 1 && !query.isGeneral) return;
  if (mode_ == 3) {
    answerV3(now, query);
  } else {
    answerOld(now, query);
  }
}

// RFC 2236 3: a delay that is pending is only ever shortened.
void Host::answerOld(Seconds now, const Query& query) {
  const Seconds most = mode_ == 1 ? 10.0 : query.maxResponse;
  for (unsigned g = 0; g < groupsMost; ++g) {
    Group& group = groups_[g];
    if (group.want == 0 || (!query.isGeneral && query.group != g)) continue;
    if (group.answer > now + most) group.answer = now + random_.between(0.0, most);
    if (!query.isGeneral) group.isAsked = true;
  }
}

// RFC 3376 5.2.
void Host::answerV3(Seconds now, const Query& query) {
  const Seconds at = now + random_.between(0.0, query.maxResponse);
  if (generalAnswer_ <= at) return;
  if (query.isGeneral) {
    generalAnswer_ = at;
    return;
  }
  Group& group = groups_[query.group];
  if (group.want == 0) return;
  if (group.answer == Mox::never) {
    group.answersSources = query.namesSources;
    group.askedSources = query.sources;
  } else if (!query.namesSources) {
    group.answersSources = false;
  } else if (group.answersSources) {
    group.askedSources |= query.sources;
  }
  group.answer = std::min(group.answer, at);
  group.isAsked = true;
}

std::optional<Frame> Host::act(Seconds now) {
  enterMode(now);
  if (!leaves_.empty()) {
    const unsigned group = leaves_.front();
    leaves_.pop_front();
    return Frame{.sender = setup_.node,
                 .sent = now,
                 .kind = Frame::leave,
                 .version = 2,
                 .drops = inGroup(group, wholeGroup),
                 .bytes = leaveFrame(setup_.number, group)};
  }
  return mode_ == 3 ? actV3(now) : actOld(now);
}

std::optional<Frame> Host::actOld(Seconds now) {
  for (unsigned g = 0; g < groupsMost; ++g) {
    Group& group = groups_[g];
    if (group.answer > now) continue;
    endAnswer(group);
    group.isLastReporter = true;
    if (group.unsolicited > 0 && --group.unsolicited > 0) {
      group.answer = now + random_.between(0.0, oldUnsolicitedInterval);
    }
    return oldFrame(now, g);
  }
  return {};
}

std::optional<Frame> Host::actV3(Seconds now) {
  if (nextChange_ <= now) return changeReport(now);
  if (generalAnswer_ <= now) {
    generalAnswer_ = Mox::never;
    std::deque<Record> records;
    for (unsigned g = 0; g < groupsMost; ++g) {
      if (groups_[g].want != 0) records.push_back(currentState(g, groups_[g].want));
    }
    if (!records.empty()) return v3Frame(now, records);
  }
  for (unsigned g = 0; g < groupsMost; ++g) {
    Group& group = groups_[g];
    if (group.answer > now) continue;
    endAnswer(group);
    if (group.want == 0) continue;
    if (!group.answersSources) return v3Frame(now, {currentState(g, group.want)});
    const Mask sources = group.askedSources & group.want;
    if (sources != 0) return v3Frame(now, {{.type = Record::isIn, .group = g, .sources = sources}});
  }
  return {};
}

Record Host::currentState(unsigned number, Mask want) {
  if ((want & rest) == 0) return {.type = Record::isIn, .group = number, .sources = want};
  return {.type = Record::isEx, .group = number, .sources = namedSources & ~want};
}

Frame Host::changeReport(Seconds now) {
  std::deque<Record> records;
  bool again = false;
  for (unsigned g = 0; g < groupsMost; ++g) {
    Group& group = groups_[g];
    Mask allowed = 0;
    Mask blocked = 0;
    if (group.modeChanges > 0) {
      const bool exclude = (group.want & rest) != 0;
      records.push_back({.type = exclude ? Record::toEx : Record::toIn,
                         .group = g,
                         .sources = namedSources & (exclude ? ~group.want : group.want)});
      again = --group.modeChanges > 0 || again;
    } else {
      for (unsigned s = 0; s < sourcesMost; ++s) {
        if (group.sourceChanges[s] == 0) continue;
        ((group.want >> s & 1U) != 0 ? allowed : blocked) |= 1U << s;
        again = --group.sourceChanges[s] > 0 || again;
      }
    }
    if (allowed != 0) records.push_back({.type = Record::allow, .group = g, .sources = allowed});
    if (blocked != 0) records.push_back({.type = Record::block, .group = g, .sources = blocked});
    for (const unsigned count : group.sourceChanges) again = count > 0 || again;
  }
  nextChange_ = again ? now + random_.between(0.0, v3UnsolicitedInterval) : Mox::never;
  Frame frame = v3Frame(now, records);
  frame.isUnsolicited = true;
  return frame;
}

Frame Host::v3Frame(Seconds now, const std::deque<Record>& records) {
  const std::vector<Record> all(records.begin(), records.end());
  Frame frame{.sender = setup_.node, .sent = now, .kind = Frame::report, .version = 3};
  for (const Record& each : all) {
    frame.asserts |= assertedBy(each);
    frame.drops |= droppedBy(each);
  }
  frame.records = all;
  frame.wanted = frame.asserts & wants(now);
  frame.bytes = v3ReportFrame(setup_.number, all);
  return frame;
}

Frame Host::oldFrame(Seconds now, unsigned number) {
  const Mask asserts = inGroup(number, wholeGroup);
  return {.sender = setup_.node,
          .sent = now,
          .kind = Frame::report,
          .version = static_cast<U8>(mode_),
          .isUnsolicited = groups_[number].unsolicited > 0,
          .asserts = asserts,
          .wanted = asserts & wants(now),
          .bytes = oldReportFrame(setup_.number, mode_, number)};
}

}  // namespace Sim
