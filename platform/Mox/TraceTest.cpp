#include <Mox/Trace.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Orchard {

// Too big to be recorded, and changing: a trace keeps its count.
struct Basket {
  std::vector<int> apples;
};
struct BasketPart {
  std::size_t apples;
};
inline BasketPart tracePart(const Basket& basket) { return {basket.apples.size()}; }
inline void appendText(std::string& out, BasketPart part) {
  out += std::to_string(part.apples) + " apples";
}

// Too big as well: a trace keeps its text.
struct Row {
  std::vector<int> trees;
};
inline void appendText(std::string& out, const Row& row) {
  for (const int tree : row.trees) out += std::to_string(tree) + ".";
}

}  // namespace Orchard

namespace Mox {
namespace {

using Texts = std::vector<std::string>;

// Each test has a handle of its own name, so that the shared ring can be read by handle.
class TraceTest : public testing::Test {
 protected:
  TraceTest() {
    traceSinkIs([this](const TraceLine& line) {
      lines_.push_back(std::to_string(line.level) + " " + std::string(line.text));
    });
  }
  ~TraceTest() override {
    traceSinkIs({});
    realTimeIs();
  }

  // The lines of this test's handle in the ring, without the handle's name.
  Texts ring() const {
    Texts texts;
    brevlog().forEach([&](const Brevlog::Ring::Line& line) {
      if (line.facility != handle_.name()) return;
      texts.push_back(std::to_string(line.level) +
                      line.text().substr(std::string(line.facility).size()));
    });
    return texts;
  }

