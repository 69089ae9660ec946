// Fal::MrouteSwitchSm: initialization, polling intervals, verification,
// interface reactors, notification switching and teardown.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vex/Assert.h"
#include "tests/doubles/MrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = MrouteSwitchRig;

class MrouteSwitchSmTest : public ::testing::Test {
 protected:
  void forget() {
    rig.helper->clear();
    rig.capture->clear();
  }
  bool traced(std::string const& text) const { return rig.capture->contains(text); }

  Rig rig;
  Rig::IpGenRouteKey const k1 = Rig::key("10.0.0.1", "239.1.1.1");
  MrouteLib::OifSetPtr const oA = rig.oifSet(Rig::outputs({"Ethernet1.100", "Ethernet2.100"}));
};

TEST_F(MrouteSwitchSmTest, InitializesWhenTheAgentIsReadyAndDisarmsItsClocks) {
  rig.acsd->initializedIs(false);
  rig.vrfConfig->activityPollingIntervalIs(30);
  auto const reviewClock = rig.am.clockNew();
  reviewClock->timeMinIs(rig.now() + 5.0);
  rig.start(reviewClock);
  EXPECT_FALSE(rig.sm->initialized());
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 0);
  EXPECT_TRUE(rig.sm->zombieClock());
  EXPECT_TRUE(rig.sm->agingClock());

  rig.acsd->initializedIs(true);
  EXPECT_TRUE(rig.sm->initialized());
  EXPECT_TRUE(traced("handleInitialized, state machine # 1"));
  EXPECT_EQ(reviewClock->timeMin(), Vex::kNever);
  EXPECT_EQ(rig.sm->agingClock()->timeMin(), Vex::kNever);
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 30);
}

TEST_F(MrouteSwitchSmTest, PollingIntervalsArePublishedPerFamilyOnceInitialized) {
  rig.acsd->initializedIs(false);
  rig.start();
  rig.vrfConfig->activityPollingIntervalIs(40);
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 0);

  rig.acsd->initializedIs(true);
  rig.vrfConfig->activityPollingIntervalIs(30);
  rig.vrf6Config->activityPollingIntervalIs(20);
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 30);
  EXPECT_EQ(rig.hw6Status->pollingInterval(), 20);
  EXPECT_TRUE(traced("handlePollingInterval 30s"));
  EXPECT_TRUE(traced("handlePolling6Interval 20s"));
}

TEST_F(MrouteSwitchSmTest, NewPollingIntervalBringsAScheduledReviewForwardButLeavesAnIdleOneAlone) {
  rig.start();
  auto const& aging = rig.sm->agingClock();
  rig.vrfConfig->activityPollingIntervalIs(30);
  EXPECT_EQ(aging->timeMin(), Vex::kNever);

  aging->timeMinIs(rig.now() + 50.0);
  rig.vrfConfig->activityPollingIntervalIs(20);
  EXPECT_EQ(aging->timeMin(), rig.now());
}

TEST_F(MrouteSwitchSmTest, VerificationCoversBoundariesThenRoutesOnlyWhileRunning) {
  rig.acsd->initializedIs(false);
  rig.start();
  rig.program(k1, oA);
  rig.sw->doAllocateRoute(Rig::key("10.0.0.2", "239.1.1.1"), Bridging::VlanIdOrNone(20), true, nullptr, false, false, 0,
                          "red");
  forget();
  rig.verifyData->verifyIs(true);
  EXPECT_TRUE(rig.helper->calls.empty());

  rig.acsd->initializedIs(true);
  rig.verifyData->doRequestVerify();
  EXPECT_EQ(rig.helper->calls,
            (Calls{"mrouteSwitchInit(1, true)", "verifyMrouteBoundary(1, 7, 101)", "verifyMroute(1, 7, 100)"}));
  EXPECT_TRUE(traced("handleVerify, state machine # 1"));
  EXPECT_TRUE(traced("Verifying route (10.0.0.1, 239.1.1.1), switch # 1"));

  rig.sm->doCleanup();
  forget();
  rig.verifyData->doRequestVerify();
  EXPECT_TRUE(rig.callsTo("verify").empty());
}

