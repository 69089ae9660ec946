// Fal::MrouteSwitch: sharing of replication entries, the three table-full
// flags, and what reaches the hooks for routes, boundaries and VRFs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vex/Assert.h"
#include "tests/doubles/MrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = MrouteSwitchRig;

class MrouteSwitchTest : public ::testing::Test {
 protected:
  MrouteSwitchTest() {
    rig.start();
    forget();
  }
  void forget() {
    rig.helper->clear();
    rig.capture->clear();
  }
  Calls const& calls() const { return rig.helper->calls; }
  bool traced(std::string const& text) const { return rig.capture->contains(text); }
  MrouteLib::RouteHandle addBoundary(Rig::IpGenRouteKey const& k) {
    rig.sw->doAllocateRoute(k, Bridging::VlanIdOrNone(20), true, nullptr, false, false, 0, "red");
    return rig.sw->handleResult();
  }

  Rig rig;
  Rig::IpGenRouteKey const k1 = Rig::key("10.0.0.1", "239.1.1.1");
  Rig::IpGenRouteKey const k2 = Rig::key("10.0.0.2", "239.1.1.1");
  MrouteLib::OifSetPtr const oA = rig.oifSet(Rig::outputs({"Ethernet1.100", "Ethernet2.100"}));
  MrouteLib::OifSetPtr const oB = rig.oifSet(Rig::outputs({"Ethernet3.100"}));
};

// ---- sharing -------------------------------------------------------------

TEST_F(MrouteSwitchTest, RoutesWithTheSameOutputsShareOneEntryUntilTheLastGoes) {
  rig.l3Status->mrouteZombieEnabledIs(false);
  auto const h1 = rig.program(k1, oA);
  auto const h2 = rig.program(k2, oA);
  EXPECT_EQ(calls(), (Calls{"mtableFull(1)", "doAllocateMtableOifSet(1, 0)",
                            "doAllocateMroute(1, 7, (10.0.0.1, 239.1.1.1), 10, false, 1, false, 0)",
                            "doSetMtableOifSet(1, 7, 100, 1)",
                            "doAllocateMroute(1, 7, (10.0.0.2, 239.1.1.1), 10, false, 1, false, 0)",
                            "doSetMtableOifSet(1, 7, 101, 1)"}));
  EXPECT_TRUE(traced("Sharing existing oifSetIndex: 1"));
  EXPECT_EQ(rig.sw->oifSetIndexCollSize(), 1u);

  forget();
  rig.sw->doDeleteRoute(h1);
  EXPECT_EQ(calls(), Calls{"doDeleteMroute(1, 7, 100)"});
  EXPECT_EQ(rig.inUseIndex(oA), 1u);
  rig.sw->doDeleteRoute(h2);
  EXPECT_EQ(calls(), (Calls{"doDeleteMroute(1, 7, 100)", "doDeleteMroute(1, 7, 101)", "handleFreeMtableOifSet(1, 1)"}));
  EXPECT_EQ(rig.inUseIndex(oA), Fal::invalidOifSetIndex());
  EXPECT_FALSE(rig.sw->oifSetIndexColl(1));
  EXPECT_TRUE(traced("Freeing OifSetIndex: 1"));

  // The content is programmed afresh for the next route.
  rig.program(k1, oA);
  EXPECT_EQ(rig.inUseIndex(oA), 2u);
}

// A hook whose own OIF-set cache still serves every content it was given.
class CachingHelper : public RecordingMrouteHelper {
 public:
  bool verifyOifSetCache(OifSetPtr) override {
    calls.push_back("verifyOifSetCache()");
    return true;
  }
  void deleteOifSetCache(OifSetPtr) override { calls.push_back("deleteOifSetCache()"); }
};

