// The document, from which others write decoders, agrees with the code: its tables are those of the
// entities, and the bytes of its example are sent.
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/ValueStream.h>
#include <Mox/ActivityClock.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AttrLogTestSupport.h"

namespace Gmp::Igmp {
namespace {

using Mox::U8;

std::vector<std::string> linesOfTheDocument() {
  std::ifstream document(ATTR_LOG_DOCUMENT);
  EXPECT_TRUE(document) << ATTR_LOG_DOCUMENT;
  std::vector<std::string> lines;
  for (std::string line; std::getline(document, line);) lines.push_back(line);
  return lines;
}

// "258 robustness stored u32", by the type whose heading stands above.
std::map<std::string, std::vector<std::string>> documentedTables() {
  std::map<std::string, std::vector<std::string>> tables;
  std::string type;
  for (const std::string& line : linesOfTheDocument()) {
    if (line.starts_with("## ")) type.clear();
    if (line.starts_with("### ")) type = line.substr(4);
    std::istringstream cells(line);
    std::string bar;
    std::string id;
    std::string name;
    std::string kind;
    std::string value;
    cells >> bar >> id >> bar >> name >> bar >> kind >> bar >> value;
    const bool row = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
    if (row && !type.empty()) {
      std::string& added = tables[type].emplace_back(id);
      added.append(" ").append(name).append(" ").append(kind).append(" ").append(value);
    }
  }
  return tables;
}

template <class E>
std::vector<std::string> tableOf() {
  static const std::map<Mox::AttrKind, std::string> kinds{
      {Mox::AttrKind::key, "key"},           {Mox::AttrKind::stored, "stored"},
      {Mox::AttrKind::counter, "counter"},   {Mox::AttrKind::derived, "derived"},
      {Mox::AttrKind::constant, "constant"}, {Mox::AttrKind::collection, "collection"}};
  static const std::map<Mox::ValueKind, std::string> values{{Mox::ValueKind::flag, "flag"},
                                                            {Mox::ValueKind::u32, "u32"},
                                                            {Mox::ValueKind::u64, "u64"},
                                                            {Mox::ValueKind::seconds, "seconds"},
                                                            {Mox::ValueKind::text, "text"}};
  const Mox::TypeInfo& type = Mox::typeInfoOf<E>();
  std::vector<std::string> rows;
  for (const Mox::AttrInfo& attr : type.attrs) {
    const std::string value = attr.kind == Mox::AttrKind::collection
                                  ? type.collections.front().memberType().name
                                  : values.at(attr.value);
    rows.push_back(std::to_string(attr.id) + " " + attr.name + " " + kinds.at(attr.kind) + " " +
                   value);
  }
  return rows;
}

TEST(AttrLogDocTest, tablesAreThoseOfTheEntities) {
  const auto tables = documentedTables();
  EXPECT_EQ(tables.size(), 11u);  // the last seven are the agent's, whose tests know them
  EXPECT_EQ(tables.at(QuerierConfig::entityTypeName), tableOf<QuerierConfig>());
  EXPECT_EQ(tables.at(QuerierStatus::entityTypeName), tableOf<QuerierStatus>());
  EXPECT_EQ(tables.at(QuerierGroupStatus::entityTypeName), tableOf<QuerierGroupStatus>());
  EXPECT_EQ(tables.at(QuerierSourceStatus::entityTypeName), tableOf<QuerierSourceStatus>());
}

template <class T>
std::string fieldKind() {
  if constexpr (std::same_as<T, bool>) return "flag";
  if constexpr (std::same_as<T, U8> || std::same_as<T, RecordType>) return "u8";
  if constexpr (std::same_as<T, U16>) return "u16";
  if constexpr (std::same_as<T, U32> || std::is_enum_v<T> || std::same_as<T, IpAddr>) return "u32";
  if constexpr (std::same_as<T, IpAddrSet>) return "set";
  if constexpr (std::same_as<T, IgmpReport::Records>) return "records";
  return "";
}

template <class V>
std::string rowOfValue() {
  std::string row = std::string("| ") + V::valueTypeName + " |";
  V::fields.forEach([&](Mox::AttrId id, const auto& field) {
    using T = std::remove_cvref_t<decltype(std::declval<V&>().*field.member)>;
    row +=
        std::string(id == V::fields.first ? " " : ", ") + field.name + " `" + fieldKind<T>() + "`";
  });
  return row + " |";
}

TEST(AttrLogDocTest, fieldsOfParsedMessagesAreTheirOwn) {
  const std::vector<std::string> lines = linesOfTheDocument();
  EXPECT_THAT(lines, testing::Contains(rowOfValue<RecordType>()));
  EXPECT_THAT(lines, testing::Contains(rowOfValue<IgmpGroupRecord>()));
  EXPECT_THAT(lines, testing::Contains(rowOfValue<IgmpQuery>()));
  EXPECT_THAT(lines, testing::Contains(rowOfValue<IgmpReport>()));
  EXPECT_THAT(lines, testing::Contains(rowOfValue<GroupList>()));
}

TEST(AttrLogDocTest, framesHaveTheirNumbers) {
  using Mox::NboAttrLog::FrameType;
  const std::vector<std::pair<FrameType, std::string>> types{
      {FrameType::hello, "hello"},       {FrameType::root, "root"},
      {FrameType::rootGone, "rootGone"}, {FrameType::attributes, "attributes"},
      {FrameType::begin, "begin"},       {FrameType::addition, "addition"},
      {FrameType::removal, "removal"},   {FrameType::end, "end"},
      {FrameType::current, "current"},   {FrameType::question, "question"},
      {FrameType::answer, "answer"},     {FrameType::refusal, "refusal"}};
  std::vector<std::string> rows;
  rows.reserve(types.size());
  for (const auto& [type, name] : types) {
    rows.push_back("| " + std::to_string(static_cast<int>(type)) + " | " + name + " |");
  }
  for (const std::string& line : linesOfTheDocument()) {
    if (!rows.empty() && line.starts_with(rows.front())) rows.erase(rows.begin());
  }
  EXPECT_THAT(rows, testing::IsEmpty());
}

TEST(AttrLogDocTest, limitsAreThoseOfTheStreams) {
  std::string text;
  for (const std::string& line : linesOfTheDocument()) text += line + " ";
  using namespace Mox::NboAttrLog;
  const auto says = [&](const std::string& words) {
    EXPECT_NE(text.find(words), std::string::npos) << words;
  };
  says("1 to " + std::to_string(longestPayload + 1) + " |");
  says("The longest frame therefore has " + std::to_string(longestFrame) + " bytes");
  says("a `u16` n, at most " + std::to_string(longestText));
  says("fewer than " + std::to_string(OutStream::sufficient) + " bytes are free");
  says("(" + std::to_string(TreeOut::keysAlwaysKept) + " and twice their number)");
  says("`u8` depth (0 to " + std::to_string(Ref::deepest) + ")");
  says("the version " + std::to_string(protocolVersion) + ".");
}

// A frame of the example: its beginning and, where bytes were left out, its end.
struct Shown {
  std::string begin;
  std::string end;
};

std::vector<Shown> shownFrames() {
  std::vector<Shown> frames;
  bool inside = false;
  for (const std::string& line : linesOfTheDocument()) {
    if (line.starts_with("## ")) inside = line.starts_with("## An example");
    if (!inside || !line.starts_with("    00 ")) continue;
    Shown shown;
    std::istringstream bytes(line);
    std::string* part = &shown.begin;
    for (std::string byte; bytes >> byte;) {
      if (byte == "...") {
        part = &shown.end;
      } else {
        *part += byte;
      }
    }
    frames.push_back(shown);
  }
  return frames;
}

std::vector<std::string> framesOf(std::span<const U8> bytes) {
  std::vector<std::string> frames;
  for (size_t at = 0; at < bytes.size();) {
    const size_t length = 2 + static_cast<size_t>(bytes[at] << 8 | bytes[at + 1]);
    std::string hex;
    for (const U8 byte : bytes.subspan(at, length)) {
      constexpr std::string_view digits = "0123456789abcdef";
      hex += digits[byte >> 4];
      hex += digits[byte & 15];
    }
    frames.push_back(hex);
    at += length;
  }
  return frames;
}

TEST(AttrLogDocTest, bytesOfTheExampleAreSentInItsOrder) {
  Mox::virtualTimeIs(1000.0);
  Directory directory;
  directory.entryIs("gone", querierConfigFactory("e"), Access::readOnly);
  directory.entryDel("gone");
  const Ptr<QuerierStatus> status = querierStatusFactory();
  status->stateIs(QuerierStatus::querierStateQuerier);
  status->querierVersionIs(igmpVersion3);
  status->groupIs(IpAddr(0xef010101u));
  directory.entryIs("status/e", status, Access::readOnly);
  ServeHost host;
  Session server(host, {.name = "agent", .peerName = "copy"}, &directory);
  CopyHost copies;
  Session copy(copies, {.name = "copy", .peerName = "agent"});
  ASSERT_TRUE(server.input(copy.stream().pending()));
  server.drain();
  Mox::realTimeIs();

  const std::vector<Shown> shown = shownFrames();
  EXPECT_EQ(shown.size(), 7u);
  size_t next = 0;
  for (const std::string& frame : framesOf(server.stream().pending())) {
    if (next < shown.size() && frame.starts_with(shown[next].begin) &&
        frame.ends_with(shown[next].end)) {
      ++next;
    }
  }
  EXPECT_EQ(next, shown.size()) << "not sent: "
                                << (next < shown.size() ? shown[next].begin : std::string());
}

}  // namespace
}  // namespace Gmp::Igmp
