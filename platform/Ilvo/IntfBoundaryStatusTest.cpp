#include <Ilvo/IntfBoundaryStatus.h>

#include <string>

#include <gtest/gtest.h>

namespace Ilvo {
namespace {

class IntfBoundaryStatusTest : public testing::Test {
 protected:
  static IpGenPrefix prefix(std::string_view text) { return IpGenPrefix::parse(text).value(); }
  void add(std::string_view text, bool value = true) { status_->boundaryIs(prefix(text), value); }
  std::string keys() const {
    std::string out;
    for (const auto& [key, value] : status_->boundary()) {
      out += key.stringValue() + " ";
    }
    return out;
  }
  Mox::Ptr<IntfBoundaryStatus> status_ = Mox::makePtr<IntfBoundaryStatus>();
};

TEST_F(IntfBoundaryStatusTest, startsEmpty) { EXPECT_TRUE(status_->boundary().empty()); }

TEST_F(IntfBoundaryStatusTest, isWalkedInTheOrderOfItsPrefixes) {
  add("ff00::/8");
  add("239.0.0.0/8");
  add("224.0.1.0/24");
  EXPECT_EQ(keys(), "224.0.1.0/24 239.0.0.0/8 ff00::/8 ");
}

TEST_F(IntfBoundaryStatusTest, keepsAPrefixOnceWhateverItsHostBits) {
  add("239.0.0.0/8", true);
  add("239.9.9.9/8", false);
  EXPECT_EQ(keys(), "239.0.0.0/8 ");
  EXPECT_FALSE(status_->boundary().begin()->second);
}

}  // namespace
}  // namespace Ilvo
