// The adapters that the entity types name.
#include <concepts>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <NboAttrLog/EntitySa.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {
namespace {

// Each entity type names its adapter, which does without a connection.
template <class E>
class AttrLogAdapterTest : public testing::Test {};
using EntityTypes =
    testing::Types<QuerierConfig, QuerierStatus, QuerierGroupStatus, QuerierSourceStatus>;
struct EntityTypeNames {
  template <class E>
  static std::string GetName(int) {  // NOLINT(readability-identifier-naming): gtest calls it so
    const std::string name = E::entityTypeName;
    return name.substr(name.rfind(':') + 1);
  }
};
TYPED_TEST_SUITE(AttrLogAdapterTest, EntityTypes, EntityTypeNames);

template <class E>
Ptr<E> made() {
  if constexpr (std::constructible_from<E, IpAddr>) {
    return Mox::makePtr<E>(IpAddr(230, 0, 0, 1));
  } else if constexpr (std::constructible_from<E, Mox::Name>) {
    return Mox::makePtr<E>("vlan10");
  } else {
    return Mox::makePtr<E>();
  }
}

TYPED_TEST(AttrLogAdapterTest, announcesAnEntityAndSendsWhatIsDirtyFromAnIdentifierOn) {
  using Sa = typename TypeParam::MoxNboAttrLogSa;
  const auto entity = made<TypeParam>();
  Mox::NboAttrLog::OutStream out;
  auto flow = Sa::FlowOut::everythingOf(entity->type());
  Sa adapter(out, *entity, flow, {.root = 1});
  adapter.doSerializeOrphan("path", false);
  const std::string announced(reinterpret_cast<const char*>(out.pending().data()),
                              out.pending().size());
  EXPECT_NE(announced.find(TypeParam::entityTypeName), std::string::npos);
  const Mox::AttrId last = entity->type().attrs.back().id;
  ASSERT_TRUE(adapter.handleAttrFlowOut(last));
  EXPECT_FALSE(flow.attrDirty(last));
  EXPECT_TRUE(flow.hasDirtyAttributes());  // those in front
  ASSERT_TRUE(adapter.handleAttrFlowOut());
  EXPECT_FALSE(flow.hasDirtyAttributes());
}

}  // namespace
}  // namespace Gmp::Igmp
