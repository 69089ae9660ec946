#include "sim/ReferenceChip.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3Status.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/IpStatus.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "sync/MrouteSwitch.h"
#include "sync/Route.h"

namespace {

using FalSim::ReferenceChip;
using Bridging::VlanIdOrNone;
using MrouteLib::PortVlan;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;
using Routing::Multicast::Fib::IpGenRouteKey;
using Table = ReferenceChip::Table;
using Drop = ReferenceChip::DropReason;

constexpr std::uint32_t kInvalid = ReferenceChip::kInvalidIndex;
constexpr std::uint16_t kVrf = 1;

IpGenRouteKey sg(char const* s, char const* g) { return IpGenRouteKey(IpGenPrefix(s), IpGenPrefix(g)); }
IpGenRouteKey starG(char const* g) { return IpGenRouteKey(IpGenPrefix("0.0.0.0/0"), IpGenPrefix(g)); }
VlanIdOrNone vlan(std::uint32_t v) { return VlanIdOrNone(v); }
std::vector<PortVlan> pvs(std::initializer_list<char const*> texts) {
  std::vector<PortVlan> out;
  for (auto const* t : texts) out.emplace_back(t);
  return out;
}
bool mentions(std::vector<std::string> const& lines, std::string const& text) {
  for (auto const& l : lines)
    if (l.find(text) != std::string::npos) return true;
  return false;
}

class ReferenceChipTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
    chip_->handleMulticastRouting(true);
  }
  void TearDown() override { Vex::fatalHandlerIs(previous_); }

  MrouteLib::OifSetPtr oifSet(std::initializer_list<char const*> outputs, bool toCpu = false) {
    MrouteLib::PortVlanSet set;
    for (auto const* t : outputs) set.portVlanIs(PortVlan(t));
    set.toCpuIs(toCpu);
    return registry_->oifSetIs(set);
  }
  std::uint32_t allocate(std::initializer_list<char const*> outputs, std::uint32_t chip = 0) {
    return chip_->doAllocateMtableOifSet(chip, 0, oifSet(outputs));
  }
  // The library's record of a set at index, for the hooks that take one.
  Vex::Ptr<Fal::MtableOifSet> setAt(std::uint32_t index) {
    auto set = Fal::mtableOifSetFactory(oifSet({"Ethernet9"}), false, nullptr);
    set->oifSetIndexIs(index);
    return set;
  }
  RouteHandle route(IpGenRouteKey const& key, std::uint32_t acceptingVlan, std::uint32_t index, bool fastdrop = false) {
    return chip_->doAllocateMroute(0, kVrf, key, vlan(acceptingVlan), false, index, fastdrop, 0);
  }
  ReferenceChip::ForwardResult send(char const* s, char const* g, std::uint32_t vlanIn, std::uint32_t chip = 0,
                                    std::uint32_t bytes = 64) {
    return chip_->forwardWithReason(chip, kVrf, IpGenAddr(s), IpGenAddr(g), vlan(vlanIn), bytes);
  }

  Vex::ActivityManager am_;
  Vex::FatalHandler previous_;
  Vex::Ptr<MrouteLib::OifSetRegistry> registry_ = Vex::make<MrouteLib::OifSetRegistry>();
  Vex::Ptr<ReferenceChip> chip_ = Vex::make<ReferenceChip>("ref", 2, ReferenceChip::Capacity{3, 3, 3});
};

// ---- capacities, full answers and injected failures, for each table ----

class ReferenceChipTableTest : public ReferenceChipTest, public ::testing::WithParamInterface<Table> {
 protected:
  bool allocateOne(std::uint32_t chip) {
    std::string const group = "239.1.1." + std::to_string(++programmed_);
    switch (GetParam()) {
      case Table::replication: {
        std::uint32_t const i = chip_->doAllocateMtableOifSet(chip, 0, oifSet({"Ethernet1.100"}));
        if (i != kInvalid) indexes_.push_back(i);
        return i != kInvalid;
      }
      case Table::route:
      case Table::boundary: {
        RouteHandle const h = chip_->doAllocateMroute(chip, kVrf, starG(group.c_str()), vlan(10),
                                                      GetParam() == Table::boundary, 0, false, 0);
        if (!h.isNull()) handles_.push_back(h);
        return !h.isNull();
      }
    }
    return false;
  }
  void freeOne(std::uint32_t chip) {
    if (GetParam() == Table::replication) {
      chip_->handleFreeMtableOifSet(chip, setAt(indexes_.back()));
      indexes_.pop_back();
    } else if (GetParam() == Table::route) {
      chip_->doDeleteMroute(chip, kVrf, handles_.back(), nullptr);
      handles_.pop_back();
    } else {
      chip_->doDeleteMrouteBoundary(chip, kVrf, handles_.back(), nullptr);
      handles_.pop_back();
    }
  }
  bool full(std::uint32_t chip) {
    switch (GetParam()) {
      case Table::replication: return chip_->mtableFull(chip);
      case Table::route: return chip_->mrouteFull(chip);
      case Table::boundary: return chip_->mrouteBoundaryFull(chip);
    }
    return false;
  }

