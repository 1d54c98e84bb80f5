// The library as a plug-in: loaded, unloaded and loaded again by a process that is not linked with
// it and knows the platform only.
#include <dlfcn.h>

#include <algorithm>
#include <string>
#include <vector>

#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <Mox/EventLog.h>
#include <Mox/ModelTypes.h>
#include <Mox/Trace.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> models() {
  std::vector<std::string> names;
  for (const Mox::ModelTypes* model : Mox::loadedModels()) names.emplace_back(model->model());
  return names;
}

bool isLoaded() {
  void* handle = dlopen(LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

class LoadTest : public testing::Test {
 protected:
  ~LoadTest() override { unload(); }
  void load() {
    handle_ = dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << dlerror();
  }
  void unload() {
    if (handle_ != nullptr) dlclose(handle_);
    handle_ = nullptr;
  }
  void* handle_ = nullptr;
};

TEST_F(LoadTest, typesAreThereWhileTheLibraryIs) {
  EXPECT_THAT(models(), IsEmpty());
  load();
  EXPECT_THAT(models(), ElementsAre("GmpIgmpQuerier", "GmpIgmpQuerierSm", "GmpAttrLogSm"));
  EXPECT_NE(Mox::typeNamed("Gmp::Igmp::QuerierStatus"), nullptr);
  unload();
  EXPECT_FALSE(isLoaded());
  EXPECT_THAT(models(), IsEmpty());
  EXPECT_EQ(Mox::typeNamed("Gmp::Igmp::QuerierStatus"), nullptr);
}

TEST_F(LoadTest, itCanBeLoadedAgainAndAgain) {
  for (int round = 0; round < 3; ++round) {
    load();
    EXPECT_EQ(models().size(), 3u);
    EXPECT_EQ(Mox::typeNamed("Gmp::Igmp::QuerierStatus")->type->attr("joins")->id, 262u);
    unload();
    EXPECT_FALSE(isLoaded());
    EXPECT_THAT(models(), IsEmpty());
  }
}

TEST_F(LoadTest, eventLogMessagesGoWithTheLibrary) {
  const auto messages = [] {
    std::vector<std::string> names;
    for (const Mox::EventLogHandle* handle : Mox::EventLogHandle::all()) {
      names.emplace_back(handle->message().name);
    }
    return names;
  };
  EXPECT_THAT(messages(), IsEmpty());
  load();
  EXPECT_THAT(messages(),
              testing::UnorderedElementsAre("IGMP_MESSAGE_INVALID_SOURCE",
                                            "GMP_IGMP_QUERY_VERSION_CONFIGURED_DISCREPANCY"));
  unload();
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(LoadTest, traceHandleOfTheMonitorIsMadeOnFirstUse) {
  load();
  for (const Mox::TraceHandle* handle : Mox::TraceHandle::all()) {
    EXPECT_STRNE(handle->name(), "GmpAttrLogSm");
  }
}

TEST_F(LoadTest, traceHandlesStayWithTheirLevels) {
  load();
  Mox::TraceHandle& handle = Mox::TraceHandle::named("IgmpPacket");
  handle.ringLevelIs(8);
  unload();
  const std::vector<Mox::TraceHandle*> all = Mox::TraceHandle::all();
  ASSERT_NE(std::ranges::find(all, &handle), all.end());
  EXPECT_STREQ(handle.name(), "IgmpPacket");
  EXPECT_STREQ(handle.modelFile(), "GmpIgmpQuerierSm.tin");
  load();
  EXPECT_EQ(Mox::TraceHandle::named("IgmpPacket").ringLevel(), 8);
}

// Only the library's own code could make its text.
TEST_F(LoadTest, whatItTracedIsForgottenWithIt) {
  load();
  Mox::TraceHandle::named("GmpAttrLogSm").ringLevelIs(9);
  using Factory = decltype(&Gmp::Igmp::gmpAttrLogSmFactory);
  const auto factory = reinterpret_cast<Factory>(dlsym(
      handle_, "_ZN3Gmp4Igmp19gmpAttrLogSmFactoryEN3Mox3PtrIKNS1_10NboAttrLog11SocketOutSmEEE"));
  ASSERT_NE(factory, nullptr) << dlerror();
  factory(nullptr);
  const auto traced = [] {
    std::string text;
    Mox::brevlog().forEach([&](const Brevlog::Ring::Line& line) { text += line.text(); });
    return text;
  };
  EXPECT_EQ(traced(), "GmpAttrLogSm GmpAttrLogSm::handleInitialized()");
  unload();
  EXPECT_EQ(traced(), "");
}

}  // namespace
