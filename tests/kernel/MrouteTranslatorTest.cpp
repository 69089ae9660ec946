// From the kernel's multicast forwarding entries and links to desired routes
// and port statuses: pure functions, no socket.
#include <string>

#include <gtest/gtest.h>
#include <linux/if.h>

#include "kernel/netlink/MrouteTranslator.h"

namespace {

using FalKernel::LinkEntry;
using FalKernel::LinkTable;
using FalKernel::MfcEntry;
using FalKernel::MrouteTranslator;
using FalKernel::SourceMap;
using MrouteLib::PortVlan;
using Netcore::AddressFamily;
using Netcore::IpGenAddr;
using Skip = MrouteTranslator::Skip;

constexpr std::uint32_t kTable = 253;

struct Family {
  AddressFamily af;
  char const* source;
  char const* group;
  char const* zero;
  unsigned hostLen;
};

class MrouteTranslatorTest : public ::testing::TestWithParam<Family> {
 protected:
  MrouteTranslatorTest() {
    links_.linkIs({2, "in0", true, IF_OPER_UP});
    links_.linkIs({3, "out1", true, IF_OPER_UP});
    links_.linkIs({4, "out2", true, IF_OPER_UP});
    links_.linkIs({5, "stray", true, IF_OPER_UP});
    links_.linkIs({6, "out1b", true, IF_OPER_UP});
    map_.vrfIs(Netcore::AddressFamily::ipv4, kTable, L3::VrfName("default"));
    map_.vrfIs(Netcore::AddressFamily::ipv6, kTable, L3::VrfName("default"));
    map_.interfaceIs("in0", {PortVlan("Ethernet1.100"), {}});
    map_.interfaceIs("out1", {PortVlan("Ethernet2.200"), {PortVlan("Ethernet5.200")}});
    map_.interfaceIs("out1b", {PortVlan("Ethernet2.201"), {PortVlan("Ethernet6.201")}});
    map_.interfaceIs("out2", {PortVlan("Ethernet3.200"), {}});
  }

  MfcEntry entry(std::initializer_list<int> oifs, int iif = 2) const {
    MfcEntry e;
    e.af = GetParam().af;
    e.table = kTable;
    e.source = IpGenAddr(GetParam().source);
    e.group = IpGenAddr(GetParam().group);
    e.iif = iif;
    e.oifs.assign(oifs.begin(), oifs.end());
    return e;
  }
  MrouteTranslator::Result translate(MfcEntry const& e) const { return MrouteTranslator::route(e, links_, map_); }