  TraceHandle& handle_ = TraceHandle::named(
      std::string("TraceTest.") + testing::UnitTest::GetInstance()->current_test_info()->name(),
      "TraceTest.tin");
  Texts lines_;
};

TEST_F(TraceTest, eventsAreInTheRingAndNowhereElseAtFirst) {
  EXPECT_EQ(handle_.ringLevel(), 3);
  EXPECT_EQ(handle_.facilityLevel(), TraceHandle::off);
  trace<3>(handle_, "event");
  trace<4>(handle_, "detail");
  EXPECT_EQ(ring(), Texts{"3 event"});
  EXPECT_EQ(lines_, Texts{});
}

TEST_F(TraceTest, ringKeepsLinesUpToItsLevel) {
  handle_.ringLevelIs(8);
  trace<8>(handle_, "kept");
  trace<9>(handle_, "too much");
  trace<0>(handle_, "kept as well");
  EXPECT_EQ(ring(), (Texts{"8 kept", "0 kept as well"}));
}

TEST_F(TraceTest, facilityGetsLinesUpToItsLevel) {
  handle_.facilityLevelIs(6);
  trace<6>(handle_, "kept");
  trace<7>(handle_, "too much");
  trace<1>(handle_, "kept as well");
  EXPECT_EQ(lines_, (Texts{"6 kept", "1 kept as well"}));
}

TEST_F(TraceTest, levelsOfRingAndFacilityAreIndependent) {
  handle_.ringLevelIs(2);
  handle_.facilityLevelIs(6);
  trace<6>(handle_, "a");
  EXPECT_EQ(ring(), Texts{});
  EXPECT_EQ(lines_, Texts{"6 a"});
  handle_.ringLevelIs(8);
  trace<8>(handle_, "b");
  EXPECT_EQ(ring(), Texts{"8 b"});
  EXPECT_EQ(lines_, Texts{"6 a"});
}

TEST_F(TraceTest, levelOfTheFacilityDoesNotLowerTheRings) {
  handle_.ringLevelIs(8);
  handle_.facilityLevelIs(3);
  trace<8>(handle_, "a");
  handle_.facilityLevelIs(TraceHandle::off);
  trace<8>(handle_, "b");
  EXPECT_EQ(ring(), (Texts{"8 a", "8 b"}));
  EXPECT_EQ(lines_, Texts{});
}

TEST_F(TraceTest, levelOfTheRingDoesNotLowerTheFacilitys) {
  handle_.facilityLevelIs(8);
  handle_.ringLevelIs(TraceHandle::off);
  trace<8>(handle_, "a");
  EXPECT_EQ(lines_, Texts{"8 a"});
  EXPECT_EQ(ring(), Texts{});
}

TEST_F(TraceTest, offKeepsNothing) {
  handle_.ringLevelIs(TraceHandle::off);
  trace<0>(handle_, "x");
  EXPECT_EQ(ring(), Texts{});
  handle_.ringLevelIs(0);
  trace<0>(handle_, "y");
  handle_.ringLevelIs(TraceHandle::off);
  trace<0>(handle_, "z");
  EXPECT_EQ(ring(), Texts{"0 y"});
}

TEST_F(TraceTest, partsStandTogetherWithNothingBetweenThem) {
  handle_.facilityLevelIs(3);
  trace<3>(handle_, "a: ", 260.0, Name("eth0"), U8{7}, true, 'c');
  EXPECT_EQ(lines_, Texts{"3 a: 260eth07truec"});
  EXPECT_EQ(ring(), Texts{"3 a: 260eth07truec"});
}

TEST_F(TraceTest, traceWithoutPartsIsAnEmptyLine) {
  handle_.facilityLevelIs(3);
  trace<3>(handle_);
  EXPECT_EQ(lines_, Texts{"3 "});
  EXPECT_EQ(ring(), Texts{"3 "});
}

TEST_F(TraceTest, rawByteIsACharacterForTheFacilityAndANumberInTheRing) {
  handle_.facilityLevelIs(3);
  trace<3>(handle_, "protocol ", RawByte{0x41});
  EXPECT_EQ(lines_, Texts{"3 protocol A"});
  EXPECT_EQ(ring(), Texts{"3 protocol 65"});
}

TEST_F(TraceTest, rawByteZeroReachesTheFacilityAsItIs) {
  handle_.facilityLevelIs(3);
  trace<3>(handle_, "<", RawByte{0}, RawByte{0xff}, ">");
  EXPECT_EQ(lines_, Texts{std::string("3 <\0\xff>", 6)});
  EXPECT_EQ(ring(), Texts{"3 <0255>"});
}

TEST_F(TraceTest, objectsAreTracedAsTheyWereThen) {
  handle_.facilityLevelIs(3);
  Orchard::Basket basket{{1, 2, 3}};
  trace<3>(handle_, "picked ", basket);
  basket.apples.clear();
  EXPECT_EQ(lines_, Texts{"3 picked 3 apples"});
  EXPECT_EQ(ring(), Texts{"3 picked 3 apples"});
}

TEST_F(TraceTest, valuesWithListsAreTracedAsTheyReadThen) {
  handle_.facilityLevelIs(3);
  Orchard::Row row{{1, 22, 333}};
  trace<3>(handle_, "planted ", row);
  row.trees.clear();
  EXPECT_EQ(lines_, Texts{"3 planted 1.22.333."});
  EXPECT_EQ(ring(), Texts{"3 planted 1.22.333."});
}

TEST_F(TraceTest, lineNamesItsHandleAndThePlaceThatTraced) {
  handle_.facilityLevelIs(3);
  unsigned line = 0;
  std::string function;
  const TraceHandle* handle = nullptr;
  traceSinkIs([&](const TraceLine& traced) {
    line = traced.where.line;
    function = traced.where.function;
    handle = &traced.handle;
  });
  const unsigned here = __LINE__ + 1;
  trace<3>(handle_, "here");
  EXPECT_EQ(line, here);
  EXPECT_NE(function.find("TestBody"), std::string::npos) << function;
  ASSERT_EQ(handle, &handle_);
  EXPECT_STREQ(handle->modelFile(), "TraceTest.tin");
}

TEST_F(TraceTest, withoutASinkTheRingStillRecords) {
  handle_.facilityLevelIs(8);
  handle_.ringLevelIs(8);
  traceSinkIs({});
  trace<8>(handle_, "x");
  EXPECT_EQ(ring(), Texts{"8 x"});
  EXPECT_EQ(lines_, Texts{});
}

TEST_F(TraceTest, ringKeepsTheTimeThatTheClockShowedLast) {
  virtualTimeIs(1234.5);
  trace<3>(handle_, "x");
  Seconds time = 0.0;
  brevlog().forEach([&](const Brevlog::Ring::Line& line) {
    if (line.facility == handle_.name()) time = line.time;
  });
  EXPECT_EQ(time, 1234.5);
}

TEST(TraceHandle, isKnownByItsName) {
  TraceHandle& one = TraceHandle::named("TraceHandle.one", "One.tin");
  EXPECT_EQ(&TraceHandle::named("TraceHandle.one"), &one);
  EXPECT_NE(&TraceHandle::named("TraceHandle.two"), &one);
  EXPECT_STREQ(one.name(), "TraceHandle.one");
}

TEST(TraceHandle, takesItsModelFileFromTheFirstCallThatNamesOne) {
  TraceHandle& handle = TraceHandle::named("TraceHandle.file");
  EXPECT_STREQ(handle.modelFile(), "");
  handle.facilityLevelIs(8);
  TraceHandle::named("TraceHandle.file", "First.tin");
  TraceHandle::named("TraceHandle.file", "Second.tin");
  TraceHandle::named("TraceHandle.file");
  EXPECT_STREQ(handle.modelFile(), "First.tin");
  EXPECT_EQ(handle.facilityLevel(), 8);
}

TEST(TraceHandle, areListedOnceInTheOrderOfTheirNames) {
  TraceHandle& b = TraceHandle::named("TraceHandle.b");
  TraceHandle& a = TraceHandle::named("TraceHandle.a");
  const auto all = TraceHandle::all();
  const auto atA = std::find(all.begin(), all.end(), &a);
  const auto atB = std::find(all.begin(), all.end(), &b);
  ASSERT_NE(atA, all.end());
  ASSERT_NE(atB, all.end());
  EXPECT_LT(atA, atB);
  EXPECT_EQ(std::count(all.begin(), all.end(), &a), 1);
}

}  // namespace
}  // namespace Mox
