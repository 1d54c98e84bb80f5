#include <Mox/Notifiee.h>

#include <string>

#include <gtest/gtest.h>

namespace Mox {
namespace {

struct Mark {
  char mark;
};

class NotifieeListTest : public testing::Test {
 protected:
  NotifieeListTest() {
    for (Mark* each : {&a_, &b_, &c_}) list_.add(each);
  }
  // The marks that a walk comes to.
  std::string walked() {
    std::string marks;
    list_.walk([&](const Mark& each) { marks += each.mark; });
    return marks;
  }

  Mark a_{'a'};
  Mark b_{'b'};
  Mark c_{'c'};
  NotifieeList<Mark> list_;
};

TEST_F(NotifieeListTest, isWalkedInTheOrderOfRegistration) {
  EXPECT_EQ(walked(), "abc");
  list_.remove(&a_);
  list_.add(&a_);
  EXPECT_EQ(walked(), "bca");
}

TEST_F(NotifieeListTest, removingOneThatIsNotThereIsSilent) {
  Mark other{'x'};
  list_.remove(&other);
  EXPECT_EQ(walked(), "abc");
}

TEST_F(NotifieeListTest, isEmptyAfterAWalkThatRemovedAll) {
  list_.walk([&](const Mark& each) { list_.remove(&each); });
  EXPECT_EQ(list_.size(), 0u);
  EXPECT_TRUE(list_.empty());
}

TEST_F(NotifieeListTest, removalsOfAnInnerWalkAreClosedByTheOuterOne) {
  std::string marks;
  list_.walk([&](const Mark& each) {
    marks += each.mark;
    if (each.mark != 'a') return;
    list_.walk([&](const Mark& inner) { list_.remove(&inner); });
    EXPECT_EQ(list_.size(), 0u);
    EXPECT_FALSE(list_.empty()) << "the outer walk still counts its places";
  });
  EXPECT_EQ(marks, "a");
  EXPECT_TRUE(list_.empty());
}

TEST_F(NotifieeListTest, holesAreClosedAgainAfterALaterWalk) {
  for (Mark* each : {&a_, &b_, &c_}) {
    list_.walk([&](const Mark& walked) {
      if (walked.mark == each->mark) list_.remove(each);
    });
  }
  EXPECT_TRUE(list_.empty());
}

}  // namespace
}  // namespace Mox
