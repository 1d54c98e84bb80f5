#include <Report/InterfaceState.h>
#include <Report/LoopState.h>
#include <Report/StoreState.h>

#include <fstream>
#include <iterator>
#include <string>

#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeStatus.h>
#include <Mox/TypeInfo.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

const char* kindName(Mox::AttrKind kind) {
  switch (kind) {
    case Mox::AttrKind::key: return "key";
    case Mox::AttrKind::constant: return "constant";
    case Mox::AttrKind::counter: return "counter";
    default: return "stored";
  }
}

const char* valueName(Mox::ValueKind kind) {
  switch (kind) {
    case Mox::ValueKind::flag: return "flag";
    case Mox::ValueKind::u32: return "u32";
    case Mox::ValueKind::u64: return "u64";
    case Mox::ValueKind::seconds: return "seconds";
    default: return "text";
  }
}

template <class E>
class DocumentedEntityTest : public testing::Test {};
using Entities = testing::Types<InterfaceState, IntakeConfig, IntakeStatus, IntakeProcessConfig,
                                IntakeProcessStatus, LoopState, StoreState>;
TYPED_TEST_SUITE(DocumentedEntityTest, Entities);

// The authors of decoders read the document, which has one line for each attribute.
TYPED_TEST(DocumentedEntityTest, hasEachAttributeInTheDocument) {
  std::ifstream document(ATTR_LOG_DOCUMENT);
  const std::string text(std::istreambuf_iterator<char>(document), {});
  const size_t begin = text.find(std::string("### ") + TypeParam::entityTypeName + "\n");
  ASSERT_NE(begin, std::string::npos);
  const std::string section = text.substr(begin, text.find("\n#", begin + 1) - begin);
  size_t rows = 0;
  for (const Mox::AttrInfo& attr : Mox::typeInfoOf<TypeParam>().attrs) {
    const std::string row = "| " + std::to_string(attr.id) + " | " + attr.name + " | " +
                            kindName(attr.kind) + " | " + valueName(attr.value) + " |";
    EXPECT_NE(section.find(row), std::string::npos) << row;
    ++rows;
  }
  EXPECT_EQ(section.find("| " + std::to_string(257 + rows) + " |"), std::string::npos);
}

}  // namespace
}  // namespace Agent
