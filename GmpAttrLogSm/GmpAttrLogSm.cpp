#include <GmpAttrLogSm/GmpAttrLogSm.h>

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <utility>

#include <Mox/Trace.h>
#include <MoxBase/Fatal.h>
#include <MoxBase/Place.h>

namespace Gmp::Igmp {

namespace {

using Mox::trace;

constexpr const char* modelFile = "GmpAttrLogSm.tin";

// The place that the assertion names: the line is that of the model, not of this file.
constexpr Mox::Place usageQuery{"S32 Gmp::Igmp::GmpAttrLogSm::getAttrLogKernBufferUsage()", 63};

Mox::TraceHandle& traceHandle() {
  static Mox::TraceHandle& handle = Mox::TraceHandle::named("GmpAttrLogSm", modelFile);
  return handle;
}

}  // namespace

GmpAttrLogSm::GmpAttrLogSm(Ptr<const OutSm> outSm) : nboAttrLogOutSm_(std::move(outSm)) {
  handleInitialized();
}

void GmpAttrLogSm::handleInitialized() {
  trace<8>(traceHandle(), "GmpAttrLogSm::", "handleInitialized", "()");
  if (!nboAttrLogOutSm_) return;
  S32 fd = nboAttrLogOutSm_->sockFd();
  if (fd == 0) {
    fd = nboAttrLogOutSm_->connectionFd();
    if (fd < 0) fd = -1;
  }
  attrLogSockFdIs(fd);
  initialized_ = true;
}

void GmpAttrLogSm::attrLogSockFdIs(S32 fd) {
  if (fd == attrLogSockFd_) return;
  attrLogSockFd_ = fd;
  handleAttrLogSockFd();
}

void GmpAttrLogSm::handleAttrLogSockFd() {
  if (attrLogSockFd_ == -1) return;
  S32 size = -1;
  S32 threshold = -1;
  socklen_t length = sizeof size;
  if (getsockopt(attrLogSockFd_, SOL_SOCKET, SO_SNDBUF, &size, &length) < 0) {
    size = -1;
  } else {
    threshold = size / 2;
  }
  attrLogKernBufferThresholdIs(threshold);
  trace<3>(traceHandle(), "handleAttrLogSockFd", "(), Socket Fd:", attrLogSockFd_,
           ", Kernel Buffer Size:", size, ", Kernel Buffer Threshold:", threshold);
  attrLogKernBufferSizeIs(size);
}

S32 GmpAttrLogSm::getAttrLogKernBufferUsage() {
  if (attrLogSockFd_ == -1) return -1;
  S32 queued = -1;
  if (ioctl(attrLogSockFd_, TIOCOUTQ, &queued) == -1) Mox::fatal(modelFile, "0", usageQuery);
  return queued;
}

bool GmpAttrLogSm::isAttrLogClogged() {
  iterUntilBufferCheckDec(1);
  trace<8>(traceHandle(), "isAttrLogClogged", "(), Checking in: ", iterUntilBufferCheck_);
  if (!nboAttrLogOutSm_) return false;
  if (iterUntilBufferCheck_ > 0) return false;
  attrLogKernBufferUsageIs(getAttrLogKernBufferUsage());
  if (attrLogKernBufferUsage_ > attrLogKernBufferThreshold_) {
    trace<3>(traceHandle(), "isAttrLogClogged", "Buffer usage: ", attrLogKernBufferUsage_,
             " is above threshold: ", attrLogKernBufferThreshold_);
    iterUntilBufferCheckIs(1);
    attrLogKernBufAboveThresholdCountInc(1);
    return true;
  }
  iterUntilBufferCheckIs(maxIterUntilBufferCheck());
  return false;
}

Ptr<GmpAttrLogSm> gmpAttrLogSmFactory(Ptr<const GmpAttrLogSm::OutSm> outSm) {
  return makePtr<GmpAttrLogSm>(std::move(outSm));
}

}  // namespace Gmp::Igmp
