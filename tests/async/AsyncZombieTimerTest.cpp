// The zombie timer of the asynchronous per-chip state machine: the clock
// follows the earliest zombie, a purge pass frees the due ones in expiry and
// multicast-id order and yields after its budget, a zombie can be purged on
// demand, and clean-up frees them all.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log/RingTrace.h"
#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = AsyncMrouteSwitchRig;
using MrouteLib::RouteHandle;

class AsyncZombieTimerTest : public ::testing::Test {
 protected:
  AsyncZombieTimerTest() {
    RingTrace::instance().clear();
    rig.startSm();
    rig.forget();
  }
  Calls deletes() const { return rig.helper->callsTo("doDeleteOifSet"); }
  Vex::Seconds timer() const { return rig.sm->zombieClock()->timeMin(); }
  // n routes, each on outputs of its own; returns their handles.
  std::vector<RouteHandle> programEach(int n) {
    std::vector<RouteHandle> handles;
    for (int i = 0; i < n; ++i) {
      std::string const out = "Ethernet1." + std::to_string(100 + i);
      std::string const group = "239.1.1." + std::to_string(1 + i);
      handles.push_back(rig.program(Rig::key("10.0.0.1", group.c_str()), rig.oifSet(Rig::outputs({out.c_str()}))));
    }
    return handles;
  }

  Rig rig;
};

