// Directory entries that come and go, as a peer receives them.
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
  directory_.entryIs("root/a", root_, Access::readOnly);
  const Frames frames = take();
  EXPECT_EQ(frames.front(), framesOf({rootFrame}).front());
  EXPECT_EQ(frames.back(), framesOf({restOfRoot}).front());
}

TEST_F(DirectoryTest, entryThatComesAndGoesBeforeADrainIsNotSent) {
  serve();
  ASSERT_TRUE(send(helloFrame));
  take();
  directory_.entryIs("root/a", root_, Access::readOnly);
  directory_.entryDel("root/a");
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(DirectoryTest, nothingIsSentOfAnEntryThatHasGone) {
  serveRoot();
  directory_.entryDel("root/a");
  take();
  root_->countIs(1);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(DirectoryTest, pathThatIsGivenToAnotherEntityEndsBeforeItBeginsAgain) {
  serveRoot();
  directory_.entryIs("root/a", makePtr<Root>("z"), Access::readOnly);
  const Frames frames = take();
  EXPECT_EQ(frames.at(0), hexOf(bytesOf("03 00000001")));
  EXPECT_EQ(frames.at(1), hexOf(bytesOf("02 00000002" + textHex("root/a") + "00" +
                                        textHex("Test::Root") + "05" + textHex("z"))));
}

TEST_F(DirectoryTest, entryThatAnotherFollowerRemovesAtOnceIsNeverServed) {
  struct Remover final : Directory::Follower {
    explicit Remover(Directory& directory) : directory_(directory) {}
    void onEntry(U32) override { directory_.entryDel("root/a"); }
    Directory& directory_;
  };
  Remover remover(directory_);
  directory_.followerAdd(&remover);
  serve();
  ASSERT_TRUE(send(helloFrame));
  take();
  directory_.entryIs("root/a", root_, Access::readOnly);
  EXPECT_THAT(take(), IsEmpty());
  directory_.followerRemove(&remover);
}

TEST_F(DirectoryTest, removingAnUnknownEntrySendsNothing) {
  serveRoot();
  directory_.entryDel("root/b");
  EXPECT_TRUE(session_->allSent());
}

}  // namespace
}  // namespace Mox::NboAttrLog