TEST(MrouteSwitchCacheTest, SetServedByTheHookCacheIsForgottenOnceItIsGone) {
  Rig rig;
  rig.helper = Vex::make<CachingHelper>();
  rig.start();
  rig.l3Status->mrouteZombieEnabledIs(false);
  auto const oA = rig.oifSet(Rig::outputs({"Ethernet1.100"}));
  auto const k = Rig::key("10.0.0.1", "239.1.1.1");
  rig.sw->doDeleteRoute(rig.program(k, oA));
  EXPECT_EQ(rig.helper->callsTo("deleteOifSetCache").size(), 1u);
  EXPECT_EQ(rig.helper->callsTo("handleFreeMtableOifSet").size(), 1u);
  // The set left in the sharing table for the cache is gone now: the same
  // content gets a live set of its own, not the freed one.
  EXPECT_EQ(rig.inUseIndex(oA), Fal::invalidOifSetIndex());
  rig.helper->clear();
  rig.program(k, oA);
  EXPECT_EQ(rig.helper->callsTo("doAllocateMtableOifSet"), Calls{"doAllocateMtableOifSet(1, 0)"});
  EXPECT_EQ(rig.inUseIndex(oA), 2u);
}

TEST_F(MrouteSwitchTest, EmptyOutputsGetAnEntryOfTheirOwnWithoutAskingForRoom) {
  MrouteLib::PortVlanSet toCpuOnly;
  toCpuOnly.toCpuIs(true);
  auto const o = rig.oifSet(toCpuOnly);
  auto const first = rig.allocSet(o);
  auto const second = rig.allocSet(o);
  EXPECT_EQ(calls(), (Calls{"doAllocateMtableOifSet(1, 0)", "doAllocateMtableOifSet(1, 0)"}));
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->oifSetIndex(), 1u);
  EXPECT_EQ(second->oifSetIndex(), 2u);
  EXPECT_TRUE(first->toCpu());
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
  EXPECT_EQ(rig.sw->oifSetIndexCollSize(), 0u);
  EXPECT_TRUE(traced("Empty port vlan set. OifSetIndex: 1"));
}

TEST_F(MrouteSwitchTest, SettingTheSetARouteAlreadyHasMakesNoHookCall) {
  auto const set = rig.allocSet(oA);
  auto const h = rig.addRoute(k1, set);
  forget();
  rig.sw->doSetMtableOifSet(h, set);
  EXPECT_TRUE(calls().empty());
  EXPECT_TRUE(traced("Mroute unchanged, nothing to do"));
}

TEST_F(MrouteSwitchTest, RePointingARouteReleasesItsPreviousSet) {
  rig.l3Status->mrouteZombieEnabledIs(false);
  auto const h = rig.program(k1, oA);
  auto const setB = rig.allocSet(oB);
  forget();
  rig.sw->doSetMtableOifSet(h, setB);
  EXPECT_EQ(calls(), (Calls{"doSetMtableOifSet(1, 7, 100, 2)", "handleFreeMtableOifSet(1, 1)"}));
  EXPECT_EQ(rig.sw->route(h)->mtableOifSet(), setB);
}

TEST_F(MrouteSwitchTest, DeletingDuringSwitchCleanupFreesTheSetAtOnce) {
  auto const h = rig.program(k1, oA);
  rig.sm->doCleanup();
  forget();
  rig.sw->doDeleteRoute(h);
  EXPECT_EQ(calls(), (Calls{"doDeleteMroute(1, 7, 100)", "handleFreeMtableOifSet(1, 1)"}));
  EXPECT_TRUE(traced("MrouteSwitch deletion - skipping delayed deletion of oifSet"));
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
}

// ---- several chips on one set of platform OIF sets --------------------------

// A second chip of the same agent, on the rig's hook object and entities.
Vex::Ptr<Fal::MrouteSwitch> secondSwitch(Rig& rig, std::uint32_t switchId) {
  return Fal::mrouteSwitchFactory(switchId, rig.acsd, rig.l3Status, rig.helper, rig.ipStatus, rig.hwStatus,
                                  rig.hw6Status);
}
Vex::Ptr<Fal::MtableOifSet> allocOn(Fal::MrouteSwitch& sw, MrouteLib::OifSetPtr const& o) {
  sw.doAllocateMtableOifSet(o);
  auto set = Vex::ptrCast<Fal::MtableOifSet>(sw.oifSetResult());
  sw.oifSetResultIs(nullptr);
  return set;
}

