// Reports whether the attribute log is clogged: whether more than half of the send buffer of its
// socket is unsent.
//
// The machines ask on hot paths, before work that would publish many changes. The kernel is
// therefore asked on every tenth question while the log flows, and on every one while it is
// clogged.
//
//   if (attrLogSm && attrLogSm->isAttrLogClogged()) { postpone(); return; }
#pragma once

#include <GmpIgmpQuerier/Types.h>
#include <Mox/AttrTable.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/SocketOutSm.h>

namespace Gmp::Igmp {

using Mox::S32;

class MOX_PUBLIC GmpAttrLogSm final : public Mox::ObjectOf<GmpAttrLogSm> {
 public:
  static constexpr const char* entityTypeName = "Gmp::Igmp::GmpAttrLogSm";
  using OutSm = Mox::NboAttrLog::SocketOutSm;

  // Watches the socket of `outSm`; without one, the log is never clogged.
  explicit GmpAttrLogSm(Ptr<const OutSm> outSm);

  bool isAttrLogClogged();
  // Bytes in the send queue now, -1 without a descriptor. A failing query on a valid descriptor is
  // fatal: a log that is wrongly taken as flowing would be flooded with changes.
  S32 getAttrLogKernBufferUsage();

  const Ptr<const OutSm>& nboAttrLogOutSm() const { return nboAttrLogOutSm_; }
  // The watched descriptor; -1 for none.
  S32 attrLogSockFd() const { return attrLogSockFd_; }
  // A new descriptor is measured at once.
  void attrLogSockFdIs(S32 fd);
  // Bytes; -1 when unknown. An unknown buffer counts as full.
  S32 attrLogKernBufferSize() const { return attrLogKernBufferSize_; }
  S32 attrLogKernBufferThreshold() const { return attrLogKernBufferThreshold_; }
  S32 attrLogKernBufferUsage() const { return attrLogKernBufferUsage_; }
  // Checks that found the log clogged.
  U32 attrLogKernBufAboveThresholdCount() const { return attrLogKernBufAboveThresholdCount_; }
  // Questions left until the kernel is asked.
  S32 iterUntilBufferCheck() const { return iterUntilBufferCheck_; }
  S32 maxIterUntilBufferCheck() const { return 10; }  // constant
  bool initialized() const { return initialized_; }

  // These store plainly and notify nobody.
  void attrLogKernBufferSizeIs(S32 v) { attrLogKernBufferSize_ = v; }
  void attrLogKernBufferThresholdIs(S32 v) { attrLogKernBufferThreshold_ = v; }
  void attrLogKernBufferUsageIs(S32 v) { attrLogKernBufferUsage_ = v; }
  void attrLogKernBufAboveThresholdCountIs(U32 v) { attrLogKernBufAboveThresholdCount_ = v; }
  U32 attrLogKernBufAboveThresholdCountInc(U32 by) {
    return attrLogKernBufAboveThresholdCount_ += by;
  }
  void iterUntilBufferCheckIs(S32 v) { iterUntilBufferCheck_ = v; }
  // No lower bound: without a socket to watch it is never reloaded, and wraps in the end.
  S32 iterUntilBufferCheckDec(S32 by) {
    const U32 left = static_cast<U32>(iterUntilBufferCheck_) - static_cast<U32>(by);
    return iterUntilBufferCheck_ = static_cast<S32>(left);
  }

  void handleInitialized();
  void handleAttrLogSockFd();

 private:
  using Self = GmpAttrLogSm;

  Ptr<const OutSm> nboAttrLogOutSm_;
  S32 attrLogSockFd_ = -1;
  S32 attrLogKernBufferSize_ = -1;
  S32 attrLogKernBufferThreshold_ = -1;
  S32 attrLogKernBufferUsage_ = -1;
  U32 attrLogKernBufAboveThresholdCount_ = 0;
  S32 iterUntilBufferCheck_ = 1;
  bool initialized_ = false;

 public:
  static constexpr auto attributes = Mox::attrTableFrom<130>(
      Mox::Part{"nboAttrLogOutSm", &Self::nboAttrLogOutSm_},
      Mox::Operation{"isAttrLogClogged", &Self::isAttrLogClogged},
      Mox::Stored{"attrLogSockFd", &Self::attrLogSockFd_, &Self::attrLogSockFdIs},
      Mox::Stored{"attrLogKernBufferSize", &Self::attrLogKernBufferSize_,
                  &Self::attrLogKernBufferSizeIs, Mox::Unit::bytes},
      Mox::Stored{"attrLogKernBufferThreshold", &Self::attrLogKernBufferThreshold_,
                  &Self::attrLogKernBufferThresholdIs, Mox::Unit::bytes},
      Mox::Stored{"attrLogKernBufferUsage", &Self::attrLogKernBufferUsage_,
                  &Self::attrLogKernBufferUsageIs, Mox::Unit::bytes},
      Mox::Tally{"attrLogKernBufAboveThresholdCount", &Self::attrLogKernBufAboveThresholdCount_,
                 &Self::attrLogKernBufAboveThresholdCountIs,
                 &Self::attrLogKernBufAboveThresholdCountInc},
      Mox::Stored{"iterUntilBufferCheck", &Self::iterUntilBufferCheck_,
                  &Self::iterUntilBufferCheckIs},
      Mox::Constant{"maxIterUntilBufferCheck", &Self::maxIterUntilBufferCheck},
      Mox::Operation{"handleAttrLogSockFd", &Self::handleAttrLogSockFd},
      Mox::Operation{"getAttrLogKernBufferUsage", &Self::getAttrLogKernBufferUsage},
      Mox::Part{"initialized", &Self::initialized_},
      Mox::Operation{"handleInitialized", &Self::handleInitialized});
};

// A monitor of that machine's socket; null for one that never finds the log clogged.
MOX_PUBLIC Ptr<GmpAttrLogSm> gmpAttrLogSmFactory(Ptr<const GmpAttrLogSm::OutSm> outSm);

}  // namespace Gmp::Igmp
