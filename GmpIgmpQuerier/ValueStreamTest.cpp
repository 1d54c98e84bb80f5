#include <GmpIgmpQuerier/ValueStream.h>

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "IgmpValuesTestSupport.h"

namespace Gmp::Igmp {
namespace {

using Mox::NboAttrLog::frameHead;
using Mox::NboAttrLog::FrameType;
using Mox::NboAttrLog::longestPayload;
using Mox::NboAttrLog::OutStream;
using Mox::NboAttrLog::Reader;
using Bytes = std::vector<U8>;

// The payload of a frame that holds the value alone.
template <class V>
Bytes written(const V& value) {
  OutStream out;
  out.begin(FrameType::attributes);
  writeValue(out, value);
  out.end();
  return {out.pending().begin() + frameHead, out.pending().end()};
}

// Nothing, unless the bytes are a value and nothing more.
template <class V>
std::optional<V> read(const Bytes& bytes) {
  Reader in(bytes);
  std::optional<V> value = readValue<V>(in);
  if (value && !in.complete()) return std::nullopt;
  return value;
}

IgmpReport reportOfTwo() {
  IgmpReport report;
  report.validPacket = true;
  report.newGroupRecord(0, {igmpVersion3, RecordType(4), addrGroup, {addrA}});
  report.newGroupRecord(2, {igmpVersion3, RecordType(255), addrGroup, {}});
  return report;
}

GroupList listOfTwo() {
  GroupList list;
  list.groupListIs(addrGroup, true);
  list.groupListIs(addrA, true);
  list.groupCountIs(0x1234);
  return list;
}

TEST(ValueStream, recordTypeIsOneByte) {
  EXPECT_EQ(written(RecordType(0xfe)), Bytes{0xfe});
  EXPECT_EQ(read<RecordType>({0xfe}), RecordType(0xfe));
}

TEST(ValueStream, queryIsItsFieldsInOrder) {
  const IgmpQuery query{true, igmpVersion3, 100, addrGroup, true, 7, 31744, {addrB, addrA}};
  const Bytes bytes{1,    0, 0, 0, 3, 100, 0xef, 1, 1, 1, 1,  7, 0, 0,
                    0x7c, 0, 0, 0, 0, 2,   10,   0, 0, 1, 10, 0, 0, 2};
  EXPECT_EQ(written(query), bytes);
  EXPECT_EQ(read<IgmpQuery>(bytes), query);
}

TEST(ValueStream, recordIsItsFieldsInOrder) {
  const IgmpGroupRecord record{igmpVersion3, RecordType(6), addrGroup, {addrA}};
  const Bytes bytes{0, 0, 0, 3, 6, 0xef, 1, 1, 1, 0, 0, 0, 1, 10, 0, 0, 1};
  EXPECT_EQ(written(record), bytes);
  EXPECT_EQ(read<IgmpGroupRecord>(bytes), record);
}

TEST(ValueStream, reportNamesTheIndexOfEachRecord) {
  const Bytes bytes{1, 0, 0, 0, 2,                                                        //
                    0, 0, 0, 0, 0, 0, 0, 3, 4,   0xef, 1, 1, 1, 0, 0, 0, 1, 10, 0, 0, 1,  //
                    0, 0, 0, 2, 0, 0, 0, 3, 255, 0xef, 1, 1, 1, 0, 0, 0, 0};
  EXPECT_EQ(written(reportOfTwo()), bytes);
  EXPECT_EQ(read<IgmpReport>(bytes), reportOfTwo());
}

TEST(ValueStream, groupListIsItsGroupsAndItsCount) {
  const Bytes bytes{0, 0, 0, 2, 10, 0, 0, 1, 0xef, 1, 1, 1, 0x12, 0x34};
  EXPECT_EQ(written(listOfTwo()), bytes);
  EXPECT_EQ(read<GroupList>(bytes), listOfTwo());
}

TEST(ValueStream, defaultValuesReadBackAsThemselves) {
  EXPECT_EQ(read<IgmpQuery>(written(IgmpQuery())), IgmpQuery());
  EXPECT_EQ(read<IgmpReport>(written(IgmpReport())), IgmpReport());
  EXPECT_EQ(read<IgmpGroupRecord>(written(IgmpGroupRecord())), IgmpGroupRecord());
  EXPECT_EQ(read<GroupList>(written(GroupList())), GroupList());
  EXPECT_EQ(read<RecordType>(written(RecordType())), RecordType());
}

template <class V>
void expectEveryPrefixToBeRefused(const V& value) {
  const Bytes all = written(value);
  for (size_t bytes = 0; bytes < all.size(); ++bytes) {
    EXPECT_EQ(read<V>(Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(bytes))),
              std::nullopt)
        << bytes;
  }
}

TEST(ValueStream, everyPrefixOfAValueIsRefused) {
  expectEveryPrefixToBeRefused(
      IgmpQuery{true, igmpVersion3, 100, addrGroup, true, 7, 1, {addrA, addrB}});
  expectEveryPrefixToBeRefused(
      IgmpGroupRecord{igmpVersion3, RecordType(6), addrGroup, {addrA, addrB}});
  expectEveryPrefixToBeRefused(reportOfTwo());
  expectEveryPrefixToBeRefused(listOfTwo());
  expectEveryPrefixToBeRefused(RecordType(1));
}

TEST(ValueStream, fieldsWithImpossibleValuesAreRefused) {
  const Bytes record{0, 0, 0, 3, 6, 0xef, 1, 1, 1, 0, 0, 0, 2, 10, 0, 0, 1, 10, 0, 0, 2};
  ASSERT_NE(read<IgmpGroupRecord>(record), std::nullopt);
  const auto changed = [&](size_t at, U8 byte) {
    Bytes other = record;
    other[at] = byte;
    return read<IgmpGroupRecord>(other);
  };
  EXPECT_EQ(changed(3, 4), std::nullopt) << "no such version";
  EXPECT_EQ(changed(12, 3), std::nullopt) << "one address too few";
  EXPECT_EQ(changed(12, 1), std::nullopt) << "one address too many";
  EXPECT_EQ(changed(9, 0xff), std::nullopt) << "a count that no frame can hold";
  EXPECT_EQ(changed(20, 1), std::nullopt) << "an address twice";
  EXPECT_EQ(changed(20, 0), std::nullopt) << "addresses out of order";
  Bytes query = written(IgmpQuery());
  query[0] = 2;
  EXPECT_EQ(read<IgmpQuery>(query), std::nullopt) << "no flag";
  Bytes report = written(reportOfTwo());
  report[29] = 0;
  EXPECT_EQ(read<IgmpReport>(report), std::nullopt) << "an index twice";
}

TEST(ValueStream, lengthIsKnownBeforeAValueIsWritten) {
  IgmpQuery query{true, igmpVersion3, 100, addrGroup, true, 7, 1, {}};
  for (U32 source = 1; valueBytes(query) <= longestPayload; ++source) {
    const Bytes bytes = written(query);
    ASSERT_EQ(bytes.size(), valueBytes(query));
    ASSERT_EQ(read<IgmpQuery>(bytes), query);
    query.newSource(IpAddr(source), true);
  }
  EXPECT_EQ(query.source.size(), 251u);
  EXPECT_EQ(valueBytes(reportOfTwo()), written(reportOfTwo()).size());
  EXPECT_EQ(valueBytes(listOfTwo()), written(listOfTwo()).size());
  EXPECT_EQ(valueBytes(IgmpGroupRecord()), written(IgmpGroupRecord()).size());
  EXPECT_EQ(valueBytes(RecordType()), 1u);
}

// Bytes of any kind: refused, or a value that is written as the very bytes that were read.
template <class V>
int readsOfRandomBytes(std::mt19937& random) {
  int values = 0;
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes(random() % 48);
    for (U8& byte : bytes) byte = static_cast<U8>(random() % 3 == 0 ? random() % 4 : 0);
    if (const std::optional<V> value = read<V>(bytes)) {
      ++values;
      EXPECT_EQ(written(*value), bytes);
    }
  }
  return values;
}

TEST(ValueStream, randomBytesAreRefusedOrReadBackTheSame) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  EXPECT_GT(readsOfRandomBytes<IgmpQuery>(random), 0);
  EXPECT_GT(readsOfRandomBytes<IgmpReport>(random), 0);
  EXPECT_GT(readsOfRandomBytes<IgmpGroupRecord>(random), 0);
  EXPECT_GT(readsOfRandomBytes<GroupList>(random), 0);
  EXPECT_GT(readsOfRandomBytes<RecordType>(random), 0);
}

}  // namespace
}  // namespace Gmp::Igmp
