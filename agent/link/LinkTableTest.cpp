#include <Link/LinkTable.h>

#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RtnetlinkMessages.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::ElementsAre;

constexpr IpAddr firstAddr(10, 0, 0, 1);
constexpr IpAddr secondAddr(10, 0, 0, 9);

class LinkTableTest : public testing::Test {
 protected:
  void hear(const Datagram& datagram) { table_.apply(datagram); }
  const Link& eth0() {
    const Link* link = table_.find("eth0");
    if (link == nullptr) throw std::logic_error("there is no eth0");
    return *link;
  }
  std::vector<IpAddr> addresses() {
    std::vector<IpAddr> all;
    for (const LinkAddress& a : eth0().addresses) all.push_back(a.address);
    return all;
  }

  LinkTable table_;
};

TEST_F(LinkTableTest, learnsWhatALinkMessageSays) {
  hear(linkMessage({.index = 7, .mtu = 9000}));
  EXPECT_EQ(eth0(), (Link{.index = 7,
                          .name = "eth0",
                          .up = true,
                          .running = true,
                          .ethernet = true,
                          .multicast = true,
                          .mtu = 9000,
                          .mac = {0x02, 0, 0, 0, 0, 1}}));
}

TEST_F(LinkTableTest, readsAllMessagesOfADatagram) {
  Datagram both = linkMessage({.index = 1, .name = "lo"});
  const Datagram other = linkMessage({.index = 2});
  both.resize(MNL_ALIGN(both.size()));
  both.insert(both.end(), other.begin(), other.end());
  hear(both);
  EXPECT_THAT(table_.names(), ElementsAre("lo", "eth0"));
}

TEST_F(LinkTableTest, followsFlags) {
  hear(linkMessage({}));
  hear(linkMessage({.flags = IFF_UP}));
  EXPECT_TRUE(eth0().up);
  EXPECT_FALSE(eth0().running);
}

TEST_F(LinkTableTest, keepsWhatAMessageDoesNotMention) {
  hear(linkMessage({}));
  hear(linkMessage({.name = nullptr, .mtu = 0, .hasMac = false}));
  EXPECT_EQ(eth0().mtu, 1500u);
  EXPECT_EQ(eth0().mac, (MacAddr{0x02, 0, 0, 0, 0, 1}));
}

TEST_F(LinkTableTest, findsARenamedLinkByItsNewName) {
  hear(linkMessage({.name = "old0"}));
  hear(linkMessage({.name = "eth0"}));
  EXPECT_EQ(table_.find("old0"), nullptr);
  EXPECT_EQ(eth0().index, 2u);
}

TEST_F(LinkTableTest, forgetsADeletedLinkWithItsAddresses) {
  hear(linkMessage({}));
  hear(addressMessage({}));
  hear(linkMessage({.type = RTM_DELLINK}));
  EXPECT_EQ(table_.find("eth0"), nullptr);
  hear(linkMessage({}));
  EXPECT_TRUE(addresses().empty());
}

TEST_F(LinkTableTest, keepsALinkThatLeavesItsBridge) {
  hear(linkMessage({}));
  hear(linkMessage({.type = RTM_DELLINK, .family = AF_BRIDGE}));
  EXPECT_EQ(eth0().index, 2u);
}

TEST_F(LinkTableTest, learnsAddressesInTheKernelsOrder) {
  hear(linkMessage({}));
  hear(addressMessage({.local = secondAddr}));
  hear(addressMessage({.local = firstAddr}));
  EXPECT_THAT(addresses(), ElementsAre(secondAddr, firstAddr));
}

TEST_F(LinkTableTest, learnsAnAddressOnce) {
  hear(linkMessage({}));
  hear(addressMessage({}));
  hear(addressMessage({}));
  EXPECT_THAT(addresses(), ElementsAre(firstAddr));
}

TEST_F(LinkTableTest, forgetsADeletedAddress) {
  hear(linkMessage({}));
  hear(addressMessage({.local = firstAddr}));
  hear(addressMessage({.local = secondAddr}));
  hear(addressMessage({.type = RTM_DELADDR, .local = firstAddr}));
  EXPECT_THAT(addresses(), ElementsAre(secondAddr));
}

TEST_F(LinkTableTest, tellsAddressesApartByTheirSubnetsToo) {
  hear(linkMessage({}));
  hear(addressMessage({.prefixLength = 24}));
  hear(addressMessage({.prefixLength = 16}));
  hear(addressMessage({.type = RTM_DELADDR, .prefixLength = 16}));
  EXPECT_THAT(addresses(), ElementsAre(firstAddr));
}

TEST_F(LinkTableTest, leavesOutAnAddressOfAnUnknownLink) {
  hear(addressMessage({.index = 99}));
  EXPECT_TRUE(table_.links().empty());
}