  int programmed_ = 0;
  std::vector<std::uint32_t> indexes_;
  std::vector<RouteHandle> handles_;
};

TEST_P(ReferenceChipTableTest, FullAtCapacityRefusesMoreAndFreeingMakesRoom) {
  EXPECT_TRUE(allocateOne(0));
  EXPECT_TRUE(allocateOne(0));
  EXPECT_FALSE(full(0));
  EXPECT_TRUE(allocateOne(0));
  EXPECT_TRUE(full(0));
  EXPECT_FALSE(allocateOne(0));
  EXPECT_FALSE(full(1)) << "capacities are per chip";
  freeOne(0);
  EXPECT_FALSE(full(0));
  EXPECT_TRUE(allocateOne(0));
  EXPECT_TRUE(chip_->violations().empty());
}

TEST_P(ReferenceChipTableTest, CapacityIsSettablePerChip) {
  chip_->capacityIs(1, ReferenceChip::Capacity{1, 1, 1});
  EXPECT_TRUE(allocateOne(1));
  EXPECT_TRUE(full(1));
  EXPECT_FALSE(full(0));
}

TEST_P(ReferenceChipTableTest, InjectedFailuresRefuseTheNextAllocationsWithoutAnsweringFull) {
  chip_->failNextAllocationsIs(0, GetParam(), 2);
  EXPECT_FALSE(allocateOne(0));
  EXPECT_FALSE(full(0));
  EXPECT_FALSE(allocateOne(0));
  EXPECT_TRUE(allocateOne(0));
  EXPECT_EQ(chip_->failNextAllocations(0, GetParam()), 0u);
}

TEST_P(ReferenceChipTableTest, ForcedFullAnswersFullAndRefusesUntilLifted) {
  chip_->fullForcedIs(0, GetParam(), true);
  EXPECT_TRUE(full(0));
  EXPECT_FALSE(allocateOne(0));
  chip_->fullForcedIs(0, GetParam(), false);
  EXPECT_FALSE(full(0));
  EXPECT_TRUE(allocateOne(0));
}

INSTANTIATE_TEST_SUITE_P(Tables, ReferenceChipTableTest,
                         ::testing::Values(Table::route, Table::boundary, Table::replication),
                         [](auto const& info) {
                           switch (info.param) {
                             case Table::route: return std::string("Route");
                             case Table::boundary: return std::string("Boundary");
                             case Table::replication: return std::string("Replication");
                           }
                           return std::string();
                         });

// ---- replication indexes ----

TEST_F(ReferenceChipTest, IndexesStartAtOneAndReuseTheLowestFreed) {
  chip_->capacityIs(0, ReferenceChip::Capacity{8, 8, 8});
  EXPECT_EQ(allocate({"Ethernet1.100"}), 1u);
  EXPECT_EQ(allocate({"Ethernet2.100"}), 2u);
  EXPECT_EQ(chip_->doAllocateMtableOifSet(0, ReferenceChip::kFreshIndex, oifSet({"Ethernet2.100"})), 3u)
      << "0xFFFFFFFE asks for a fresh entry";
  chip_->handleFreeMtableOifSet(0, setAt(2));
  chip_->handleFreeMtableOifSet(0, setAt(1));
  EXPECT_EQ(allocate({"Ethernet4.100"}), 1u);
  EXPECT_EQ(allocate({"Ethernet5.100"}), 2u);
  EXPECT_EQ(allocate({"Ethernet6.100"}), 4u);
  EXPECT_EQ(allocate({"Ethernet7.100"}, 1), 1u) << "each chip has its own index space";
  auto stats = chip_->statistics(0);
  EXPECT_EQ(stats.allocations, 6u);
  EXPECT_EQ(stats.frees, 2u);
  EXPECT_EQ(stats.entriesInUse, 4u);
  EXPECT_EQ(stats.peakEntries, 4u);
}

