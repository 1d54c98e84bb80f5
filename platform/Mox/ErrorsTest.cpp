#include <Mox/Errors.h>

#include <gtest/gtest.h>

namespace Mox {
namespace {

TEST(Errors, nameInUseSaysWhatDiffers) {
  const NameInUseError error("_sourceTimer", "0x1", "0x2");
  EXPECT_STREQ(error.what(),
               "Reinstantiating the pointer interface where constructor parameter attribute "
               "_sourceTimer has a different value of 0x1 than the current value of 0x2 not "
               "allowed");
  EXPECT_EQ(error.attribute(), "_sourceTimer");
}

TEST(Errors, readOnlySaysWhichAttribute) {
  EXPECT_STREQ(ReadOnlyError("robustness").what(), "attribute robustness is read-only");
}

TEST(Errors, areCaughtAsOneKind) {
  EXPECT_THROW(throw RangeError("x"), Error);
  EXPECT_THROW(throw InternalError("x"), Error);
  EXPECT_THROW(throw ReadOnlyError("x"), Error);
  EXPECT_THROW(throw NameInUseError("x", "y", "z"), Error);
}

}  // namespace
}  // namespace Mox
