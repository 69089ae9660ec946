// Fast reroute on the asynchronous flavour: an interface going down queues
// the groups of the FRR sets arriving on it, and the review pass rewrites each
// in place under its own multicast id, in slices of at most 0.1 s that
// resume at a position shared by every chip.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/vex/Assert.h"
#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = AsyncMrouteSwitchRig;
using Interface::IntfOperStatus;
using MrouteLib::RouteHandle;

class AsyncFrrTest : public ::testing::Test {
 protected:
  void start() {
    rig.startSm();
    rig.forget();
  }
  void operStatusIs(Netcore::IntfId intf, IntfOperStatus s) { rig.ethIntfStatusDir->intfStatusIs(intf)->operStatusIs(s); }
  Calls rewrites() const { return rig.helper->callsTo("doUpdateMulticastGroupInPlace"); }
  static std::string rewrite(char const* outputs, std::uint32_t mcastId) {
    return std::string("doUpdateMulticastGroupInPlace(") + outputs + ", " + std::to_string(mcastId) + ")";
  }

  // n sets arriving on Ethernet5 whose Ethernet2 output is backed up by
  // Ethernet3, each programmed by one route; made in this order, which is
  // the order the review pass visits them.
  std::vector<std::pair<MrouteLib::OifSetPtr, RouteHandle>> programQueue(std::uint32_t n) {
    std::vector<std::pair<MrouteLib::OifSetPtr, RouteHandle>> out;
    for (std::uint32_t i = 0; i < n; ++i) {
      std::string const own = "Ethernet1." + std::to_string(101 + i);
      auto const o = rig.oifSet(Rig::frrOutputs(eth5, {own.c_str(), "Ethernet2.100"}, Rig::eth(2), {"Ethernet3.100"}));
      std::string const group = "239.1.1." + std::to_string(1 + i);
      out.emplace_back(o, rig.program(Rig::key("10.0.0.1", group.c_str()), o));
    }
    return out;
  }
  static std::string queuedRewrite(std::uint32_t i) {
    return "doUpdateMulticastGroupInPlace([Ethernet1." + std::to_string(101 + i) + " Ethernet3.100], " +
           std::to_string(1 + i) + ")";
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

class AsyncFrrDownTest : public AsyncFrrTest, public ::testing::WithParamInterface<IntfOperStatus> {};

TEST_P(AsyncFrrDownTest, DownRewritesInPlaceOnlyTheGroupsArrivingThereWithBackups) {
  start();
  auto const oA = rig.oifSet(pvsA);
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA);
  rig.program(Rig::key("10.0.0.2", "239.1.1.1"), rig.oifSet(pvsB));
  rig.program(Rig::key("10.0.0.3", "239.1.1.1"), rig.oifSet(pvsC));
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 3u);
  rig.forget();

  operStatusIs(eth5, GetParam());
  EXPECT_EQ(rig.helper->hardwareCalls(), Calls{rewrite("[Ethernet1.100 Ethernet3.100]", 1)});
  EXPECT_EQ(rig.helper->groups[1], pvsA.withFrrApplied());
  EXPECT_TRUE(rig.traced("FrrSwitch from Ethernet5, frrOifs 3"));
  EXPECT_TRUE(rig.traced("portVlanFrrs() == 0"));
  EXPECT_TRUE(rig.traced(" skip frrMtableOif "));
  EXPECT_TRUE(rig.traced("add port Ethernet3.100"));
  EXPECT_TRUE(rig.traced(" to mcastId: 1"));
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  // B arrives elsewhere and C has nothing to switch to: both stay watched.
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 2u);
  EXPECT_FALSE(rig.sw->frrMtableOifSet().contains(oA.get()));
  EXPECT_TRUE(rig.sw->inUseOifSet(oA.get())->dirty());

  // The group no longer holds A's outputs, so a new route with them gets its own.
  rig.forget();
  rig.program(Rig::key("10.0.0.4", "239.1.1.1"), oA);
  EXPECT_EQ(rig.helper->callsTo("doAllocateSharable").size(), 1u);
  EXPECT_EQ(rig.inUseId(oA), 4u);
}

