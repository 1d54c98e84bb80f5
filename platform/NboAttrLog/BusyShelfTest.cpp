// What a peer is sent while members come, go and change faster than it reads.
#include <functional>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::Contains;

// Changes that never end, to a peer that takes one buffer at a time.
class BusyShelfTest : public ServingTest {
 protected:
  BusyShelfTest() {
    for (U32 key = 1; key <= 2; ++key) {
      for (U32 page = 1; page <= 200; ++page) shelf_->bookIs(key)->pageIs(page);
    }
  }
  // What is sent while that goes on; after a while something else happens as well.
  Frames sentDuring(
      const std::function<void()>& change, const std::function<void()>& once = [] {}) {
    Frames all;
    for (int turn = 0; turn < 12; ++turn) {
      change();
      if (turn == 3) once();
      for (const std::string& frame : drained()) all.push_back(frame);
      EXPECT_FALSE(session_->allSent());
    }
    return all;
  }
  void replaceBooks() {
    for (U32 key = 101; key <= 160; ++key) {
      shelf_->bookDel(key);
      shelf_->bookIs(key);
    }
  }
  void turnPages(U32 book) {
    for (U32 page = 1; page <= 200; ++page) {
      const Ptr<Page> turned = shelf_->book(book)->page(Number(page));
      turned->tornIs(!turned->torn());
    }
  }
};

TEST_F(BusyShelfTest, attributeBehindMembersThatComeAndGoForEverIsSent) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { replaceBooks(); }, [&] { shelf_->totalIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 00 0105 0000000000000005"))));
}

TEST_F(BusyShelfTest, changeInsideAMemberIsSentWhileOthersComeAndGoForEver) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { replaceBooks(); }, [&] { shelf_->book(1)->loansIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 01 00000001 0104 00000005"))));
}

TEST_F(BusyShelfTest, memberThatComesIsSentWhileOthersChangeForEver) {
  serveSmall();
  const Frames sent = sentDuring([&] { turnPages(1); }, [&] { shelf_->bookIs(9); });
  EXPECT_THAT(announced(sent), Contains(9u));
}

TEST_F(BusyShelfTest, memberThatChangesForEverDoesNotHoldUpTheOthers) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { turnPages(1); }, [&] { shelf_->book(2)->loansIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 01 00000002 0104 00000005"))));
}

TEST_F(BusyShelfTest, pagesThatChangeForEverAreAllSent) {
  serveSmall();
  std::set<std::string> pages;
  for (const std::string& frame : sentDuring([&] { turnPages(1); })) {
    if (frame.starts_with("04000000010200000001")) pages.insert(frame.substr(20, 8));
  }
  EXPECT_EQ(pages.size(), 200u);
}

TEST_F(BusyShelfTest, attributeOfAMemberIsSentWhileWhatIsInItChangesForEver) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { turnPages(1); }, [&] { shelf_->book(1)->loansIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 01 00000001 0104 00000005"))));
}

}  // namespace
}  // namespace Mox::NboAttrLog
