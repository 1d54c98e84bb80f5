#include "SocketFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Local/AttrLogSocket.h>
#include <Local/LocalSocket.h>

#include <AgentTestSupport/OtherIdentity.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestSocket.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace Agent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr const char* otherAgentServes =
    "another agent serves there; choose another path with --socket";

class SocketFileTest : public testing::Test {
 protected:
  void serve() { socket_.emplace(path_); }
  auto serving() {
    return [this] { serve(); };
  }
  static auto failsWith(const std::string& text) {
    return ThrowsMessage<std::runtime_error>(HasSubstr(text));
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status.st_mode;
  }
  static void write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
  }
  std::string victim() const {
    std::ifstream in(victim_);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  const TempFolder temp_;
  const std::string folder_ = temp_.path() + "/run";
  const std::string path_ = folder_ + "/test.sock";
  const std::string lock_ = path_ + ".lock";
  const std::string victim_ = temp_.path() + "/victim";
  std::optional<SocketFile> socket_;
};

// The mask of the process counts for nothing.
TEST_F(SocketFileTest, fileIsForEveryoneInAFolderOfItsOwner) {
  const mode_t before = umask(0777);
  serve();
  umask(before);
  EXPECT_EQ(modeOf(path_), S_IFSOCK | 0666u);
  EXPECT_EQ(modeOf(folder_), S_IFDIR | 0755u);
  EXPECT_EQ(modeOf(lock_) & 0077, 0u) << "another user could hold the lock";
}

TEST_F(SocketFileTest, maskOfTheProcessIsAsBefore) {
  const mode_t before = umask(0123);
  serve();
  EXPECT_EQ(umask(before), 0123u);
}

TEST_F(SocketFileTest, leavesNothingBehind) {
  serve();
  socket_.reset();
  EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

TEST_F(SocketFileTest, leavesTheFileOfAnother) {
  serve();
  std::filesystem::remove(path_);
  std::filesystem::remove(lock_);
  write(path_, "other");
  write(lock_, "other");
  socket_.reset();
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_TRUE(std::filesystem::exists(lock_));
}

TEST_F(SocketFileTest, socketOfARunningAgentIsLeftAlone) {
  serve();
  EXPECT_THAT([&] { SocketFile{path_}; }, failsWith(otherAgentServes));
  EXPECT_TRUE(connectToAgent(path_).isOpen());
  EXPECT_TRUE(std::filesystem::exists(lock_));
}

// One that runs without a lock.
TEST_F(SocketFileTest, socketThatAnyProcessServesIsLeftAlone) {
  std::filesystem::create_directory(folder_);
  const TestSocket other = TestSocket::servingAt(path_);
  EXPECT_THAT(serving(), failsWith(otherAgentServes));
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_FALSE(std::filesystem::exists(lock_));
}

// An agent that has the lock, and no socket yet.
TEST_F(SocketFileTest, agentThatStartsAtTheSameTimeIsLeftAlone) {
  std::filesystem::create_directory(folder_);
  const Descriptor other(::open(lock_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(other.fd(), LOCK_EX), 0);
  EXPECT_THAT(serving(), failsWith(otherAgentServes));
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_TRUE(std::filesystem::exists(lock_));
}

TEST_F(SocketFileTest, filesOfAKilledAgentAreReplaced) {
  std::filesystem::create_directory(folder_);
  TestSocket::servingAt(path_).close();
  write(lock_, "");
  serve();
  EXPECT_TRUE(connectToAgent(path_).isOpen());
}

TEST_F(SocketFileTest, linkInThePlaceOfTheSocketIsNotFollowed) {
  std::filesystem::create_directory(folder_);
  write(victim_, "kept");
  std::filesystem::create_symlink(victim_, path_);
  EXPECT_THAT(serving(), failsWith(path_ + " is not a socket; remove it"));
  std::filesystem::remove(path_);
  std::filesystem::create_symlink(temp_.path() + "/missing", path_);
  EXPECT_THAT(serving(), failsWith("is not a socket"));
  EXPECT_FALSE(std::filesystem::exists(temp_.path() + "/missing"));
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(victim(), "kept");
}

TEST_F(SocketFileTest, linkInThePlaceOfTheLockIsNotFollowed) {
  std::filesystem::create_directory(folder_);
  std::filesystem::create_symlink(victim_, lock_);
  EXPECT_THAT(serving(), failsWith("Too many levels of symbolic links; remove it"));
  EXPECT_FALSE(std::filesystem::exists(victim_));
}

TEST_F(SocketFileTest, linkInThePlaceOfTheFolderIsNotFollowed) {
  std::filesystem::create_directory(temp_.path() + "/elsewhere");
  std::filesystem::create_directory_symlink(temp_.path() + "/elsewhere", folder_);
  EXPECT_THAT(serving(), failsWith(folder_ + " is a symbolic link"));
  EXPECT_TRUE(std::filesystem::is_empty(temp_.path() + "/elsewhere"));
}

TEST_F(SocketFileTest, plainFileIsNotReplaced) {
  std::filesystem::create_directory(folder_);
  write(path_, "kept");
  EXPECT_THAT(serving(), failsWith("is not a socket"));
  EXPECT_EQ(modeOf(path_) & S_IFMT, mode_t{S_IFREG});
}

TEST_F(SocketFileTest, folderThatOthersCanWriteIsRefusedWithTheRemedy) {
  for (const unsigned mode : {0775u, 0757u, 01777u}) {
    std::filesystem::create_directory(folder_);
    std::filesystem::permissions(folder_, std::filesystem::perms(mode));
    EXPECT_THAT(serving(), failsWith("other users can write to " + folder_ +
                                     "; choose a path in a folder of this user alone, such as "
                                     "--socket " +
                                     folder_ + "/igmpq/test.sock"))
        << mode;
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
  }
}

TEST_F(SocketFileTest, folderOfAnotherUserIsRefusedWithTheRemedy) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  std::filesystem::create_directory(folder_);
  ASSERT_EQ(chown(folder_.c_str(), nobodyId, nobodyId), 0);
  EXPECT_THAT(serving(), failsWith(folder_ +
                                   " belongs to user 65534, this agent runs as user 0; "
                                   "`chown 0 " +
                                   folder_ + "`"));
}

TEST_F(SocketFileTest, newFolderIsMadeForTheUserThatTheAgentWillRunAs) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  std::filesystem::permissions(temp_.path(), std::filesystem::perms(0755));
  socketFolderIs(path_, nobodyId, nobodyId);
  const OtherIdentity other;
  serve();
  EXPECT_EQ(modeOf(folder_), S_IFDIR | 0755u);
  socket_.reset();
}

TEST_F(SocketFileTest, folderThatIsThereKeepsItsOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  socketFolderIs(temp_.path() + "/test.sock", nobodyId, nobodyId);
  struct stat status {};
  ASSERT_EQ(stat(temp_.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0u);
}

}  // namespace
}  // namespace Agent
