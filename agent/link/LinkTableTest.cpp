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
  void receive(const Datagram& datagram) { table_.apply(datagram, former_); }
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
  LinkTable::Former former_;
};

TEST_F(LinkTableTest, learnsTheFieldsOfALinkMessage) {
  receive(linkMessage({.index = 7, .mtu = 9000}));
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
  receive(both);
  EXPECT_THAT(table_.names(), ElementsAre("lo", "eth0"));
}

TEST_F(LinkTableTest, followsFlags) {
  receive(linkMessage({}));
  receive(linkMessage({.flags = IFF_UP}));
  EXPECT_TRUE(eth0().up);
  EXPECT_FALSE(eth0().running);
}

TEST_F(LinkTableTest, keepsFieldsThatAMessageDoesNotHave) {
  receive(linkMessage({}));
  receive(linkMessage({.name = nullptr, .mtu = 0, .hasMac = false}));
  EXPECT_EQ(eth0().mtu, 1500u);
  EXPECT_EQ(eth0().mac, (MacAddr{0x02, 0, 0, 0, 0, 1}));
}

TEST_F(LinkTableTest, findsARenamedLinkByItsNewName) {
  receive(linkMessage({.name = "old0"}));
  receive(linkMessage({.name = "eth0"}));
  EXPECT_EQ(table_.find("old0"), nullptr);
  EXPECT_EQ(eth0().index, 2u);
}

TEST_F(LinkTableTest, forgetsADeletedLinkWithItsAddresses) {
  receive(linkMessage({}));
  receive(addressMessage({}));
  receive(linkMessage({.type = RTM_DELLINK}));
  EXPECT_EQ(table_.find("eth0"), nullptr);
  receive(linkMessage({}));
  EXPECT_TRUE(addresses().empty());
}

TEST_F(LinkTableTest, keepsALinkThatLeavesItsBridge) {
  receive(linkMessage({}));
  receive(linkMessage({.type = RTM_DELLINK, .family = AF_BRIDGE}));
  EXPECT_EQ(eth0().index, 2u);
}

TEST_F(LinkTableTest, learnsAddressesInTheKernelsOrder) {
  receive(linkMessage({}));
  receive(addressMessage({.local = secondAddr}));
  receive(addressMessage({.local = firstAddr}));
  EXPECT_THAT(addresses(), ElementsAre(secondAddr, firstAddr));
}

TEST_F(LinkTableTest, learnsAnAddressOnce) {
  receive(linkMessage({}));
  receive(addressMessage({}));
  receive(addressMessage({}));
  EXPECT_THAT(addresses(), ElementsAre(firstAddr));
}

TEST_F(LinkTableTest, forgetsADeletedAddress) {
  receive(linkMessage({}));
  receive(addressMessage({.local = firstAddr}));
  receive(addressMessage({.local = secondAddr}));
  receive(addressMessage({.type = RTM_DELADDR, .local = firstAddr}));
  EXPECT_THAT(addresses(), ElementsAre(secondAddr));
}

TEST_F(LinkTableTest, distinguishesAddressesByTheirSubnetsToo) {
  receive(linkMessage({}));
  receive(addressMessage({.prefixLength = 24}));
  receive(addressMessage({.prefixLength = 16}));
  receive(addressMessage({.type = RTM_DELADDR, .prefixLength = 16}));
  EXPECT_THAT(addresses(), ElementsAre(firstAddr));
}

TEST_F(LinkTableTest, leavesOutAnAddressOfAnUnknownLink) {
  receive(addressMessage({.index = 99}));
  EXPECT_TRUE(table_.links().empty());
}

TEST_F(LinkTableTest, takesTheFirstGlobalAddressForThePrimaryOne) {
  receive(linkMessage({}));
  EXPECT_EQ(eth0().primaryAddress(), std::nullopt);
  receive(addressMessage({.local = IpAddr(169, 254, 1, 1), .scope = RT_SCOPE_LINK}));
  EXPECT_EQ(eth0().primaryAddress(), std::nullopt);
  receive(addressMessage({.local = secondAddr, .flags = IFA_F_SECONDARY}));
  EXPECT_EQ(eth0().primaryAddress(), std::nullopt);
  receive(addressMessage({.local = firstAddr}));
  EXPECT_EQ(eth0().primaryAddress(), firstAddr);
}

TEST_F(LinkTableTest, takesAPromotedAddressForThePrimaryOne) {
  receive(linkMessage({}));
  receive(addressMessage({.local = firstAddr}));
  receive(addressMessage({.local = secondAddr, .flags = IFA_F_SECONDARY}));
  receive(addressMessage({.type = RTM_DELADDR, .local = firstAddr}));
  receive(addressMessage({.local = secondAddr}));
  EXPECT_EQ(eth0().primaryAddress(), secondAddr);
}