TEST_F(MrouteSwitchTest, ChipsSharingPlatformSetsEachShareAndFreeTheirOwnEntries) {
  rig.l3Status->mrouteZombieEnabledIs(false);
  auto sw2 = secondSwitch(rig, 2);
  // Chip 1 programs oA first; chip 2 then oA and oB.
  auto a1 = rig.allocSet(oA);
  auto a2 = allocOn(*sw2, oA);
  auto const b2 = allocOn(*sw2, oB);
  ASSERT_TRUE(a1 && a2 && b2);
  EXPECT_NE(a1->oifSetIndex(), a2->oifSetIndex());
  EXPECT_EQ(allocOn(*sw2, oA), a2);
  EXPECT_EQ(rig.allocSet(oA), a1);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()).get(), a1.get());
  EXPECT_EQ(rig.sw->inUseOifSet(oB.get()).get(), nullptr);
  EXPECT_EQ(sw2->inUseOifSet(oA.get()).get(), a2.get());
  EXPECT_EQ(sw2->inUseOifSet(oB.get()).get(), b2.get());
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 1u);
  EXPECT_EQ(sw2->inUseOifSetSize(), 2u);

  // Chip 1's set goes first, then chip 2's, each freeing only its own entry.
  std::uint32_t const index1 = a1->oifSetIndex();
  std::uint32_t const index2 = a2->oifSetIndex();
  forget();
  a1 = nullptr;
  EXPECT_EQ(calls(), Calls{"handleFreeMtableOifSet(1, " + std::to_string(index1) + ")"});
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
  EXPECT_EQ(sw2->inUseOifSet(oA.get()).get(), a2.get());
  a2 = nullptr;
  EXPECT_EQ(calls().back(), "handleFreeMtableOifSet(2, " + std::to_string(index2) + ")");
  EXPECT_EQ(sw2->inUseOifSetSize(), 1u);
  EXPECT_EQ(sw2->inUseOifSet(oA.get()).get(), nullptr);

  // Programmed again, oA is shared on chip 2 as before.
  auto const again = allocOn(*sw2, oA);
  EXPECT_EQ(allocOn(*sw2, oA), again);
  EXPECT_EQ(sw2->inUseOifSetSize(), 2u);
}

TEST_F(MrouteSwitchTest, SetThatOutlivesItsSwitchIsNotSharedByTheNextOne) {
  auto held = rig.allocSet(oA);
  ASSERT_TRUE(held);
  rig.sm = nullptr;
  rig.sw = nullptr;
  rig.start();
  auto const fresh = rig.allocSet(oA);
  ASSERT_TRUE(fresh);
  EXPECT_NE(fresh, held);
  EXPECT_NE(fresh->oifSetIndex(), held->oifSetIndex());
  held = nullptr;  // the old switch's set goes, without a switch to tell
  // It took its place in the platform set with it: no later switch can find it there.
  EXPECT_EQ(oA->entryOwner(), nullptr);
  EXPECT_EQ(rig.allocSet(oA), fresh);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()).get(), fresh.get());
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 1u);
}

// ---- full tables -----------------------------------------------------------

TEST_F(MrouteSwitchTest, FullRouteTableClearsItsFlagUntilARouteReviewFindsRoom) {
  rig.helper->routeTableFull = true;
  EXPECT_TRUE(rig.addRoute(k1, nullptr).isNull());
  EXPECT_FALSE(rig.sw->mrouteTcamFree());
  EXPECT_TRUE(traced("Full mroute table"));

  forget();
  rig.l3MulticastRequest->multicastReviewPendingInc();
  EXPECT_EQ(rig.callsTo("mrouteFull"), Calls{"mrouteFull(1)"});
  EXPECT_FALSE(rig.sw->mrouteTcamFree());

  rig.helper->routeTableFull = false;
  rig.l3MulticastRequest->multicastReviewPendingInc();
  EXPECT_TRUE(rig.sw->mrouteTcamFree());
  EXPECT_TRUE(traced("Free space now available in the mroute table"));

  // With room on record the review does not ask again.
  forget();
  rig.l3MulticastRequest->multicastReviewPendingInc();
  EXPECT_TRUE(rig.callsTo("mrouteFull").empty());
}

