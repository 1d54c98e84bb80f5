// Checks of every entity's attribute table: literal identifiers and names, and setters and counters
// that notify exactly their own slot and identifier.
//
// `Recorder` is the entity's notifiee; it adds the name of each attribute it is notified of, and a
// blank, to the string that it is made with.
#pragma once

#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <GmpIgmpQuerier/Enumerations.h>
#include <GmpIgmpQuerier/Types.h>
#include <Mox/Entity.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {

// Watches by identifiers and does not hold what it watches: "258 ", "260(10.0.0.1) ", "260* ".
class IdRecorder final : public Mox::Notifiee {
 public:
  explicit IdRecorder(const Mox::EntityBase& entity) { entity.notifieeAdd(this); }
  void onAttr(Mox::AttrId id) override { notified_ += std::to_string(id) + " "; }
  void onMember(Mox::AttrId id, U32 key) override {
    notified_ += std::to_string(id) + "(" + IpAddr(key).stringValue() + ") ";
  }
  void onCollection(Mox::AttrId id) override { notified_ += std::to_string(id) + "* "; }
  // The notifications since the last call.
  std::string notified() { return std::exchange(notified_, {}); }

 private:
  std::string notified_;
};

// One row of a table as the tests write it down.
struct TableRow {
  Mox::AttrId id;
  std::string name;
  Mox::AttrKind kind;
  friend bool operator==(const TableRow&, const TableRow&) = default;
  friend void PrintTo(const TableRow& row, std::ostream* out) {
    *out << row.id << ' ' << row.name << ' ' << static_cast<int>(row.kind);
  }
};

template <class E>
std::vector<TableRow> tableOf() {
  std::vector<TableRow> rows;
  E::attributes.forEach([&](Mox::AttrId id, const auto& row) {
    rows.push_back({id, row.name, std::remove_cvref_t<decltype(row)>::kind});
  });
  return rows;
}

inline bool otherValue(bool v) { return !v; }
inline IpAddr otherValue(IpAddr v) { return IpAddr(v.value() + 1); }
template <class V>
V otherValue(V v) {
  return static_cast<V>(v + 1);
}

// Each setter stores, notifies its own slot and identifier once, and notifies nobody of the same
// value.
template <class Recorder, class E>
void expectSettersToNotifyTheirOwnSlot(const Ptr<E>& entity) {
  std::string notified;
  const Recorder recorder(entity, notified);
  IdRecorder ids(*entity);
  int setters = 0;
  E::attributes.forEach([&](Mox::AttrId id, const auto& row) {
    if constexpr (requires { row.set; }) {
      SCOPED_TRACE(row.name);
      ++setters;
      E& e = *entity;
      const auto value = otherValue(e.*row.member);
      (e.*row.set)(value);
      EXPECT_EQ(e.*row.member, value);
      EXPECT_EQ(std::exchange(notified, {}), row.name + std::string(" "));
      EXPECT_EQ(ids.notified(), std::to_string(id) + " ");
      (e.*row.set)(value);
      EXPECT_EQ(notified, "");
      EXPECT_EQ(ids.notified(), "");
    }
  });
  EXPECT_GT(setters, 0);
  entity->notifieeRemove(&ids);
}

// Each counter wraps, notifies its own slot and identifier, and notifies nobody of a count of 0.
// Returns the number of counters.
template <class Recorder, class E>
int expectCountersToWrapAndNotify(const Ptr<E>& entity) {
  std::string notified;
  int counters = 0;
  E::attributes.forEach([&](Mox::AttrId id, const auto& row) {
    if constexpr (requires { row.inc; }) {
      SCOPED_TRACE(row.name);
      ++counters;
      E& e = *entity;
      using V = std::remove_cvref_t<decltype(e.*row.member)>;
      (e.*row.set)(std::numeric_limits<V>::max());
      const Recorder recorder(entity, notified);
      IdRecorder ids(e);
      EXPECT_EQ((e.*row.inc)(1), V{0});
      EXPECT_EQ(std::exchange(notified, {}), row.name + std::string(" "));
      EXPECT_EQ(ids.notified(), std::to_string(id) + " ");
      EXPECT_EQ((e.*row.inc)(0), V{0});
      EXPECT_EQ(notified, "");
      EXPECT_EQ(ids.notified(), "");
      EXPECT_EQ((e.*row.inc)(5), V{5});
      EXPECT_EQ(e.*row.member, V{5});
      EXPECT_EQ(std::exchange(notified, {}), row.name + std::string(" "));
      e.notifieeRemove(&ids);
    }
  });
  return counters;
}

}  // namespace Gmp::Igmp
