#include <Local/LocalPeer.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <Local/Descriptor.h>

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
  std::optional<Rights> rightsOf(gid_t group, const std::vector<gid_t>& supplementary) {
    std::optional<OtherIdentity> other(std::in_place, nobodyId, group, supplementary);
    EXPECT_TRUE(other->isTaken());
    const TestSocket client = TestSocket::connectedTo(path_);
    other.reset();
    return peerRights(access_)(server_.accepted().fd());
  }

  static constexpr gid_t readers = 4001;
  static constexpr gid_t operators = 4002;

  PeerAccess access_;
  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/peer.sock";
  TestSocket server_ = TestSocket::servingAt(path_);
};

TEST_F(LocalPeerTest, processOfTheSameUserCanConfigure) {
  const TestSocket client = TestSocket::connectedTo(path_);
  const TestSocket accepted = server_.accepted();
  EXPECT_EQ(peerRights({})(accepted.fd()), Rights::configure);
  EXPECT_EQ(peerName(accepted.fd()), fmt::format("user {} (process {})", geteuid(), getpid()));
  EXPECT_EQ(peerUser(accepted.fd()), fmt::format("user {}", geteuid()));
}

// Not even where every process can read, or where the group of root could.
TEST_F(LocalPeerTest, peerWhoseCredentialsCannotBeReadHasNoRights) {
  const RightsOf open = peerRights({.isOpen = true, .readGroup = 0, .configureGroup = 0});
  EXPECT_EQ(open(-1), std::nullopt) << "no descriptor";
  int pipe[2];
  ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
  const Descriptor readEnd(pipe[0]);
  const Descriptor writeEnd(pipe[1]);
  EXPECT_EQ(open(readEnd.fd()), std::nullopt) << "no socket";
  const Descriptor inet(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(open(inet.fd()), std::nullopt) << "a socket without credentials";
  EXPECT_EQ(peerName(inet.fd()), "an unknown process");
  EXPECT_EQ(peerUser(-1), "an unknown process");
}

TEST_F(LocalPeerTest, membersOfTheNamedGroupsHaveTheirRights) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  access_ = {.readGroup = readers, .configureGroup = operators};
  EXPECT_EQ(rightsOf(readers, {}), Rights::read) << "its primary group";
  EXPECT_EQ(rightsOf(nobodyId, {1234, readers}), Rights::read) << "a supplementary group";
  EXPECT_EQ(rightsOf(operators, {}), Rights::configure);
  EXPECT_EQ(rightsOf(nobodyId, {operators, 1234}), Rights::configure);
  EXPECT_EQ(rightsOf(readers, {operators}), Rights::configure) << "in both";
  EXPECT_EQ(rightsOf(nobodyId, {1234}), std::nullopt);
}

TEST_F(LocalPeerTest, otherUsersHaveNoRightsUnlessTheyAreNamed) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take on another identity";
  EXPECT_EQ(rightsOf(nobodyId, {}), std::nullopt);
  EXPECT_EQ(rightsOf(getegid(), {}), std::nullopt) << "the agent's own group";
  access_ = {.isOpen = true};
  EXPECT_EQ(rightsOf(nobodyId, {}), Rights::read);
}

}  // namespace
}  // namespace Agent
