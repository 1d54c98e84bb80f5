#include <Local/LocalConnection.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <AgentTestSupport/TestSocket.h>
#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

// Keeps its input and marks its other calls; sends the bytes that the test gives it.
class Endpoint final : public LocalConnection {
 public:
  Endpoint(boost::asio::io_context& io, int fd) : LocalConnection(io, Descriptor(fd)) {}
  ~Endpoint() override { marks_ += 'd'; }

  void send(const std::string& bytes) {
    out_ += bytes;
    outputDue();
  }
  void roomIs(size_t room) {
    room_ = room;
    inputDue();
  }
  void sendAndClose(const std::string& bytes) {
    out_ += bytes;
    sendOnce();
    close();
  }
  void onInputIs(std::function<void()> onInput) { onInput_ = std::move(onInput); }

  size_t unsent() const { return out_.size(); }
  const std::string& input() const { return input_; }
  // i: the input has ended, o: the output has; b, f: it is blocked, it flows; d: it is destroyed.
  static std::string& marks() { return marks_; }

 private:
  size_t inputRoom() const override { return room_; }
  void handleInput(std::string_view bytes) override {
    input_ += bytes;
    room_ -= bytes.size();
    if (onInput_) onInput_();
  }
  void handleInputEnd() override { marks_ += 'i'; }
  std::string_view output() override { return out_; }
  void outputTaken(size_t bytes) override { out_.erase(0, bytes); }
  void handleOutputEnd() override { marks_ += 'o'; }
  void handleBlocked(bool isBlocked) override { marks_ += isBlocked ? 'b' : 'f'; }

  static inline std::string marks_;
  std::string out_;
  std::string input_;
  size_t room_ = 1'000'000;
  std::function<void()> onInput_;
};

class LocalConnectionTest : public testing::Test {
 protected:
  LocalConnectionTest() {
    Endpoint::marks().clear();
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    connection_ = std::make_shared<Endpoint>(io_, ends[0]);
    peer_.emplace(ends[1]);
    connection_->start();
  }
  void run() {
    io_.restart();
    io_.poll();
  }
  // More than the kernel takes at once.
  void block() {
    connection_->send(std::string(4'000'000, 'x'));
    run();
  }

  boost::asio::io_context io_;
  std::optional<TestSocket> peer_;
  std::shared_ptr<Endpoint> connection_;
};

TEST_F(LocalConnectionTest, movesBytesBothWays) {
  peer_->send("question");
  connection_->send("answer");
  run();
  EXPECT_EQ(connection_->input(), "question");
  EXPECT_EQ(peer_->received(), "answer");
  EXPECT_EQ(connection_->bytesSent(), 6u);
  EXPECT_EQ(Endpoint::marks(), "");
}

TEST_F(LocalConnectionTest, readsNoMoreThanThereIsRoomFor) {
  connection_->roomIs(3);
  peer_->send("abcdef");
  run();
  EXPECT_EQ(connection_->input(), "abc");
  connection_->roomIs(2);
  run();
  EXPECT_EQ(connection_->input(), "abcde");
}

TEST_F(LocalConnectionTest, readsAndWritesOnePartInARound) {
  peer_->send(std::string(LocalConnection::mostInput + 1, 'x'));
  while (connection_->input().empty()) io_.run_one();
  EXPECT_EQ(connection_->input().size(), LocalConnection::mostInput);
}

TEST_F(LocalConnectionTest, outputThatThePeerDoesNotReadWaits) {
  block();
  EXPECT_TRUE(connection_->isBlocked());
  EXPECT_EQ(Endpoint::marks(), "b");
  EXPECT_GT(connection_->unsent(), 0u);
  EXPECT_GT(connection_->bytesQueued(), 0);
  size_t got = 0;
  while (connection_->isBlocked()) {
    const size_t part = peer_->received().size();
    ASSERT_NE(part, 0u);
    got += part;
    run();
  }
  got += peer_->received().size();
  EXPECT_EQ(got, 4'000'000u);
  EXPECT_EQ(connection_->bytesSent(), 4'000'000u);
  EXPECT_EQ(connection_->bytesQueued(), 0);
  EXPECT_EQ(Endpoint::marks().back(), 'f');
}

TEST_F(LocalConnectionTest, whatThePeerSentBeforeItsEndIsReadFirst) {
  peer_->send("last");
  peer_->close();
  connection_->send("too late");
  run();
  EXPECT_EQ(connection_->input(), "last");
  EXPECT_EQ(Endpoint::marks(), "oi");
}

TEST_F(LocalConnectionTest, peerThatSendsNothingMoreStillGetsItsAnswer) {
  peer_->endOutput();
  run();
  EXPECT_EQ(Endpoint::marks(), "i");
  connection_->send("answer");
  run();
  EXPECT_EQ(peer_->received(), "answer");
}

TEST_F(LocalConnectionTest, afterItsEndNothingIsCalled) {
  connection_->send("unsent");
  peer_->send("unread");
  connection_->close();
  run();
  EXPECT_EQ(connection_->input(), "");
  EXPECT_EQ(connection_->unsent(), 6u);
  EXPECT_EQ(peer_->received(), "");
  EXPECT_TRUE(peer_->isEnded());
  EXPECT_EQ(connection_->bytesQueued(), 0);
}

TEST_F(LocalConnectionTest, releasedWithoutAnEndItIsGone) {
  connection_->send("unsent");
  peer_->send("unread");
  connection_.reset();
  EXPECT_EQ(Endpoint::marks(), "d");
  run();
  EXPECT_EQ(peer_->received(), "");
}

TEST_F(LocalConnectionTest, itsReasonToEndIsSent) {
  connection_->sendAndClose("because");
  EXPECT_EQ(peer_->received(), "because");
  EXPECT_TRUE(peer_->isEnded());
}

TEST_F(LocalConnectionTest, canBeClosedAndReleasedFromItsOwnCall) {
  connection_->onInputIs([this] {
    connection_->close();
    connection_.reset();
    EXPECT_EQ(Endpoint::marks(), "") << "destroyed within its call";
  });
  peer_->send("end");
  run();
  EXPECT_EQ(Endpoint::marks(), "d");
  EXPECT_TRUE(io_.stopped()) << "nothing waits any more";
}

}  // namespace
}  // namespace Agent
