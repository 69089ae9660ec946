// The kernel chip driven by the library, with real packets: they come out of
// exactly the outputs the library programmed, follow a fast reroute, stop
// when the route goes, and the kernel's own cache says the same.
#include <gtest/gtest.h>

#include <memory>

#include "kernel/MrouteCache.h"
#include "tests/kernel/KernelRig.h"

namespace FalKernelTest {
namespace {

using Netcore::AddressFamily;

struct Family {
  char const* name;
  AddressFamily af;
  char const* source;
  char const* otherSource;
  char const* group;
  char const* group2;
};

class KernelForwardingTest : public ::testing::TestWithParam<Family> {
 protected:
  void SetUp() override {
    if (auto why = KernelRig::unavailable()) GTEST_SKIP() << *why;
    rig_ = std::make_unique<KernelRig>();
  }
  Family const& f() const { return GetParam(); }
  KernelRig::IpGenRouteKey sg(char const* group) const { return KernelRig::key(f().source, group); }
  KernelRig::IpGenRouteKey starG(char const* group) const {
    return KernelRig::key(f().af == AddressFamily::ipv6 ? "::/0" : "0.0.0.0/0", group);
  }
  std::vector<std::string> copies(char const* group, std::size_t expected, std::uint16_t vlan = 100,
                                  char const* source = nullptr) {
    return rig_->copies(0, vlan, source ? source : f().source, group, expected);
  }
  // The kernel's entry for (source, group), read back from /proc; null when none.
  std::optional<FalKernel::MrouteCache::Entry> kernelEntry(char const* source, char const* group) const {
    for (auto& e : FalKernel::MrouteCache::read(rig_->netns, f().af)) {
      if (e.group == Netcore::IpGenAddr(group) && e.origin == Netcore::IpGenAddr(source)) return e;
    }
    return std::nullopt;
  }
  char const* zero() const { return f().af == AddressFamily::ipv6 ? "::" : "0.0.0.0"; }

  std::unique_ptr<KernelRig> rig_;
};

using Names = std::vector<std::string>;
using NameSet = std::set<std::string>;

TEST_P(KernelForwardingTest, RoutesSharingAnEntryForwardToExactlyTheirOutputsAndTheKernelAgrees) {
  auto const outs = KernelRig::outputs({"Ethernet1.200", "Ethernet2.200"});
  rig_->program({KernelRig::route("default", sg(f().group), 100, outs), KernelRig::route("default", sg(f().group2), 100, outs)});
  EXPECT_EQ(rig_->chip->entries().size(), 1u);
  EXPECT_EQ(copies(f().group, 2), (Names{"Ethernet1.200", "Ethernet2.200"}));
  EXPECT_EQ(copies(f().group2, 2), (Names{"Ethernet1.200", "Ethernet2.200"}));
  // Another VLAN's input is not the route's: nothing comes out.
  EXPECT_EQ(copies(f().group, 0, 300), Names{});
  for (char const* g : {f().group, f().group2}) {
    auto e = kernelEntry(f().source, g);
    ASSERT_TRUE(e) << g;
    EXPECT_EQ(e->iifName, "in0v100");
    EXPECT_EQ(e->oifNames, (NameSet{"out1v200", "out2v200"}));
  }
  auto const e = kernelEntry(f().source, f().group);
  EXPECT_EQ(e->packets - e->wrongIf, 1u);
}

TEST_P(KernelForwardingTest, StarGRouteForwardsEverySourceButNeverBackToItsInput) {
  rig_->program({KernelRig::route("default", starG(f().group), 100, KernelRig::outputs({"Ethernet3.200"}))});
  EXPECT_EQ(copies(f().group, 1), Names{"Ethernet3.200"});
  EXPECT_EQ(copies(f().group, 1, 100, f().otherSource), Names{"Ethernet3.200"});
  auto e = kernelEntry(zero(), f().group);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->iifName, "in0v100");
  // The kernel's (*,G) lookup wants the input among the entry's interfaces.
  EXPECT_EQ(e->oifNames, (NameSet{"in0v100", "out3v200"}));
}

TEST_P(KernelForwardingTest, DeletedRouteForwardsNothingAndLeavesTheKernelCache) {
  rig_->program({KernelRig::route("default", sg(f().group), 100, KernelRig::outputs({"Ethernet1.200"}))});
  ASSERT_EQ(copies(f().group, 1), Names{"Ethernet1.200"});
  rig_->remove("default", sg(f().group));
  EXPECT_EQ(copies(f().group, 0), Names{});
  EXPECT_FALSE(kernelEntry(f().source, f().group));
  EXPECT_TRUE(rig_->chip->routeCount() == 0);
}

TEST_P(KernelForwardingTest, FastRerouteMovesTheCopiesOfEveryRouteOfTheEntryToTheBackups) {
  auto outs = KernelRig::outputs({"Ethernet1.200", "Ethernet2.200"});
  outs.intfIdIs(KernelRig::eth(2));
  outs.currentIifIs(KernelRig::eth(2));
  outs.portVlanFrrIs(MrouteLib::PortVlan("Ethernet3.200"));
  rig_->program({KernelRig::route("default", sg(f().group), 100, outs), KernelRig::route("default", sg(f().group2), 100, outs)});
  ASSERT_EQ(copies(f().group, 2), (Names{"Ethernet1.200", "Ethernet2.200"}));

  rig_->interfaceDown(2);
  EXPECT_EQ(copies(f().group, 2), (Names{"Ethernet1.200", "Ethernet3.200"}));
  EXPECT_EQ(copies(f().group2, 2), (Names{"Ethernet1.200", "Ethernet3.200"}));
  EXPECT_EQ(rig_->chip->statistics().inPlaceRewrites, 1u);
  auto e = kernelEntry(f().source, f().group);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->oifNames, (NameSet{"out1v200", "out3v200"}));
  // Rewritten in place: the entry kept what it counted before the failure.
  EXPECT_EQ(e->packets, 2u);
}

