// Zombie OIF sets: a freed set keeps its replication entry for the zombie
// lifetime, a returning route resurrects it, and the zombie clock releases
// every expired zombie in expiry order.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log/RingTrace.h"
#include "tests/doubles/MrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = MrouteSwitchRig;

class ZombieTest : public ::testing::Test {
 protected:
  ZombieTest() {
    RingTrace::instance().clear();
    rig.start();
    forget();
  }
  void forget() {
    rig.helper->clear();
    rig.capture->clear();
  }
  Calls frees() const { return rig.callsTo("handleFreeMtableOifSet"); }
  bool traced(std::string const& text) const { return rig.capture->contains(text); }
  Vex::Seconds zombieTimer() const { return rig.sm->zombieClock()->timeMin(); }

  Rig rig;
  Rig::IpGenRouteKey const k1 = Rig::key("10.0.0.1", "239.1.1.1");
  Rig::IpGenRouteKey const k2 = Rig::key("10.0.0.2", "239.1.1.1");
  Rig::IpGenRouteKey const k3 = Rig::key("10.0.0.3", "239.1.1.1");
  MrouteLib::OifSetPtr const oA = rig.oifSet(Rig::outputs({"Ethernet1.100", "Ethernet2.100"}));
  MrouteLib::OifSetPtr const oB = rig.oifSet(Rig::outputs({"Ethernet3.100"}));
  MrouteLib::OifSetPtr const oC = rig.oifSet(Rig::outputs({"Ethernet4.100"}));
};

TEST_F(ZombieTest, FreedSetIsReleasedByTheFirstClockRunAtItsExpiry) {
  auto const h = rig.program(k1, oA);
  forget();
  Vex::Seconds const t = rig.now();
  rig.sw->doDeleteRoute(h);
  EXPECT_EQ(rig.helper->calls, Calls{"doDeleteMroute(1, 7, 100)"});
  EXPECT_TRUE(traced("Adding zombie"));
  EXPECT_TRUE(traced("Setting timer for oifSetIndex: 1"));
  EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);
  EXPECT_EQ(zombieTimer(), t + 4.0);

  rig.runUntil(t + 3.9);
  EXPECT_TRUE(frees().empty());
  EXPECT_EQ(rig.inUseIndex(oA), 1u);

  rig.runUntil(t + 4.0);
  EXPECT_EQ(frees(), Calls{"handleFreeMtableOifSet(1, 1)"});
  EXPECT_TRUE(traced("Removing zombie OifSetIndex: 1"));
  EXPECT_TRUE(traced("Now freeing zombie oifSet"));
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_EQ(rig.inUseIndex(oA), Fal::invalidOifSetIndex());
  // An empty zombie collection leaves the clock disarmed.
  EXPECT_EQ(zombieTimer(), Vex::kNever);
  EXPECT_TRUE(traced("Resetting zombie timer"));
  EXPECT_TRUE(RingTrace::instance().contains(", Set timer for zombie oifSetIndex: 1"));
  EXPECT_TRUE(RingTrace::instance().contains(", removing zombie oifSetIndex: 1"));
}

TEST_F(ZombieTest, RouteReturningBeforeExpiryResurrectsTheZombieWithItsIndex) {
  rig.helper->nextOifSetIndex = 0x2a;
  Vex::Seconds const t = rig.now();
  rig.sw->doDeleteRoute(rig.program(k1, oA));
  rig.runUntil(t + 3.9);
  forget();

  rig.program(k2, oA);
  EXPECT_EQ(rig.helper->calls, (Calls{"verifyZombieUsable(42)",
                                      "doAllocateMroute(1, 7, (10.0.0.2, 239.1.1.1), 10, false, 42, false, 0)",
                                      "doSetMtableOifSet(1, 7, 101, 42)"}));
  EXPECT_TRUE(traced("Resurrecting zombie oifSetIndex: 0x 2a"));
  EXPECT_TRUE(traced("Sharing existing oifSetIndex: 42"));
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_FALSE(rig.sw->inUseOifSet(oA.get())->isZombie());
  EXPECT_EQ(zombieTimer(), Vex::kNever);

  rig.runUntil(t + 10.0);
  EXPECT_TRUE(frees().empty());
  EXPECT_EQ(rig.inUseIndex(oA), 0x2au);
}

TEST_F(ZombieTest, RefusedZombieExpiresWhileItsSuccessorKeepsSharing) {
  rig.helper->zombieUsable = false;
  Vex::Seconds const t = rig.now();
  rig.sw->doDeleteRoute(rig.program(k1, oA));
  rig.runUntil(t + 1.0);
  forget();

  rig.program(k2, oA);
  EXPECT_EQ(rig.helper->calls, (Calls{"verifyZombieUsable(1)", "mtableFull(1)", "doAllocateMtableOifSet(1, 0)",
                                      "doAllocateMroute(1, 7, (10.0.0.2, 239.1.1.1), 10, false, 2, false, 0)",
                                      "doSetMtableOifSet(1, 7, 101, 2)"}));
  EXPECT_TRUE(traced("Skip resurrecting zombie oifSetIndex: 0x 1"));
  EXPECT_EQ(rig.inUseIndex(oA), 2u);
  EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);

  rig.runUntil(t + 4.0);
  EXPECT_EQ(frees(), Calls{"handleFreeMtableOifSet(1, 1)"});
  EXPECT_EQ(rig.inUseIndex(oA), 2u);

  forget();
  rig.program(k3, oA);
  EXPECT_EQ(rig.helper->calls, (Calls{"doAllocateMroute(1, 7, (10.0.0.3, 239.1.1.1), 10, false, 2, false, 0)",
                                      "doSetMtableOifSet(1, 7, 102, 2)"}));
}

