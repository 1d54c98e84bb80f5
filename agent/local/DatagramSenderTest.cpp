#include <Local/DatagramSender.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include <AgentTestSupport/DatagramReceiver.h>
#include <AgentTestSupport/TempFolder.h>

namespace Agent {
namespace {

class DatagramSenderTest : public testing::Test {
 protected:
  void receiverIs() { receiver_ = std::make_unique<DatagramReceiver>(path_); }
  void receiverDel() {
    receiver_.reset();
    ::unlink(path_.c_str());
  }
  size_t fill() {
    size_t taken = 0;
    while (sender_.send("x") == DatagramSender::sent) ++taken;
    return taken;
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/socket";
  std::unique_ptr<DatagramReceiver> receiver_;
  DatagramSender sender_{path_};
};

TEST_F(DatagramSenderTest, sendsToAPath) {
  receiverIs();
  EXPECT_EQ(sender_.send("one"), DatagramSender::sent);
  EXPECT_EQ(sender_.send("two"), DatagramSender::sent);
  EXPECT_EQ(receiver_->received(), "one");
  EXPECT_EQ(receiver_->received(), "two");
}

TEST_F(DatagramSenderTest, sendsToANameThatIsNoFile) {
  const std::string name = "@DatagramSenderTest." + std::to_string(getpid());
  DatagramReceiver receiver(name);
  EXPECT_EQ(DatagramSender(name).send("one"), DatagramSender::sent);
  EXPECT_EQ(receiver.received(), "one");
}

TEST_F(DatagramSenderTest, aReceiverMayComeLater) {
  EXPECT_EQ(sender_.send("one"), DatagramSender::notNow);
  EXPECT_FALSE(sender_.waitWritable(std::chrono::milliseconds(0)));
  receiverIs();
  EXPECT_EQ(sender_.send("two"), DatagramSender::sent);
  EXPECT_EQ(receiver_->received(), "two");
}

TEST_F(DatagramSenderTest, aReceiverThatRestartsIsFoundAgain) {
  receiverIs();
  sender_.send("one");
  receiverDel();
  EXPECT_EQ(sender_.send("two"), DatagramSender::notNow);
  receiverIs();
  EXPECT_EQ(sender_.send("three"), DatagramSender::sent);
  EXPECT_EQ(receiver_->received(), "three");
}

TEST_F(DatagramSenderTest, aFullReceiverTakesMoreOnceItHasRead) {
  receiverIs();
  EXPECT_GT(fill(), 0u);
  EXPECT_FALSE(sender_.waitWritable(std::chrono::milliseconds(0)));
  receiver_->all();
  EXPECT_TRUE(sender_.waitWritable(std::chrono::milliseconds(0)));
  EXPECT_EQ(sender_.send("y"), DatagramSender::sent);
}

TEST_F(DatagramSenderTest, whatNoDatagramCanHoldIsRefusedForGood) {
  receiverIs();
  EXPECT_EQ(sender_.send(std::string(size_t{64} << 20, 'x')), DatagramSender::tooLong);
  EXPECT_EQ(sender_.send("y"), DatagramSender::sent);
}

TEST_F(DatagramSenderTest, anAddressThatIsTooLongHasNoReceiver) {
  EXPECT_EQ(DatagramSender("/" + std::string(200, 'x')).send("x"), DatagramSender::notNow);
  EXPECT_EQ(DatagramSender("").send("x"), DatagramSender::notNow);
}

}  // namespace
}  // namespace Agent