TEST_P(KernelForwardingTest, RouteBackWithinTheZombieLifetimeReusesItsEntry) {
  auto const r = KernelRig::route("default", sg(f().group), 100, KernelRig::outputs({"Ethernet4.200"}));
  rig_->program({r});
  std::uint32_t const index = rig_->chip->entries().begin()->first;
  rig_->remove("default", sg(f().group));
  ASSERT_EQ(rig_->chip->entries().size(), 1u);  // the zombie keeps it
  rig_->am.runUntil(rig_->am.now() + 1.0);
  rig_->program({r});
  EXPECT_EQ(rig_->chip->statistics().entryAllocations, 1u);
  EXPECT_EQ(rig_->chip->route(0, sg(f().group), Bridging::VlanIdOrNone(100))->oifSetIndex, index);
  EXPECT_EQ(copies(f().group, 1), Names{"Ethernet4.200"});
}

TEST_P(KernelForwardingTest, VrfsForwardTheSameGroupThroughTablesOfTheirOwn) {
  rig_->program({KernelRig::route("default", sg(f().group), 100, KernelRig::outputs({"Ethernet1.200"})),
                 KernelRig::route("red", sg(f().group), 100, KernelRig::outputs({"Ethernet2.200"}))});
  EXPECT_EQ(rig_->copies(0, 100, f().source, f().group, 1), Names{"Ethernet1.200"});
  EXPECT_EQ(rig_->copies(KernelRig::kRedVrfId, 100, f().source, f().group, 1), Names{"Ethernet2.200"});
}

TEST_P(KernelForwardingTest, HitBitsAndCountersFollowTheKernelsCounts) {
  // A second route makes VLAN 300's input a VIF of the table, so packets of
  // the first route arriving there count as on a wrong interface.
  rig_->program({KernelRig::route("default", sg(f().group), 100, KernelRig::outputs({"Ethernet1.200"})),
                 KernelRig::route("default", sg(f().group2), 300, KernelRig::outputs({"Ethernet1.200"}))});
  auto& chip = *rig_->chip;
  auto const key = sg(f().group);
  auto const wildcard = KernelRig::IpGenRouteKey::wildcardOf(f().af);
  Bridging::VlanIdOrNone const vlan(100);
  ASSERT_TRUE(chip.doCreateMrouteCounter(0, key));
  ASSERT_TRUE(chip.doCreateMrouteCounter(0, wildcard));
  for (int i = 0; i < 3; ++i) ASSERT_EQ(copies(f().group, 1), Names{"Ethernet1.200"});
  ASSERT_EQ(copies(f().group2, 1, 300), Names{"Ethernet1.200"});

  ASSERT_TRUE(chip.mrouteHitBitCacheRefresh(KernelRig::kSwitchId));
  EXPECT_TRUE(chip.mrouteHitBit(KernelRig::kSwitchId, 0, key, vlan, false));
  EXPECT_FALSE(chip.mrouteHitBit(KernelRig::kSwitchId, 0, key, Bridging::VlanIdOrNone(300), false));
  EXPECT_FALSE(chip.mrouteHitBit(KernelRig::kSwitchId, 0, key, vlan, true));
  chip.mrouteHitBitCacheClear(KernelRig::kSwitchId);
  chip.mrouteHitBitCacheRefresh(KernelRig::kSwitchId);
  EXPECT_FALSE(chip.mrouteHitBit(KernelRig::kSwitchId, 0, key, vlan, false));

  EXPECT_EQ(copies(f().group, 0, 300), Names{});  // on the wrong input
  chip.mrouteHitBitCacheRefresh(KernelRig::kSwitchId);
  EXPECT_TRUE(chip.mrouteHitBit(KernelRig::kSwitchId, 0, key, vlan, true));
  EXPECT_FALSE(chip.mrouteHitBit(KernelRig::kSwitchId, 0, key, vlan, false));

  EXPECT_EQ(chip.doReadMrouteCounter(key), 3);
  EXPECT_EQ(chip.doReadMrouteCounter(key), 0);
  EXPECT_EQ(chip.doReadMrouteCounter(wildcard), 4);
  // A deleted route's last packets still count.
  ASSERT_EQ(copies(f().group, 1), Names{"Ethernet1.200"});
  rig_->remove("default", key);
  EXPECT_EQ(chip.doReadMrouteCounter(key), 1);
}

INSTANTIATE_TEST_SUITE_P(Families, KernelForwardingTest,
                         ::testing::Values(Family{"ipv4", AddressFamily::ipv4, "192.0.2.10", "192.0.2.11", "239.1.1.1",
                                                  "239.1.1.2"},
                                           Family{"ipv6", AddressFamily::ipv6, "2001:db8::10", "2001:db8::11", "ff3e::1:1",
                                                  "ff3e::1:2"}),
                         [](auto const& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace FalKernelTest
