#include <Report/InterfaceState.h>

#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using testing::HasSubstr;

// The authors of decoders read the document, which has one line for each attribute.
TEST(InterfaceState, hasDocumentedAttributes) {
  std::ifstream document(ATTR_LOG_DOCUMENT);
  const std::string text(std::istreambuf_iterator<char>(document), {});
  const size_t section = text.find(std::string("### ") + InterfaceState::entityTypeName + "\n");
  ASSERT_NE(section, std::string::npos);
  const char* const rows[] = {"| 257 | name | key | text |",
                              "| 258 | address | stored | u32 |",
                              "| 259 | running | stored | flag |",
                              "| 260 | electedTime | stored | seconds |",
                              "| 261 | framesLost | counter | u64 |",
                              "| 262 | framesUnparsable | counter | u64 |",
                              "| 263 | fragmentsReceived | counter | u64 |",
                              "| 264 | otherVlanFrames | counter | u64 |",
                              "| 265 | sendFailures | counter | u64 |"};
  const auto attrs = Mox::typeInfoOf<InterfaceState>().attrs;
  ASSERT_EQ(attrs.size(), std::size(rows));
  for (const Mox::AttrInfo& attr : attrs) {
    const std::string row = rows[attr.id - 257];
    EXPECT_THAT(row, HasSubstr(std::string("| ") + attr.name + " |"));
    EXPECT_NE(text.find(row, section), std::string::npos) << row;
  }
}

}  // namespace
}  // namespace Agent