INSTANTIATE_TEST_SUITE_P(Statuses, AsyncFrrDownTest,
                         ::testing::Values(Interface::intfOperDown, Interface::intfOperLowerLayerDown),
                         [](auto const& info) { return std::to_string(int(info.param)); });

class AsyncFrrOtherStatusTest : public AsyncFrrTest, public ::testing::WithParamInterface<IntfOperStatus> {};

TEST_P(AsyncFrrOtherStatusTest, OtherStatusesNeverRewrite) {
  start();
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), rig.oifSet(pvsA));
  rig.forget();
  operStatusIs(eth5, GetParam());
  EXPECT_TRUE(rig.traced("Intf: Ethernet5, operStatus: "));
  EXPECT_TRUE(rig.helper->calls.empty());
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Statuses, AsyncFrrOtherStatusTest,
                         ::testing::Values(Interface::intfOperUp, Interface::intfOperTesting, Interface::intfOperDormant,
                                           Interface::intfOperNotPresent),
                         [](auto const& info) { return std::to_string(int(info.param)); });

TEST_F(AsyncFrrTest, InterfaceEventBeforeInitializationIsOnlyTraced) {
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), rig.oifSet(pvsA));
  // The interface fails while the state machine is being made (here, while
  // its first aging reviewer asks the hook).
  rig.ethIntfStatusDir->intfStatusIs(eth5);
  rig.helper->onCall = [this](std::string const& name) {
    if (name == "doGetAdjustedActivityPollInterval") operStatusIs(eth5, Interface::intfOperDown);
  };
  rig.capture->clear();
  rig.startSm();
  rig.helper->onCall = nullptr;
  EXPECT_TRUE(rig.traced("SM uninitialized, ignore event"));
  EXPECT_FALSE(rig.traced("FrrSwitch from"));
  EXPECT_TRUE(rewrites().empty());
  EXPECT_EQ(rig.sw->frrMtableOifSet().size(), 1u);
  EXPECT_TRUE(rig.sm->initialized());
}

TEST_F(AsyncFrrTest, ZombieGroupIsLeftToExpireInsteadOfRewritten) {
  start();
  auto const oA = rig.oifSet(pvsA);
  rig.unprogram(rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA));
  rig.forget();
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_TRUE(rig.traced("zombie"));
  EXPECT_TRUE(rewrites().empty());
  EXPECT_TRUE(rig.sw->frrMtableOifSet().empty());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

// Five queued groups, each rewrite costing `cost`: the pass stops when its
// 0.1 s are spent, at or past the deadline, and the next turn resumes there.
struct FrrBudget {
  char const* name;
  Vex::Seconds cost;
  std::uint32_t firstPass;
};

class AsyncFrrBudgetTest : public AsyncFrrTest, public ::testing::WithParamInterface<FrrBudget> {};

TEST_P(AsyncFrrBudgetTest, PassStopsAtItsDeadlineAndTheNextTurnResumesWhereItStopped) {
  start();
  auto const queue = programQueue(5);
  rig.helper->costOf["doUpdateMulticastGroupInPlace"] = GetParam().cost;
  rig.forget();

  operStatusIs(eth5, Interface::intfOperDown);
  Calls firstPass;
  for (std::uint32_t i = 0; i < GetParam().firstPass; ++i) firstPass.push_back(queuedRewrite(i));
  EXPECT_EQ(rewrites(), firstPass);
  EXPECT_EQ(rig.sw->frrProcessingOifSet().size(), 5 - GetParam().firstPass);
  if (GetParam().firstPass == 5) {
    EXPECT_FALSE(rig.sm->clock());
    return;
  }
  ASSERT_TRUE(rig.sm->clock());
  EXPECT_EQ(rig.sm->clock()->timeMin(), rig.now());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().contains(queue[GetParam().firstPass].first.get()));

  rig.forget();
  rig.am.runOnce();
  Calls rest;
  for (std::uint32_t i = GetParam().firstPass; i < 5; ++i) rest.push_back(queuedRewrite(i));
  EXPECT_EQ(rewrites(), rest);
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  EXPECT_FALSE(rig.sm->clock()->scheduled());
}