TEST_F(MrouteSwitchTest, FailedRouteAllocationThatIsNotForFullnessLeavesTheFlagAndTracesNothing) {
  rig.helper->routeAllocFails = true;
  auto const set = rig.allocSet(oA);
  forget();
  EXPECT_TRUE(rig.addRoute(k1, set).isNull());
  EXPECT_EQ(calls(), (Calls{"doAllocateMroute(1, 7, (10.0.0.1, 239.1.1.1), 10, false, 1, false, 0)", "mrouteFull(1)"}));
  EXPECT_TRUE(rig.sw->mrouteTcamFree());
  // Only the entry trace of the operation itself.
  ASSERT_EQ(rig.capture->lines().size(), 1u);
  EXPECT_EQ(rig.capture->lines()[0].text.rfind("doAllocateRoute", 0), 0u);
}

TEST_F(MrouteSwitchTest, FullBoundaryTableRecoversWhenABoundaryIsDeleted) {
  auto const b1 = addBoundary(k1);
  ASSERT_FALSE(b1.isNull());
  ASSERT_TRUE(rig.sw->boundary(b1));
  EXPECT_EQ(rig.sw->boundary(b1)->acceptingVlanId(), Bridging::VlanId(20));
  rig.helper->boundaryTableFull = true;
  EXPECT_TRUE(addBoundary(k2).isNull());
  EXPECT_FALSE(rig.sw->boundaryTcamFree());
  EXPECT_TRUE(traced("Full boundary table"));

  rig.helper->boundaryTableFull = false;
  forget();
  rig.sw->doDeleteRoute(b1);
  EXPECT_EQ(calls(), (Calls{"doDeleteMrouteBoundary(1, 7, 100)", "mrouteBoundaryFull(1)"}));
  EXPECT_TRUE(rig.sw->boundaryTcamFree());
  EXPECT_TRUE(traced("Boundary entries now available - set boundaryTcamFree true"));
}

TEST_F(MrouteSwitchTest, FullReplicationTableRecoversWhenASetIsFreed) {
  rig.l3Status->mrouteZombieEnabledIs(false);
  auto const h = rig.program(k1, oA);
  rig.helper->mtableFullAnswer = true;
  forget();
  EXPECT_FALSE(rig.allocSet(oB));
  EXPECT_EQ(calls(), Calls{"mtableFull(1)"});
  EXPECT_FALSE(rig.sw->mtableFree());
  EXPECT_TRUE(traced("No multicast group available. Skipping oif allocation"));

  rig.helper->mtableFullAnswer = false;
  rig.sw->doDeleteRoute(h);
  EXPECT_TRUE(rig.sw->mtableFree());
  EXPECT_TRUE(traced("Free space now available in multicast group table"));
}

TEST_F(MrouteSwitchTest, ReplicationEntryRefusedDespiteRoomLeavesTheFlag) {
  rig.helper->mtableAllocFails = true;
  EXPECT_FALSE(rig.allocSet(oA));
  EXPECT_TRUE(rig.sw->mtableFree());
  EXPECT_TRUE(traced("Full multicast replication table. Skipping oif allocation"));
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
}

// ---- what reaches the hooks ---------------------------------------------------

TEST_F(MrouteSwitchTest, UnknownVrfFallsBackToTheDefaultOnlyForIpv4) {
  rig.addRoute(k1, nullptr, 0, "blue");
  EXPECT_EQ(calls(), Calls{"doAllocateMroute(1, 0, (10.0.0.1, 239.1.1.1), 10, false, 0, false, 0)"});

  forget();
  auto const k6 = Rig::key("2001:db8::1", "ff0e::1");
  EXPECT_TRUE(rig.addRoute(k6, nullptr, 0, "blue").isNull());
  EXPECT_TRUE(calls().empty());
  EXPECT_TRUE(traced("No mapping for vrfName in L3Status for programming routeType: "));
}

