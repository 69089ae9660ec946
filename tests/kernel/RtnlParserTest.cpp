// Reading rtnetlink messages into plain values: what the kernel sends is read
// back whole, and anything malformed or foreign reads as nothing.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>

#include "kernel/netlink/RtnlParser.h"
#include "tests/doubles/RtnlMessages.h"

namespace {

using FalKernel::LinkEntry;
using FalKernel::MfcEntry;
using FalKernel::RtnlParser;
using FalTest::RtnlMessages;
using Netcore::IpGenAddr;

nlmsghdr* first(std::vector<char>& d) { return reinterpret_cast<nlmsghdr*>(d.data()); }

MfcEntry entry(char const* source, char const* group, std::uint32_t table) {
  MfcEntry e;
  e.source = IpGenAddr(source);
  e.group = IpGenAddr(group);
  e.af = e.group.af();
  e.table = table;
  e.iif = 3;
  e.oifs = {4, 9, 5};
  return e;
}

class MfcParseTest : public ::testing::TestWithParam<MfcEntry> {};

TEST_P(MfcParseTest, NewAndDeleteMessagesReadBackWhole) {
  for (std::uint16_t type : {RTM_NEWROUTE, RTM_DELROUTE}) {
    RtnlMessages m;
    m.mfc(type, GetParam(), {});
    auto d = m.datagram();
    auto const parsed = RtnlParser::mfc(first(d));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(*parsed, GetParam()) << *parsed;
  }
}

INSTANTIATE_TEST_SUITE_P(Entries, MfcParseTest,
                         ::testing::Values(entry("10.0.0.2", "239.1.1.1", 253),
                                           entry("0.0.0.0", "239.1.1.2", 253),       // (*, G)
                                           entry("10.0.0.2", "239.1.1.1", 100000),   // only RTA_TABLE holds it
                                           entry("2001:db8::2", "ff3e::1", 253),
                                           entry("::", "ff3e::2", 7)));

TEST(RtnlParserTest, UnresolvedEntryHasNoInterfaces) {
  MfcEntry e = entry("10.0.0.2", "239.1.1.1", 253);
  e.unresolved = true;
  e.iif = 0;
  e.oifs.clear();
  RtnlMessages m;
  m.mfc(RTM_NEWROUTE, e, {});
  auto d = m.datagram();
  auto const parsed = RtnlParser::mfc(first(d));
  ASSERT_TRUE(parsed);
  EXPECT_TRUE(parsed->unresolved);
  EXPECT_EQ(parsed->iif, 0);
  EXPECT_TRUE(parsed->oifs.empty());
}

TEST(RtnlParserTest, ForeignOrMalformedRouteMessagesReadAsNothing) {
  MfcEntry const e = entry("10.0.0.2", "239.1.1.1", 253);
  auto built = [&] {
    RtnlMessages m;
    m.mfc(RTM_NEWROUTE, e, {});
    return m.datagram();
  };
  auto rtmOf = [](std::vector<char>& d) { return static_cast<rtmsg*>(mnl_nlmsg_get_payload(first(d))); };

  auto unicast = built();
  rtmOf(unicast)->rtm_family = AF_INET;
  EXPECT_FALSE(RtnlParser::mfc(first(unicast)));

  auto link = built();
  first(link)->nlmsg_type = RTM_NEWLINK;
  EXPECT_FALSE(RtnlParser::mfc(first(link)));

  auto v6Header = built();  // IPv4 addresses under the IPv6 family
  rtmOf(v6Header)->rtm_family = RTNL_FAMILY_IP6MR;
  EXPECT_FALSE(RtnlParser::mfc(first(v6Header)));

  auto shortHeader = built();
  first(shortHeader)->nlmsg_len = mnl_nlmsg_size(sizeof(rtmsg)) - 4;
  EXPECT_FALSE(RtnlParser::mfc(first(shortHeader)));

  // The last next hop cut short: its length runs past the attribute.
  auto cut = built();
  auto* nlh = first(cut);
  nlattr* multipath = nullptr;
  for (auto* a = static_cast<nlattr*>(mnl_nlmsg_get_payload_offset(nlh, sizeof(rtmsg)));
       mnl_attr_ok(a, static_cast<int>(static_cast<char*>(mnl_nlmsg_get_payload_tail(nlh)) - reinterpret_cast<char*>(a)));
       a = mnl_attr_next(a)) {
    if (mnl_attr_get_type(a) == RTA_MULTIPATH) multipath = a;
  }
  ASSERT_NE(multipath, nullptr);
  auto* hops = static_cast<rtnexthop*>(mnl_attr_get_payload(multipath));
  hops[2].rtnh_len = sizeof(rtnexthop) * 2;
  EXPECT_FALSE(RtnlParser::mfc(first(cut)));
}

TEST(RtnlParserTest, LinkMessageGivesIndexNameAndState) {
  LinkEntry const l{12, "veth-out1", true, IF_OPER_LOWERLAYERDOWN};
  RtnlMessages m;
  m.link(RTM_NEWLINK, l, {});
  auto d = m.datagram();
  auto const parsed = RtnlParser::link(first(d));
  ASSERT_TRUE(parsed);
  EXPECT_EQ(*parsed, l);

  auto route = d;
  first(route)->nlmsg_type = RTM_NEWROUTE;
  EXPECT_FALSE(RtnlParser::link(first(route)));
}

TEST(RtnlParserTest, LinkWithoutAName) {
  std::vector<char> buf(MNL_SOCKET_BUFFER_SIZE);
  nlmsghdr* nlh = mnl_nlmsg_put_header(buf.data());
  nlh->nlmsg_type = RTM_NEWLINK;
  static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)))->ifi_index = 3;
  mnl_attr_put_u8(nlh, IFLA_OPERSTATE, IF_OPER_UP);
  EXPECT_FALSE(RtnlParser::link(nlh));
}

}  // namespace
