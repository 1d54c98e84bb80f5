#include <Ilvo/IntfBoundaryStatus.h>

namespace Ilvo {

IntfBoundaryStatus::IntfBoundaryStatus() = default;
IntfBoundaryStatus::~IntfBoundaryStatus() = default;

void IntfBoundaryStatus::boundaryIs(const IpGenPrefix& prefix, bool value) {
  boundary_[prefix] = value;
}

std::string shownValue(const Mox::Ptr<const IntfBoundaryStatus>& status) {
  std::string text;
  if (!status) return text;
  for (const auto& [prefix, value] : status->boundary()) {
    if (!text.empty()) text += ", ";
    text += prefix.stringValue();
  }
  return text;
}

}  // namespace Ilvo