TEST_F(ReferenceChipTest, RewriteInPlaceKeepsTheIndexAndChangesWherePacketsGo) {
  std::uint32_t const index = allocate({"Ethernet1.100", "Ethernet2.200"});
  route(sg("10.0.0.1", "239.1.1.1"), 10, index);
  EXPECT_EQ(chip_->forward(0, kVrf, IpGenAddr("10.0.0.1"), IpGenAddr("239.1.1.1"), vlan(10)),
            pvs({"Ethernet1.100", "Ethernet2.200"}));

  EXPECT_EQ(chip_->doAllocateMtableOifSet(0, index, oifSet({"Ethernet3.300", "Ethernet2.200"})), index);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 10).copies, pvs({"Ethernet2.200", "Ethernet3.300"}));
  EXPECT_EQ(chip_->replicationEntry(0, index)->rewrites, 1u);
  auto stats = chip_->statistics(0);
  EXPECT_EQ(stats.inPlaceRewrites, 1u);
  EXPECT_EQ(stats.allocations, 1u);
}

TEST_F(ReferenceChipTest, RewriteOfAnUnprogrammedIndexIsRefusedAndRecorded) {
  EXPECT_EQ(chip_->doAllocateMtableOifSet(0, 7, oifSet({"Ethernet1.100"})), kInvalid);
  EXPECT_TRUE(mentions(chip_->violations(), "chip 0: doAllocateMtableOifSet: rewrite of oifSetIndex 7"));
  EXPECT_TRUE(chip_->replicationEntries(0).empty());
}

TEST_F(ReferenceChipTest, ZombieEntryIsUsableOnlyWhileItHoldsTheSameOutputs) {
  auto set = oifSet({"Ethernet1.100"});
  std::uint32_t const index = chip_->doAllocateMtableOifSet(0, 0, set);
  EXPECT_TRUE(chip_->verifyZombieUsable(set->portVlanSet(), index));
  chip_->doAllocateMtableOifSet(0, index, oifSet({"Ethernet2.100"}));
  EXPECT_FALSE(chip_->verifyZombieUsable(set->portVlanSet(), index));
}

// ---- forwarding ----

struct Family {
  char const* name;
  char const* any;  // the (*,G) source
  char const* source;
  char const* otherSource;
  char const* group;
  char const* otherGroup;
};

class ReferenceChipFamilyTest : public ReferenceChipTest, public ::testing::WithParamInterface<Family> {};

TEST_P(ReferenceChipFamilyTest, SourceRouteWinsOverStarGAndOtherVrfsDoNotMatch) {
  Family const& f = GetParam();
  chip_->capacityIs(0, ReferenceChip::Capacity{8, 8, 8});
  IpGenRouteKey const starKey(IpGenPrefix(f.any), IpGenPrefix(f.group));
  route(starKey, 10, allocate({"Ethernet1.100"}));
  route(IpGenRouteKey(IpGenPrefix(f.source), IpGenPrefix(f.group)), 10, allocate({"Ethernet2.100"}));
  chip_->doAllocateMroute(0, kVrf + 1, IpGenRouteKey(IpGenPrefix(f.otherSource), IpGenPrefix(f.group)), vlan(10), false,
                          allocate({"Ethernet3.100"}), false, 0);

  EXPECT_EQ(send(f.source, f.group, 10).copies, pvs({"Ethernet2.100"}));
  EXPECT_EQ(send(f.otherSource, f.group, 10).copies, pvs({"Ethernet1.100"})) << "the other VRF's (S,G) does not match";
  auto missed = send(f.source, f.otherGroup, 10);
  EXPECT_EQ(missed.dropReason, Drop::noRoute);
  EXPECT_TRUE(missed.route.isNull());
  EXPECT_EQ(send(f.source, f.group, 10, 1).dropReason, Drop::noRoute) << "routes are per chip";
}

