#include <Ilvo/IntfBoundaryStatus.h>

namespace Ilvo {

IntfBoundaryStatus::IntfBoundaryStatus() = default;
IntfBoundaryStatus::~IntfBoundaryStatus() = default;

void IntfBoundaryStatus::boundaryIs(const IpGenPrefix& prefix, bool value) {
  boundary_[prefix] = value;
}

void IntfBoundaryStatus::boundaryDel(const IpGenPrefix& prefix) { boundary_.erase(prefix); }

void IntfBoundaryStatus::boundaryDelAll() { boundary_.clear(); }

}  // namespace Ilvo
