// The multicast boundary of one interface: prefixes whose groups the querier must neither learn nor
// ask for. Only the keys count; the value beside each is kept as it was given.
//
//   Ptr<IntfBoundaryStatus> status = makePtr<IntfBoundaryStatus>();
//   status->boundaryIs(*IpGenPrefix::parse("239.0.0.0/8"), true);
#pragma once

#include <map>
#include <string>

#include <Ilvo/IpPrefix.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>

namespace Ilvo {

class MOX_PUBLIC IntfBoundaryStatus final : public Mox::RefCounted {
 public:
  static constexpr const char* valueTypeName = "Ilvo::IntfBoundaryStatus";
  using Boundary = std::map<IpGenPrefix, bool>;

  IntfBoundaryStatus();
  ~IntfBoundaryStatus() override;

  // In the order of the prefixes.
  const Boundary& boundary() const { return boundary_; }

  void boundaryIs(const IpGenPrefix& prefix, bool value);

 private:
  Boundary boundary_;
};

// A boundary is shown as its prefixes in their order.
MOX_PUBLIC std::string shownValue(const Mox::Ptr<const IntfBoundaryStatus>& status);

}  // namespace Ilvo
