#include <Local/LocalPeer.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <AgentTestSupport/OtherIdentity.h>
#include <AgentTestSupport/TempFolder.h>
#include <AgentTestSupport/TestSocket.h>

namespace Agent {
namespace {

using Mox::NboAttrLog::Rights;

class LocalPeerTest : public testing::Test {
 protected:
  LocalPeerTest() {
    for (const std::string& path : {folder_.path(), path_}) {
      std::filesystem::permissions(path, std::filesystem::perms::all);
    }
  }
  // Of a process that connects with another identity.
  Rights rightsOf(gid_t group, const std::vector<gid_t>& supplementary) {
    std::optional<OtherIdentity> other(std::in_place, nobodyId, group, supplementary);
    EXPECT_TRUE(other->isTaken());
    const TestSocket client = TestSocket::connectedTo(path_);
    other.reset();
    return peerRights(server_.accepted().fd());
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/peer.sock";
  TestSocket server_ = TestSocket::servingAt(path_);
};

TEST_F(LocalPeerTest, processOfTheSameUserMayConfigure) {
  const TestSocket client = TestSocket::connectedTo(path_);
  const TestSocket accepted = server_.accepted();
  EXPECT_EQ(peerRights(accepted.fd()), Rights::configure);
  EXPECT_EQ(peerName(accepted.fd()), fmt::format("user {} (process {})", geteuid(), getpid()));
}

TEST_F(LocalPeerTest, peerWhoseCredentialsCannotBeReadMayOnlyRead) {
  EXPECT_EQ(peerRights(-1), Rights::read);
  EXPECT_EQ(peerName(-1), "an unknown process");
}

TEST_F(LocalPeerTest, memberOfTheAgentsGroupMayConfigure) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  EXPECT_EQ(rightsOf(getegid(), {}), Rights::configure) << "its primary group";
  EXPECT_EQ(rightsOf(nobodyId, {1234, getegid()}), Rights::configure) << "a supplementary group";
}

TEST_F(LocalPeerTest, otherUserOfOtherGroupsMayOnlyRead) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  EXPECT_EQ(rightsOf(nobodyId, {}), Rights::read);
  EXPECT_EQ(rightsOf(nobodyId, {1234}), Rights::read);
}

}  // namespace
}  // namespace Agent
