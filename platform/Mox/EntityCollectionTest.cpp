#include <Mox/Entity.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

// Watches by identifiers and does not hold what it watches.
struct Clerk final : Notifiee {
  void onAttr(AttrId id) override { notified += std::to_string(id) + " "; }
  void onMember(AttrId id, U32 key) override {
    notified += std::to_string(id) + "(" + std::to_string(key) + ") ";
  }
  void onCollection(AttrId id) override { notified += std::to_string(id) + "* "; }
  std::string notified;
};

class EntityCollectionTest : public testing::Test {
 protected:
  std::string notified() { return std::exchange(notified_, {}); }
  std::vector<U32> bedKeys() const {
    std::vector<U32> keys;
    for (auto at = garden_->bed().begin(); at != garden_->bed().end(); ++at) {
      keys.push_back(at.key().value());
    }
    return keys;
  }

  std::string notified_;
  Ptr<Garden> garden_ = makePtr<Garden>("kew");
};
using Keys = std::vector<U32>;

TEST_F(EntityCollectionTest, newMemberIsNotifiedImmediatelyAndThenByItsKey) {
  const Watcher watcher(garden_, notified_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  ASSERT_TRUE(bed);
  EXPECT_EQ(bed->place(), TestKey(3));
  EXPECT_EQ(notified(), "bed! bed(3) ");
  garden_->potIs(TestKey(4));
  EXPECT_EQ(notified(), "pot! pot(4) ");
}

TEST_F(EntityCollectionTest, existingMemberIsFoundAndNobodyIsNotified) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  bed->wetIs(true);
  const Watcher watcher(garden_, notified_);
  EXPECT_EQ(garden_->bedIs(TestKey(3)), bed);
  EXPECT_TRUE(bed->wet());
  EXPECT_EQ(garden_->bed().size(), 1u);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityCollectionTest, memberIsInPlaceAndKnowsItsParentWhenItIsNotified) {
  std::string seen;
  const Watcher watcher(garden_, notified_, "", [&] {
    const Ptr<Bed> bed = garden_->bed(TestKey(3));
    seen += (bed ? bed->fullName() : "absent") + " ";
  });
  garden_->bedIs(TestKey(3));
  EXPECT_EQ(seen, "kew/bed[3] kew/bed[3] ");
}

TEST_F(EntityCollectionTest, memberIsReachedByItsParentsName) {
  const Ptr<Bed> pot = garden_->potIs(TestKey(7));
  EXPECT_EQ(pot->parent(), garden_.get());
  EXPECT_EQ(pot->parentAttrName(), "pot");
  EXPECT_EQ(pot->keyText(), "7");
  EXPECT_EQ(pot->entityName(), "");
  EXPECT_EQ(pot->fullName(), "kew/pot[7]");
}

TEST_F(EntityCollectionTest, lookupOfAnAbsentKeyIsNull) {
  EXPECT_FALSE(garden_->bed(TestKey(3)));
  EXPECT_FALSE(garden_->pot(TestKey(3)));
  garden_->potIs(TestKey(3));
  EXPECT_TRUE(garden_->pot(TestKey(3)));
  EXPECT_FALSE(garden_->pot(TestKey(4)));
  EXPECT_FALSE(garden_->bed(TestKey(3)));
}

TEST_F(EntityCollectionTest, deletedMemberIsNotifiedReturnedAndWithoutParent) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  bool gone = false;
  const Watcher watcher(garden_, notified_, "",
                        [&] { gone = !garden_->bed(TestKey(3)) && bed->parent() == nullptr; });
  EXPECT_EQ(garden_->bedDel(TestKey(3)), bed);
  EXPECT_EQ(notified(), "bed! bed(3) ");
  EXPECT_TRUE(gone) << "it must be out of the collection before anybody is notified";
  EXPECT_EQ(bed->parentAttrName(), "");
  EXPECT_EQ(bed->refs(), 1u);
}

TEST_F(EntityCollectionTest, deletingAnAbsentMemberIsSilent) {
  garden_->bedIs(TestKey(3));
  const Watcher watcher(garden_, notified_);
  EXPECT_FALSE(garden_->bedDel(TestKey(4)));
  EXPECT_FALSE(garden_->potDel(TestKey(3)));
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityCollectionTest, memberOfKeyZeroIsLikeAnyOther) {
  const Watcher watcher(garden_, notified_);
  const Ptr<Bed> pot = garden_->potIs(TestKey(0));
  EXPECT_EQ(garden_->pot(TestKey(0)), pot);
  EXPECT_EQ(garden_->potDel(TestKey(0)), pot);
  EXPECT_FALSE(garden_->pot(TestKey(0)));
  EXPECT_EQ(notified(), "pot! pot(0) pot! pot(0) ");
}

