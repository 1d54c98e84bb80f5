// Compares generic access to an attribute with the direct accessors of its class.
//
//   expectRead(*config, "robustness", &QuerierConfig::robustness);
//   expectWritten(*config, "robustness", &QuerierConfig::robustness);
#pragma once

#include <set>
#include <string>
#include <vector>

#include <Mox/GenericAccess.h>
#include <Mox/HashMap.h>
#include <Mox/ModelTypes.h>
#include <Mox/TypeInfo.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {

inline const Mox::TypeInfo& typeOf(const char* name) { return *Mox::typeNamed(name)->type; }

// Remembers which attributes of a type were checked, so that none is forgotten.
class AccessChecks {
 public:
  explicit AccessChecks(const Mox::TypeInfo& type) : type_(type) {}

  template <class E, class V>
  void read(const E& entity, const char* name, V (E::*get)() const) {
    SCOPED_TRACE(name);
    seen_.insert(name);
    const Mox::AttrInfo* attr = type_.attr(name);
    ASSERT_NE(attr, nullptr);
    const Mox::Value direct = Mox::valueFrom((entity.*get)());
    EXPECT_EQ(Mox::attrValue(entity, attr->id), direct);
    EXPECT_EQ(Mox::attrValue(entity, name), direct);
  }

  // Writes another value by name and by identifier; the direct accessor sees both.
  template <class E, class V>
  void written(E& entity, const char* name, V (E::*get)() const) {
    using T = std::remove_cvref_t<V>;
    read(entity, name, get);
    written_.insert(name);
    SCOPED_TRACE(name);
    const Mox::AttrInfo* attr = type_.attr(name);
    ASSERT_NE(attr, nullptr);
    const T before = (entity.*get)();
    const T other = otherValue(before);
    EXPECT_TRUE(Mox::attrValueIs(entity, name, Mox::valueFrom(other)));
    EXPECT_EQ((entity.*get)(), other);
    EXPECT_TRUE(Mox::attrValueIs(entity, attr->id, Mox::valueFrom(before)));
    EXPECT_EQ((entity.*get)(), before);
    read(entity, name, get);
  }

  // An attribute that cannot be written keeps its value.
  template <class E, class V>
  void readOnly(E& entity, const char* name, V (E::*get)() const) {
    read(entity, name, get);
    SCOPED_TRACE(name);
    const Mox::Value before = Mox::attrValue(entity, name);
    EXPECT_FALSE(Mox::attrValueIs(entity, name, before));
    EXPECT_EQ(Mox::attrValue(entity, name), before);
    EXPECT_EQ(Mox::valueFrom((entity.*get)()), before);
  }

  // The same for an attribute that holds a pointer, written with another one.
  template <class E, class P>
  void pointerWritten(E& entity, const char* name, const P& (E::*get)() const, const P& other) {
    SCOPED_TRACE(name);
    seen_.insert(name);
    written_.insert(name);
    ASSERT_NE(type_.attr(name), nullptr);
    const P before = (entity.*get)();
    ASSERT_NE(before, other);
    EXPECT_TRUE(Mox::attrPointerIs(entity, name, other));
    EXPECT_EQ((entity.*get)(), other);
    EXPECT_FALSE(Mox::attrPointerIs(entity, name, before.get()));
    EXPECT_EQ((entity.*get)(), other);
    EXPECT_TRUE(Mox::attrPointerIs(entity, name, before));
    EXPECT_EQ((entity.*get)(), before);
  }

  // A set: keys are added and removed by name as they are directly.
  template <class E, class K>
  void set(E& entity, const char* name, const Mox::HashMap<K, bool>& (E::*get)() const, K key) {
    SCOPED_TRACE(name);
    seen_.insert(name);
    const Mox::CollectionInfo* keys = type_.collection(name);
    ASSERT_NE(keys, nullptr);
    ASSERT_FALSE((entity.*get)().contains(key));
    EXPECT_EQ(keys->add(entity, key.value()), nullptr);
    EXPECT_TRUE((entity.*get)().contains(key));
    EXPECT_EQ(keys->keys(entity), std::vector<U32>{key.value()});
    EXPECT_EQ(keys->find(entity, key.value()), nullptr);
    keys->remove(entity, key.value());
    EXPECT_FALSE((entity.*get)().contains(key));
    EXPECT_EQ(keys->size(entity), 0u);
  }

  // An attribute that another test checks, or that has no value.
  void other(const char* name) {
    ASSERT_NE(type_.attr(name), nullptr) << name;
    seen_.insert(name);
  }

  void expectAllSeen() const {
    for (const Mox::AttrInfo& attr : type_.attrs) {
      EXPECT_TRUE(seen_.contains(attr.name)) << attr.name << " was not looked at";
      const bool writable = attr.set != nullptr || attr.setPointer != nullptr;
      EXPECT_EQ(written_.contains(attr.name), writable) << attr.name;
    }
  }

 private:
  template <class T>
  static T otherValue(T v) {
    if constexpr (std::is_same_v<T, bool>) {
      return !v;
    } else if constexpr (Mox::Enumeration<T>) {
      const auto all = enumerators(T{});
      return all[0].value == v ? all[1].value : all[0].value;
    } else if constexpr (requires { T(v.value()); }) {
      return T(v.value() + 1);
    } else {
      return static_cast<T>(v + 1);
    }
  }

  const Mox::TypeInfo& type_;
  std::set<std::string> seen_;
  std::set<std::string> written_;
};

}  // namespace Gmp::Igmp