  LinkTable links_;
  SourceMap map_;
};

TEST_P(MrouteTranslatorTest, SourceGroupEntryBecomesARouteOnTheInputVlanWithItsOutputs) {
  auto const r = translate(entry({3, 4}));
  ASSERT_TRUE(r.route);
  EXPECT_EQ(r.skip, Skip::none);
  auto const& route = *r.route;
  EXPECT_EQ(route.vrfName(), L3::VrfName("default"));
  EXPECT_EQ(route.key().source(), Netcore::IpGenPrefix(IpGenAddr(GetParam().source), GetParam().hostLen));
  EXPECT_EQ(route.key().group(), Netcore::IpGenPrefix(IpGenAddr(GetParam().group), GetParam().hostLen));
  EXPECT_EQ(route.acceptingVlan(), Bridging::VlanIdOrNone(100));
  EXPECT_EQ(route.acceptingIntfId(), Netcore::IntfId("Vlan100"));
  EXPECT_EQ(route.outputs().portVlan(), (MrouteLib::PortVlanSet::PortVlanColl{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")}));
  EXPECT_FALSE(route.bridge());
  EXPECT_FALSE(route.noRpf());
}

TEST_P(MrouteTranslatorTest, ZeroSourceIsAStarGRoute) {
  auto e = entry({4});
  e.source = IpGenAddr(GetParam().zero);
  auto const r = translate(e);
  ASSERT_TRUE(r.route);
  EXPECT_TRUE(r.route->key().isStarG());
  EXPECT_EQ(r.route->key().source().len(), 0u);
}

TEST_P(MrouteTranslatorTest, EntriesThatAreNotRoutesSayWhy) {
  auto unresolved = entry({3});
  unresolved.unresolved = true;
  EXPECT_EQ(translate(unresolved).skip, Skip::unresolved);

  auto otherTable = entry({3});
  otherTable.table = 10;
  EXPECT_EQ(translate(otherTable).skip, Skip::unmappedTable);

  auto starStar = entry({3});
  starStar.source = starStar.group = IpGenAddr(GetParam().zero);
  EXPECT_EQ(translate(starStar).skip, Skip::wildcardGroup);

  EXPECT_EQ(translate(entry({3}, 0)).skip, Skip::noInput);
  EXPECT_EQ(translate(entry({3}, 5)).skip, Skip::unmappedInput);   // a link the map does not name
  EXPECT_EQ(translate(entry({3}, 99)).skip, Skip::unmappedInput);  // an index with no link
  for (auto const& e : {unresolved, otherTable, starStar, entry({3}, 0), entry({3}, 5)}) EXPECT_FALSE(translate(e).route);
}

TEST_P(MrouteTranslatorTest, OutputsOnUnmappedOrVanishedInterfacesAreLeftOutAndCounted) {
  auto const r = translate(entry({5, 3, 99, 3}));
  ASSERT_TRUE(r.route);
  EXPECT_EQ(r.outputsUnmapped, 2u);
  EXPECT_EQ(r.route->outputs().portVlan(), (MrouteLib::PortVlanSet::PortVlanColl{PortVlan("Ethernet2.200")}));

  auto const none = translate(entry({}));
  ASSERT_TRUE(none.route);
  EXPECT_EQ(none.route->outputs().portVlanSize(), 0u);
}

TEST_P(MrouteTranslatorTest, FirstProtectedOutputInKernelOrderGivesTheSetItsFastReroute) {
  auto const r = translate(entry({4, 6, 3}));
  ASSERT_TRUE(r.route);
  auto const& out = r.route->outputs();
  EXPECT_EQ(out.intfId(), Netcore::IntfId("Ethernet2"));
  EXPECT_EQ(out.currentIif(), Netcore::IntfId("Ethernet2"));
  // out1b came first; out1's own backups are not added to a set that is already protected.
  EXPECT_EQ(out.portVlanFrr(), (MrouteLib::PortVlanSet::PortVlanColl{PortVlan("Ethernet6.201")}));

  auto const plain = translate(entry({4}));
  EXPECT_TRUE(plain.route->outputs().intfId().isEmpty());
  EXPECT_EQ(plain.route->outputs().portVlanFrrSize(), 0u);
}

TEST_P(MrouteTranslatorTest, RenamedLinkIsTranslatedUnderItsNewName) {
  links_.linkIs({3, "renamed", true, IF_OPER_UP});
  auto const r = translate(entry({3, 4}));
  ASSERT_TRUE(r.route);
  EXPECT_EQ(r.outputsUnmapped, 1u);
  links_.linkIs({4, "in0", true, IF_OPER_UP});
  EXPECT_EQ(translate(entry({3}, 4)).route->acceptingVlan(), Bridging::VlanIdOrNone(100));
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, MrouteTranslatorTest,
                         ::testing::Values(Family{AddressFamily::ipv4, "10.0.0.2", "239.1.1.1", "0.0.0.0", 32},
                                           Family{AddressFamily::ipv6, "2001:db8::2", "ff3e::1:1", "::", 128}),
                         [](auto const& info) { return info.param.af == AddressFamily::ipv6 ? "IPv6" : "IPv4"; });

TEST(MrouteTranslatorTablesTest, TableNumbersAreMappedPerFamily) {
  SourceMap map;
  map.vrfIs(AddressFamily::ipv4, 253, L3::VrfName("default"));
  map.vrfIs(AddressFamily::ipv6, 254, L3::VrfName("default"));
  map.interfaceIs("in0", {PortVlan("Ethernet1.100"), {}});
  LinkTable links;
  links.linkIs({2, "in0", true, IF_OPER_UP});
  MfcEntry e;
  e.af = AddressFamily::ipv6;
  e.table = 253;
  e.source = IpGenAddr("2001:db8::2");
  e.group = IpGenAddr("ff3e::1");
  e.iif = 2;
  EXPECT_EQ(MrouteTranslator::route(e, links, map).skip, Skip::unmappedTable);
  e.table = 254;
  EXPECT_TRUE(MrouteTranslator::route(e, links, map).route);
}

struct OperCase {
  bool adminUp;
  std::uint8_t operState;
  Interface::IntfOperStatus expected;
};

class OperStatusTest : public ::testing::TestWithParam<OperCase> {};

TEST_P(OperStatusTest, LinkStateMapsToThePlatformsOperStatus) {
  LinkEntry const l{7, "x", GetParam().adminUp, GetParam().operState};
  EXPECT_EQ(MrouteTranslator::operStatus(l), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    KernelStates, OperStatusTest,
    ::testing::Values(OperCase{true, IF_OPER_UP, Interface::intfOperUp},
                      OperCase{false, IF_OPER_UP, Interface::intfOperDown},  // admin down wins
                      OperCase{true, IF_OPER_DOWN, Interface::intfOperDown},
                      OperCase{true, IF_OPER_LOWERLAYERDOWN, Interface::intfOperLowerLayerDown},
                      OperCase{true, IF_OPER_NOTPRESENT, Interface::intfOperNotPresent},
                      OperCase{true, IF_OPER_DORMANT, Interface::intfOperDormant},
                      OperCase{true, IF_OPER_UNKNOWN, Interface::intfOperUp}));

}  // namespace
