// The type registry as people and programs read it: types, and the attributes of each.
#pragma once

#include <cstdio>
#include <string_view>

#include <Mox/ModelTypes.h>
#include <Text/Format.h>

namespace Agent {

// The type of that qualified name, or the one whose qualified name ends so. Throws
// std::invalid_argument for no such type, and for more than one, with their names.
const Mox::TypeRecord& typeFor(std::string_view name);

// A line each; as JSON an array of objects with the attributes of each.
void printTypes(std::FILE* out, Format format);
// The attributes, fields or enumerators, a line each; as JSON the same object in an array of one.
void printType(std::FILE* out, const Mox::TypeRecord& type, Format format);

}  // namespace Agent
