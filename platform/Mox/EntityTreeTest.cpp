// Who watches a whole tree: what it hears, of which members, and at which price.
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <Mox/Entity.h>
#include <gtest/gtest.h>

#include "EntityTestSupport.h"

namespace Mox {
namespace {

// Adds the path and the attribute that it is told of.
class TreeWatcher final : public TreeNotifiee {
 public:
  TreeWatcher(Ptr<const EntityBase> entity, std::string& told, std::string mark = {})
      : entity_(std::move(entity)), told_(told), mark_(std::move(mark)) {
    entity_->treeNotifieeAdd(this);
  }
  ~TreeWatcher() override { entity_->treeNotifieeRemove(this); }

  std::function<void()> then_;

 private:
  void onAttr(const EntityBase& entity, AttrId id) override {
    tell(entity.fullName() + "." + entity.attrName(id));
  }
  void onMember(const EntityBase& entity, AttrId id, U32 key) override {
    tell(entity.fullName() + "." + entity.attrName(id) + "(" + std::to_string(key) + ")");
  }
  void onCollection(const EntityBase& entity, AttrId id) override {
    tell(entity.fullName() + "." + entity.attrName(id) + "*");
  }
  void tell(const std::string& what) {
    told_ += mark_ + what + " ";
    const std::function<void()> then = then_;  // it may destroy this watcher
    if (then) then();
  }

  const Ptr<const EntityBase> entity_;
  std::string& told_;
  const std::string mark_;
};

class EntityTreeTest : public testing::Test {
 protected:
  std::string told() { return std::exchange(told_, {}); }

  std::string told_;
  Ptr<Garden> garden_ = makePtr<Garden>("kew");
};

TEST_F(EntityTreeTest, outermostEntityIsHeard) {
  const TreeWatcher watcher(garden_, told_);
  garden_->areaIs(2.0);
  garden_->visitsInc(1);
  garden_->bedIs(TestKey(7));
  garden_->bedNotify();
  garden_->bedDel(TestKey(7));
  EXPECT_EQ(told(), "kew.area kew.visits kew.bed(7) kew.bed* kew.bed(7) ");
}

TEST_F(EntityTreeTest, memberThatComesLaterIsHeard) {
  const TreeWatcher watcher(garden_, told_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  told();
  bed->wetIs(true);
  EXPECT_EQ(told(), "kew/bed[7].wet ");
}

TEST_F(EntityTreeTest, memberThatWasThereBeforeIsHeardOnceItIsMadeHeard) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  const TreeWatcher watcher(garden_, told_);
  bed->wetIs(true);
  EXPECT_EQ(told(), "");
  bed->treeWatchedIs();
  bed->wetIs(false);
  EXPECT_EQ(told(), "kew/bed[7].wet ");
}

TEST_F(EntityTreeTest, unchangedValueTellsNobody) {
  const TreeWatcher watcher(garden_, told_);
  garden_->areaIs(1.0);
  EXPECT_EQ(told(), "");
}

TEST_F(EntityTreeTest, memberThatLeftIsNoLongerHeard) {
  const TreeWatcher watcher(garden_, told_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  garden_->bedDel(TestKey(7));
  told();
  bed->wetIs(true);
  EXPECT_EQ(told(), "");
}

TEST_F(EntityTreeTest, watcherThatLeftHearsNothing) {
  Ptr<Bed> bed;
  {
    const TreeWatcher watcher(garden_, told_);
    bed = garden_->bedIs(TestKey(7));
    told();
  }
  bed->wetIs(true);
  garden_->areaIs(2.0);
  EXPECT_EQ(told(), "");
}

TEST_F(EntityTreeTest, memberIsHeardAgainByAWatcherThatMakesItHeard) {
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  {
    const TreeWatcher watcher(garden_, told_);
    bed->treeWatchedIs();
  }
  bed->wetIs(true);  // tells nobody, and from now on costs nothing
  const TreeWatcher watcher(garden_, told_);
  bed->wetIs(false);
  EXPECT_EQ(told(), "");
  bed->treeWatchedIs();
  bed->wetIs(true);
  EXPECT_EQ(told(), "kew/bed[7].wet ");
}

TEST_F(EntityTreeTest, ownNotifieesAreToldFirstThenTreesInTheOrderOfRegistration) {
  const TreeWatcher first(garden_, told_, "1:");
  const TreeWatcher second(garden_, told_, "2:");
  const Watcher own(garden_, told_, "own:");
  garden_->areaIs(2.0);
  EXPECT_EQ(told(), "own:area 1:kew.area 2:kew.area ");
}

TEST_F(EntityTreeTest, watcherAddedWhileOthersAreToldHearsFromTheNextChangeOn) {
  std::unique_ptr<TreeWatcher> later;
  TreeWatcher watcher(garden_, told_, "1:");
  watcher.then_ = [&] {
    if (!later) later = std::make_unique<TreeWatcher>(garden_, told_, "2:");
  };
  garden_->areaIs(2.0);
  EXPECT_EQ(told(), "1:kew.area ");
  garden_->areaIs(3.0);
  EXPECT_EQ(told(), "1:kew.area 2:kew.area ");
}

TEST_F(EntityTreeTest, watcherMayLeaveWhileItIsTold) {
  auto watcher = std::make_unique<TreeWatcher>(garden_, told_, "1:");
  const TreeWatcher other(garden_, told_, "2:");
  watcher->then_ = [&] { watcher.reset(); };
  garden_->areaIs(2.0);
  EXPECT_EQ(told(), "1:kew.area 2:kew.area ");
  garden_->areaIs(3.0);
  EXPECT_EQ(told(), "2:kew.area ");
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

TEST_F(EntityTreeTest, memberMayLeaveTheTreeWhileItsOwnNotifieeIsTold) {
  class Remover final : public Bed::NotifieeConst {
   public:
    Remover(const Ptr<Bed>& bed, Garden& garden) : NotifieeConst(bed), garden_(garden) {}
    void onWet() override { garden_.bedDel(TestKey(7)); }

   private:
    Garden& garden_;
  };
  const TreeWatcher watcher(garden_, told_);
  const Ptr<Bed> bed = garden_->bedIs(TestKey(7));
  told();
  const Remover remover(bed, *garden_);
  bed->wetIs(true);
  EXPECT_EQ(told(), "kew.bed(7) ");  // of what the tree no longer has, nothing is told
}

TEST_F(EntityTreeTest, removingAWatcherThatNeverRegisteredIsSilent) {
  const Ptr<Garden> other = makePtr<Garden>("sissinghurst");
  const TreeWatcher watcher(garden_, told_);
  other->treeNotifieeRemove(&watcher);
  garden_->areaIs(2.0);
  EXPECT_EQ(told(), "kew.area ");
}

TEST_F(EntityTreeTest, treeThatGoesTellsOfEachMember) {
  const TreeWatcher watcher(garden_, told_);
  garden_->bedIs(TestKey(1));
  garden_->bedIs(TestKey(2));
  told();
  garden_->bedDelAll();
  EXPECT_EQ(told(), "kew.bed(1) kew.bed(2) ");
}

}  // namespace
}  // namespace Mox
