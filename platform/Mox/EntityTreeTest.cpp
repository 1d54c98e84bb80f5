// Watchers of a whole tree: the changes and the members that they are notified of.
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <Mox/Entity.h>
#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

// Adds the path and the attribute of each notification.
class TreeWatcher final : public TreeNotifiee {
 public:
  TreeWatcher(Ptr<const EntityBase> entity, std::string& notified, std::string mark = {})
      : entity_(std::move(entity)), notified_(notified), mark_(std::move(mark)) {
    entity_->treeNotifieeAdd(this);
  }
  ~TreeWatcher() override { entity_->treeNotifieeRemove(this); }

  std::function<void()> then_;

 private:
  void onAttr(const EntityBase& entity, AttrId id) override {
    note(entity.fullName() + "." + entity.attrName(id));
  }
  void onMember(const EntityBase& entity, AttrId id, U32 key) override {
    note(entity.fullName() + "." + entity.attrName(id) + "(" + std::to_string(key) + ")");
  }
  void onCollection(const EntityBase& entity, AttrId id) override {
    note(entity.fullName() + "." + entity.attrName(id) + "*");
  }
  void onMemberGone(const EntityBase& entity, AttrId id, const EntityBase& member) override {
    const bool wet = static_cast<const Bed&>(member).wet();
    if (wet) note(entity.fullName() + "." + entity.attrName(id) + ":wetOneGone");
  }
  void note(const std::string& what) {
    notified_ += mark_ + what + " ";
    const std::function<void()> then = then_;  // it may destroy this watcher
    if (then) then();
  }

  const Ptr<const EntityBase> entity_;
  std::string& notified_;
  const std::string mark_;
};

class EntityTreeTest : public testing::Test {
 protected:
  std::string notified() { return std::exchange(notified_, {}); }

  std::string notified_;
  Ptr<Garden> garden_ = makePtr<Garden>("kew");
};

TEST_F(EntityTreeTest, outermostEntityIsWatched) {
  const TreeWatcher watcher(garden_, notified_);
  garden_->areaIs(2.0);
  garden_->visitsInc(1);
  garden_->bedIs(TestKey(7));
  garden_->bedNotify();
  garden_->bedDel(TestKey(7));
  EXPECT_EQ(notified(), "kew.area kew.visits kew.bed(7) kew.bed* kew.bed(7) ");
}

TEST_F(EntityTreeTest, aMemberThatLeavesIsShownWithItsValues) {
  const TreeWatcher watcher(garden_, notified_);
  garden_->bedIs(TestKey(7))->wetIs(true);
  notified();
  garden_->bedDel(TestKey(7));
  EXPECT_EQ(notified(), "kew.bed:wetOneGone kew.bed(7) ");
}

TEST_F(EntityTreeTest, memberAddedLaterIsWatched) {
  const TreeWatcher watcher(garden_, notified_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  notified();
  bed->wetIs(true);
  EXPECT_EQ(notified(), "kew/bed[7].wet ");
}

TEST_F(EntityTreeTest, memberThatWasThereBeforeIsWatchedOnceItIsMarked) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  const TreeWatcher watcher(garden_, notified_);
  bed->wetIs(true);
  EXPECT_EQ(notified(), "");
  bed->treeWatchedIs();
  bed->wetIs(false);
  EXPECT_EQ(notified(), "kew/bed[7].wet ");
}

TEST_F(EntityTreeTest, unchangedValueNotifiesNobody) {
  const TreeWatcher watcher(garden_, notified_);
  garden_->areaIs(1.0);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityTreeTest, removedMemberIsNoLongerWatched) {
  const TreeWatcher watcher(garden_, notified_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  garden_->bedDel(TestKey(7));
  notified();
  bed->wetIs(true);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityTreeTest, watcherThatLeftIsNotNotified) {
  Ptr<Bed> bed;
  {
    const TreeWatcher watcher(garden_, notified_);
    bed = garden_->bedIs(TestKey(7));
    notified();
  }
  bed->wetIs(true);
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "");
}

