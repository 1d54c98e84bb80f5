// The folders above a socket, which nobody else may be able to replace.
#include "SocketFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <Local/LocalSocket.h>
#include "SocketFile.h"

#include <AgentTestSupport/OtherIdentity.h>
#include <AgentTestSupport/TempFolder.h>

#include <filesystem>
#include <string>

namespace Agent {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::ThrowsMessage;

class SocketFolderTest : public testing::Test {
 protected:
  SocketFolderTest() { fs::create_directory(above_); }

  auto opening() {
    return [this] { openedSocketFolder(folder_ + "/test.sock"); };
  }
  static auto failsWith(const std::string& text) {
    return ThrowsMessage<std::runtime_error>(HasSubstr(text));
  }

  const TempFolder temp_;
  const std::string above_ = temp_.path() + "/above";
  const std::string folder_ = above_ + "/run";
};

TEST_F(SocketFolderTest, isRefusedBelowOneThatOthersCanWrite) {
  for (const unsigned mode : {0775u, 0757u, 0777u}) {
    fs::permissions(above_, fs::perms(mode));
    EXPECT_THAT(opening(), failsWith("other users can write to " + above_ + ", above the folder " +
                                     folder_ + ", and could replace it; `chmod go-w " + above_))
        << mode;
    EXPECT_FALSE(fs::exists(folder_));
  }
}

// The sticky bit keeps others from renaming what is not theirs.
TEST_F(SocketFolderTest, isMadeBelowOneThatOthersCanWriteOnlyTheirOwnFilesIn) {
  fs::permissions(above_, fs::perms(01777));
  EXPECT_TRUE(openedSocketFolder(folder_ + "/test.sock").isNew);
  EXPECT_FALSE(openedSocketFolder(folder_ + "/test.sock").isNew);
}

TEST_F(SocketFolderTest, isRefusedBelowOneOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  ASSERT_EQ(chown(above_.c_str(), nobodyId, nobodyId), 0);
  EXPECT_THAT(opening(), failsWith(above_ + ", above the folder " + folder_ +
                                   ", belongs to user 65534, who could replace it"));
}

TEST_F(SocketFolderTest, isFoundThroughALinkOfRootOrThisUser) {
  fs::create_directory_symlink(above_, temp_.path() + "/link");
  openedSocketFolder(temp_.path() + "/link/run/test.sock");
  EXPECT_TRUE(fs::is_directory(folder_));
}

TEST_F(SocketFolderTest, isRefusedBehindALinkOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a link away";
  const std::string link = temp_.path() + "/link";
  fs::create_directory_symlink(above_, link);
  ASSERT_EQ(lchown(link.c_str(), nobodyId, nobodyId), 0);
  EXPECT_THAT([&] { openedSocketFolder(link + "/run/test.sock"); },
              failsWith(link + " is a symbolic link of user 65534, who could change it"));
}

TEST_F(SocketFolderTest, isRefusedBehindALinkThatLeadsToItself) {
  fs::create_directory_symlink("link", temp_.path() + "/link");
  EXPECT_THAT([&] { openedSocketFolder(temp_.path() + "/link/run/test.sock"); },
              failsWith("/link is a symbolic link"));
}

TEST_F(SocketFolderTest, foldersAboveOfARelativePathAreCheckedAsWell) {
  fs::permissions(above_, fs::perms(0777));
  const fs::path before = fs::current_path();
  fs::current_path(above_);
  EXPECT_THAT([] { openedSocketFolder("run/test.sock"); },
              failsWith("other users can write to " + above_ + ", above the folder run"));
  fs::current_path(before);
}

// A path could lead elsewhere by then.
TEST_F(SocketFolderTest, isTheOneThatWasOpenedWhenTheSocketIsBound) {
  const SocketFile socket(folder_ + "/test.sock");
  sockaddr_un address{};
  socklen_t size = sizeof(address);
  ASSERT_EQ(getsockname(socket.fd(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  EXPECT_THAT(address.sun_path, testing::MatchesRegex("/proc/self/fd/[0-9]+/test.sock"));
  EXPECT_TRUE(connectToAgent(folder_ + "/test.sock").isOpen());
}

TEST_F(SocketFolderTest, isTheOneThatWasOpenedWhenTheSocketEnds) {
  {
    const SocketFile socket(folder_ + "/test.sock");
    fs::rename(folder_, above_ + "/renamed");
    fs::create_directory(folder_);
    const SocketFile other(folder_ + "/test.sock");
  }
  EXPECT_TRUE(fs::is_empty(above_ + "/renamed"));
  EXPECT_TRUE(fs::is_empty(folder_));
}

}  // namespace
}  // namespace Agent