TEST_F(MrouteSwitchSmTest, EthernetReactorsFollowTheDirectory) {
  rig.ethIntfStatusDir->intfStatusIs(Rig::eth(1));
  rig.start();
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 1u);
  auto const eth2 = rig.ethIntfStatusDir->intfStatusIs(Rig::eth(2));
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 2u);
  rig.ethIntfStatusDir->intfStatusDel(Rig::eth(1));
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 1u);

  eth2->operStatusIs(Interface::intfOperUp);
  EXPECT_TRUE(traced("handleOperStatus Intf: Ethernet2, operStatus: intfOperUp"));

  try {
    rig.sm->ethIntfStatusIs(nullptr);
    ADD_FAILURE() << "null accepted";
  } catch (Vex::NullPointerException const& e) {
    EXPECT_STREQ(e.what(), "null _ethIntfStatus parameter to mutator for Fal::MrouteSwitchSm::ethIntfStatus not allowed");
  }
  rig.sm->ethIntfStatusDelAll();
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 0u);
}

TEST_F(MrouteSwitchSmTest, SwitchedOffNotificationsIgnoreInterfacesUntilSwitchedOn) {
  auto const eth5 = rig.ethIntfStatusDir->intfStatusIs(Rig::eth(5));
  rig.start();
  rig.program(k1, rig.oifSet(Rig::frrOutputs(Rig::eth(5), {"Ethernet1.100", "Ethernet2.100"}, Rig::eth(2),
                                              {"Ethernet3.100"})));
  rig.sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(rig.sm->notificationActive());
  forget();
  eth5->operStatusIs(Interface::intfOperDown);
  EXPECT_FALSE(traced("handleOperStatus"));
  EXPECT_TRUE(rig.helper->calls.empty());

  rig.sm->hasNotificationActiveIs(true);
  eth5->operStatusIs(Interface::intfOperUp);
  eth5->operStatusIs(Interface::intfOperDown);
  EXPECT_EQ(rig.helper->calls, Calls{"doAllocateMtableOifSet(1, 1)"});
}

TEST_F(MrouteSwitchSmTest, DestructionMarksTheSwitchDeletedAndReleasesItsZombies) {
  rig.start();
  rig.sw->doDeleteRoute(rig.program(k1, oA));
  forget();
  rig.sm = nullptr;
  EXPECT_TRUE(rig.sw->deleted());
  EXPECT_EQ(rig.helper->calls, (Calls{"handleFreeMtableOifSet(1, 1)", "mrouteSwitchInit(1, false)"}));
  EXPECT_TRUE(traced("doCleanup, state machine # 1"));
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
}

TEST_F(MrouteSwitchSmTest, CleanupOfAStateMachineThatNeverStartedLeavesTheSwitchAlone) {
  rig.acsd->initializedIs(false);
  rig.start();
  rig.sw->doDeleteRoute(rig.program(k1, oA));
  rig.sm = nullptr;
  EXPECT_FALSE(rig.sw->deleted());
  EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);
}

TEST_F(MrouteSwitchSmTest, HitBitExchangeWithoutItsEntitiesBreaksAnInvariant) {
  auto previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  rig.sw = Fal::mrouteSwitchFactory(Rig::kSwitchId, rig.acsd, rig.l3Status, rig.helper, rig.ipStatus, rig.hwStatus,
                                    rig.hw6Status);
  try {
    Fal::MrouteSwitchSm::MrouteSwitchSmIs(Rig::kSwitchId, rig.acsd, rig.l3Status, rig.sw, rig.intfVlanIdTable,
                                          rig.vrfConfig, rig.vrf6Config, rig.hwStatus, rig.hw6Status, rig.helper, nullptr,
                                          nullptr, rig.ethIntfStatusDir, rig.allIntfStatusDir, rig.allIntfStatusLocalDir,
                                          true, nullptr, Vex::make<Fal::MrouteHitStatus>());
    ADD_FAILURE() << "no assertion";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(),
                 "!!mrouteHitConfig() && !!mrouteHitStatus() && \"MrouteHit Config/Status must not be NULL\"");
  }
  Vex::fatalHandlerIs(previous);
}

}  // namespace
}  // namespace FalTest
