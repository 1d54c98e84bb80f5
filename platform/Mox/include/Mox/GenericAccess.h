// Reads, writes and calls by identifier or name, whatever the type of the object.
//
//   attrValueIs(*config, "robustness", Value(U64{3}));  // through the setter: notifies
//   call(*querier, "clearCounters");
//   const Call<Ptr<Pkt>> doRxPkt(querier->type(), "doRxPkt");
//   doRxPkt(*querier, pkt);  // as fast as a virtual call
#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

#include <Mox/Object.h>
#include <Mox/TypeInfo.h>
#include <Mox/Value.h>
#include <MoxBase/Export.h>

namespace Mox {

// The value; nothing for collections, operations and attributes that hold another object. An
// InternalError names an attribute that the type does not have.
MOX_PUBLIC Value attrValue(const Object& object, AttrId id);
MOX_PUBLIC Value attrValue(const Object& object, std::string_view attrName);

// Writes through the setter, which notifies as for any other caller. False, and nothing happens,
// for an attribute that cannot be written; a RangeError for a value that the type does not have.
MOX_PUBLIC bool attrValueIs(Object& object, AttrId id, const Value& value);
MOX_PUBLIC bool attrValueIs(Object& object, std::string_view attrName, const Value& value);

// The same for an attribute that holds a pointer of type P; false also for one that holds another.
namespace detail {
MOX_PUBLIC bool pointerIs(Object& object, std::string_view attrName, const std::type_info& type,
                          const void* address);
}
template <class P>
bool attrPointerIs(Object& object, std::string_view attrName, const P& pointer) {
  return detail::pointerIs(object, attrName, typeid(P), &pointer);
}

// Calls an operation without an argument; nothing for one without a result. An InternalError names
// an operation that the type does not have, or one that needs an argument.
MOX_PUBLIC Value call(Object& object, std::string_view operation);

namespace detail {
MOX_PUBLIC const AttrInfo& operationTaking(const TypeInfo& type, std::string_view operation,
                                           const std::type_info& parameter);
}

// An operation with one argument of type Arg: looked up and its parameter checked once, called
// often. For objects of that type only.
template <class Arg>
class Call {
 public:
  Call(const TypeInfo& type, std::string_view operation)
      : call_(detail::operationTaking(type, operation, typeid(Arg)).call) {}

  Value operator()(Object& object, const Arg& argument) const { return call_(object, &argument); }

 private:
  Value (*call_)(Object&, const void*);
};

}  // namespace Mox