INSTANTIATE_TEST_SUITE_P(Costs, AsyncFrrBudgetTest,
                         ::testing::Values(FrrBudget{"AllInsideTheBudget", 0.02, 5},
                                           FrrBudget{"DeadlineReachedExactly", 0.025, 4},
                                           FrrBudget{"DeadlinePassed", 0.03, 4}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncFrrTest, QueuedGroupThatBecameAZombieIsDroppedWithoutAHookCall) {
  start();
  auto const queue = programQueue(5);
  rig.helper->costOf["doUpdateMulticastGroupInPlace"] = 0.03;
  operStatusIs(eth5, Interface::intfOperDown);
  ASSERT_EQ(rig.sw->frrProcessingOifSet().size(), 1u);
  rig.helper->costOf.clear();
  rig.unprogram(queue[4].second);
  rig.forget();

  rig.am.runOnce();
  EXPECT_TRUE(rewrites().empty());
  EXPECT_TRUE(rig.traced("zombie frrOifSet becomes zombie, mcastId: 5"));
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);  // left to expire
}

TEST_F(AsyncFrrTest, QueuedGroupFreedDuringCleanUpIsDroppedWithoutAHookCall) {
  start();
  auto const queue = programQueue(3);
  rig.helper->costOf["doUpdateMulticastGroupInPlace"] = 0.06;
  operStatusIs(eth5, Interface::intfOperDown);
  ASSERT_EQ(rig.sw->frrProcessingOifSet().size(), 1u);
  rig.helper->costOf.clear();
  // Clean-up frees without bookkeeping: the queue keeps the set, its record is gone.
  rig.sw->deletedIs(true);
  rig.unprogram(queue[2].second);
  ASSERT_EQ(rig.sw->frrProcessingOifSet().size(), 1u);
  rig.forget();

  rig.am.runOnce();
  EXPECT_TRUE(rewrites().empty());
  EXPECT_TRUE(rig.traced("oif not in inUseOifSet: frrOifSet not in use "));
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

TEST_F(AsyncFrrTest, QueuedGroupWhoseIdLeftTheTableStopsTheAgent) {
  start();
  rig.helper->fixedTypes = {Routing::Multicast::Fib::RouteKeyType::ipv4StarG};
  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), rig.oifSet(pvsA), Routing::Multicast::Fib::RouteKeyType::ipv4StarG, 40);
  // A newer record takes the fixed id and is dropped unused: its group, and
  // the id's entry, go with it.
  rig.allocSet(rig.oifSet(pvsB), Routing::Multicast::Fib::RouteKeyType::ipv4StarG, 40);
  ASSERT_EQ(rig.sw->mcastIdToOifSet(40), nullptr);
  auto const previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  rig.sw->frrProcessingOifSetIs(rig.oifSet(pvsA).get());
  try {
    rig.sm->handleClock();
    ADD_FAILURE() << "the pass went on";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "mgroup");
  }
  Vex::fatalHandlerIs(previous);
  EXPECT_TRUE(rewrites().empty());
  rig.sw->frrProcessingOifSetDel(rig.oifSet(pvsA).get());
}

