// The type registry: every type of every loaded model, found by its qualified name.
//
// A model registers its types with one ModelTypes, a static object: when its library is loaded, in
// the order of the list, until it is unloaded. The trace ring is emptied then: the code that can
// print the library's records is gone, and the ring does not know which records are the library's.
//
// A model is set up in one step: its trace handles and event-log messages are defined before its
// types, in the same source and with the same priority, so that neither exists without the other.
// The priorities say in which order the models of a library are loaded: without them a link-time
// optimiser chooses one.
//
//   [[gnu::init_priority(1001)]] const Mox::ModelTrace igmpPacketTrace("IgmpPacket", "Model.tin");
//   [[gnu::init_priority(1001)]] Mox::EventLogHandle invalidSource({...});
//   [[gnu::init_priority(1001)]] const Mox::ModelTypes types(
//       "GmpIgmpQuerier", {Mox::entityType<QuerierStatus>(), ...});
//
//   if (const TypeRecord* found = typeNamed("Gmp::Igmp::IgmpVersion")) ...
#pragma once

#include <array>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/Enumeration.h>
#include <Mox/TypeInfo.h>
#include <Mox/TypeName.h>
#include <Mox/ValueStrep.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>

namespace Mox {

enum class TypeKind : U8 { entity, object, value, enumeration };

// One field of a value type.
struct FieldInfo {
  AttrId id;
  const char* name;
  const char* typeName;
  std::string (*text)(const void* value);
};

struct EnumeratorInfo {
  U32 number;
  const char* name;
};

// A type as the registry knows it; members that its kind does not have are empty.
struct TypeRecord {
  const char* name;
  TypeKind kind;
  const TypeInfo* type = nullptr;
  std::span<const FieldInfo> fields = {};
  std::span<const EnumeratorInfo> enumerators = {};
  // The textual form of a value or an enumerator at that address.
  std::string (*text)(const void* value) = nullptr;
  // Makes the number of the enumerator of that name. For a value that holds a collection the
  // attempt is a fatal assertion; null where nothing is made of text.
  U32 (*fromText)(std::string_view text) = nullptr;
};

class MOX_PUBLIC ModelTypes {
 public:
  // An InternalError when a type of such a name is registered already.
  ModelTypes(const char* model, std::initializer_list<TypeRecord> records);
  ~ModelTypes();
  ModelTypes(const ModelTypes&) = delete;
  ModelTypes& operator=(const ModelTypes&) = delete;

  const char* model() const { return model_; }
  const std::vector<TypeRecord>& records() const { return records_; }

 private:
  const char* model_;
  const std::vector<TypeRecord> records_;
};

// The loaded models, in the order of loading. A model or type that these two return is valid until
// its library is unloaded.
MOX_PUBLIC std::vector<const ModelTypes*> loadedModels();
// The type of that qualified name; null for none.
MOX_PUBLIC const TypeRecord* typeNamed(std::string_view name);

template <class E>
TypeRecord entityType() {
  return {.name = E::entityTypeName, .kind = TypeKind::entity, .type = &typeInfoOf<E>()};
}

template <class E>
TypeRecord objectType() {
  return {.name = E::entityTypeName, .kind = TypeKind::object, .type = &typeInfoOf<E>()};
}

template <Enumeration E>
TypeRecord enumerationType() {
  static constexpr auto list = [] {
    constexpr auto from = enumerators(E{});
    std::array<EnumeratorInfo, from.size()> all{};
    for (size_t at = 0; at < from.size(); ++at) {
      all[at] = {static_cast<U32>(from[at].value), from[at].name};
    }
    return all;
  }();
  return {.name = enumerationName(E{}),
          .kind = TypeKind::enumeration,
          .enumerators = list,
          .text = [](const void* value) { return enumeratorStrep(*static_cast<const E*>(value)); },
          .fromText = [](std::string_view text) { return U32{enumeratorOf<E>(text)}; }};
}

namespace detail {

template <class V, size_t at>
constexpr FieldInfo fieldInfo() {
  constexpr auto row = V::fields.template row<at>();
  using F = std::remove_cvref_t<decltype(std::declval<const V&>().*row.member)>;
  return {static_cast<AttrId>(V::fields.first + at), row.name, typeNameOf<F>(),
          [](const void* value) {
            constexpr auto field = V::fields.template row<at>();
            return fieldStrep(static_cast<const V*>(value)->*field.member);
          }};
}

template <class V, size_t... at>
std::span<const FieldInfo> fieldsOf(std::index_sequence<at...>) {
  static constexpr std::array<FieldInfo, sizeof...(at)> list{fieldInfo<V, at>()...};
  return list;
}

}  // namespace detail

// A class with a table of fields. `fromText` as in the record.
template <class V>
TypeRecord valueType(U32 (*fromText)(std::string_view) = nullptr) {
  return {.name = V::valueTypeName,
          .kind = TypeKind::value,
          .fields = detail::fieldsOf<V>(std::make_index_sequence<V::fields.size>()),
          .text = [](const void* value) { return valueToStrep(*static_cast<const V*>(value)); },
          .fromText = fromText};
}

}  // namespace Mox
