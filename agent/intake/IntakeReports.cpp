// Reports and leaves: the senders and groups that are accepted, and how many new groups and queries
// they may cause. Records of version 3 are looked at one by one only where a rule or a limit needs
// it.
#include <algorithm>

#include <Intake/Intake.h>

#include "RecordPass.h"
#include "RecordReader.h"

namespace Agent {

using Ilvo::IpAddr;

namespace {

bool isSourceSpecific(IpAddr group) { return group.value() >> 24 == 232; }

}  // namespace

Intake::Refusal Intake::reportRefusal(const PacketView& view, unsigned version) const {
  if (const Refusal rule = frameRefusal(view)) return rule;
  if (config_->localReports() && !isLocal(view.ip().src())) return IntakeRule::foreignReport;
  if (config_->requireRouterAlert() && version > 1 && !view.ip().routerAlert()) {
    return IntakeRule::noRouterAlert;
  }
  if (version < config_->leastReportVersion()) return IntakeRule::oldVersion;
  return {};
}

Intake::Refusal Intake::groupRefusal(IpAddr group, bool includesSources) const {
  if (!config_->acceptedGroups().allows(group)) return IntakeRule::unacceptedGroup;
  if (config_->guardSourceSpecific() && isSourceSpecific(group) && !includesSources) {
    return IntakeRule::notSourceSpecific;
  }
  return {};
}

// The querier does not make groups of its boundary: they are its to count.
Intake::Refusal Intake::newGroupRefusal(IpAddr group, size_t pendingGroups) const {
  const size_t inProcess = Gmp::Igmp::membershipInProcess().groups + pendingGroups;
  const bool fits = querierStatus_->group().size() + pendingGroups < config_->maxGroups();
  if (fits && inProcess < process_.config->maxProcessGroups()) return {};
  if (querier_->checkMcastIntfBoundaryStatus(group)) return {};
  return fits ? IntakeRule::processGroupLimit : IntakeRule::groupLimit;
}

IntakeVerdict Intake::judgeOldReport(const PacketView& view, unsigned version) {
  noteMarks();
  if (const Refusal rule = reportRefusal(view, version)) return refuse(*rule, view, view.group());
  noteOwnAddress(view);
  const IpAddr group = view.group();
  if (!isLearnable(group)) return {view.received()};
  if (const Refusal rule = groupRefusal(group, false)) return refuse(*rule, view, group);
  if (const Refusal rule = newGroupRefusal(group, 0); rule && known(group) == nullptr) {
    return refuse(*rule, view, group);
  }
  return {view.received()};
}

// While hosts of version 1 are present, a leave is ignored and causes no query (RFC 3376 7.3.2).
IntakeVerdict Intake::judgeLeave(const PacketView& view, size_t mostCost) {
  if (const Refusal rule = reportRefusal(view, 2)) return refuse(*rule, view, view.group());
  noteOwnAddress(view);
  const IpAddr group = view.group();
  if (!isLearnable(group)) return {view.received()};
  if (const Refusal rule = groupRefusal(group, false)) return refuse(*rule, view, group);
  if (!asks()) return {view.received()};
  const GroupStatus* status = known(group);
  if (status == nullptr || status->compatibilityMode() == Gmp::Igmp::igmpVersion1) {
    return {view.received()};
  }
  const size_t sources = status->source().size();
  if (mostCost < ReceivedFrame::usualCost && sources > mostCost) {
    return {.packet = {}, .rest = view.received(), .isRefused = true};
  }
  if (mayAsk(1 + sourceQueries(sources))) return {.packet = view.received(), .cost = sources};
  return refuse(IntakeRule::queryLimit, view, group);
}

IntakeVerdict Intake::judgeV3Report(const PacketView& view, size_t mostCost) {
  noteMarks();
  if (const Refusal rule = reportRefusal(view, 3)) return refuse(*rule, view);
  noteOwnAddress(view);
  // The querier drops the whole report otherwise.
  if (querier_->querierConfig()->querierVersion() != Gmp::Igmp::igmpVersion3) {
    return {view.received()};
  }
  const std::optional<RecordSum> sum = recordSumOf(view);
  if (!sum) return {view.received()};
  RecordPass pass(*this, view, *sum, mostCost);
  if (pass.isNeeded()) return pass.run();
  return {view.received()};
}

}  // namespace Agent