TEST_F(AsyncFrrTest, ChipWhosePassBeganAtAnotherChipsPositionRewritesTheSetsItSkippedAtTheNextTurn) {
  start();
  // A second chip with the same sets, on its own hook object and ids.
  auto helper2 = Vex::make<RecordingAsyncMrouteHelper>("chip2");
  helper2->nextMcastId = 101;
  auto sw2 = Fal::Mroute::asyncMrouteSwitchFactory("chip2", rig.routeStatus, helper2);
  auto sm2 = Vex::make<Fal::Mroute::AsyncMrouteSwitchSm>(sw2, rig.intfVlanIdTable, rig.vrfConfig, nullptr, rig.hwStatus,
                                                         nullptr, helper2, nullptr, nullptr, nullptr,
                                                         rig.ethIntfStatusDir, rig.allIntfStatusDir,
                                                         rig.allIntfStatusLocalDir);
  auto const queue = programQueue(5);
  std::vector<Rig::SetPtr> chip2Sets;  // in use while held
  for (auto const& [o, h] : queue) {
    sw2->doAllocateMtableOifSet(Rig::info(), o, nullptr, MrouteLib::AsyncSwitchChip::kInvalidMulticastId, true);
    chip2Sets.push_back(Vex::ptrCast<Fal::Mroute::AsyncMtableOifSet>(sw2->oifSetResult()));
    sw2->oifSetResultIs(nullptr);
  }
  rig.helper->costOf["doUpdateMulticastGroupInPlace"] = 0.03;
  helper2->clear();

  // Chip 1's reactor runs first: it runs out of time before the fifth set;
  // chip 2's pass starts there and skips the four before it.
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_EQ(helper2->callsTo("doUpdateMulticastGroupInPlace"),
            Calls{"doUpdateMulticastGroupInPlace([Ethernet1.105 Ethernet3.100], 105)"});
  EXPECT_EQ(sw2->frrProcessingOifSet().size(), 4u);
  ASSERT_TRUE(sm2->clock());
  EXPECT_EQ(sm2->clock()->timeMin(), rig.now());

  rig.am.runUntil(rig.now());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
  EXPECT_TRUE(sw2->frrProcessingOifSet().empty());
  Calls chip2 = helper2->callsTo("doUpdateMulticastGroupInPlace");
  std::sort(chip2.begin(), chip2.end());
  EXPECT_EQ(chip2, (Calls{"doUpdateMulticastGroupInPlace([Ethernet1.101 Ethernet3.100], 101)",
                          "doUpdateMulticastGroupInPlace([Ethernet1.102 Ethernet3.100], 102)",
                          "doUpdateMulticastGroupInPlace([Ethernet1.103 Ethernet3.100], 103)",
                          "doUpdateMulticastGroupInPlace([Ethernet1.104 Ethernet3.100], 104)",
                          "doUpdateMulticastGroupInPlace([Ethernet1.105 Ethernet3.100], 105)"}));
  EXPECT_EQ(rewrites().size(), 5u);
  sm2 = nullptr;
  chip2Sets.clear();
}

// A protected set leaves (zombie), its interface fails meanwhile, and a route
// brings it back: the interface is up again, or still down.
class AsyncFrrResurrectionTest : public AsyncFrrTest, public ::testing::WithParamInterface<bool> {};

TEST_P(AsyncFrrResurrectionTest, ResurrectedZombieKeepsItsProtection) {
  bool const downAtResurrection = GetParam();
  start();
  auto const oA = rig.oifSet(pvsA);
  rig.unprogram(rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA));
  operStatusIs(eth5, Interface::intfOperDown);
  EXPECT_TRUE(rig.sw->frrMtableOifSet().empty());
  if (!downAtResurrection) operStatusIs(eth5, Interface::intfOperUp);
  rig.forget();

  rig.program(Rig::key("10.0.0.1", "239.1.1.1"), oA);
  EXPECT_TRUE(rig.traced("Resurrecting zombie mtableOifSet"));
  EXPECT_TRUE(rig.traced(" Adding Frr oifSetIndex: 1"));
  auto* const set = rig.sw->inUseOifSet(oA.get());
  ASSERT_TRUE(set);
  EXPECT_FALSE(set->isZombie());
  if (downAtResurrection) {
    // Queued at once; the pass of the next turn rewrites it.
    EXPECT_TRUE(rig.sw->frrProcessingOifSet().contains(oA.get()));
    EXPECT_TRUE(set->dirty());
    EXPECT_TRUE(rewrites().empty());
    rig.am.runOnce();
  } else {
    EXPECT_TRUE(rig.sw->frrMtableOifSet().contains(oA.get()));
    EXPECT_FALSE(set->dirty());
    operStatusIs(eth5, Interface::intfOperDown);
  }
  EXPECT_EQ(rewrites(), Calls{rewrite("[Ethernet1.100 Ethernet3.100]", 1)});
  EXPECT_EQ(rig.helper->groups[1], pvsA.withFrrApplied());
  EXPECT_TRUE(rig.sw->frrProcessingOifSet().empty());
}

INSTANTIATE_TEST_SUITE_P(InterfaceAtResurrection, AsyncFrrResurrectionTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "StillDown" : "UpAgain"; });

}  // namespace
}  // namespace FalTest
