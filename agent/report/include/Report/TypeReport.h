// The type registry as text or JSON: the types, and the attributes of each.
#pragma once

#include <cstdio>
#include <string_view>

#include <Mox/ModelTypes.h>
#include <Text/Format.h>

namespace Agent {

// The type of that qualified name, or the only one whose qualified name ends with it. Throws
// std::invalid_argument when there is no such type, or when there are several, with their names.
const Mox::TypeRecord& typeFor(std::string_view name);

// One line for each type; as JSON an array of objects with the attributes of each type.
void printTypes(std::FILE* out, Format format);
// One line for each attribute, field or enumerator; as JSON an array with the one object.
void printType(std::FILE* out, const Mox::TypeRecord& type, Format format);

}  // namespace Agent
