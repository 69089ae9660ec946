// The asynchronous switch's routes: handles recorded both ways, the VRF's id
// taken from the chip's route status, the failure bits, and the route table
// kept as long as some handle of the key is in use.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/log/RingTrace.h"
#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = AsyncMrouteSwitchRig;
using Fal::Mroute::InUseRouteHandleKey;
using MrouteLib::RouteHandle;

class AsyncRouteTest : public ::testing::Test {
 protected:
  AsyncRouteTest() { RingTrace::instance().clear(); }
  InUseRouteHandleKey recorded(Rig::IpGenRouteKey const& k, std::uint16_t vlan = 10, Fal::VrfId vrf = Rig::kRedVrfId) {
    return InUseRouteHandleKey(k, Bridging::VlanIdOrNone(vlan), vrf);
  }

  Rig rig;
  Rig::IpGenRouteKey const k1 = Rig::key("10.0.0.1", "239.1.1.1");
};

TEST_F(AsyncRouteTest, AllocatedRouteIsRecordedBothWaysUnderItsVrfIdThenVerified) {
  rig.sw->doAllocateRoute(k1, Bridging::VlanIdOrNone(10), false, 3, L3::VrfName("blue"), true);
  EXPECT_EQ(rig.helper->calls,
            (Calls{"doAllocateRoute((10.0.0.1, 239.1.1.1), 10, false, 3, 9, true)", "doScheduleVerify()"}));
  RouteHandle const h = rig.sw->routeHandle();
  EXPECT_EQ(h, RouteHandle(100));
  EXPECT_EQ(rig.sw->mrouteFailureReason(), 0u);
  EXPECT_EQ(rig.sw->inUseRouteHandle(recorded(k1, 10, Rig::kBlueVrfId)), h);
  EXPECT_EQ(rig.sw->inUseRouteHandleKey(h), recorded(k1, 10, Rig::kBlueVrfId));
  ASSERT_TRUE(rig.sw->route(k1));
  EXPECT_EQ(*rig.sw->route(k1), Fal::Mroute::AsyncMrouteSwitchRoute(k1, 3));
  EXPECT_TRUE(rig.traced("rh 100 -> (10.0.0.1, 239.1.1.1)"));
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitch::doAllocateRoute( (10.0.0.1, 239.1.1.1), 10, false, 3, blue, true )"));
  EXPECT_TRUE(RingTrace::instance().contains("MFGK key (10.0.0.1, 239.1.1.1) acceptingVlan 10 vrf 9 bridge 0 rh 100"));
}

struct RefusedRoute {
  char const* name;
  char const* vrf;
  bool hookRefuses;
  std::uint32_t reason;
  Calls calls;
  char const* trace;  // with its ring-trace form, when the switch writes one
  char const* ring;
};

class AsyncRouteRefusedTest : public AsyncRouteTest, public ::testing::WithParamInterface<RefusedRoute> {};

