// What a peer hears of directory entries that come and go.
#include <NboAttrLog/Directory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::IsEmpty;

class DirectoryTest : public ServingTest {};

TEST_F(DirectoryTest, emptyDirectoryIsCurrentAtOnce) {
  serve();
  takeWithoutDraining();
  ASSERT_TRUE(send(helloFrame));
  EXPECT_EQ(take(), Frames{currentFrame});
}

TEST_F(DirectoryTest, entryThatComesLaterIsAnnouncedWithoutAnotherCurrent) {
  serve();
  ASSERT_TRUE(send(helloFrame));
  take();
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
  const Frames frames = take();
  EXPECT_EQ(frames.front(), framesOf({shelfRoot}).front());
  EXPECT_EQ(frames.back(), framesOf({shelfRest}).front());
}

TEST_F(DirectoryTest, entryThatComesAndGoesUnheardIsNotSpokenOf) {
  serve();
  ASSERT_TRUE(send(helloFrame));
  take();
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
  directory_.entryDel("shelf/a");
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(DirectoryTest, nothingIsSentOfAnEntryThatHasGone) {
  serveShelf();
  directory_.entryDel("shelf/a");
  take();
  shelf_->visitsIs(1);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(DirectoryTest, pathThatIsGivenToAnotherEntityEndsBeforeItBeginsAgain) {
  serveShelf();
  directory_.entryIs("shelf/a", makePtr<Shelf>("z"), Access::readOnly);
  const Frames frames = take();
  EXPECT_EQ(frames.at(0), hexOf(bytesOf("03 00000001")));
  EXPECT_EQ(frames.at(1), hexOf(bytesOf("02 00000002" + textHex("shelf/a") + "00" +
                                        textHex("Test::Shelf") + "05" + textHex("z"))));
}

TEST_F(DirectoryTest, entryThatAnotherFollowerRemovesAtOnceIsNeverServed) {
  struct Remover final : Directory::Follower {
    explicit Remover(Directory& directory) : directory_(directory) {}
    void onEntry(U32) override { directory_.entryDel("shelf/a"); }
    Directory& directory_;
  };
  Remover remover(directory_);
  directory_.followerAdd(&remover);
  serve();
  ASSERT_TRUE(send(helloFrame));
  take();
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
  EXPECT_THAT(take(), IsEmpty());
  directory_.followerRemove(&remover);
}

TEST_F(DirectoryTest, removingAnEntryThatIsNotThereTellsNobody) {
  serveShelf();
  directory_.entryDel("shelf/b");
  EXPECT_TRUE(session_->allSent());
}

}  // namespace
}  // namespace Mox::NboAttrLog
