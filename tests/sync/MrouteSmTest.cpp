#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/vex/Assert.h"
#include "tests/doubles/MrouteSmRig.h"

namespace {

using Routing::Multicast::Fib::CounterMode;
using Strings = std::vector<std::string>;

// The text of the fatal stop that f causes, or "" when it runs through.
std::string fatalText(std::function<void()> const& f) {
  auto previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  std::string text;
  try {
    f();
  } catch (Vex::FatalError const& e) {
    text = e.what();
  }
  Vex::fatalHandlerIs(previous);
  return text;
}

class MrouteSmTest : public ::testing::Test, protected FalTest::MrouteSmRig {
 protected:
  // One VRF with multicast enabled, and hardware that routes.
  void routingWanted() {
    enabledStatus->vrfIs("red");
    hwStatus->hwRoutingIs(true);
  }
  std::string const w_ = wildcard();
};

// ---- initialization ----------------------------------------------------------

TEST_F(MrouteSmTest, InitializingWithRoutingUnwantedDisablesThenSetsUpCounters) {
  start();
  EXPECT_EQ(helper->calls, (Strings{"mrouteInit(true)", "handleMulticastRouting(false)", "doDeleteMrouteCounter(" + w_ + ")",
                                    "handleMrouteCounterMode(packets)", "doClearMrouteCounter(" + w_ + ")"}));
  EXPECT_TRUE(sm->initialized());
  EXPECT_FALSE(l3Status->multicastRoutingEnabled());
  EXPECT_EQ(l3Status->numTimesMcastRoutingEnabled(), 0U);
  EXPECT_TRUE(capture->contains("handleInitialized"));
  EXPECT_TRUE(capture->contains("Disabling Multicast Routing\n\n"));
}

TEST_F(MrouteSmTest, InitializingWithRoutingWantedEnablesWithCounterModeAndWildcard) {
  routingWanted();
  vrfConfig->counterModeIs(CounterMode::bytes);
  vrfConfig->allCounterIs(true);
  start();
  EXPECT_EQ(helper->calls,
            (Strings{"mrouteInit(true)", "handleMulticastRouting(true)", "handleMrouteCounterMode(bytes)",
                     "doCreateMrouteCounter(0, " + w_ + ")", "doCreateMrouteCounter(0, " + w_ + ")",
                     "handleMrouteCounterMode(bytes)", "doClearMrouteCounter(" + w_ + ")"}));
  EXPECT_TRUE(l3Status->multicastRoutingEnabled());
  EXPECT_EQ(l3Status->numTimesMcastRoutingEnabled(), 1U);
  EXPECT_TRUE(capture->contains("Enabling Multicast Routing\n\n"));
}

// The hook object reacting to mrouteInit(true) changes what the state machine
// watches before it is initialized: the changes call no hook themselves, and
// the enable that follows sees them.
class InitActionHelper : public FalTest::RecordingMrouteHelper {
 public:
  std::function<void()> onInit;
  void mrouteInit(bool initializing) override {
    RecordingMrouteHelper::mrouteInit(initializing);
    if (initializing && onInit) onInit();
  }
};

TEST_F(MrouteSmTest, ChangesBeforeInitializationCallNoHook) {
  auto h = Vex::make<InitActionHelper>();
  h->onInit = [this] { routingWanted(); };
  helper = h;
  start();
  EXPECT_EQ(helper->calls, (Strings{"mrouteInit(true)", "handleMulticastRouting(true)", "handleMrouteCounterMode(packets)",
                                    "doDeleteMrouteCounter(" + w_ + ")", "handleMrouteCounterMode(packets)",
                                    "doClearMrouteCounter(" + w_ + ")"}));
  EXPECT_EQ(l3Status->numTimesMcastRoutingEnabled(), 1U);
  EXPECT_FALSE(capture->contains("Nothing to do"));
}

class RoutingWantedTest : public MrouteSmTest, public ::testing::WithParamInterface<std::tuple<bool, bool>> {};

TEST_P(RoutingWantedTest, OnlyAnEnabledVrfWithHardwareRoutingEnables) {
  auto [vrfListed, hwRouting] = GetParam();
  if (vrfListed) enabledStatus->vrfIs("red");
  hwStatus->hwRoutingIs(hwRouting);
  start();
  bool const expected = vrfListed && hwRouting;
  EXPECT_EQ(l3Status->multicastRoutingEnabled(), expected);
  EXPECT_EQ(helper->callsTo("handleMulticastRouting"), Strings{expected ? "handleMulticastRouting(true)" : "handleMulticastRouting(false)"});
  EXPECT_TRUE(capture->contains(std::string("isMulticastEnabled Multicast routing is ") + (expected ? "enabled" : "disabled")));
}

INSTANTIATE_TEST_SUITE_P(VrfAndHardware, RoutingWantedTest, ::testing::Combine(::testing::Bool(), ::testing::Bool()));

// ---- enable changes ------------------------------------------------------------

TEST_F(MrouteSmTest, RoutingFollowsHardwareStatusAndEnabledVrfs) {
  start();
  helper->clear();
  enabledStatus->vrfIs("red");
  EXPECT_TRUE(helper->calls.empty());
  hwStatus->hwRoutingIs(true);
  EXPECT_EQ(helper->calls, (Strings{"handleMulticastRouting(true)", "handleMrouteCounterMode(packets)"}));
  EXPECT_TRUE(l3Status->multicastRoutingEnabled());
  helper->clear();
  enabledStatus->vrfDel("red");
  EXPECT_EQ(helper->calls, Strings{"handleMulticastRouting(false)"});
  EXPECT_FALSE(l3Status->multicastRoutingEnabled());
}

TEST_F(MrouteSmTest, UnchangedHardwareStatusChangeTracesNothingToDoAndCallsNoHook) {
  start();  // no VRF enabled: routing stays off whatever the hardware says
  helper->clear();
  hwStatus->hwRoutingIs(true);
  hwStatus->hwRoutingIs(false);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(capture->count("Nothing to do, multicast status unchanged"), 2U);
  EXPECT_EQ(l3Status->numTimesMcastRoutingEnabled(), 0U);
}

TEST_F(MrouteSmTest, EveryEnableIsCountedAndDisablingNeverDecrements) {
  enabledStatus->vrfIs("red");
  start();
  hwStatus->hwRoutingIs(true);
  hwStatus->hwRoutingIs(false);
  EXPECT_FALSE(l3Status->multicastRoutingEnabled());
  EXPECT_EQ(l3Status->numTimesMcastRoutingEnabled(), 1U);
  hwStatus->hwRoutingIs(true);
  EXPECT_EQ(l3Status->numTimesMcastRoutingEnabled(), 2U);
}

// ---- verification ----------------------------------------------------------------

TEST_F(MrouteSmTest, ChangeRequestsVerificationOnlyWhenAsked) {
  verifyData->verifyIs(true);
  enabledStatus->vrfIs("red");
  start();  // the initial disable asks too, before verification can run
  EXPECT_EQ(verifyData->verifyRequests(), 1U);
  EXPECT_TRUE(helper->callsTo("verifyMulticastRouting").empty());
  helper->clear();
  hwStatus->hwRoutingIs(true);
  EXPECT_EQ(helper->calls, (Strings{"handleMulticastRouting(true)", "handleMrouteCounterMode(packets)", "verifyMulticastRouting(true)"}));
  EXPECT_EQ(verifyData->verifyRequests(), 2U);

  verifyData->verifyIs(false);
  helper->clear();
  hwStatus->hwRoutingIs(false);
  EXPECT_EQ(helper->calls, Strings{"handleMulticastRouting(false)"});
  EXPECT_EQ(verifyData->verifyRequests(), 2U);
}

TEST_F(MrouteSmTest, VerificationMismatchStopsTheAgent) {
  routingWanted();
  start();
  helper->clear();
  EXPECT_EQ(fatalText([&] { sm->handleVerify(); }), "");
  EXPECT_EQ(helper->calls, Strings{"verifyMulticastRouting(true)"});

  l3Status->multicastRoutingEnabledIs(false);  // written behind the state machine's back
  helper->clear();
  EXPECT_EQ(fatalText([&] { sm->handleVerify(); }), "l3Status()->multicastRoutingEnabled() == isMulticastEnabled()");
  EXPECT_TRUE(helper->calls.empty());
}

// ---- refusals and tear-down --------------------------------------------------------

// With routing wanted or not; with the hardware status or without it, which
// must not stop the agent any other way first.
class MissingL3StatusTest : public MrouteSmTest, public ::testing::WithParamInterface<std::tuple<bool, bool>> {};

TEST_P(MissingL3StatusTest, StopsTheAgentWithTheAssertionText) {
  auto const [wanted, hardwareStatus] = GetParam();
  if (wanted) routingWanted();
  if (!hardwareStatus) hwStatus = nullptr;
  l3Status = nullptr;
  EXPECT_EQ(fatalText([&] { start(); }), "l3Status()");
}

INSTANTIATE_TEST_SUITE_P(Inputs, MissingL3StatusTest, ::testing::Combine(::testing::Bool(), ::testing::Bool()),
                         [](auto const& info) {
                           return std::string(std::get<0>(info.param) ? "RoutingWanted" : "RoutingUnwanted") +
                                  (std::get<1>(info.param) ? "WithHardwareStatus" : "WithoutHardwareStatus");
                         });

TEST_F(MrouteSmTest, NullVrfConfigurationIsRefused) {
  start();
  try {
    sm->mfibConfigVrfIs(nullptr);
    ADD_FAILURE() << "a null configuration was accepted";
  } catch (Vex::NullPointerException const& e) {
    EXPECT_STREQ(e.what(), "null _mfibConfigVrf parameter to mutator for Fal::MrouteSm::mfibConfigVrf not allowed\"");
  }
  EXPECT_EQ(sm->mfibConfigVrfSize(), 0U);
}

TEST_F(MrouteSmTest, DestructionTurnsRoutingOffThenStopsWatching) {
  routingWanted();
  start();
  helper->clear();
  sm = nullptr;
  EXPECT_EQ(helper->calls, (Strings{"handleMulticastRouting(false)", "mrouteInit(false)"}));
  EXPECT_FALSE(l3Status->multicastRoutingEnabled());
  EXPECT_TRUE(capture->contains("doCleanup"));

  helper->clear();
  hwStatus->hwRoutingIs(false);
  enabledStatus->vrfDel("red");
  vrfConfig->allCounterIs(true);
  vrfConfig->counterModeIs(CounterMode::bytes);
  EXPECT_TRUE(helper->calls.empty());
}

}  // namespace
