// The state machines and the congestion monitor by name: attributes, members, operations.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>
#include <Mox/Errors.h>
#include <Mox/ModelTypes.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AccessChecks.h"

namespace Gmp::Igmp {
namespace {

using Mox::Value;
using testing::ElementsAre;

constexpr IpAddr own(10, 0, 0, 1);
constexpr IpAddr host(10, 0, 0, 7);
constexpr IpAddr sender(10, 9, 0, 1);
constexpr IpAddr groupAddr(239, 1, 1, 1);

Ptr<Ilvo::Pkt> allowed(IpAddr of, IpAddr from) {
  return makePtr<Ilvo::Pkt>(
      Ilvo::buildV3Report({{.type = 5, .group = of, .sources = {from}}}, {.src = host}));
}

// A querier that has learnt one group with one source, in virtual time.
class MachineAccess : public testing::Test {
 protected:
  MachineAccess() {
    Mox::virtualTimeIs(1000.0);
    config_->querierVersionIs(igmpVersion3);
    querier_ = querierSmFactory(config_, status_, own, 1500, 31, wheel_, wheel_, wheel_, false);
    querier_->doRxPkt(allowed(groupAddr, sender));
  }
  ~MachineAccess() override { Mox::realTimeIs(); }

  const Ptr<Obel::TimerWheel> wheel_ = makePtr<Obel::TimerWheel>(1000.0);
  const Ptr<QuerierConfig> config_ = makePtr<QuerierConfig>("vlan10");
  const Ptr<QuerierStatus> status_ = makePtr<QuerierStatus>();
  Ptr<QuerierSm> querier_;
};

TEST_F(MachineAccess, querierReadsAndWritesAsDirectly) {
  using Q = QuerierSm;
  Q& querier = *querier_;
  AccessChecks checks(typeOf("Gmp::Igmp::QuerierSm"));
  checks.readOnly(querier, "name", &Q::name);
  checks.written(querier, "ipAddr", &Q::ipAddr);
  checks.written(querier, "mtu", &Q::mtu);
  checks.written(querier, "startupQueryIntervalDefault", &Q::startupQueryIntervalDefault);
  checks.written(querier, "otherQuerierTimerState", &Q::otherQuerierTimerState);
  checks.written(querier, "transitionToNonQuerier", &Q::transitionToNonQuerier);
  checks.written(querier, "initialQuerySent", &Q::initialQuerySent);
  checks.written(querier, "dstGroup", &Q::dstGroup);
  checks.written(querier, "writableCount", &Q::writableCount);
  checks.written(querier, "queryIntervalTimerState", &Q::queryIntervalTimerState);
  checks.written(querier, "initGroupStatusBookmark", &Q::initGroupStatusBookmark);
  checks.written(querier, "debugYieldAfterOne", &Q::debugYieldAfterOne);
  checks.written(querier, "pktSrc", &Q::pktSrc);
  checks.written(querier, "initialized", &Q::initialized);
  checks.pointerWritten<Q, Q::Boundary>(querier, "mcastBoundaryIntfStatus",
                                        &Q::mcastBoundaryIntfStatus,
                                        makePtr<Ilvo::IntfBoundaryStatus>());
  checks.pointerWritten<Q, Ptr<Ilvo::Pkt>>(querier, "sendPkt", &Q::sendPkt, makePtr<Ilvo::Pkt>());
  checks.pointerWritten<Q, Ptr<GmpAttrLogSm>>(querier, "attrLogSm", &Q::attrLogSm,
                                              gmpAttrLogSmFactory(nullptr));
  const Q::Wheel other = makePtr<Obel::TimerWheel>(1000.0);
  checks.pointerWritten(querier, "otherQuerierTimer", &Q::otherQuerierTimer, other);
  checks.pointerWritten(querier, "queryIntervalTimer", &Q::queryIntervalTimer, other);
  checks.pointerWritten(querier, "initGroupStatusTimer", &Q::initGroupStatusTimer, other);
  checks.set(querier, "pendingRexmit", &Q::pendingRexmit, groupAddr);
  for (const char* seenBelow : {"querierConfig", "querierStatus", "groupSm", "handleInitialized",
                                "becomeQuerier", "clearCounters", "doRxPkt"}) {
    checks.other(seenBelow);
  }
  checks.expectAllSeen();
}

TEST_F(MachineAccess, querierLeadsToItsConfigurationStatusAndMonitor) {
  const Mox::TypeInfo& type = querier_->type();
  EXPECT_EQ(type.attr("querierConfig")->held(*querier_), config_.get());
  EXPECT_EQ(type.attr("querierStatus")->held(*querier_), status_.get());
  EXPECT_EQ(type.attr("attrLogSm")->held(*querier_), nullptr);
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  querier_->attrLogSmIs(monitor);
  EXPECT_EQ(type.attr("attrLogSm")->held(*querier_), monitor.get());
}

TEST_F(MachineAccess, partsOfTheQuerierRead) {
  EXPECT_EQ(Mox::attrValue(*querier_, "queryIntervalTimer"),
            Value(status_->generalQueryExpiryTime()));
  EXPECT_EQ(Mox::attrValue(*querier_, "otherQuerierTimer"), Value(never));
  EXPECT_EQ(Mox::attrValue(*querier_, "sendPkt"), Value(std::string()));
  EXPECT_EQ(Mox::attrValue(*querier_, "mcastBoundaryIntfStatus"), Value(std::string()));

  querier_->sendPktIs(makePtr<Ilvo::Pkt>(std::array<U8, 3>{0x11, 0x0a, 0xff}));
  EXPECT_EQ(Mox::attrValue(*querier_, "sendPkt"), Value(std::string("110aff")));
  const Ptr<Ilvo::IntfBoundaryStatus> boundary = makePtr<Ilvo::IntfBoundaryStatus>();
  boundary->boundaryIs(*Ilvo::IpGenPrefix::parse("239.1.0.0/16"), true);
  querier_->mcastBoundaryIntfStatusIs(boundary);
  EXPECT_EQ(Mox::attrValue(*querier_, "mcastBoundaryIntfStatus"),
            Value(std::string("239.1.0.0/16")));
}

TEST_F(MachineAccess, groupMachinesAreReadByKeyAndMadeByTheirOwnerOnly) {
  const Mox::CollectionInfo& groups = *querier_->type().collection("groupSm");
  EXPECT_THAT(groups.keys(*querier_), ElementsAre(groupAddr.value()));
  EXPECT_EQ(groups.find(*querier_, groupAddr.value()), querier_->groupSm(groupAddr).get());
  EXPECT_EQ(groups.find(*querier_, 1), nullptr);
  EXPECT_EQ(groups.add, nullptr);
  EXPECT_EQ(groups.remove, nullptr);
  EXPECT_EQ(&groups.memberType(), &querier_->groupSm(groupAddr)->type());
}

TEST_F(MachineAccess, groupMachineReadsAndWritesAsDirectly) {
  using G = QuerierGroupSm;
  G& machine = *querier_->groupSm(groupAddr);
  AccessChecks checks(typeOf("Gmp::Igmp::QuerierGroupSm"));
  checks.readOnly(machine, "name", &G::name);
  checks.readOnly(machine, "group", &G::group);
  checks.written(machine, "membershipTimerExpiry", &G::membershipTimerExpiry);
  checks.written(machine, "membershipTimerState", &G::membershipTimerState);
  checks.written(machine, "v1MembershipTimerState", &G::v1MembershipTimerState);
  checks.written(machine, "v2MembershipTimerState", &G::v2MembershipTimerState);
  checks.written(machine, "rexmitTimerExpiry", &G::rexmitTimerExpiry);
  checks.written(machine, "rexmitTimerState", &G::rexmitTimerState);
  checks.written(machine, "rexmitGroupQuery", &G::rexmitGroupQuery);
  checks.written(machine, "initialized", &G::initialized);
  checks.set(machine, "rexmitSource", &G::rexmitSource, IpAddr(10, 9, 9, 9));
  checks.set(machine, "rexmitClrSource", &G::rexmitClrSource, sender);
  checks.set(machine, "rexmitSetSource", &G::rexmitSetSource, sender);
  const QuerierSm::Wheel other = makePtr<Obel::TimerWheel>(1000.0);
  checks.pointerWritten(machine, "membershipTimer", &G::membershipTimer, other);
  checks.pointerWritten(machine, "v1MembershipTimer", &G::v1MembershipTimer, other);
  checks.pointerWritten(machine, "v2MembershipTimer", &G::v2MembershipTimer, other);
  checks.pointerWritten(machine, "rexmitTimer", &G::rexmitTimer, other);
  for (const char* seenBelow : {"groupStatus", "source", "querierSm"}) {
    checks.other(seenBelow);
  }
  checks.expectAllSeen();

  EXPECT_EQ(machine.type().attr("groupStatus")->held(machine), status_->group(groupAddr).get());
  EXPECT_EQ(machine.type().attr("querierSm")->held(machine), querier_.get());
  EXPECT_EQ(Mox::attrValue(machine, "v1MembershipTimer"), Value(never));
  EXPECT_STREQ(machine.type().attr("querierSm")->typeName, "Gmp::Igmp::QuerierSm");
}

TEST_F(MachineAccess, sourceMachineReadsAndWritesAsDirectly) {
  using S = QuerierGroupSourceSm;
  const Ptr<QuerierGroupSm> owner = querier_->groupSm(groupAddr);
  S& machine = *owner->source(sender);
  AccessChecks checks(typeOf("Gmp::Igmp::QuerierGroupSourceSm"));
  checks.readOnly(machine, "name", &S::name);
  checks.readOnly(machine, "addr", &S::addr);
  checks.written(machine, "sourceTimerExpiry", &S::sourceTimerExpiry);
  checks.written(machine, "sourceTimerState", &S::sourceTimerState);
  checks.written(machine, "rexmits", &S::rexmits);
  checks.written(machine, "initialized", &S::initialized);
  const QuerierSm::Wheel other = makePtr<Obel::TimerWheel>(1000.0);
  checks.pointerWritten(machine, "sourceTimer", &S::sourceTimer, other);
  for (const char* seenBelow : {"sourceStatus", "groupSm"}) {
    checks.other(seenBelow);
  }
  checks.expectAllSeen();

  EXPECT_EQ(machine.type().attr("sourceStatus")->held(machine),
            status_->group(groupAddr)->source(sender).get());
  EXPECT_EQ(machine.type().attr("groupSm")->held(machine), owner.get());
  EXPECT_STREQ(machine.type().attr("groupSm")->typeName, "Gmp::Igmp::QuerierGroupSm");
  EXPECT_EQ(Mox::attrValue(machine, "sourceTimer"), Value(machine.sourceTimerExpiry()));
  EXPECT_EQ(Mox::attrValue(machine, "fullName"),
            Value(std::string("vlan10/groupSm[239.1.1.1]/source[10.9.0.1]")));
}

TEST_F(MachineAccess, aSourceThatHasLeftItsGroupHasNoParent) {
  const Ptr<QuerierGroupSm> owner = querier_->groupSm(groupAddr);
  const Ptr<QuerierGroupSourceSm> machine = owner->source(sender);
  owner->sourceDel(sender);
  EXPECT_EQ(machine->type().attr("groupSm")->held(*machine), nullptr);
  EXPECT_EQ(machine->type().attr("parent")->held(*machine), nullptr);
}

TEST_F(MachineAccess, operationsAreCalledByName) {
  status_->v2QueriesSentIs(4);
  Mox::call(*querier_, "clearCounters");
  EXPECT_EQ(status_->v2QueriesSent(), 0u);

  status_->stateIs(QuerierStatus::querierStateInitial);
  Mox::call(*querier_, "becomeQuerier");
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateQuerier);

