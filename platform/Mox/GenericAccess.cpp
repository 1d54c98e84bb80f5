#include <Mox/GenericAccess.h>

#include <Mox/Errors.h>

namespace Mox {

namespace {

template <class Which>
const AttrInfo& attrOf(const TypeInfo& type, const Which& which) {
  const AttrInfo* found = type.attr(which);
  if (found != nullptr) return *found;
  throw InternalError(std::string(type.name) + " has no attribute " + textOf(which));
}

template <class Which>
Value valueOf(const Object& object, const Which& which) {
  const AttrInfo& attr = attrOf(object.type(), which);
  return attr.get == nullptr ? Value() : attr.get(object);
}

template <class Which>
bool valueIs(Object& object, const Which& which, const Value& value) {
  const AttrInfo& attr = attrOf(object.type(), which);
  if (attr.set == nullptr) return false;
  attr.set(object, value);
  return true;
}

const AttrInfo& operationOf(const TypeInfo& type, std::string_view operation) {
  const AttrInfo* found = type.attr(operation);
  if (found != nullptr && found->call != nullptr) return *found;
  throw InternalError(std::string(type.name) + " has no operation " + std::string(operation));
}

}  // namespace

Value attrValue(const Object& object, AttrId id) { return valueOf(object, id); }
Value attrValue(const Object& object, std::string_view attrName) {
  return valueOf(object, attrName);
}

bool attrValueIs(Object& object, AttrId id, const Value& value) {
  return valueIs(object, id, value);
}
bool attrValueIs(Object& object, std::string_view attrName, const Value& value) {
  return valueIs(object, attrName, value);
}

bool detail::pointerIs(Object& object, std::string_view attrName, const std::type_info& type,
                       const void* address) {
  const AttrInfo& attr = attrOf(object.type(), attrName);
  if (attr.setPointer == nullptr || *attr.pointer != type) return false;
  attr.setPointer(object, address);
  return true;
}

Value call(Object& object, std::string_view operation) {
  const AttrInfo& found = operationOf(object.type(), operation);
  if (found.parameter != nullptr) {
    throw InternalError(std::string(operation) + " needs an argument");
  }
  return found.call(object, nullptr);
}

const AttrInfo& detail::operationTaking(const TypeInfo& type, std::string_view operation,
                                        const std::type_info& parameter) {
  const AttrInfo& found = operationOf(type, operation);
  if (found.parameter == nullptr || *found.parameter != parameter) {
    throw InternalError(std::string(operation) + " takes no argument of that type");
  }
  return found;
}

}  // namespace Mox