TEST_F(ZombieTest, ZombiesExpiringTogetherAreReleasedInOneRunLowerIndexFirst) {
  auto const hA = rig.program(k1, oA);
  auto const hB = rig.program(k2, oB);
  Vex::Seconds const t = rig.now();
  rig.sw->doDeleteRoute(hB);
  rig.sw->doDeleteRoute(hA);
  forget();

  rig.runUntil(t + 4.0);
  EXPECT_EQ(frees(), (Calls{"handleFreeMtableOifSet(1, 1)", "handleFreeMtableOifSet(1, 2)"}));
  EXPECT_EQ(rig.capture->count("handleZombieClock"), 1u);
}

TEST_F(ZombieTest, ClockFollowsTheEarliestRemainingZombie) {
  Vex::Seconds const t = rig.now();
  auto const hA = rig.program(k1, oA);
  auto const hB = rig.program(k2, oB);
  rig.sw->doDeleteRoute(hA);
  rig.runUntil(t + 1.0);
  rig.sw->doDeleteRoute(hB);
  EXPECT_EQ(zombieTimer(), t + 4.0);

  rig.runUntil(t + 4.0);
  EXPECT_EQ(frees(), Calls{"handleFreeMtableOifSet(1, 1)"});
  EXPECT_EQ(zombieTimer(), t + 5.0);
  rig.runUntil(t + 5.0);
  EXPECT_EQ(frees(), (Calls{"handleFreeMtableOifSet(1, 1)", "handleFreeMtableOifSet(1, 2)"}));
  EXPECT_EQ(zombieTimer(), Vex::kNever);
}

TEST_F(ZombieTest, LifetimeComesFromTheSwitch) {
  rig.sw->zombieLifetimeIs(1.5);
  Vex::Seconds const t = rig.now();
  rig.sw->doDeleteRoute(rig.program(k1, oA));
  EXPECT_EQ(rig.sw->zombieOifSet().first()->first, Fal::ZombieKey(1, t + 1.5));
  rig.runUntil(t + 1.5);
  EXPECT_EQ(frees(), Calls{"handleFreeMtableOifSet(1, 1)"});
}

TEST_F(ZombieTest, CleanupReleasesEveryZombieInExpiryOrderAndLaterFreesAreImmediate) {
  Vex::Seconds const t = rig.now();
  auto const hA = rig.program(k1, oA);
  auto const hC = rig.program(k3, oC);
  rig.sw->doDeleteRoute(rig.program(k2, oB));
  rig.runUntil(t + 1.0);
  rig.sw->doDeleteRoute(hA);
  forget();

  rig.sm->doCleanup();
  EXPECT_EQ(frees(), (Calls{"handleFreeMtableOifSet(1, 3)", "handleFreeMtableOifSet(1, 1)"}));
  EXPECT_TRUE(traced("Deleting zombie oifSetIndex: 3, iter 0"));
  EXPECT_TRUE(traced("Deleting zombie oifSetIndex: 1, iter 1"));
  EXPECT_TRUE(traced("MrouteSwitch marked for deletion - skipping zombie handling"));
  EXPECT_TRUE(rig.sw->deleted());

  // From now on a freed set never waits.
  rig.sw->doDeleteRoute(hC);
  EXPECT_EQ(frees().back(), "handleFreeMtableOifSet(1, 2)");
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
}

// A freed set that cannot be reused is released at once.
struct ImmediateRelease {
  char const* name;
  bool zombiesEnabled;
  std::uint8_t notInHw;
  char const* trace;
};

class ZombieSkipTest : public ZombieTest, public ::testing::WithParamInterface<ImmediateRelease> {};

TEST_P(ZombieSkipTest, FreedSetIsReleasedAtOnce) {
  rig.l3Status->mrouteZombieEnabledIs(GetParam().zombiesEnabled);
  auto pvs = Rig::outputs({"Ethernet5.100"});
  pvs.notInHwIs(GetParam().notInHw);
  auto const h = rig.program(k1, rig.oifSet(pvs));
  forget();
  rig.sw->doDeleteRoute(h);
  EXPECT_EQ(rig.helper->calls, (Calls{"doDeleteMroute(1, 7, 100)", "handleFreeMtableOifSet(1, 1)"}));
  EXPECT_TRUE(traced(GetParam().trace));
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_EQ(zombieTimer(), Vex::kNever);
}

INSTANTIATE_TEST_SUITE_P(Modes, ZombieSkipTest,
                         ::testing::Values(ImmediateRelease{"ZombiesDisabled", false, 0, "Zombies are not enabled"},
                                           ImmediateRelease{"NotUsedInHardware", true, MrouteLib::PortVlanSet::kNotInHw,
                                                            "OifSet not used in hw - skipping delayed deletion"}),
                         [](auto const& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace FalTest