INSTANTIATE_TEST_SUITE_P(Families, ReferenceChipFamilyTest,
                         ::testing::Values(Family{"Ipv4", "0.0.0.0/0", "10.0.0.1", "10.0.0.2", "239.1.1.1", "239.2.2.2"},
                                           Family{"Ipv6", "::/0", "2001:db8::1", "2001:db8::2", "ff0e::1:1", "ff0e::2:2"}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(ReferenceChipTest, RpfCheckDropsOtherVlansUnlessNoRpf) {
  std::uint32_t const index = allocate({"Ethernet1.100"});
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"), 10, index);
  auto dropped = send("10.0.0.1", "239.1.1.1", 20);
  EXPECT_EQ(dropped.dropReason, Drop::rpfFail);
  EXPECT_EQ(dropped.route, h);
  EXPECT_TRUE(dropped.copies.empty());

  chip_->doAllocateMrouteNoRpf(0, kVrf, sg("10.0.0.1", "239.1.1.2"), false, index, false, 0);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.2", 20).copies, pvs({"Ethernet1.100"}));
  EXPECT_TRUE(send("10.0.0.1", "239.1.1.2", 0).forwarded());
}

TEST_F(ReferenceChipTest, ForwardReportsTheCpuCopyAndARouteWithoutEntry) {
  std::uint32_t const index = chip_->doAllocateMtableOifSet(0, 0, oifSet({"Ethernet1.100"}, true));
  route(sg("10.0.0.1", "239.1.1.1"), 10, index);
  auto r = send("10.0.0.1", "239.1.1.1", 10);
  EXPECT_TRUE(r.toCpu);
  EXPECT_EQ(r.oifSetIndex, index);
  EXPECT_EQ(r.copies, pvs({"Ethernet1.100"}));

  route(sg("10.0.0.1", "239.1.1.2"), 10, 0);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.2", 10).dropReason, Drop::noEntry);
}

// Outputs that reach no port: replicating nowhere, or to the CPU only.
class ReferenceChipNoPortTest : public ReferenceChipTest, public ::testing::WithParamInterface<bool> {};

TEST_P(ReferenceChipNoPortTest, OutputsReachingNoPortGetTheSharedEntryOutsideTheTableEvenWhenItIsFull) {
  bool const toCpu = GetParam();
  std::uint32_t const expected = toCpu ? ReferenceChip::kCpuOnlyIndex : ReferenceChip::kNowhereIndex;
  for (int i = 0; i < 3; ++i) ASSERT_NE(allocate({i == 0 ? "Ethernet1" : i == 1 ? "Ethernet2" : "Ethernet3"}), kInvalid);
  ASSERT_TRUE(chip_->mtableFull(0));
  chip_->failNextAllocationsIs(0, Table::replication, 5);

  std::uint32_t const index = chip_->doAllocateMtableOifSet(0, 0, oifSet({}, toCpu));
  EXPECT_EQ(index, expected);
  EXPECT_EQ(chip_->doAllocateMtableOifSet(0, 0, oifSet({}, toCpu)), expected);
  EXPECT_EQ(chip_->failNextAllocations(0, Table::replication), 5u);
  EXPECT_EQ(chip_->replicationEntries(0).size(), 3u);
  EXPECT_EQ(chip_->statistics(0).allocations, 3u);

  route(sg("10.0.0.1", "239.1.1.1"), 10, index);
  auto const r = send("10.0.0.1", "239.1.1.1", 10);
  EXPECT_TRUE(r.forwarded());
  EXPECT_TRUE(r.copies.empty());
  EXPECT_EQ(r.toCpu, toCpu);
  // Releasing one of the sets leaves the entry to the others.
  chip_->handleFreeMtableOifSet(0, setAt(index));
  ASSERT_NE(chip_->replicationEntry(0, index), nullptr);
  EXPECT_TRUE(send("10.0.0.1", "239.1.1.1", 10).forwarded());
  EXPECT_TRUE(chip_->violations().empty()) << chip_->violations()[0];
  EXPECT_TRUE(chip_->invariantViolations(0, {1, 2, 3, index}).empty());
}

INSTANTIATE_TEST_SUITE_P(CpuCopy, ReferenceChipNoPortTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "ToCpu" : "Nowhere"; });

TEST_F(ReferenceChipTest, BoundaryStopsRoutingOnItsVlanOnly) {
  chip_->doAllocateMrouteNoRpf(0, kVrf, sg("10.0.0.1", "239.1.1.1"), false, allocate({"Ethernet1.100"}), false, 0);
  RouteHandle const b =
      chip_->doAllocateMroute(0, kVrf, starG("239.1.1.0/24"), vlan(10), true, 0, false, 0);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 10).dropReason, Drop::boundary);
  EXPECT_TRUE(send("10.0.0.1", "239.1.1.1", 20).forwarded());
  chip_->doDeleteMrouteBoundary(0, kVrf, b, nullptr);
  EXPECT_TRUE(send("10.0.0.1", "239.1.1.1", 10).forwarded());
}

