// The asynchronous per-chip state machine: what construction does and in
// which order, the counter configuration forwarded to the hook object, the
// reactors kept in step with the interfaces and VRFs, and tear-down.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vex/Assert.h"
#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = AsyncMrouteSwitchRig;
using Routing::Multicast::Fib::CounterMode;

class AsyncMrouteSwitchSmTest : public ::testing::Test {
 protected:
  Rig rig;
};

class AsyncSmConstructionTest : public AsyncMrouteSwitchSmTest, public ::testing::WithParamInterface<bool> {};

TEST_P(AsyncSmConstructionTest, ConstructionForwardsCountersThenMakesAnAgingReviewerPerConfiguredFamily) {
  bool const withIpv6 = GetParam();
  rig.vrfConfig->counterModeIs(CounterMode::bytes);
  rig.vrfConfig->allCounterIs(true);
  rig.startSm(withIpv6);
  Calls expected{"handleMrouteCounterMode(bytes)", "handleWildcardCounter(true)",
                 "doGetAdjustedPollingInterval(10, ipv4)", "doGetAdjustedActivityPollInterval(10, ipv4)"};
  if (withIpv6) {
    expected.insert(expected.end(),
                    {"doGetAdjustedPollingInterval(10, ipv6)", "doGetAdjustedActivityPollInterval(10, ipv6)"});
  }
  EXPECT_EQ(rig.helper->calls, expected);
  EXPECT_TRUE(rig.sm->initialized());
  ASSERT_TRUE(rig.sm->routeAgingSm());
  EXPECT_EQ(rig.sm->routeAgingSm()->af(), Netcore::AddressFamily::ipv4);
  EXPECT_EQ(rig.sm->routeAgingSm()->agingClock(), rig.sm->agingClock());
  EXPECT_EQ(static_cast<bool>(rig.sm->routeAgingSm6()), withIpv6);
  if (withIpv6) {
    EXPECT_EQ(rig.sm->routeAgingSm6()->af(), Netcore::AddressFamily::ipv6);
  }
  EXPECT_EQ(rig.sm->zombieClock()->timeMin(), Vex::kNever);
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchSm::handleInitialized()"));
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchSm::handleMulticastCounterMode"));
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchSm::handleWildcardCounter"));
}

INSTANTIATE_TEST_SUITE_P(Families, AsyncSmConstructionTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "WithIpv6" : "WithoutIpv6"; });

TEST_F(AsyncMrouteSwitchSmTest, CounterConfigurationChangesAreForwardedToTheHook) {
  rig.startSm();
  rig.forget();
  rig.vrfConfig->counterModeIs(CounterMode::packetsAndBytes);
  rig.vrfConfig->allCounterIs(true);
  rig.vrfConfig->allCounterIs(false);
  rig.vrf6Config->counterModeIs(CounterMode::bytes);  // the IPv6 configuration carries no counter settings here
  EXPECT_EQ(rig.helper->calls, (Calls{"handleMrouteCounterMode(packetsAndBytes)", "handleWildcardCounter(true)",
                                      "handleWildcardCounter(false)"}));
}

TEST_F(AsyncMrouteSwitchSmTest, EveryVrfConfigurationIsWatchedForCounterRoutes) {
  rig.vrfConfig->configIs("red");
  rig.startSm();
  EXPECT_EQ(rig.sm->mfibConfigVrfSize(), 1u);
  auto const blue = rig.vrfConfig->configIs("blue");
  EXPECT_EQ(rig.sm->mfibConfigVrfSize(), 2u);
  rig.forget();
  blue->counterRouteIs(Rig::key("10.0.0.1", "239.1.1.1"), true);
  rig.vrfConfig->config("red")->counterRouteIs(Rig::key("10.0.0.2", "239.1.1.1"), true);
  EXPECT_EQ(rig.capture->count("AsyncMrouteSwitchSm::handleCounterRoute"), 2u);
  EXPECT_TRUE(rig.helper->calls.empty());
  rig.vrfConfig->configDel("blue");
  EXPECT_EQ(rig.sm->mfibConfigVrfSize(), 1u);
  blue->counterRouteIs(Rig::key("10.0.0.3", "239.1.1.1"), true);
  EXPECT_EQ(rig.capture->count("AsyncMrouteSwitchSm::handleCounterRoute"), 2u);
}

TEST_F(AsyncMrouteSwitchSmTest, InterfaceReactorsFollowTheDirectory) {
  rig.ethIntfStatusDir->intfStatusIs(Rig::eth(1));
  rig.startSm();
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 1u);
  rig.ethIntfStatusDir->intfStatusIs(Rig::eth(2));
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 2u);
  rig.ethIntfStatusDir->intfStatusDel(Rig::eth(1));
  EXPECT_EQ(rig.sm->ethIntfStatusSize(), 1u);
}

TEST_F(AsyncMrouteSwitchSmTest, NullMembersAreRefusedWithTheirMutatorsName) {
  rig.startSm();
  try {
    rig.sm->ethIntfStatusIs(nullptr);
    ADD_FAILURE() << "accepted";
  } catch (Vex::NullPointerException const& e) {
    EXPECT_STREQ(e.what(),
                 "null _ethIntfStatus parameter to mutator for Fal::Mroute::AsyncMrouteSwitchSm::ethIntfStatus not allowed\"");
  }
  try {
    rig.sm->mfibConfigVrfIs(nullptr);
    ADD_FAILURE() << "accepted";
  } catch (Vex::NullPointerException const& e) {
    EXPECT_STREQ(e.what(),
                 "null _mfibConfigVrf parameter to mutator for Fal::Mroute::AsyncMrouteSwitchSm::mfibConfigVrf not allowed\"");
  }
}

TEST_F(AsyncMrouteSwitchSmTest, TearDownFlagsTheSwitchDeletedAndFreesItsZombies) {
  rig.startSm();
  auto const h = rig.program(Rig::key("10.0.0.1", "239.1.1.1"), rig.oifSet(Rig::outputs({"Ethernet1.100"})));
  rig.unprogram(h);
  ASSERT_EQ(rig.sw->zombieOifSet().size(), 1u);
  rig.forget();
  rig.sm = nullptr;
  EXPECT_TRUE(rig.sw->deleted());
  EXPECT_EQ(rig.helper->hardwareCalls(), Calls{"doDeleteOifSet(1)"});
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchSm::doCleanup()"));
}

}  // namespace
}  // namespace FalTest