TEST_F(EntityCollectionTest, deletingByIteratorLeavesTheIteratorUsable) {
  for (const U32 key : {1u, 2u, 3u, 4u}) garden_->bedIs(TestKey(key));
  const Watcher watcher(garden_, notified_);
  for (auto at = garden_->bed().begin(); at != garden_->bed().end(); ++at) {
    if (at.key().value() % 2 == 0) garden_->bedDel(at);
  }
  EXPECT_EQ(bedKeys(), (Keys{1, 3}));
  EXPECT_EQ(notified(), "bed! bed(2) bed! bed(4) ");
}

TEST_F(EntityCollectionTest, deletingAllNotifiesEachInTheOrderOfKeys) {
  for (const U32 key : {3u, 1u, 2u}) garden_->bedIs(TestKey(key));
  const Watcher watcher(garden_, notified_);
  garden_->bedDelAll();
  EXPECT_TRUE(garden_->bed().empty());
  EXPECT_EQ(notified(), "bed! bed(1) bed! bed(2) bed! bed(3) ");
}

TEST_F(EntityCollectionTest, notifyingAKeyChangesNothing) {
  garden_->bedIs(TestKey(3));
  const Watcher watcher(garden_, notified_);
  garden_->bedNotify(TestKey(3));
  garden_->bedNotify(TestKey(9));
  EXPECT_EQ(notified(), "bed! bed(3) bed! bed(9) ");
  EXPECT_EQ(bedKeys(), Keys{3});
}

TEST_F(EntityCollectionTest, notifyingTheWholeGoesToItsOwnSlot) {
  const Watcher watcher(garden_, notified_);
  garden_->bedNotify();
  EXPECT_EQ(notified(), "bed ");
  garden_->potNotify();
  EXPECT_EQ(notified(), "pot ");
}

TEST_F(EntityCollectionTest, changeOfAMemberIsNotAChangeOfItsCollection) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  const Watcher watcher(garden_, notified_);
  bed->wetIs(true);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityCollectionTest, memberDeletedWhileItIsAnnouncedIsStillReturned) {
  const Watcher watcher(garden_, notified_, "", [&] {
    if (garden_->bed(TestKey(3))) garden_->bedDel(TestKey(3));
  });
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  ASSERT_TRUE(bed);
  EXPECT_EQ(bed->parent(), nullptr);
  EXPECT_TRUE(garden_->bed().empty());
}

TEST_F(EntityCollectionTest, notifieeByIdentifierGetsIdentifiersAndKeys) {
  Clerk clerk;
  garden_->notifieeAdd(&clerk);
  garden_->areaIs(2.0);
  garden_->visitsInc(1);
  garden_->bedIs(TestKey(3));
  garden_->potIs(TestKey(0xffffffffu));
  garden_->bedNotify();
  EXPECT_EQ(clerk.notified, "258 260 261(3) 262(4294967295) 261* ");
  garden_->notifieeRemove(&clerk);
  garden_->areaIs(3.0);
  EXPECT_EQ(clerk.notified, "258 260 261(3) 262(4294967295) 261* ");
}

TEST_F(EntityCollectionTest, destroyedParentLetsItsMembersGo) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  const Ptr<Bed> pot = garden_->potIs(TestKey(3));
  garden_ = nullptr;
  EXPECT_EQ(bed->parent(), nullptr);
  EXPECT_EQ(pot->parent(), nullptr);
  EXPECT_EQ(bed->refs(), 1u);
  EXPECT_EQ(pot->fullName(), "Test::Bed");
}

// The destructor deletes members, and every deletion notifies: that must not revive the parent.
TEST_F(EntityCollectionTest, parentThatWasOnceWatchedIsDestroyedOnce) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(3));
  { const Watcher watcher(garden_, notified_); }
  garden_ = nullptr;
  EXPECT_EQ(bed->parent(), nullptr);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityCollectionTest, eachDeletionAtTheEndOfAParentIsNotified) {
  Clerk clerk;
  garden_->bedIs(TestKey(5));
  garden_->bedIs(TestKey(4));
  garden_->potIs(TestKey(1));
  garden_->notifieeAdd(&clerk);
  garden_ = nullptr;
  EXPECT_EQ(clerk.notified, "261(4) 261(5) 262(1) ");
}

}  // namespace
}  // namespace Mox
