// An object that can be used without knowing its class: it returns its type, and through that its
// attributes, collections and operations. See Mox/TypeInfo.h.
#pragma once

#include <Mox/AttrTable.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Mox {

struct TypeInfo;

class MOX_PUBLIC Object : public RefCounted {
 public:
  // Its attributes and how to reach them.
  virtual const TypeInfo& type() const = 0;

 protected:
  Object() = default;
  ~Object() override;
};

}  // namespace Mox