TEST_F(ReferenceChipTest, RoutingDisabledDropsAndVerifyNoticesTheDisagreement) {
  route(sg("10.0.0.1", "239.1.1.1"), 10, allocate({"Ethernet1.100"}));
  chip_->handleMulticastRouting(false);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 10).dropReason, Drop::routingDisabled);
  chip_->verifyMulticastRouting(false);
  EXPECT_TRUE(chip_->violations().empty());
  chip_->verifyMulticastRouting(true);
  EXPECT_TRUE(mentions(chip_->violations(), "verifyMulticastRouting"));
}

// ---- hit bits and counters ----

TEST_F(ReferenceChipTest, TrafficSetsHitBitsUntilTheCacheIsCleared) {
  auto const key = sg("10.0.0.1", "239.1.1.1");
  route(key, 10, allocate({"Ethernet1.100"}), true);
  EXPECT_FALSE(chip_->mrouteHitBit(0, kVrf, key, vlan(10), false));
  send("10.0.0.1", "239.1.1.1", 10);
  send("10.0.0.1", "239.1.1.1", 30);  // RPF fails on a fastdrop route
  EXPECT_TRUE(chip_->mrouteHitBit(0, kVrf, key, vlan(10), false));
  EXPECT_TRUE(chip_->mrouteHitBit(0, kVrf, key, vlan(30), true));
  EXPECT_FALSE(chip_->mrouteHitBit(0, kVrf, key, vlan(40), true));
  EXPECT_FALSE(chip_->mrouteHitBit(1, kVrf, key, vlan(10), false));
  EXPECT_FALSE(chip_->mrouteHitBit(0, kVrf + 1, key, vlan(10), false));
  chip_->mrouteHitBitCacheClear(0);
  EXPECT_FALSE(chip_->mrouteHitBit(0, kVrf, key, vlan(10), false));
  EXPECT_FALSE(chip_->mrouteHitBit(0, kVrf, key, vlan(30), true));
}

// Each entry remembers which route's bit was asked for after it, to fetch
// ahead at the next pass. Passes that ask in another order, after routes
// were removed (hints naming them) and another made, must still get each
// route's own bit, and the hint must not touch the flags packed beside it.
TEST_F(ReferenceChipTest, HitBitsStayEachRoutesOwnWhateverOrderTheyAreAskedIn) {
  chip_ = Vex::make<ReferenceChip>("ref", 1, ReferenceChip::Capacity{16, 3, 3});
  chip_->handleMulticastRouting(true);
  std::uint32_t const index = allocate({"Ethernet1.100"});
  std::vector<std::string> groups;
  std::vector<RouteHandle> handles;
  for (int i = 0; i < 8; ++i) {
    groups.push_back("239.1.1." + std::to_string(i + 1));
    handles.push_back(route(sg("10.0.0.1", groups.back().c_str()), 10, index, i % 2 == 0));
  }
  // Sends to the routes in sent, then asks for every route's bit in order,
  // RPF and fast-drop alike; returns which answered hit.
  auto pass = [&](std::vector<int> const& sent, std::vector<int> const& order) {
    for (int i : sent) send("10.0.0.1", groups[i].c_str(), 10);
    send("10.0.0.1", groups[0].c_str(), 30);  // RPF fails on the fast-drop route 0
    std::string answers(groups.size(), '.');
    for (int i : order) {
      auto const key = sg("10.0.0.1", groups[i].c_str());
      if (chip_->mrouteHitBit(0, kVrf, key, vlan(10), false)) answers[i] = 'h';
      if (chip_->mrouteHitBit(0, kVrf, key, vlan(30), true)) answers[i] = answers[i] == 'h' ? 'b' : 'f';
    }
    chip_->mrouteHitBitCacheClear(0);
    return answers;
  };
  EXPECT_EQ(pass({1, 2, 5}, {0, 1, 2, 3, 4, 5, 6, 7}), "fhh..h..");
  EXPECT_EQ(pass({1, 2, 5}, {0, 1, 2, 3, 4, 5, 6, 7}), "fhh..h..");
  EXPECT_EQ(pass({0, 7}, {7, 6, 5, 4, 3, 2, 1, 0}), "b......h");
  for (int i : {2, 3}) chip_->doDeleteMroute(0, kVrf, handles[static_cast<std::size_t>(i)], nullptr);
  groups[2] = "239.2.2.2";
  route(sg("10.0.0.1", groups[2].c_str()), 10, index, true);
  EXPECT_EQ(pass({2, 3, 4}, {3, 1, 4, 2, 0, 6, 5, 7}), "f.h.h...") << "route 3 is gone, route 2 another";
  EXPECT_EQ(pass({}, {0, 1, 2, 3, 4, 5, 6, 7}), "f.......");
  EXPECT_EQ(pass({2, 6}, {6, 2, 0}), "f.h...h.");
}