  querier_->initializedIs(false);
  Mox::call(*querier_, "handleInitialized");
  EXPECT_TRUE(querier_->initialized());

  EXPECT_THROW(Mox::call(*querier_, "handleRobustness"), Mox::InternalError);
  EXPECT_THROW(Mox::call(*querier_, "doRxPkt"), Mox::InternalError);
}

TEST_F(MachineAccess, aPacketIsHandedInByName) {
  const Mox::Call<Ptr<Ilvo::Pkt>> doRxPkt(querier_->type(), "doRxPkt");
  const U32 before = status_->v3ReportReceived();
  doRxPkt(*querier_, allowed(IpAddr(239, 2, 2, 2), sender));
  EXPECT_EQ(status_->v3ReportReceived(), before + 1);
  EXPECT_TRUE(status_->group(IpAddr(239, 2, 2, 2)));
}

TEST(MonitorAccess, monitorReadsAndWritesAsDirectly) {
  using M = GmpAttrLogSm;
  const Ptr<M> monitor = gmpAttrLogSmFactory(nullptr);
  AccessChecks checks(typeOf("Gmp::Igmp::GmpAttrLogSm"));
  checks.written(*monitor, "attrLogKernBufferSize", &M::attrLogKernBufferSize);
  checks.written(*monitor, "attrLogKernBufferThreshold", &M::attrLogKernBufferThreshold);
  checks.written(*monitor, "attrLogKernBufferUsage", &M::attrLogKernBufferUsage);
  checks.written(*monitor, "attrLogKernBufAboveThresholdCount",
                 &M::attrLogKernBufAboveThresholdCount);
  checks.written(*monitor, "iterUntilBufferCheck", &M::iterUntilBufferCheck);
  checks.readOnly(*monitor, "maxIterUntilBufferCheck", &M::maxIterUntilBufferCheck);
  checks.readOnly(*monitor, "initialized", &M::initialized);
  EXPECT_EQ(Mox::attrValue(*monitor, "nboAttrLogOutSm"), Value(false));
  // Written with a descriptor that is none, it is measured at once: the size stays unknown.
  checks.written(*monitor, "attrLogSockFd", &M::attrLogSockFd);
  for (const char* seenBelow : {"nboAttrLogOutSm", "isAttrLogClogged", "handleAttrLogSockFd",
                                "getAttrLogKernBufferUsage", "handleInitialized"}) {
    checks.other(seenBelow);
  }
  checks.expectAllSeen();
}

TEST(MonitorAccess, maxIterUntilBufferCheckIs10WhateverTheMonitorsState) {
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  EXPECT_EQ(Mox::attrValue(*monitor, 138), Value(Mox::S64{10}));
  monitor->iterUntilBufferCheckIs(3);
  monitor->attrLogKernBufferUsageIs(1 << 20);
  EXPECT_EQ(Mox::attrValue(*monitor, 138), Value(Mox::S64{10}));
}

TEST(MonitorAccess, aDescriptorThatIsWrittenIsMeasuredAtOnce) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const Ptr<GmpAttrLogSm> monitor = gmpAttrLogSmFactory(nullptr);
  EXPECT_TRUE(Mox::attrValueIs(*monitor, "attrLogSockFd", Value(Mox::S64{ends[0]})));
  EXPECT_EQ(monitor->attrLogSockFd(), ends[0]);
  EXPECT_GT(monitor->attrLogKernBufferSize(), 0);
  EXPECT_EQ(Mox::call(*monitor, "isAttrLogClogged"), Value(false));
  EXPECT_EQ(Mox::call(*monitor, "getAttrLogKernBufferUsage"), Value(Mox::S64{0}));
  for (const int end : ends) close(end);
}

}  // namespace
}  // namespace Gmp::Igmp
