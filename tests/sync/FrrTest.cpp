// Fast reroute: an interface going down queues the OIF sets that arrive on
// it and have backup outputs, and the time-bounded review pass rewrites each
// one in place under its own index.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/doubles/MrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = MrouteSwitchRig;
using Interface::IntfOperStatus;

class FrrTest : public ::testing::Test {
 protected:
  void start() {
    rig.start();
    forget();
  }
  void forget() {
    rig.helper->clear();
    rig.capture->clear();
  }
  bool traced(std::string const& text) const { return rig.capture->contains(text); }
  void operStatusIs(Netcore::IntfId intf, IntfOperStatus s) { rig.ethIntfStatusDir->intfStatusIs(intf)->operStatusIs(s); }
  static std::string rewrite(std::uint32_t index) { return "doAllocateMtableOifSet(1, " + std::to_string(index) + ")"; }

  // n sets arriving on Ethernet5 whose Ethernet2 output is backed up by
  // Ethernet3, each programmed by one route; made in this order, which is
  // the order the review pass visits them.
  std::vector<std::pair<MrouteLib::OifSetPtr, MrouteLib::RouteHandle>> programQueue(std::uint32_t n) {
    std::vector<std::pair<MrouteLib::OifSetPtr, MrouteLib::RouteHandle>> out;
    for (std::uint32_t i = 0; i < n; ++i) {
      std::string const own = "Ethernet1." + std::to_string(101 + i);
      auto const o = rig.oifSet(Rig::frrOutputs(eth5, {own.c_str(), "Ethernet2.100"}, Rig::eth(2), {"Ethernet3.100"}));
      std::string const group = "239.1.1." + std::to_string(1 + i);
      out.emplace_back(o, rig.program(Rig::key("10.0.0.1", group.c_str()), o));
    }
    return out;
  }

  Rig rig;
  Netcore::IntfId const eth5 = Rig::eth(5);
  // Arrives on Ethernet5; its Ethernet2 output is backed up by Ethernet3.
  MrouteLib::PortVlanSet const pvsA =
      Rig::frrOutputs(eth5, {"Ethernet1.100", "Ethernet2.100"}, Rig::eth(2), {"Ethernet3.100"});
  // The same protection, but arriving on Ethernet6.
  MrouteLib::PortVlanSet const pvsB =
      Rig::frrOutputs(Rig::eth(6), {"Ethernet1.100", "Ethernet2.100"}, Rig::eth(2), {"Ethernet3.100"});
  // Arrives on Ethernet5, protected but without backups.
  MrouteLib::PortVlanSet const pvsC = Rig::frrOutputs(eth5, {"Ethernet1.200", "Ethernet2.200"}, Rig::eth(2), {});
};

class FrrDownTest : public FrrTest, public ::testing::WithParamInterface<IntfOperStatus> {};

TEST_P(FrrDownTest, DownRewritesOnlySetsArrivingThereWithBackups) {
  start();
  auto const oA = rig.oifSet(pvsA);
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA);
  rig.program(Rig::key("10.0.0.2", "239.1.1.1"), rig.oifSet(pvsB));
  rig.program(Rig::key("10.0.0.3", "239.1.1.1"), rig.oifSet(pvsC));
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 3u);
  EXPECT_TRUE(traced(" Adding Frr oifSetIndex: 1"));
  forget();

  operStatusIs(eth5, GetParam());
  EXPECT_EQ(rig.helper->calls, Calls{rewrite(1)});
  ASSERT_EQ(rig.helper->allocatedContents.size(), 1u);
  auto const& written = rig.helper->allocatedContents[0];
  EXPECT_EQ(written, pvsA.withFrrApplied());
  EXPECT_EQ(written.portVlan(), Rig::outputs({"Ethernet1.100", "Ethernet3.100"}).portVlan());
  EXPECT_TRUE(traced("FrrSwitch from Ethernet5, frrOifs 3"));
  EXPECT_TRUE(traced("add port Ethernet3.100"));
  EXPECT_TRUE(traced(" to oifSetIndex: 1"));
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  // B arrives elsewhere and C has nothing to switch to: both stay watched.
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 2u);
  EXPECT_FALSE(rig.sw->frrMtableOifSet().contains(oA.get()));

  // The entry no longer holds A's outputs, so a new route with them gets its own.
  forget();
  rig.program(Rig::key("10.0.0.4", "239.1.1.1"), oA);
  EXPECT_EQ(rig.callsTo("doAllocateMtableOifSet"), Calls{"doAllocateMtableOifSet(1, 4294967294)"});
  EXPECT_TRUE(traced("Existing dirty oifSetIndex: 1"));
  EXPECT_EQ(rig.inUseIndex(oA), 4u);
}