TEST_F(LinkTableTest, changesNothingForAMessageThatIsCutShort) {
  receive(linkMessage({}));
  const Link before = eth0();
  const Datagram whole = linkMessage({.name = "eth1", .flags = 0, .mtu = 9000});
  for (size_t bytes = 0; bytes < whole.size(); ++bytes) {
    receive(Datagram(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes)));
    ASSERT_EQ(eth0(), before) << bytes;
  }
}

// The kernel's length field says that the message ends early: what it holds until there counts.
TEST_F(LinkTableTest, readsNoFurtherThanTheLengthOfAMessage) {
  const Datagram wholeLink = linkMessage({.mtu = 9000});
  const Datagram wholeAddress = addressMessage({});
  for (Datagram whole : {wholeLink, wholeAddress}) {
    for (size_t bytes = 0; bytes < whole.size(); ++bytes) {
      Datagram cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes));
      const auto length = static_cast<Mox::U32>(bytes);
      if (bytes >= sizeof(length)) std::memcpy(cut.data(), &length, sizeof(length));
      LinkTable table;
      table.apply(linkMessage({}), former_);
      table.apply(cut, former_);
      ASSERT_EQ(table.names(), (std::vector<std::string>{"eth0"})) << bytes;
      ASSERT_TRUE(table.find("eth0")->addresses.empty()) << bytes;
    }
  }
}

TEST_F(LinkTableTest, leavesOutMessagesThatAreLongerThanTheirDatagram) {
  const Datagram whole = linkMessage({});
  for (const Mox::U32 length : {static_cast<Mox::U32>(whole.size()) + 4, 0x7ffffffcu, 0x80000000u,
                                0xfffffffcu, 0xffffffffu}) {
    Datagram datagram = whole;
    std::memcpy(datagram.data(), &length, sizeof(length));
    receive(datagram);
    EXPECT_TRUE(table_.links().empty()) << length;
  }
}

TEST_F(LinkTableTest, leavesOutAttributesOfTheWrongSize) {
  receive(linkMessage({}));
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
  receive(datagramOf(message));
  EXPECT_EQ(eth0(), before);
}

TEST_F(LinkTableTest, keepsLinksAsTheyWereBeforeTheFirstMessage) {
  receive(linkMessage({}));
  EXPECT_EQ(former_, (LinkTable::Former{{2, std::nullopt}}));
  former_.clear();
  const Link before = eth0();
  receive(addressMessage({}));
  receive(linkMessage({.flags = 0}));
  EXPECT_EQ(former_, (LinkTable::Former{{2, before}}));
}

TEST_F(LinkTableTest, keepsALinkThatIsGoneAsItWas) {
  receive(linkMessage({}));
  former_.clear();
  const Link before = eth0();
  receive(linkMessage({.type = RTM_DELLINK}));
  EXPECT_EQ(former_, (LinkTable::Former{{2, before}}));
}

TEST_F(LinkTableTest, leavesOutOtherMessages) {
  receive(linkMessage({.type = RTM_NEWROUTE}));
  EXPECT_TRUE(table_.links().empty());
}

TEST_F(LinkTableTest, findsALinkUsableWhenItIsUpWithACarrierAndAnAddress) {
  receive(linkMessage({}));
  EXPECT_FALSE(isUsable(eth0()));
  receive(addressMessage({}));
  EXPECT_TRUE(isUsable(eth0()));
  receive(linkMessage({.flags = IFF_UP | IFF_MULTICAST}));
  EXPECT_FALSE(isUsable(eth0()));
  receive(linkMessage({.flags = IFF_RUNNING | IFF_MULTICAST}));
  EXPECT_FALSE(isUsable(eth0()));
  receive(linkMessage({.mtu = 67}));
  EXPECT_FALSE(isUsable(eth0()));
  receive(linkMessage({.mtu = 68}));
  EXPECT_TRUE(isUsable(eth0()));
}

TEST_F(LinkTableTest, findsLoopbackTunnelsAndLinksWithoutMulticastUnfit) {
  receive(linkMessage({}));
  EXPECT_EQ(whyUnfit(eth0()), "");
  receive(linkMessage({.flags = IFF_UP | IFF_RUNNING | IFF_LOOPBACK}));
  EXPECT_EQ(whyUnfit(eth0()), "is a loopback interface, which has no neighbours to ask");
  receive(linkMessage({.hardware = ARPHRD_TUNNEL}));
  EXPECT_EQ(whyUnfit(eth0()), "is not an Ethernet interface");
  receive(linkMessage({.flags = IFF_UP | IFF_RUNNING}));
  EXPECT_EQ(whyUnfit(eth0()), "cannot do multicast; `ip link set eth0 multicast on`");
}

}  // namespace
}  // namespace Agent