TEST_P(AsyncRouteRefusedTest, RefusedRouteLeavesTheFailureBitAndNoBookkeeping) {
  rig.addRoute(k1);  // a success first: the result attributes are rewritten by the next call
  rig.forget();
  rig.helper->routeAllocFails = GetParam().hookRefuses;
  rig.sw->doAllocateRoute(Rig::key("10.0.0.2", "239.1.1.1"), Bridging::VlanIdOrNone(10), false, 0,
                          L3::VrfName(GetParam().vrf), false);
  EXPECT_EQ(rig.helper->calls, GetParam().calls);
  EXPECT_EQ(rig.sw->mrouteFailureReason(), GetParam().reason);
  EXPECT_TRUE(rig.sw->routeHandle().isNull());
  EXPECT_EQ(rig.sw->inUseRouteHandleKeySize(), 1u);
  EXPECT_EQ(rig.sw->inUseRouteHandleSize(), 1u);
  EXPECT_EQ(rig.sw->routeSize(), 1u);
  if (*GetParam().trace) {
    EXPECT_TRUE(rig.traced(GetParam().trace));
  }
  if (*GetParam().ring) {
    EXPECT_TRUE(RingTrace::instance().contains(GetParam().ring));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Causes, AsyncRouteRefusedTest,
    ::testing::Values(RefusedRoute{"VrfWithoutStatus", "green", false, 0x1000, {}, " vrfStatus for vrf: green is not present",
                                   " no vrfStatus for vrf: green"},
                      RefusedRoute{"HookRefuses",
                                   "red",
                                   true,
                                   0x400,
                                   {"doAllocateRoute((10.0.0.2, 239.1.1.1), 10, false, 0, 7, false)"},
                                   "",
                                   ""}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncRouteTest, DeletedRouteLeavesBothIndexesThenTheHookIsCalledAndVerified) {
  RouteHandle const h = rig.addRoute(k1);
  rig.forget();
  rig.sw->doDeleteRoute(h);
  EXPECT_EQ(rig.helper->calls, (Calls{"doDeleteRoute(100)", "doScheduleVerify()"}));
  EXPECT_EQ(rig.sw->inUseRouteHandle(recorded(k1)), RouteHandle::invalid());
  EXPECT_EQ(rig.sw->inUseRouteHandleKey(h), InUseRouteHandleKey());
  EXPECT_EQ(rig.sw->route(k1), nullptr);
  EXPECT_TRUE(rig.helper->violations.empty());
}

TEST_F(AsyncRouteTest, RouteEntryStaysWhileAnotherHandleOfItsKeyIsInUse) {
  RouteHandle const red = rig.addRoute(k1, "red");
  RouteHandle const blue = rig.addRoute(k1, "blue", 20, 5);
  EXPECT_EQ(rig.sw->routeSize(), 1u);
  EXPECT_EQ(rig.sw->route(k1)->rpaId, 5u);  // the latest programming's index
  rig.sw->doDeleteRoute(red);
  ASSERT_TRUE(rig.sw->route(k1));
  EXPECT_EQ(rig.sw->inUseRouteHandle(recorded(k1, 20, Rig::kBlueVrfId)), blue);
  rig.sw->doDeleteRoute(blue);
  EXPECT_EQ(rig.sw->route(k1), nullptr);
  EXPECT_EQ(rig.sw->routeSize(), 0u);
  EXPECT_EQ(rig.sw->inUseRouteHandleSize(), 0u);
}

TEST_F(AsyncRouteTest, OlderHandleOfTheSameRouteGoingLeavesTheNewerOneFindable) {
  RouteHandle const older = rig.addRoute(k1);
  RouteHandle const newer = rig.addRoute(k1);
  rig.sw->doDeleteRoute(older);
  EXPECT_EQ(rig.sw->inUseRouteHandle(recorded(k1)), newer);
  EXPECT_EQ(rig.sw->inUseRouteHandle(k1, Bridging::VlanIdOrNone(10), Rig::kRedVrfId), newer);
  EXPECT_EQ(rig.sw->inUseRouteHandleKey(newer), recorded(k1));
  EXPECT_TRUE(rig.sw->route(k1));
}

// Handles a chip hands out far apart are walked in handle order all the same
// (the simulator's check reports in that order); even the key that names no
// route is recorded and forgotten like any other.
TEST_F(AsyncRouteTest, HandlesAreWalkedInOrderAndTheKeyThatNamesNoRouteIsKeptToo) {
  std::vector<RouteHandle> made;
  for (std::uint32_t next : {900000u, 7u, 70000u, 3000000u, 300u, 12345u}) {
    rig.helper->nextRouteHandle = next;
    std::string const source = "10.0.0." + std::to_string(made.size() + 1);
    made.push_back(rig.addRoute(Rig::key(source.c_str(), "239.1.1.1")));
  }
  rig.routeStatus->vrfStatusIs("zero", 0);
  rig.helper->nextRouteHandle = 50;
  RouteHandle const none = rig.addRoute(Rig::IpGenRouteKey(), "zero", 0);
  ASSERT_EQ(none, RouteHandle(50));
  made.push_back(none);
  EXPECT_EQ(rig.sw->inUseRouteHandleKey(none), InUseRouteHandleKey());

  std::vector<RouteHandle> walked;
  rig.sw->forEachInUseRouteHandleKey([&](RouteHandle h, InUseRouteHandleKey const& key) {
    walked.push_back(h);
    EXPECT_EQ(key, rig.sw->inUseRouteHandleKey(h));
  });
  std::sort(made.begin(), made.end());
  EXPECT_EQ(walked, made);

  for (RouteHandle h : made) rig.sw->doDeleteRoute(h);
  EXPECT_EQ(rig.sw->inUseRouteHandleKeySize(), 0u);
  EXPECT_EQ(rig.sw->inUseRouteHandleSize(), 0u);
  EXPECT_EQ(rig.sw->routeSize(), 0u);
}

TEST_F(AsyncRouteTest, GroupRangeRouteIsRecordedUnderTheWildcardKeyAndItsOwnRouteEntry) {
  auto const range = Rig::key("0.0.0.0/0", "239.0.0.0/8");
  RouteHandle const h = rig.addRoute(range);
  InUseRouteHandleKey const wildcard = recorded(Rig::IpGenRouteKey::wildcard());
  EXPECT_EQ(rig.sw->inUseRouteHandleKey(h), wildcard);
  EXPECT_EQ(rig.sw->inUseRouteHandle(wildcard), h);
  EXPECT_EQ(Fal::Mroute::AsyncMrouteSwitch::inUseRouteHandleKeyOf(range, Bridging::VlanIdOrNone(10), Rig::kRedVrfId),
            wildcard);
  // The aging review asks by the route's own key: the range finds the wildcard's handle.
  EXPECT_EQ(rig.sw->inUseRouteHandle(range, Bridging::VlanIdOrNone(10), Rig::kRedVrfId), h);
  EXPECT_EQ(rig.sw->inUseRouteHandle(Rig::key("0.0.0.0/0", "238.0.0.0/8"), Bridging::VlanIdOrNone(10), Rig::kRedVrfId),
            h);
  EXPECT_EQ(rig.sw->inUseRouteHandle(range, Bridging::VlanIdOrNone(20), Rig::kRedVrfId), RouteHandle::invalid());
  // One group is recorded as itself, IPv6 ranges too.
  auto const v6Range = Rig::key("::/0", "ff3e::/16");
  EXPECT_EQ(Fal::Mroute::AsyncMrouteSwitch::inUseRouteHandleKeyOf(v6Range, Bridging::VlanIdOrNone(10), 7).routeKey,
            v6Range);
  ASSERT_TRUE(rig.sw->route(range));
  EXPECT_EQ(rig.sw->route(Rig::IpGenRouteKey::wildcard()), nullptr);
  rig.sw->doDeleteRoute(h);
  EXPECT_EQ(rig.sw->route(range), nullptr);
  EXPECT_EQ(rig.sw->inUseRouteHandleSize(), 0u);
}

TEST_F(AsyncRouteTest, IngressQuestionAndFailureReasonsGoToTheHookWithTheirKind) {
  rig.helper->noIngressTypes = {Routing::Multicast::Fib::RouteKeyType::ipv4StarG};
  EXPECT_FALSE(rig.sw->needIngressProgramming(Routing::Multicast::Fib::RouteKeyType::ipv4StarG));
  EXPECT_TRUE(rig.sw->needIngressProgramming(Routing::Multicast::Fib::RouteKeyType::ipv4SG));
  EXPECT_TRUE(rig.traced("needIngressProgramming ipv4StarG"));

  auto const h = rig.program(k1, rig.oifSet(Rig::outputs({"Ethernet1.100"})));
  auto const group = rig.helper->groupXact(1);
  auto const ingress = rig.helper->ingressXact(h);
  group->failedIs(0x20);
  ingress->failedIs(0x40);
  rig.forget();
  EXPECT_EQ(rig.sw->doGetOifSetXactFailureReason(group), 0x20u);
  EXPECT_EQ(rig.sw->doGetIngressXactFailureReason(ingress), 0x40u);
  EXPECT_EQ(rig.helper->calls,
            (Calls{"doGetXactFailureReason(group 1, oifSet)", "doGetXactFailureReason(route 100, ingress)"}));
}

}  // namespace
}  // namespace FalTest