TEST_F(ReferenceChipTest, CountersCountTrafficSinceTheLastRead) {
  auto const key = sg("10.0.0.1", "239.1.1.1");
  auto const wildcard = IpGenRouteKey::wildcard();
  route(key, 10, allocate({"Ethernet1.100"}));
  EXPECT_TRUE(chip_->doCreateMrouteCounter(kVrf, key));
  EXPECT_TRUE(chip_->doCreateMrouteCounter(kVrf, wildcard));
  for (int i = 0; i < 3; ++i) send("10.0.0.1", "239.1.1.1", 10);
  send("10.0.0.1", "239.1.1.1", 20);  // dropped: not counted
  EXPECT_EQ(chip_->doReadMrouteCounter(key), 3);
  EXPECT_EQ(chip_->doReadMrouteCounter(key), 0);
  send("10.0.0.1", "239.1.1.1", 10);
  EXPECT_TRUE(chip_->doClearMrouteCounter(key));
  EXPECT_EQ(chip_->doReadMrouteCounter(key), 0);
  EXPECT_EQ(chip_->doReadMrouteCounter(wildcard), 4);

  chip_->handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode::bytes);
  send("10.0.0.1", "239.1.1.1", 10, 0, 1500);
  EXPECT_EQ(chip_->doReadMrouteCounter(key), 1500);
  chip_->doDeleteMrouteCounter(key);
  send("10.0.0.1", "239.1.1.1", 10);
  EXPECT_FALSE(chip_->counterExists(key));
  EXPECT_EQ(chip_->doReadMrouteCounter(key), 0);
}

// ---- verification and invariants ----

TEST_F(ReferenceChipTest, VerifyMrouteRecordsEachDifferenceFromTheLibrary) {
  auto const key = sg("10.0.0.1", "239.1.1.1");
  std::uint32_t const index = allocate({"Ethernet1.100"});
  RouteHandle const h = route(key, 10, index);
  auto libRoute = Fal::routeFactory(h, key, vlan(10));
  libRoute->vrfIdIs(kVrf);
  libRoute->mtableOifSetIs(setAt(index));
  chip_->verifyMroute(0, kVrf, libRoute);
  EXPECT_TRUE(chip_->violations().empty());

  libRoute->mtableOifSetIs(setAt(index + 1));
  chip_->verifyMroute(0, kVrf, libRoute);
  auto stale = Fal::routeFactory(h, key, vlan(20));
  stale->vrfIdIs(kVrf);
  chip_->verifyMroute(0, kVrf, stale);
  chip_->verifyMroute(0, kVrf, Fal::routeFactory(RouteHandle(999), key, vlan(10)));
  auto const& v = chip_->violations();
  ASSERT_EQ(v.size(), 3u);
  EXPECT_NE(v[0].find("oifSetIndex 1 in hardware, 2 in the library"), std::string::npos) << v[0];
  EXPECT_NE(v[1].find("accepting VLAN 10 in hardware, 20 in the library"), std::string::npos) << v[1];
  EXPECT_NE(v[2].find("handle 999: not in the route table"), std::string::npos) << v[2];
}