INSTANTIATE_TEST_SUITE_P(Statuses, FrrDownTest,
                         ::testing::Values(Interface::intfOperDown, Interface::intfOperLowerLayerDown),
                         [](auto const& info) { return std::to_string(int(info.param)); });

class FrrOtherStatusTest : public FrrTest, public ::testing::WithParamInterface<IntfOperStatus> {};

TEST_P(FrrOtherStatusTest, OtherStatusesNeverRewrite) {
  start();
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), rig.oifSet(pvsA));
  operStatusIs(eth5, GetParam() == Interface::intfOperUp ? Interface::intfOperDormant : Interface::intfOperUp);
  forget();
  operStatusIs(eth5, GetParam());
  EXPECT_TRUE(traced("handleOperStatus"));
  EXPECT_TRUE(rig.helper->calls.empty());
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 1u);
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

INSTANTIATE_TEST_SUITE_P(Statuses, FrrOtherStatusTest,
                         ::testing::Values(Interface::intfOperUp, Interface::intfOperTesting, Interface::intfOperUnknown,
                                           Interface::intfOperDormant, Interface::intfOperNotPresent),
                         [](auto const& info) { return std::to_string(int(info.param)); });

TEST_F(FrrTest, DownWithoutFastRerouteSetsOnlyTracesAndReviews) {
  start();
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_TRUE(rig.helper->calls.empty());
  EXPECT_TRUE(traced("FrrSwitch from Ethernet5, frrOifs 0"));
  EXPECT_TRUE(traced("review FrrProcessingOifSet: none"));
}

TEST_F(FrrTest, EventsBeforeInitializationAreOnlyTraced) {
  rig.acsd->initializedIs(false);
  start();
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), rig.oifSet(pvsA));
  forget();
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_TRUE(traced("SM uninitialized, ignore event"));
  EXPECT_FALSE(traced("handleOperStatus"));
  EXPECT_FALSE(traced("FrrSwitch from"));
  EXPECT_TRUE(rig.helper->calls.empty());
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 1u);
}

TEST_F(FrrTest, ZombieSetIsLeftToExpireInsteadOfRewritten) {
  start();
  auto const oA = rig.oifSet(pvsA);
  rig.sw->doDeleteRoute(rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA));
  ASSERT_TRUE(rig.sw->inUseOifSet(oA.get())->isZombie());
  forget();
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_TRUE(rig.helper->calls.empty());
  EXPECT_TRUE(rig.sw->frrMtableOifSet().empty());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

TEST_F(FrrTest, PassOverItsBudgetStopsArmsTheClockForNowAndTheNextTurnResumes) {
  start();
  auto const queue = programQueue(5);
  std::vector<std::uint32_t> order;
  for (auto const& [o, h] : queue) order.push_back(rig.inUseIndex(o));
  EXPECT_FALSE(rig.sm->clock());
  rig.helper->costPerCall = 0.03;
  forget();

  operStatusIs(eth5, Interface::intfOperDown);
  // 0.03 s per rewrite: the fifth finds 0.12 s spent of the 0.1 s budget.
  EXPECT_EQ(rig.helper->calls, (Calls{rewrite(order[0]), rewrite(order[1]), rewrite(order[2]), rewrite(order[3])}));
  ASSERT_TRUE(rig.sm->clock());
  EXPECT_EQ(rig.sm->clock()->timeMin(), rig.now());
  ASSERT_EQ(rig.sw->frrProcessingOifSet().size(), 1u);
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().contains(queue[4].first.get()));

  forget();
  rig.am.runOnce();
  EXPECT_TRUE(traced("review FrrProcessingOifSet: " + queue[4].first->pretty()));
  EXPECT_EQ(rig.helper->calls, Calls{rewrite(order[4])});
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  EXPECT_FALSE(rig.sm->clock()->scheduled());
}

