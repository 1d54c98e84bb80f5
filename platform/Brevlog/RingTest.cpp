#include <Brevlog/Ring.h>

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace Far {
struct Addr {
  unsigned char octet[3];
};
void appendText(std::string& out, Addr addr) {
  for (const unsigned char octet : addr.octet) out += std::to_string(octet) + ".";
}
}  // namespace Far

namespace Brevlog {
namespace {

std::vector<std::string> textsOf(const Ring& ring) {
  std::vector<std::string> texts;
  ring.forEach([&](const Ring::Line& line) { texts.push_back(line.text()); });
  return texts;
}
using Texts = std::vector<std::string>;

TEST(Ring, showsNothingWhileEmpty) {
  const Ring ring(64);
  EXPECT_EQ(textsOf(ring), Texts{});
  EXPECT_EQ(ring.recorded(), 0u);
  EXPECT_EQ(ring.overwritten(), 0u);
}

TEST(Ring, makesTextOfFacilityAndParts) {
  Ring ring(1024);
  ring.record(8, "GroupSm", 1.5, "handleRxLeave", '(', 260.0, ", ", true, Mox::U8{7}, ")");
  EXPECT_EQ(textsOf(ring), Texts{"GroupSm handleRxLeave(260, true7)"});
}

TEST(Ring, keepsTimeLevelAndFacility) {
  Ring ring(1024);
  ring.record(9, "QuerierSm", 12.25, "x");
  int lines = 0;
  ring.forEach([&](const Ring::Line& line) {
    ++lines;
    EXPECT_EQ(line.time, 12.25);
    EXPECT_EQ(line.level, 9);
    EXPECT_STREQ(line.facility, "QuerierSm");
  });
  EXPECT_EQ(lines, 1);
}

TEST(Ring, showsTheOldestFirst) {
  Ring ring(1024);
  ring.record(1, "f", 1.0, 1);
  ring.record(1, "f", 2.0, 2);
  ring.record(1, "f", 3.0, 3);
  EXPECT_EQ(textsOf(ring), (Texts{"f 1", "f 2", "f 3"}));
}

TEST(Ring, takesPartsOfForeignTypesAtOddSizes) {
  Ring ring(1024);
  ring.record(1, "f", 1.0, Far::Addr{{1, 2, 3}}, 0.5, Far::Addr{{4, 5, 6}});
  EXPECT_EQ(textsOf(ring), Texts{"f 1.2.3.0.54.5.6."});
}

TEST(Ring, copiesTheCharactersOfStrings) {
  Ring ring(1024);
  {
    std::string own = "a text that is longer than what a string keeps inside itself";
    ring.record(1, "f", 1.0, own, ' ', std::string_view(own).substr(2, 4), "", std::string(), 7);
    own.assign(own.size(), '?');
  }
  EXPECT_EQ(textsOf(ring),
            Texts{"f a text that is longer than what a string keeps inside itself text7"});
}

TEST(Ring, refusesAStringBiggerThanItself) {
  Ring ring(64);
  ring.record(1, "f", 1.0, std::string(28, 'x'));
  EXPECT_EQ(textsOf(ring), Texts{"f " + std::string(28, 'x')}) << "exactly the capacity";
  ring.record(1, "f", 2.0, std::string(29, 'y'));
  EXPECT_EQ(textsOf(ring), Texts{"f " + std::string(28, 'x')});
  EXPECT_EQ(ring.refused(), 1u);
}

TEST(Ring, aRecordMayHaveNoParts) {
  Ring ring(64);
  ring.record(1, "alone", 1.0);
  EXPECT_EQ(textsOf(ring), Texts{"alone "});
}

TEST(Ring, aRecordMayFillItAll) {
  Ring ring(64);
  static_assert(Ring::recordBytes(1.0, 2.0, 3.0, 4.0) == 64);
  for (int round = 0; round < 3; ++round) {
    ring.record(1, "f", 1.0, 1.0, 2.0, 3.0, 4.0);
    EXPECT_EQ(textsOf(ring), Texts{"f 1234"});
  }
  EXPECT_EQ(ring.overwritten(), 2u);
}

TEST(Ring, refusesARecordBiggerThanItself) {
  Ring ring(64);
  ring.record(1, "f", 1.0, 1);
  ring.record(1, "f", 2.0, 1.0, 2.0, 3.0, 4.0, 'x');
  EXPECT_EQ(textsOf(ring), Texts{"f 1"});
  EXPECT_EQ(ring.refused(), 1u);
  EXPECT_EQ(ring.recorded(), 1u);
  EXPECT_EQ(ring.overwritten(), 0u);
}

TEST(Ring, overwritesOnlyWhatIsInTheWay) {
  Ring ring(128);
  static_assert(Ring::recordBytes() == 32);
  for (const char* facility : {"a", "b", "c", "d"}) ring.record(1, facility, 1.0);
  EXPECT_EQ(textsOf(ring), (Texts{"a ", "b ", "c ", "d "}));
  ring.record(1, "e", 1.0);
  EXPECT_EQ(textsOf(ring), (Texts{"b ", "c ", "d ", "e "}));
  EXPECT_EQ(ring.recorded(), 5u);
  EXPECT_EQ(ring.overwritten(), 1u);
}

// Every record size against every place of the end of the memory within it.
TEST(Ring, wrapsAroundAtEveryOffset) {
  for (int offset = 0; offset < 64; ++offset) {
    SCOPED_TRACE(offset);
    Ring ring(256);
    for (int i = 0; i < offset; ++i) ring.record(1, "pad", 0.0, 1.0);  // 40 bytes: all offsets
    ring.record(1, "none", 0.0);
    ring.record(1, "some", 0.0, 1, std::string("2"), "three", '4', Mox::U8{5});
    ring.record(1, "one", 0.0, 6.0);
    Texts texts = textsOf(ring);
    ASSERT_GE(texts.size(), 3u);
    texts.erase(texts.begin(), texts.end() - 3);
    EXPECT_EQ(texts, (Texts{"none ", "some 12three45", "one 6"}));
  }
}

Texts readFrom(Ring::Reader& reader) {
  Texts texts;
  while (reader.next([&](const Ring::Line& line) { texts.push_back(line.parts()); })) {
  }
  return texts;
}

TEST(RingReader, readsEachRecordOnceHoweverOftenItIsAsked) {
  Ring ring(1024);
  ring.record(1, "f", 1.0, "old");
  Ring::Reader reader(ring);
  EXPECT_EQ(readFrom(reader), Texts{"old"});
  EXPECT_EQ(readFrom(reader), Texts{});
  ring.record(1, "f", 2.0, "new");
  ring.record(1, "f", 3.0, "newer");
  EXPECT_EQ(readFrom(reader), (Texts{"new", "newer"}));
  EXPECT_EQ(reader.position(), ring.recorded());
  EXPECT_EQ(reader.takeLost(), 0u);
}

TEST(RingReader, countsWhatWasOverwrittenBeforeItWasRead) {
  Ring ring(128);
  for (const char* text : {"a", "b", "c"}) ring.record(1, "f", 1.0, text);  // of 40 bytes each
  Ring::Reader reader(ring);
  reader.next([](const Ring::Line& line) { EXPECT_EQ(line.parts(), "a"); });
  for (const char* text : {"d", "e", "f"}) ring.record(1, "f", 1.0, text);
  EXPECT_EQ(reader.takeLost(), 2u);
  EXPECT_EQ(reader.takeLost(), 0u);
  EXPECT_EQ(readFrom(reader), (Texts{"d", "e", "f"}));
}

TEST(RingReader, readsOnBehindTheGapWithoutBeingAskedForItFirst) {
  Ring ring(128);
  for (const char* text : {"a", "b", "c"}) ring.record(1, "f", 1.0, text);
  Ring::Reader reader(ring);
  for (const char* text : {"d", "e"}) ring.record(1, "f", 1.0, text);
  EXPECT_EQ(readFrom(reader), (Texts{"c", "d", "e"}));
  EXPECT_EQ(reader.takeLost(), 2u);
  for (const char* text : {"g", "h", "i", "j", "k"}) ring.record(1, "f", 1.0, text);
  EXPECT_EQ(reader.position(), 7u) << "five read or lost before, two lost since";
  EXPECT_EQ(readFrom(reader), (Texts{"i", "j", "k"}));
  EXPECT_EQ(reader.takeLost(), 2u);
}

TEST(RingReader, whatWasGoneBeforeItCameIsNotLost) {
  Ring ring(128);
  for (const char* text : {"a", "b", "c", "d"}) ring.record(1, "f", 1.0, text);
  Ring::Reader reader(ring);
  EXPECT_EQ(reader.takeLost(), 0u);
  EXPECT_EQ(reader.position(), 1u);
  EXPECT_EQ(readFrom(reader), (Texts{"b", "c", "d"}));
}

TEST(RingDeathTest, capacityMustBeAPowerOfTwo) {
  EXPECT_DEATH(Ring(1000), "capacity is a power of two");
  EXPECT_DEATH(Ring(32), "capacity is a power of two");
}

}  // namespace
}  // namespace Brevlog