TEST_F(ReferenceChipTest, VerifyMrouteBoundaryComparesKeyVlanAndVrf) {
  auto const key = starG("239.1.1.0/24");
  RouteHandle const h = chip_->doAllocateMroute(0, kVrf, key, vlan(10), true, 0, false, 0);
  auto same = Vex::make<Fal::Boundary>(h, key, Bridging::VlanId(10));
  same->vrfIdIs(kVrf);
  chip_->verifyMrouteBoundary(0, kVrf, same);
  EXPECT_TRUE(chip_->violations().empty());
  chip_->verifyMrouteBoundary(0, kVrf, Vex::make<Fal::Boundary>(h, key, Bridging::VlanId(11)));
  EXPECT_TRUE(mentions(chip_->violations(), "VLAN 10 in hardware, 11 in the library"));
  EXPECT_TRUE(mentions(chip_->violations(), "vrfId 1 in hardware, 0 in the library"));
}

TEST_F(ReferenceChipTest, DoubleFreeIsRecordedNotFatal) {
  std::uint32_t const index = allocate({"Ethernet1.100"});
  chip_->handleFreeMtableOifSet(0, setAt(index));
  EXPECT_TRUE(chip_->violations().empty());
  chip_->handleFreeMtableOifSet(0, setAt(index));
  EXPECT_TRUE(mentions(chip_->violations(), "chip 0: handleFreeMtableOifSet: double free of oifSetIndex 1"));
  EXPECT_EQ(chip_->statistics(0).doubleFrees, 1u);
  EXPECT_TRUE(mentions(chip_->invariantViolations(0, {}), "oifSetIndex 1 was freed twice"));
}

TEST_F(ReferenceChipTest, InvariantsFindDanglingRoutesLeaksAndMissingEntries) {
  std::uint32_t const kept = allocate({"Ethernet1.100"});
  std::uint32_t const used = allocate({"Ethernet2.100"});
  std::uint32_t const leaked = allocate({"Ethernet3.100"});
  route(sg("10.0.0.1", "239.1.1.1"), 10, used);
  EXPECT_TRUE(chip_->invariantViolations(0, {kept, used, leaked}).empty());

  chip_->handleFreeMtableOifSet(0, setAt(used));
  EXPECT_TRUE(mentions(chip_->violations(), "oifSetIndex 2 freed while 1 route(s) still point at it"));
  auto problems = chip_->invariantViolations(0, {kept, 9});
  EXPECT_EQ(problems.size(), 3u);
  EXPECT_TRUE(mentions(problems, "points at oifSetIndex 2, which is not programmed"));
  EXPECT_TRUE(mentions(problems, "oifSetIndex 3 is programmed but the library holds no set for it (leaked)"));
  EXPECT_TRUE(mentions(problems, "the library holds oifSetIndex 9, which is not programmed"));
}

TEST_F(ReferenceChipTest, HooksNamingAnUnknownChipAreRecordedAndRefused) {
  EXPECT_EQ(chip_->doAllocateMtableOifSet(2, 0, oifSet({"Ethernet1.100"})), kInvalid);
  EXPECT_TRUE(chip_->doAllocateMroute(5, kVrf, starG("239.1.1.1"), vlan(10), false, 0, false, 0).isNull());
  EXPECT_EQ(chip_->violations().size(), 2u);
  EXPECT_TRUE(mentions(chip_->violations(), "chip 2: doAllocateMtableOifSet: no such chip (2 chips)"));
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 10, 7).dropReason, Drop::unknownChip);
}

TEST_F(ReferenceChipTest, EachHardwareOperationChargesVirtualTime) {
  chip_->operationCostIs(0.001);
  double const start = am_.now();
  std::uint32_t const index = allocate({"Ethernet1.100"});
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"), 10, index);
  chip_->doSetMtableOifSet(0, kVrf, h, nullptr, index);
  chip_->mtableFull(0);  // a query, not an operation
  EXPECT_NEAR(am_.now() - start, 0.003, 1e-9);
  EXPECT_EQ(chip_->statistics(0).hwOperations, 3u);
}

// ---- end to end: the library's per-chip switch on the reference chip ----