// Routes of a batch usually share a VRF; a change of the VRF's id between
// two of them must still reach the second.
TEST_F(MrouteSwitchTest, EachRouteGetsItsVrfsIdAsTheMappingStandsAtThatMoment) {
  auto const k3 = Rig::key("10.0.0.3", "239.1.1.1");
  auto const k4 = Rig::key("10.0.0.4", "239.1.1.1");
  auto const k6 = Rig::key("2001:db8::1", "ff0e::1");
  rig.addRoute(k1, nullptr);
  rig.l3Status->vrfIs(L3::VrfName("red"), 9);
  rig.addRoute(k2, nullptr);
  rig.l3Status->vrfDel(L3::VrfName("red"));
  rig.addRoute(k3, nullptr);
  EXPECT_TRUE(rig.addRoute(k6, nullptr).isNull());
  rig.l3Status->vrfIs(L3::VrfName("red"), 7);
  rig.addRoute(k4, nullptr);
  rig.addRoute(k6, nullptr, 0, "blue");  // another name in between
  rig.addRoute(k6, nullptr);
  EXPECT_EQ(calls(), (Calls{"doAllocateMroute(1, 7, (10.0.0.1, 239.1.1.1), 10, false, 0, false, 0)",
                            "doAllocateMroute(1, 9, (10.0.0.2, 239.1.1.1), 10, false, 0, false, 0)",
                            "doAllocateMroute(1, 0, (10.0.0.3, 239.1.1.1), 10, false, 0, false, 0)",
                            "doAllocateMroute(1, 7, (10.0.0.4, 239.1.1.1), 10, false, 0, false, 0)",
                            "doAllocateMroute(1, 7, (2001:db8::1, ff0e::1), 10, false, 0, false, 0)"}));
}

TEST_F(MrouteSwitchTest, RpaIndexUnsetIsProgrammedAsZeroAndInvalidProgramsNothing) {
  auto const h = rig.addRoute(k1, nullptr, 0xFFFF);
  EXPECT_EQ(calls(), Calls{"doAllocateMroute(1, 7, (10.0.0.1, 239.1.1.1), 10, false, 0, false, 0)"});
  EXPECT_EQ(rig.sw->route(h)->rpaId(), 0);

  forget();
  EXPECT_TRUE(rig.addRoute(k2, nullptr, 0xFFFE).isNull());
  EXPECT_TRUE(calls().empty());
}

TEST_F(MrouteSwitchTest, MulticastSourceIsRefusedBeforeTheHook) {
  EXPECT_TRUE(rig.addRoute(Rig::key("224.0.0.5", "239.1.1.1"), nullptr).isNull());
  EXPECT_TRUE(calls().empty());
  EXPECT_TRUE(traced("Multicast source address for mroute"));
  EXPECT_EQ(rig.sw->routeSize(), 0u);
}

TEST_F(MrouteSwitchTest, NoRpfRouteWithAnAcceptingVlanBreaksAnInvariant) {
  auto previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  try {
    rig.sw->doAllocateRoute(k1, Bridging::VlanIdOrNone(10), false, nullptr, false, true, 0, "red");
    ADD_FAILURE() << "no assertion";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "acceptingVlanId == Bridging::VlanIdOrNone( 0 )");
  }
  Vex::fatalHandlerIs(previous);

  rig.sw->doAllocateRoute(k1, Bridging::VlanIdOrNone(), false, nullptr, true, true, 0, "red");
  EXPECT_EQ(calls(), Calls{"doAllocateMrouteNoRpf(1, 7, (10.0.0.1, 239.1.1.1), false, 0, true, 0)"});
  EXPECT_TRUE(rig.sw->route(rig.sw->handleResult())->fastdrop());
}

}  // namespace
}  // namespace FalTest
