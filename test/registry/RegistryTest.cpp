// The types, trace handles and messages that the library registers when it is loaded.
#include <set>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Mox/EventLog.h>
#include <Mox/ModelTypes.h>
#include <Mox/Trace.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {
namespace {

using testing::Contains;
using testing::ElementsAre;

std::vector<std::string> typesOf(const std::string& model) {
  std::vector<std::string> names;
  for (const Mox::ModelTypes* each : Mox::loadedModels()) {
    if (each->model() != model) continue;
    for (const Mox::TypeRecord& record : each->records()) names.emplace_back(record.name);
  }
  return names;
}

TEST(RegistryTest, modelsAreLoadedInTheirOrder) {
  std::vector<std::string> names;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) names.emplace_back(model->model());
  EXPECT_THAT(names, ElementsAre("GmpIgmpQuerier", "GmpIgmpQuerierSm", "GmpAttrLogSm"));
}

TEST(RegistryTest, stateModelRegistersItsTypesInOrder) {
  EXPECT_THAT(
      typesOf("GmpIgmpQuerier"),
      ElementsAre("Gmp::Igmp::QuerierSourceStatus", "Gmp::Igmp::QuerierGroupStatus",
                  "Gmp::Igmp::GroupList", "Gmp::Igmp::IgmpGroupRecord", "Gmp::Igmp::IgmpQuery",
                  "Gmp::Igmp::IgmpVersion", "Gmp::Igmp::IgmpFilterMode", "Gmp::Igmp::QuerierConfig",
                  "Gmp::Igmp::RecordType", "Gmp::Igmp::IgmpReport", "Gmp::Igmp::TimerState",
                  "Gmp::Igmp::QuerierStatus", "Gmp::Igmp::QuerierStatus::QuerierState"));
}

TEST(RegistryTest, machinesRegisterTheirTypesInOrder) {
  EXPECT_THAT(typesOf("GmpIgmpQuerierSm"),
              ElementsAre("Gmp::Igmp::QuerierSm", "Gmp::Igmp::QuerierSm::TimerId",
                          "Gmp::Igmp::QuerierGroupSourceSm", "Gmp::Igmp::QuerierGroupSm",
                          "Gmp::Igmp::QuerierGroupSm::TimerId"));
}

TEST(RegistryTest, monitorRegistersItsType) {
  EXPECT_THAT(typesOf("GmpAttrLogSm"), ElementsAre("Gmp::Igmp::GmpAttrLogSm"));
}

TEST(RegistryTest, everyTypeIsFoundByItsName) {
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const Mox::TypeRecord& record : model->records()) {
      EXPECT_EQ(Mox::typeNamed(record.name), &record) << record.name;
    }
  }
  EXPECT_EQ(Mox::typeNamed("QuerierSm"), nullptr);
}

// Names and identifiers as tools see them: "257 name, 258 robustness, ...".
std::string attributesOf(const char* type) {
  std::string text;
  for (const Mox::AttrInfo& attr : Mox::typeNamed(type)->type->attrs) {
    if (!text.empty()) text += ", ";
    text += std::to_string(attr.id) + " " + attr.name;
  }
  return text;
}

TEST(RegistryTest, attributesOfAConfigurationCountFromTheirName) {
  EXPECT_EQ(attributesOf("Gmp::Igmp::QuerierConfig"),
            "257 name, 258 robustness, 259 queryInterval, 260 queryResponseInterval, "
            "261 startupQueryInterval, 262 startupQueryCount, 263 lastMemberQueryInterval, "
            "264 querierVersion, 265 lastMemberQueryCount, 266 lastMemberQueryTime, "
            "267 addRandomDelayToTimer, 268 sendQuery");
}

TEST(RegistryTest, attributesOfTheMonitorCountFrom130) {
  EXPECT_EQ(attributesOf("Gmp::Igmp::GmpAttrLogSm"),
            "130 nboAttrLogOutSm, 131 isAttrLogClogged, 132 attrLogSockFd, "
            "133 attrLogKernBufferSize, 134 attrLogKernBufferThreshold, "
            "135 attrLogKernBufferUsage, 136 attrLogKernBufAboveThresholdCount, "
            "137 iterUntilBufferCheck, 138 maxIterUntilBufferCheck, 139 handleAttrLogSockFd, "
            "140 getAttrLogKernBufferUsage, 141 initialized, 142 handleInitialized");
}