TEST_F(EntityTreeTest, memberIsWatchedAgainByAWatcherThatMarksIt) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  {
    const TreeWatcher watcher(garden_, notified_);
    bed->treeWatchedIs();
  }
  bed->wetIs(true);  // notifies nobody, and from now on costs nothing
  const TreeWatcher watcher(garden_, notified_);
  bed->wetIs(false);
  EXPECT_EQ(notified(), "");
  bed->treeWatchedIs();
  bed->wetIs(true);
  EXPECT_EQ(notified(), "kew/bed[7].wet ");
}

TEST_F(EntityTreeTest, ownNotifieesAreNotifiedFirstThenTreesInTheOrderOfRegistration) {
  const TreeWatcher first(garden_, notified_, "1:");
  const TreeWatcher second(garden_, notified_, "2:");
  const Watcher own(garden_, notified_, "own:");
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "own:area 1:kew.area 2:kew.area ");
}

TEST_F(EntityTreeTest, watcherAddedDuringANotificationIsNotifiedFromTheNextOneOn) {
  std::unique_ptr<TreeWatcher> later;
  TreeWatcher watcher(garden_, notified_, "1:");
  watcher.then_ = [&] {
    if (!later) later = std::make_unique<TreeWatcher>(garden_, notified_, "2:");
  };
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "1:kew.area ");
  garden_->areaIs(3.0);
  EXPECT_EQ(notified(), "1:kew.area 2:kew.area ");
}

TEST_F(EntityTreeTest, watcherMayLeaveWhileItIsNotified) {
  auto watcher = std::make_unique<TreeWatcher>(garden_, notified_, "1:");
  const TreeWatcher other(garden_, notified_, "2:");
  watcher->then_ = [&] { watcher.reset(); };
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "1:kew.area 2:kew.area ");
  garden_->areaIs(3.0);
  EXPECT_EQ(notified(), "2:kew.area ");
}

TEST_F(EntityTreeTest, rootMayBeReleasedWhileAChangeBelowItIsNotified) {
  // Watches without holding the tree, as a watcher that is only a part of the root's owner does.
  class Releaser final : public TreeNotifiee {
   public:
    explicit Releaser(Ptr<Garden>& garden) : garden_(garden) { garden_->treeNotifieeAdd(this); }
    void onAttr(const EntityBase& entity, AttrId) override {
      ++notified_;
      garden_ = nullptr;
      EXPECT_EQ(entity.fullName(), "kew/bed[7]") << "the tree stands until all are notified";
    }
    void onMember(const EntityBase&, AttrId, U32) override {}
    void onCollection(const EntityBase&, AttrId) override {}
    Ptr<Garden>& garden_;
    int notified_ = 0;
  };
  Releaser first(garden_);
  Releaser second(garden_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  bed->wetIs(true);
  EXPECT_EQ(first.notified_, 1);
  EXPECT_EQ(second.notified_, 1);
  EXPECT_EQ(bed->parent(), nullptr) << "the garden is gone by now";
}

TEST_F(EntityTreeTest, memberMayLeaveTheTreeWhileItsOwnNotifieeIsNotified) {
  class Remover final : public Bed::NotifieeConst {
   public:
    Remover(const Ptr<Bed>& bed, Garden& garden) : NotifieeConst(bed), garden_(garden) {}
    void onWet() override { garden_.bedDel(TestKey(7)); }

   private:
    Garden& garden_;
  };
  const TreeWatcher watcher(garden_, notified_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  notified();
  const Remover remover(bed, *garden_);
  bed->wetIs(true);
  EXPECT_EQ(notified(),
            "kew.bed:wetOneGone kew.bed(7) ");  // not of a member that has left the tree
}

TEST_F(EntityTreeTest, removingAWatcherThatNeverRegisteredIsSilent) {
  const Ptr<Garden> other = makePtr<Garden>("sissinghurst");
  const TreeWatcher watcher(garden_, notified_);
  other->treeNotifieeRemove(&watcher);
  garden_->areaIs(2.0);
  EXPECT_EQ(notified(), "kew.area ");
}

TEST_F(EntityTreeTest, deletingAllNotifiesEachMember) {
  const TreeWatcher watcher(garden_, notified_);
  garden_->bedIs(TestKey(1));
  garden_->bedIs(TestKey(2));
  notified();
  garden_->bedDelAll();
  EXPECT_EQ(notified(), "kew.bed(1) kew.bed(2) ");
}

}  // namespace
}  // namespace Mox