TEST_F(AsyncZombieTimerTest, ZombieIsFreedByTheFirstPassAtItsExpiry) {
  RouteHandle const h = programEach(1)[0];
  Vex::Seconds const t = rig.now();
  rig.unprogram(h);
  EXPECT_EQ(timer(), t + 3.0);
  EXPECT_TRUE(rig.traced("Starting zombie timer for mcastId: 1"));
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchSm::handleZombie() key Value('Fal::Mroute::ZombieKey'"));

  rig.am.runUntil(t + 2.999);
  EXPECT_TRUE(deletes().empty());
  rig.am.runUntil(t + 3.0);
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_TRUE(rig.traced("Removing zombie with mcastId: 1"));
  EXPECT_TRUE(rig.traced("Freeing zombie oifSet"));
  EXPECT_TRUE(rig.traced("Cancelling zombie timer"));
  EXPECT_EQ(timer(), Vex::kNever);
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
}

TEST_F(AsyncZombieTimerTest, ZombiesExpiringTogetherAreFreedLowerMulticastIdFirst) {
  auto const handles = programEach(3);
  Vex::Seconds const t = rig.now();
  rig.unprogram(handles[2]);
  rig.unprogram(handles[0]);
  rig.unprogram(handles[1]);
  EXPECT_TRUE(rig.traced("Starting zombie timer for mcastId: 3"));
  EXPECT_TRUE(rig.traced("Starting zombie timer for mcastId: 1"));
  rig.am.runUntil(t + 3.0);
  EXPECT_EQ(deletes(), (Calls{"doDeleteOifSet(1)", "doDeleteOifSet(2)", "doDeleteOifSet(3)"}));
  EXPECT_EQ(rig.capture->count("AsyncMrouteSwitchSm::handleZombieClock()"), 1u);
}

TEST_F(AsyncZombieTimerTest, ClockFollowsTheEarliestRemainingZombie) {
  auto const handles = programEach(2);
  Vex::Seconds const t = rig.now();
  rig.unprogram(handles[1]);
  rig.am.runUntil(t + 1.0);
  rig.unprogram(handles[0]);
  EXPECT_EQ(timer(), t + 3.0);
  rig.am.runUntil(t + 3.0);
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(2)"});
  EXPECT_EQ(timer(), t + 4.0);
  rig.am.runUntil(t + 4.0);
  EXPECT_EQ(deletes(), (Calls{"doDeleteOifSet(2)", "doDeleteOifSet(1)"}));
}

TEST_F(AsyncZombieTimerTest, ResurrectedZombieLeavesTheTimerToTheNextOrCancelsIt) {
  auto const handles = programEach(2);
  MrouteLib::OifSetPtr const first = rig.oifSet(Rig::outputs({"Ethernet1.100"}));
  Vex::Seconds const t = rig.now();
  rig.unprogram(handles[0]);
  rig.am.runUntil(t + 1.0);
  rig.unprogram(handles[1]);
  auto back = rig.allocSet(first);
  EXPECT_EQ(back->multicastId(), 1u);
  EXPECT_EQ(timer(), t + 4.0);  // the other zombie's expiry
  auto other = rig.allocSet(rig.oifSet(Rig::outputs({"Ethernet1.101"})));
  EXPECT_EQ(timer(), Vex::kNever);
  rig.am.runUntil(t + 10.0);
  EXPECT_TRUE(deletes().empty());
}

// Seven zombies due at once; each group deletion costs `cost` seconds.
struct PurgeBudget {
  char const* name;
  Vex::Seconds cost;
  std::size_t firstPass;
};

class AsyncZombiePurgeTest : public AsyncZombieTimerTest, public ::testing::WithParamInterface<PurgeBudget> {};

TEST_P(AsyncZombiePurgeTest, PassFreesAtLeastFiveThenYieldsOnceItsBudgetIsSpent) {
  auto const handles = programEach(7);
  for (RouteHandle h : handles) rig.unprogram(h);
  rig.helper->costOf["doDeleteOifSet"] = GetParam().cost;
  rig.forget();

  rig.am.advanceBy(3.0);
  rig.am.runOnce();
  EXPECT_EQ(deletes().size(), GetParam().firstPass);
  bool const yielded = GetParam().firstPass < 7;
  EXPECT_EQ(rig.traced("Not finishing reviewing all zombies."), yielded);
  if (yielded) {
    // The timer stands at the next zombie's expiry, already due.
    EXPECT_LE(timer(), rig.now());
    EXPECT_EQ(timer(), rig.sw->zombieOifSet().first()->first.expiryTime);
    rig.am.runOnce();
  }
  EXPECT_EQ(deletes().size(), 7u);
  EXPECT_EQ(timer(), Vex::kNever);
  EXPECT_TRUE(rig.helper->violations.empty());
}

INSTANTIATE_TEST_SUITE_P(Costs, AsyncZombiePurgeTest,
                         ::testing::Values(PurgeBudget{"WellInsideTheBudget", 0.1, 7},
                                           PurgeBudget{"BudgetSpentAtTheSixth", 0.5, 6},
                                           PurgeBudget{"BudgetSpentBeforeTheFifth", 1.0, 5}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncZombieTimerTest, ForcedPurgeFreesTheEarliestZombieAtOnce) {
  rig.sm->doForcePurgeOneZombie();
  EXPECT_TRUE(rig.helper->calls.empty());

  auto const handles = programEach(2);
  Vex::Seconds const t = rig.now();
  rig.unprogram(handles[1]);
  rig.am.runUntil(t + 1.0);
  rig.unprogram(handles[0]);
  rig.forget();
  rig.sm->doForcePurgeOneZombie();
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(2)"});
  EXPECT_TRUE(rig.traced("Force removing zombie with mcastId: 2"));
  EXPECT_TRUE(RingTrace::instance().contains(" force removing zombie with mcastId 2"));
  EXPECT_EQ(timer(), t + 4.0);
}

TEST_F(AsyncZombieTimerTest, CleanUpFreesEveryZombieInOrderAndLaterFreesAreImmediate) {
  auto const handles = programEach(3);
  Vex::Seconds const t = rig.now();
  rig.unprogram(handles[1]);
  rig.am.runUntil(t + 1.0);
  rig.unprogram(handles[0]);
  rig.forget();

  rig.sm->doCleanup();
  EXPECT_TRUE(rig.sw->deleted());
  EXPECT_EQ(deletes(), (Calls{"doDeleteOifSet(2)", "doDeleteOifSet(1)"}));
  EXPECT_TRUE(rig.traced("Deleting zombie with mcastId: 2"));
  EXPECT_TRUE(rig.traced("Deleting zombie with mcastId: 1"));

  rig.unprogram(handles[2]);
  EXPECT_EQ(deletes().back(), "doDeleteOifSet(3)");
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  // The timer is left as it was; when it fires there is nothing to do.
  rig.am.runUntil(t + 5.0);
  EXPECT_TRUE(rig.traced("MrouteSwitch marked for deletion. Skipping Zombie handling"));
  EXPECT_EQ(deletes().size(), 3u);
}

TEST_F(AsyncZombieTimerTest, ZombiesWaitingBeforeTheStateMachineAreTakenUpByTheNextChange) {
  rig.sm = nullptr;  // the chip's state machine goes; the switch stays
  rig.sw->deletedIs(false);
  auto const handles = programEach(2);
  Vex::Seconds const t = rig.now();
  rig.unprogram(handles[0]);
  rig.am.runUntil(t + 5.0);
  rig.forget();

  // Due already, but the clock attached during construction fires before
  // initialization, which then disarms it.
  rig.startSm();
  EXPECT_TRUE(deletes().empty());
  EXPECT_EQ(timer(), Vex::kNever);
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchSm::handleZombieClock()"));

  rig.unprogram(handles[1]);
  EXPECT_EQ(timer(), t + 3.0);
  rig.am.runUntil(rig.now());
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_EQ(timer(), rig.now() + 3.0);
}

}  // namespace
}  // namespace FalTest