TEST_F(LinkTableTest, takesTheFirstGlobalAddressForThePrimaryOne) {
  hear(linkMessage({}));
  EXPECT_EQ(eth0().primaryAddress(), std::nullopt);
  hear(addressMessage({.local = IpAddr(169, 254, 1, 1), .scope = RT_SCOPE_LINK}));
  EXPECT_EQ(eth0().primaryAddress(), std::nullopt);
  hear(addressMessage({.local = secondAddr, .flags = IFA_F_SECONDARY}));
  EXPECT_EQ(eth0().primaryAddress(), std::nullopt);
  hear(addressMessage({.local = firstAddr}));
  EXPECT_EQ(eth0().primaryAddress(), firstAddr);
}

TEST_F(LinkTableTest, takesAPromotedAddressForThePrimaryOne) {
  hear(linkMessage({}));
  hear(addressMessage({.local = firstAddr}));
  hear(addressMessage({.local = secondAddr, .flags = IFA_F_SECONDARY}));
  hear(addressMessage({.type = RTM_DELADDR, .local = firstAddr}));
  hear(addressMessage({.local = secondAddr}));
  EXPECT_EQ(eth0().primaryAddress(), secondAddr);
}

TEST_F(LinkTableTest, changesNothingForAMessageThatIsCutShort) {
  hear(linkMessage({}));
  const Link before = eth0();
  const Datagram whole = linkMessage({.name = "eth1", .flags = 0, .mtu = 9000});
  for (size_t bytes = 0; bytes < whole.size(); ++bytes) {
    hear(Datagram(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes)));
    ASSERT_EQ(eth0(), before) << bytes;
  }
}

// The kernel's length field says that the message ends early: what it holds until there counts.
TEST_F(LinkTableTest, readsNoFurtherThanAMessageSaysItGoes) {
  const Datagram wholeLink = linkMessage({.mtu = 9000});
  const Datagram wholeAddress = addressMessage({});
  for (Datagram whole : {wholeLink, wholeAddress}) {
    for (size_t bytes = 0; bytes < whole.size(); ++bytes) {
      Datagram cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes));
      const auto length = static_cast<Mox::U32>(bytes);
      if (bytes >= sizeof(length)) std::memcpy(cut.data(), &length, sizeof(length));
      LinkTable table;
      table.apply(linkMessage({}));
      table.apply(cut);
      ASSERT_EQ(table.names(), (std::vector<std::string>{"eth0"})) << bytes;
      ASSERT_TRUE(table.find("eth0")->addresses.empty()) << bytes;
    }
  }
}

TEST_F(LinkTableTest, leavesOutAttributesOfTheWrongSize) {
  hear(linkMessage({}));
  const Link before = eth0();
  alignas(nlmsghdr) std::byte buffer[256] = {};
  nlmsghdr* const message = mnl_nlmsg_put_header(buffer);
  message->nlmsg_type = RTM_NEWLINK;
  auto& info = *static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  info.ifi_index = 2;
  info.ifi_type = ARPHRD_ETHER;
  info.ifi_flags = IFF_UP | IFF_RUNNING | IFF_MULTICAST;
  mnl_attr_put_u16(message, IFLA_MTU, 9000);
  mnl_attr_put(message, IFLA_IFNAME, 4, "eth1");  // without its end
  mnl_attr_put_u64(message, IFLA_ADDRESS, 1);
  hear(datagramOf(message));
  EXPECT_EQ(eth0(), before);
}

TEST_F(LinkTableTest, leavesOutOtherMessages) {
  hear(linkMessage({.type = RTM_NEWROUTE}));
  EXPECT_TRUE(table_.links().empty());
}

TEST_F(LinkTableTest, findsALinkUsableWhenItIsUpWithACarrierAndAnAddress) {
  hear(linkMessage({}));
  EXPECT_FALSE(isUsable(eth0()));
  hear(addressMessage({}));
  EXPECT_TRUE(isUsable(eth0()));
  hear(linkMessage({.flags = IFF_UP | IFF_MULTICAST}));
  EXPECT_FALSE(isUsable(eth0()));
  hear(linkMessage({.flags = IFF_RUNNING | IFF_MULTICAST}));
  EXPECT_FALSE(isUsable(eth0()));
  hear(linkMessage({.mtu = 67}));
  EXPECT_FALSE(isUsable(eth0()));
  hear(linkMessage({.mtu = 68}));
  EXPECT_TRUE(isUsable(eth0()));
}

TEST_F(LinkTableTest, findsLoopbackTunnelsAndLinksWithoutMulticastUnfit) {
  hear(linkMessage({}));
  EXPECT_EQ(whyUnfit(eth0()), "");
  hear(linkMessage({.flags = IFF_UP | IFF_RUNNING | IFF_LOOPBACK}));
  EXPECT_EQ(whyUnfit(eth0()), "is a loopback interface, which has no neighbours to ask");
  hear(linkMessage({.hardware = ARPHRD_TUNNEL}));
  EXPECT_EQ(whyUnfit(eth0()), "is not an Ethernet interface");
  hear(linkMessage({.flags = IFF_UP | IFF_RUNNING}));
  EXPECT_EQ(whyUnfit(eth0()), "cannot do multicast; `ip link set eth0 multicast on`");
}

}  // namespace
}  // namespace Agent
