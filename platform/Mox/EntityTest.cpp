#include <Mox/Entity.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

class EntityTest : public testing::Test {
 protected:
  // The notifications since the last call.
  std::string notified() { return std::exchange(notified_, {}); }

  std::string notified_;
  Ptr<Garden> garden_ = makePtr<Garden>("kew");
};

TEST_F(EntityTest, setterNotifiesItsOwnSlotOnce) {
  const Watcher watcher(garden_, notified_);
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "area ");
  garden_->visitsIs(7);
  EXPECT_EQ(notified(), "visits ");
}

TEST_F(EntityTest, setterNotifiesBeforeItReturnsAndAfterItStored) {
  double seen = 0.0;
  const Watcher watcher(garden_, notified_, "", [&] { seen = garden_->area(); });
  garden_->areaIs(2.0);
  EXPECT_EQ(seen, 2.0);
}

TEST_F(EntityTest, setterNotifiesNobodyWhenTheValueIsTheSame) {
  const Watcher watcher(garden_, notified_);
  garden_->areaIs(1.0);
  garden_->visitsIs(0);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityTest, setterWorksWithoutNotifiees) {
  garden_->areaIs(3.0);
  EXPECT_EQ(garden_->area(), 3.0);
  EXPECT_EQ(garden_->fence(), 12.0);
}

TEST_F(EntityTest, counterAddsNotifiesAndReturnsTheNewValue) {
  const Watcher watcher(garden_, notified_);
  EXPECT_EQ(garden_->visitsInc(3), 3u);
  EXPECT_EQ(garden_->visitsInc(2), 5u);
  EXPECT_EQ(notified(), "visits visits ");
}

TEST_F(EntityTest, counterWrapsAndNotifies) {
  garden_->visitsIs(0xffffffffu);
  const Watcher watcher(garden_, notified_);
  EXPECT_EQ(garden_->visitsInc(1), 0u);
  EXPECT_EQ(notified(), "visits ");
}

TEST_F(EntityTest, countingByZeroNotifiesNobody) {
  garden_->visitsIs(9);
  const Watcher watcher(garden_, notified_);
  EXPECT_EQ(garden_->visitsInc(0), 9u);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityTest, incrementReturnsItsOwnSumWhenANotifieeAddsMore) {
  const Watcher watcher(garden_, notified_, "", [&] {
    if (garden_->visits() < 3) garden_->visitsInc(1);
  });
  EXPECT_EQ(garden_->visitsInc(1), 1u);
  EXPECT_EQ(garden_->visits(), 3u);
  EXPECT_EQ(notified(), "visits visits visits ");
}

TEST_F(EntityTest, notifieesAreNotifiedInTheOrderOfTheirRegistration) {
  const Watcher b(garden_, notified_, "b:");
  const Watcher a(garden_, notified_, "a:");
  const Watcher c(garden_, notified_, "c:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "b:area a:area c:area ");
}

TEST_F(EntityTest, destroyedNotifieeIsNotNotified) {
  std::optional<Watcher> a(std::in_place, garden_, notified_, "a:");
  const Watcher b(garden_, notified_, "b:");
  EXPECT_EQ(garden_->notifieeList().size(), 2u);
  a.reset();
  EXPECT_EQ(garden_->notifieeList().size(), 1u);
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "b:area ");
}

TEST_F(EntityTest, notifieeMayUnregisterItselfWhileNotified) {
  Watcher a(garden_, notified_, "a:");
  a.then_ = [&] { a.notifierIs(nullptr); };
  const Watcher b(garden_, notified_, "b:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area b:area ");
  garden_->areaIs(3.0);
  EXPECT_EQ(notified(), "b:area ");
  EXPECT_EQ(garden_->notifieeList().size(), 1u);
}

TEST_F(EntityTest, notifieeMayDestroyItselfWhileNotified) {
  std::optional<Watcher> a(std::in_place, garden_, notified_, "a:");
  a->then_ = [&] { a.reset(); };
  const Watcher b(garden_, notified_, "b:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area b:area ");
  EXPECT_FALSE(a.has_value());
}

TEST_F(EntityTest, notifieeDestroyedByAnEarlierOneIsNotNotified) {
  Watcher a(garden_, notified_, "a:");
  std::optional<Watcher> b(std::in_place, garden_, notified_, "b:");
  const Watcher c(garden_, notified_, "c:");
  a.then_ = [&] { b.reset(); };
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area c:area ");
}

TEST_F(EntityTest, everyNotifieeIsNotifiedOnceWhenALaterOneUnregistersAnEarlierOne) {
  Watcher a(garden_, notified_, "a:");
  Watcher b(garden_, notified_, "b:", [&] { a.notifierIs(nullptr); });
  const Watcher c(garden_, notified_, "c:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area b:area c:area ");
  garden_->areaIs(3.0);
  EXPECT_EQ(notified(), "b:area c:area ");
}

TEST_F(EntityTest, notifieeAddedDuringANotificationIsNotifiedFromTheNextOneOn) {
  std::vector<std::unique_ptr<Watcher>> added;
  const Watcher a(garden_, notified_, "a:", [&] {
    // Enough of them that the list of notifiees moves in memory while it is walked.
    while (added.size() < 20) added.push_back(std::make_unique<Watcher>(garden_, notified_, "+"));
  });
  const Watcher b(garden_, notified_, "b:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area b:area ");
  garden_->areaIs(3.0);
  EXPECT_THAT(notified(), testing::StartsWith("a:area b:area +area +area "));
}