class ReferenceChipSwitchTest : public ReferenceChipTest {
 protected:
  void SetUp() override {
    ReferenceChipTest::SetUp();
    l3Status_->vrfIs("red", kVrf);
    l3Status_->mrouteZombieEnabledIs(false);
    switch_ = Fal::mrouteSwitchFactory(0, Vex::make<Fal::FalCommonSmData>(), l3Status_, chip_, Vex::make<Ip::Status>(),
                                       Vex::make<HwStatus>(Netcore::AddressFamily::ipv4),
                                       Vex::make<HwStatus>(Netcore::AddressFamily::ipv6));
  }
  Vex::Ptr<MrouteLib::MtableOifSet> allocateSet(MrouteLib::OifSetPtr const& set) {
    switch_->doAllocateMtableOifSet(set);
    return switch_->oifSetResult();
  }
  RouteHandle allocateRoute(IpGenRouteKey const& key, Vex::Ptr<MrouteLib::MtableOifSet> const& set) {
    switch_->doAllocateRoute(key, vlan(10), false, set, false, false, 0, "red");
    RouteHandle const h = switch_->handleResult();
    if (!h.isNull()) switch_->doSetMtableOifSet(h, set);
    return h;
  }
  std::uint32_t indexOf(Vex::Ptr<MrouteLib::MtableOifSet> const& set) {
    return Vex::ptrCast<Fal::MtableOifSet>(set)->oifSetIndex();
  }

  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  Vex::Ptr<Fal::L3Status> l3Status_ = Vex::make<Fal::L3Status>();
  Vex::Ptr<Fal::MrouteSwitch> switch_;
};

TEST_F(ReferenceChipSwitchTest, ProgrammedRoutesForwardAndFollowARepoint) {
  auto setA = allocateSet(oifSet({"Ethernet1.100", "Ethernet2.100"}));
  ASSERT_TRUE(setA);
  RouteHandle const h1 = allocateRoute(sg("10.0.0.1", "239.1.1.1"), setA);
  RouteHandle const h2 = allocateRoute(sg("10.0.0.2", "239.1.1.1"), allocateSet(oifSet({"Ethernet1.100", "Ethernet2.100"})));
  ASSERT_FALSE(h1.isNull());
  ASSERT_FALSE(h2.isNull());
  EXPECT_EQ(chip_->replicationEntries(0).size(), 1u) << "both routes share one entry";
  EXPECT_EQ(chip_->replicationEntry(0, indexOf(setA))->routes, 2u);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 10).copies, pvs({"Ethernet1.100", "Ethernet2.100"}));
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 20).dropReason, Drop::rpfFail);
  switch_->handleVerify();
  EXPECT_TRUE(chip_->violations().empty()) << chip_->violations().front();

  auto setB = allocateSet(oifSet({"Ethernet3.100"}));
  switch_->doSetMtableOifSet(h1, setB);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 10).copies, pvs({"Ethernet3.100"}));
  EXPECT_EQ(send("10.0.0.2", "239.1.1.1", 10).copies, pvs({"Ethernet1.100", "Ethernet2.100"}));
  EXPECT_TRUE(chip_->invariantViolations(0, {indexOf(setA), indexOf(setB)}).empty());

  // With zombies off, the last route leaving a set frees its entry at once.
  std::uint32_t const indexA = indexOf(setA);
  setA = nullptr;
  switch_->doDeleteRoute(h2);
  EXPECT_EQ(chip_->replicationEntry(0, indexA), nullptr);
  EXPECT_EQ(send("10.0.0.2", "239.1.1.1", 10).dropReason, Drop::noRoute);
  switch_->handleVerify();
  EXPECT_TRUE(chip_->invariantViolations(0, {indexOf(setB)}).empty());
  EXPECT_TRUE(chip_->violations().empty()) << chip_->violations().front();
  EXPECT_EQ(chip_->statistics(0).frees, 1u);
  EXPECT_EQ(chip_->statistics(0).routes, 1u);
}

TEST_F(ReferenceChipSwitchTest, FullReplicationTableLeavesTheSwitchMarkedNotFree) {
  chip_->capacityIs(0, ReferenceChip::Capacity{3, 3, 1});
  auto setA = allocateSet(oifSet({"Ethernet1.100"}));
  ASSERT_TRUE(setA);
  EXPECT_FALSE(allocateSet(oifSet({"Ethernet2.100"})));
  EXPECT_FALSE(switch_->mtableFree());
  EXPECT_EQ(chip_->statistics(0).entriesInUse, 1u);
}

}  // namespace