TEST_F(FrrTest, SetThatBecameAZombieWhileQueuedIsDroppedWithoutAHookCall) {
  start();
  auto const queue = programQueue(5);
  rig.helper->costPerCall = 0.03;
  operStatusIs(eth5, Interface::intfOperDown);
  ASSERT_EQ(rig.sw->frrProcessingOifSet().size(), 1u);
  rig.helper->costPerCall = 0;
  rig.sw->doDeleteRoute(queue[4].second);
  ASSERT_TRUE(rig.sw->inUseOifSet(queue[4].first.get())->isZombie());
  forget();

  rig.am.runOnce();
  EXPECT_TRUE(rig.helper->calls.empty());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

TEST_F(FrrTest, RewriteRefusedByTheHookIsTracedAndThePassGoesOn) {
  start();
  auto const queue = programQueue(2);
  rig.helper->inPlaceAllocFails = true;
  forget();
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_EQ(rig.helper->calls, (Calls{rewrite(rig.inUseIndex(queue[0].first)), rewrite(rig.inUseIndex(queue[1].first))}));
  EXPECT_EQ(rig.capture->count(": HW resource full "), 2u);
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}


TEST_F(FrrTest, ChipWhosePassBeganAtAnotherChipsPositionRewritesTheSetsItSkippedAtTheNextTurn) {
  start();
  // A second chip with the same sets, watching the same interfaces.
  auto sw2 = Fal::mrouteSwitchFactory(2, rig.acsd, rig.l3Status, rig.helper, rig.ipStatus, rig.hwStatus, rig.hw6Status);
  auto sm2 = Fal::MrouteSwitchSm::MrouteSwitchSmIs(2, rig.acsd, rig.l3Status, sw2, rig.intfVlanIdTable, rig.vrfConfig,
                                                   rig.vrf6Config, rig.hwStatus, rig.hw6Status, rig.helper, nullptr,
                                                   nullptr, rig.ethIntfStatusDir, rig.allIntfStatusDir,
                                                   rig.allIntfStatusLocalDir, false, nullptr, nullptr);
  auto const queue = programQueue(5);
  std::vector<Vex::Ptr<Fal::MtableOifSet>> chip2Sets;  // in use while held
  std::vector<std::string> chip2Rewrites;
  for (auto const& [o, h] : queue) {
    sw2->doAllocateMtableOifSet(o);
    chip2Sets.push_back(Vex::ptrCast<Fal::MtableOifSet>(sw2->oifSetResult()));
    sw2->oifSetResultIs(nullptr);
    ASSERT_TRUE(chip2Sets.back());
    chip2Rewrites.push_back("doAllocateMtableOifSet(2, " + std::to_string(chip2Sets.back()->oifSetIndex()) + ")");
  }
  rig.helper->costPerCall = 0.03;
  forget();

  // Chip 1 runs out of time before the fifth set; chip 2's pass starts there
  // and skips the four before it.
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_EQ(rig.callsTo("doAllocateMtableOifSet(2, "), Calls{chip2Rewrites[4]});
  EXPECT_EQ(sw2->frrProcessingOifSet().size(), 4u);
  ASSERT_TRUE(sm2->clock());
  EXPECT_EQ(sm2->clock()->timeMin(), rig.now());

  rig.runUntil(rig.now());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  EXPECT_TRUE(sw2->frrProcessingOifSet().empty());
  std::vector<std::string> chip2 = rig.callsTo("doAllocateMtableOifSet(2, ");
  std::sort(chip2.begin(), chip2.end());
  std::sort(chip2Rewrites.begin(), chip2Rewrites.end());
  EXPECT_EQ(chip2, chip2Rewrites);
  EXPECT_EQ(rig.callsTo("doAllocateMtableOifSet(1, ").size(), 5u);
  sm2 = nullptr;
  chip2Sets.clear();
}

// A protected set leaves (zombie), its interface fails meanwhile, and a route
// brings it back: the interface is up again, or still down.
class FrrResurrectionTest : public FrrTest, public ::testing::WithParamInterface<bool> {};

TEST_P(FrrResurrectionTest, ResurrectedZombieKeepsItsProtection) {
  bool const downAtResurrection = GetParam();
  start();
  auto const oA = rig.oifSet(pvsA);
  rig.sw->doDeleteRoute(rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA));
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_TRUE(rig.sw->frrMtableOifSet().empty());
  if (!downAtResurrection) operStatusIs(eth5, Interface::intfOperUp);
  forget();

  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA);
  EXPECT_TRUE(traced("Resurrecting zombie oifSetIndex: 0x 1"));
  EXPECT_TRUE(traced(" Adding Frr oifSetIndex: 1"));
  auto const set = rig.sw->inUseOifSet(oA.get());
  ASSERT_TRUE(set);
  EXPECT_FALSE(set->isZombie());
  if (downAtResurrection) {
    // Queued at once; the pass of the next turn rewrites it.
    EXPECT_TRUE(rig.sw->frrProcessingOifSet().contains(oA.get()));
    EXPECT_TRUE(set->dirty());
    EXPECT_TRUE(rig.callsTo("doAllocateMtableOifSet(1, 1)").empty());
    rig.am.runOnce();
  } else {
    EXPECT_TRUE(rig.sw->frrMtableOifSet().contains(oA.get()));
    EXPECT_FALSE(set->dirty());
    operStatusIs(eth5, Interface::intfOperDown);
  }
  EXPECT_EQ(rig.callsTo("doAllocateMtableOifSet(1, 1)"), Calls{rewrite(1)});
  ASSERT_FALSE(rig.helper->allocatedContents.empty());
  EXPECT_EQ(rig.helper->allocatedContents.back(), pvsA.withFrrApplied());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

INSTANTIATE_TEST_SUITE_P(InterfaceAtResurrection, FrrResurrectionTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "StillDown" : "UpAgain"; });

}  // namespace
}  // namespace FalTest