TEST(RegistryTest, recordsOfTheStateModelsEntitiesBeginWithWhatTheFrameworkGives) {
  for (const std::string& name : typesOf("GmpIgmpQuerier")) {
    const Mox::TypeRecord& record = *Mox::typeNamed(name);
    if (record.kind != Mox::TypeKind::entity) continue;
    std::vector<std::string> first;
    for (const Mox::AttrInfo* attr : record.type->record()) {
      if (first.size() < 5) first.emplace_back(attr->name);
    }
    EXPECT_THAT(first, ElementsAre("name", "fullName", "parent", "parentAttrName", "entity"));
    EXPECT_EQ(record.type->attr("name")->id, 257u);
  }
}

TEST(RegistryTest, everyNameOfATypeIsUniqueAndInTheOrderOfIdentifiers) {
  size_t looked = 0;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const Mox::TypeRecord& record : model->records()) {
      if (record.type == nullptr) continue;
      std::set<std::string> names;
      std::set<Mox::AttrId> ids;
      for (const Mox::AttrInfo* attr : record.type->record()) {
        EXPECT_TRUE(names.insert(attr->name).second) << record.name << " " << attr->name;
        EXPECT_TRUE(ids.insert(attr->id).second) << record.name << " " << attr->name;
        ++looked;
      }
      Mox::AttrId before = 0;
      for (const Mox::AttrInfo& attr : record.type->attrs) {
        EXPECT_LT(before, attr.id);
        before = attr.id;
      }
    }
  }
  EXPECT_GT(looked, 100u);
}

TEST(RegistryTest, everyAttributeHasATypeName) {
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const Mox::TypeRecord& record : model->records()) {
      if (record.type == nullptr) continue;
      for (const Mox::AttrInfo* attr : record.type->record()) {
        if (attr->kind != Mox::AttrKind::operation) {
          EXPECT_STRNE(attr->typeName, "") << record.name << " " << attr->name;
        }
      }
    }
  }
}

TEST(RegistryTest, typesOfThisLibraryThatAttributesNameAreRegistered) {
  size_t looked = 0;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) {
    for (const Mox::TypeRecord& record : model->records()) {
      if (record.type == nullptr) continue;
      for (const Mox::AttrInfo& attr : record.type->attrs) {
        EXPECT_STRNE(attr.typeName, "Mox::Entity") << record.name << " " << attr.name;
        if (!std::string_view(attr.typeName).starts_with("Gmp::Igmp::")) continue;
        ++looked;
        EXPECT_NE(Mox::typeNamed(attr.typeName), nullptr) << record.name << " " << attr.name;
      }
    }
  }
  EXPECT_GT(looked, 10u);
}

TEST(RegistryTest, enumerationsListTheirNumbersAndNames) {
  std::string text;
  for (const char* name : {"Gmp::Igmp::IgmpVersion", "Gmp::Igmp::IgmpFilterMode",
                           "Gmp::Igmp::TimerState", "Gmp::Igmp::QuerierStatus::QuerierState",
                           "Gmp::Igmp::QuerierSm::TimerId", "Gmp::Igmp::QuerierGroupSm::TimerId"}) {
    for (const Mox::EnumeratorInfo& each : Mox::typeNamed(name)->enumerators) {
      text += std::to_string(each.number) + each.name + " ";
      EXPECT_EQ(Mox::typeNamed(name)->fromText(each.name), each.number);
    }
  }
  EXPECT_EQ(text,
            "0igmpVersionUnknown 1igmpVersion1 2igmpVersion2 3igmpVersion3 0filterModeExclude "
            "1filterModeInclude 0timerDisabled 1timerRunning 2timerExpired 0querierStateInitial "
            "1querierStateQuerier 2querierStateNonQuerier 0queryIntervalTimerId "
            "1otherQuerierTimerId 0membershipTimerId 1v1MembershipTimerId 2v2MembershipTimerId "
            "3rexmitTimerId ");
}

TEST(RegistryTest, loadingMakesTheTraceHandleAndTheEventLogMessages) {
  std::vector<std::string> handles;
  for (const Mox::TraceHandle* handle : Mox::TraceHandle::all()) {
    handles.emplace_back(handle->name());
  }
  EXPECT_THAT(handles, Contains("IgmpPacket"));
  std::vector<std::string> messages;
  for (const Mox::EventLogHandle* handle : Mox::EventLogHandle::all()) {
    messages.emplace_back(handle->message().name);
  }
  EXPECT_THAT(messages, Contains("IGMP_MESSAGE_INVALID_SOURCE"));
  EXPECT_THAT(messages, Contains("GMP_IGMP_QUERY_VERSION_CONFIGURED_DISCREPANCY"));
}

}  // namespace
}  // namespace Gmp::Igmp
