// The adapters that the entity types name.
#include <concepts>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <NboAttrLog/EntitySa.h>
#include <gtest/gtest.h>

namespace Gmp::Igmp {
namespace {

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

// Each entity type names its adapter, which needs no connection: it announces an entity, and sends
// the dirty attributes from an identifier on.
template <class E>
void announcesAndSends() {
  using Sa = typename E::MoxNboAttrLogSa;
  const auto entity = made<E>();
  Mox::NboAttrLog::OutStream out;
  auto flow = Sa::FlowOut::everythingOf(entity->type());
  Sa adapter(out, *entity, flow, {.root = 1});
  adapter.doSerializeOrphan("path", false);
  const std::string announced(reinterpret_cast<const char*>(out.pending().data()),
                              out.pending().size());
  EXPECT_NE(announced.find(E::entityTypeName), std::string::npos);
  const Mox::AttrId last = entity->type().attrs.back().id;
  ASSERT_TRUE(adapter.handleAttrFlowOut(last));
  EXPECT_FALSE(flow.attrDirty(last));
  EXPECT_TRUE(flow.hasDirtyAttributes());  // those in front
  ASSERT_TRUE(adapter.handleAttrFlowOut());
  EXPECT_FALSE(flow.hasDirtyAttributes());
}

TEST(AttrLogAdapter, ofAConfigurationAnnouncesAndSends) { announcesAndSends<QuerierConfig>(); }
TEST(AttrLogAdapter, ofAStatusAnnouncesAndSends) { announcesAndSends<QuerierStatus>(); }
TEST(AttrLogAdapter, ofAGroupAnnouncesAndSends) { announcesAndSends<QuerierGroupStatus>(); }
TEST(AttrLogAdapter, ofASourceAnnouncesAndSends) { announcesAndSends<QuerierSourceStatus>(); }

}  // namespace
}  // namespace Gmp::Igmp