TEST_F(EntityTest, notifieeThatComesBackDuringANotificationIsNotNotifiedTwice) {
  Watcher a(garden_, notified_, "a:");
  a.then_ = [&] {
    a.notifierIs(nullptr);
    a.notifierIs(garden_);
  };
  const Watcher b(garden_, notified_, "b:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area b:area ");
  a.then_ = {};
  garden_->areaIs(3.0);
  EXPECT_EQ(notified(), "b:area a:area ");
}

TEST_F(EntityTest, notificationWithinANotificationReachesAllFirst) {
  const Watcher a(garden_, notified_, "a:", [&] { garden_->visitsIs(1); });
  const Watcher b(garden_, notified_, "b:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area a:visits b:visits b:area ");
}

TEST_F(EntityTest, notifieeThatLeavesInANestedNotificationIsNotNotifiedByTheOuterOne) {
  std::optional<Watcher> b;
  const Watcher a(garden_, notified_, "a:", [&] {
    if (garden_->visits() == 0) {
      garden_->visitsIs(1);
    } else {
      b.reset();
    }
  });
  b.emplace(garden_, notified_, "b:");
  const Watcher c(garden_, notified_, "c:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area a:visits c:visits c:area ");
  EXPECT_EQ(garden_->notifieeList().size(), 2u);
}

TEST_F(EntityTest, watchedEntityStaysAlive) {
  const Watcher watcher(garden_, notified_);
  EXPECT_EQ(garden_->refs(), 2u);
  const Garden* garden = garden_.get();
  garden_ = nullptr;
  EXPECT_EQ(watcher.notifier().get(), garden);
  EXPECT_EQ(watcher.notifier()->area(), 1.0);
}

TEST_F(EntityTest, allAreNotifiedWhenOneOfThemReleasesTheEntity) {
  // Plain pointers from here on: only the notifiees hold the garden.
  Garden* garden = garden_.get();
  std::optional<Watcher> a(std::in_place, garden_, notified_, "a:");
  std::optional<Watcher> b(std::in_place, garden_, notified_, "b:");
  garden_ = nullptr;
  const Ptr<Bed> bed = garden->bedIs(TestKey(1));
  notified();
  b->then_ = [&] {
    a.reset();
    b.reset();
    EXPECT_EQ(garden->area(), 2.0);
    EXPECT_NE(bed->parent(), nullptr);
  };
  garden->areaIs(2.0);
  EXPECT_EQ(notified(), "a:area b:area ");
  EXPECT_EQ(bed->parent(), nullptr) << "the garden is gone by now";
}

TEST_F(EntityTest, notifieeCanMoveToAnotherEntity) {
  const Ptr<Garden> other = makePtr<Garden>("eden");
  Watcher watcher(garden_, notified_);
  watcher.notifierIs(other);
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "");
  other->areaIs(2.0);
  EXPECT_EQ(notified(), "area ");
  EXPECT_EQ(garden_->refs(), 1u);
}

TEST_F(EntityTest, notifieeOfNothingIsInert) {
  Watcher watcher(nullptr, notified_);
  EXPECT_FALSE(watcher.notifier());
  watcher.notifierIs(nullptr);
  watcher.notifierIs(garden_);
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "area ");
}

TEST_F(EntityTest, knowsItsTypeNameAndAttributes) {
  const EntityBase& entity = *garden_;
  EXPECT_STREQ(entity.typeName(), "Test::Garden");
  EXPECT_EQ(entity.entityName(), "kew");
  EXPECT_EQ(entity.keyText(), "kew");
  EXPECT_STREQ(entity.attrName(257), "name");
  EXPECT_STREQ(entity.attrName(262), "pot");
  EXPECT_EQ(entity.attrName(252), nullptr);
  EXPECT_EQ(entity.attrName(263), nullptr);
  EXPECT_EQ(entity.entity(), &entity);
}

TEST_F(EntityTest, outermostEntityIsCalledByItsNameOrElseByItsType) {
  EXPECT_EQ(garden_->fullName(), "kew");
  EXPECT_EQ(makePtr<Garden>("")->fullName(), "Test::Garden");
  EXPECT_EQ(garden_->parent(), nullptr);
  EXPECT_EQ(garden_->parentAttrName(), "");
}

TEST(AttrTable, numbersRowsInTheirOrderFromTheFirstIdentifier) {
  std::string rows;
  Garden::attributes.forEach(
      [&](AttrId id, const auto& row) { rows += std::to_string(id) + row.name + " "; });
  EXPECT_EQ(rows, "257name 258area 259fence 260visits 261bed 262pot ");
  using Table = decltype(Garden::attributes);
  static_assert(Table::size == 6);
  static_assert(Table::first == 257);
}

TEST(AttrTable, mayBeginAtAnotherIdentifier) {
  using Table = AttrTableFrom<130, Derived<Garden, double>, Derived<Garden, U32>>;
  constexpr Table table(Derived{"fence", &Garden::fence}, Derived{"visits", &Garden::visits});
  EXPECT_STREQ(table.nameOf(130), "fence");
  EXPECT_STREQ(table.nameOf(131), "visits");
  EXPECT_EQ(table.nameOf(129), nullptr);
  EXPECT_EQ(table.nameOf(132), nullptr);
}

}  // namespace
}  // namespace Mox
