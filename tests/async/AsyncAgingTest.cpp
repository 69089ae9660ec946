// Route aging of the asynchronous flavour: the review is armed by the first
// route, walks the hardware status in slices of 256 routes 0.2 s apart,
// resumes at its own bookmarks, stamps only newer last-access times, and
// publishes the activity polling interval the platform supports.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/log/LogSink.h"
#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Rig = AsyncMrouteSwitchRig;
using Routing::Multicast::Fib::Hardware::RouteStatus;
using AgingSm = Fal::Mroute::AsyncMrouteSwitchRouteAgingSm;
using MrouteLib::RouteHandle;

class AsyncAgingTest : public ::testing::Test {
 protected:
  AsyncAgingTest() {
    rig.intfVlanIdTable->mappingIs(vlan10, Bridging::VlanId(10));
    rig.intfVlanIdTable->mappingIs(vlan20, Bridging::VlanId(20));
    rig.routeStatus->vrfStatusIs("green", 11);
  }
  void start() {
    rig.startSm(false);
    rig.forget();
  }
  // A route of the hardware status accepting on `accepting`, programmed on
  // the switch with that interface's VLAN and last hit at `accessed`.
  Vex::Ptr<RouteStatus> route(char const* vrf, Rig::IpGenRouteKey const& k, Vex::Seconds accessed,
                              Netcore::IntfId accepting, Memtab::Multicast::Fib::RpaIndex rpaId = 0) {
    auto rs = rig.hwStatus->vrfStatusIs(vrf)->routeIs(k);
    rs->acceptingIntfIdIs(accepting);
    RouteHandle const h = rig.addRoute(k, vrf, rig.intfVlanIdTable->intfIdToVlanId(accepting).value(), rpaId);
    rig.helper->lastAccessed[h] = accessed;
    keyOf[h] = k;
    return rs;
  }
  Vex::Ptr<RouteStatus> route(char const* vrf, Rig::IpGenRouteKey const& k, Vex::Seconds accessed = 50) {
    return route(vrf, k, accessed, vlan10);
  }
  // n routes in vrf (groups 239.<vrfIndex>.x.y).
  void routes(char const* vrf, int vrfIndex, int n) {
    for (int i = 0; i < n; ++i) {
      std::string const group =
          "239." + std::to_string(vrfIndex) + "." + std::to_string(i / 250) + "." + std::to_string(1 + i % 250);
      route(vrf, Rig::key("10.0.0.1", group.c_str()));
    }
  }
  Vex::Seconds reviewAt() const { return rig.sm->agingClock()->timeMin(); }
  AgingSm& aging() const { return *rig.sm->routeAgingSm(); }
  // Runs the slice due next; returns the routes it asked about, in order.
  std::vector<Rig::IpGenRouteKey> slice() {
    rig.forget();
    rig.am.runUntil(reviewAt());
    std::vector<Rig::IpGenRouteKey> asked;
    for (auto const& c : rig.helper->callsTo("routeLastAccessedTime(")) {
      asked.push_back(keyOf.at(RouteHandle(std::stoul(c.substr(c.find('(') + 1)))));
    }
    return asked;
  }
  // The routes of vrf in the order a review visits them.
  std::vector<Rig::IpGenRouteKey> walkOrder(char const* vrf) const {
    std::vector<Rig::IpGenRouteKey> keys;
    for (auto it = rig.hwStatus->vrfStatus(vrf)->routeIterator(); !it.done(); ++it) keys.push_back(it.key());
    return keys;
  }

  Rig rig;
  Netcore::IntfId const vlan10 = Netcore::IntfId::vlan(10);
  Netcore::IntfId const vlan20 = Netcore::IntfId::vlan(20);
  std::map<RouteHandle, Rig::IpGenRouteKey> keyOf;
};

TEST_F(AsyncAgingTest, FirstRouteArmsTheReviewOnceAtTheAdjustedPollingInterval) {
  rig.helper->minPollingInterval = 15;
  start();
  EXPECT_EQ(reviewAt(), Vex::kNever);
  Vex::Seconds const t = rig.now();
  route("red", Rig::key("10.0.0.1", "239.1.1.1"));
  EXPECT_EQ(reviewAt(), t + 15);
  EXPECT_TRUE(rig.traced("Enabling aging review in: 15 s"));
  rig.am.advanceBy(1.0);
  route("red", Rig::key("10.0.0.2", "239.1.1.1"));
  EXPECT_EQ(reviewAt(), t + 15);
}

TEST_F(AsyncAgingTest, ReviewStampsOnlyNewerTimesCountsThemAndWaitsThePollingInterval) {
  start();
  auto const hit = route("red", Rig::key("10.0.0.1", "239.1.1.1"), 105);
  auto const older = route("red", Rig::key("10.0.0.2", "239.1.1.1"), 150);
  older->lastPollTimeIs(200);
  auto const idle = route("red", Rig::key("10.0.0.3", "239.1.1.1"), 0);
  // In the hardware status, but not programmed on this chip.
  auto const elsewhere = rig.hwStatus->vrfStatusIs("red")->routeIs(Rig::key("10.0.0.4", "239.1.1.1"));
  elsewhere->acceptingIntfIdIs(vlan10);

  EXPECT_EQ(slice().size(), 3u);
  EXPECT_EQ(hit->lastPollTime(), 105);
  EXPECT_EQ(older->lastPollTime(), 200);
  EXPECT_EQ(idle->lastPollTime(), 0);
  EXPECT_EQ(elsewhere->lastPollTime(), 0);
  EXPECT_TRUE(rig.traced("RouteHandle not found for the route: (10.0.0.4, 239.1.1.1), vlan: 10"));
  EXPECT_TRUE(rig.traced("last accessed time for routeHandle 100 is 105"));
  EXPECT_TRUE(rig.traced(": Review completed"));
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchRouteAgingSm::doRouteAgingReview() AddressFamily : ipv4 hitCount: 1"));
  EXPECT_EQ(aging().hitCount(), 0u);
  EXPECT_EQ(reviewAt(), rig.now() + 10);

  // Nothing newer: the next review stamps nothing.
  slice();
  EXPECT_TRUE(rig.traced("AddressFamily : ipv4 hitCount: 0"));
  EXPECT_EQ(hit->lastPollTime(), 105);
}

TEST_F(AsyncAgingTest, SlicesOfExactly256RoutesRunAcrossVrfsUntilEveryRouteIsReviewedOnce) {
  start();
  routes("red", 1, 200);
  routes("blue", 2, 200);
  routes("green", 3, 200);
  std::map<Rig::IpGenRouteKey, int> seen;
  std::vector<std::size_t> sizes;
  Vex::Seconds sliceStart = 0;
  for (int i = 0; i < 3; ++i) {
    auto const asked = slice();
    sliceStart = rig.now();
    sizes.push_back(asked.size());
    for (auto const& k : asked) ++seen[k];
    if (i < 2) {
      EXPECT_EQ(reviewAt(), sliceStart + 0.2);
      EXPECT_FALSE(aging().vrfBookmark().stringValue().empty());
      EXPECT_FALSE(aging().bookmark().isNull());
      EXPECT_TRUE(rig.traced(": 256 routes reviewed. routeBookMark = "));
    }
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{256, 256, 88}));
  EXPECT_EQ(seen.size(), 600u);
  for (auto const& [k, n] : seen) EXPECT_EQ(n, 1) << k;
  EXPECT_TRUE(aging().vrfBookmark().stringValue().empty());
  EXPECT_EQ(reviewAt(), sliceStart + 10);
  EXPECT_TRUE(rig.traced("hitCount: 600"));
}

TEST_F(AsyncAgingTest, BookmarkedRouteDeletedBetweenSlicesResumesAtItsSuccessor) {
  start();
  routes("red", 1, 300);
  std::vector<Rig::IpGenRouteKey> const order = walkOrder("red");
  auto const first = slice();
  ASSERT_EQ(first.size(), 256u);
  EXPECT_EQ(aging().bookmark(), order[256]);
  rig.hwStatus->vrfStatus("red")->routeDel(order[256]);

  auto const second = slice();
  std::vector<Rig::IpGenRouteKey> const expected(order.begin() + 257, order.end());
  EXPECT_EQ(second, expected);
  EXPECT_TRUE(rig.traced("Using routeBookmark " + order[256].pretty()));
}

TEST_F(AsyncAgingTest, BookmarkedVrfDeletedBetweenSlicesRestartsAtTheFirstVrf) {
  start();
  routes("red", 1, 200);
  routes("blue", 2, 200);
  auto const vrfs = rig.hwStatus->vrfStatusIterator();
  std::string const firstVrf = vrfs.key().stringValue();
  std::string const secondVrf = firstVrf == "red" ? "blue" : "red";
  ASSERT_EQ(slice().size(), 256u);
  EXPECT_EQ(aging().vrfBookmark(), L3::VrfName(secondVrf));
  rig.hwStatus->vrfStatusDel(L3::VrfName(secondVrf));

  auto const second = slice();
  EXPECT_EQ(second, walkOrder(firstVrf.c_str()));
  EXPECT_TRUE(rig.traced(": vrf not present in mfibHwStatus: " + secondVrf));
  EXPECT_TRUE(rig.traced(": Resetting routeBookmark"));
  EXPECT_TRUE(rig.traced(": Review completed"));
}

TEST_F(AsyncAgingTest, FlaggedRoutesAreNotPolledButCountTowardTheSlice) {
  start();
  routes("red", 1, 300);
  for (auto const& k : walkOrder("red")) rig.hwStatus->vrfStatus("red")->route(k)->flagsIs(1);
  EXPECT_TRUE(slice().empty());
  EXPECT_EQ(reviewAt(), rig.now() + 0.2);
  EXPECT_TRUE(slice().empty());
  EXPECT_TRUE(rig.traced(": Review completed"));
}

TEST_F(AsyncAgingTest, VrfWithoutStatusOnTheChipIsSkipped) {
  start();
  route("red", Rig::key("10.0.0.1", "239.1.1.1"));
  auto const other = rig.hwStatus->vrfStatusIs("violet")->routeIs(Rig::key("10.0.0.2", "239.1.1.1"));
  other->acceptingIntfIdIs(vlan10);
  EXPECT_EQ(slice().size(), 1u);
  EXPECT_TRUE(rig.traced(" vrfStatus for vrf: violet not present"));
}

// Which routes the review polls for themselves; fast-drop entries are
// polled whatever the route.
struct Polling {
  char const* name;
  bool acceptingVlan;
  bool pollWithoutVlan;
  Memtab::Multicast::Fib::RpaIndex rpaId;
  bool polled;
};

class AsyncAgingPollingTest : public AsyncAgingTest, public ::testing::WithParamInterface<Polling> {};

TEST_P(AsyncAgingPollingTest, RouteIsPolledWithAVlanOrWhereItSaysOrWithARendezvousPoint) {
  start();
  auto const k = Rig::key("10.0.0.1", "239.1.1.1");
  auto const rs = route("red", k, 105, GetParam().acceptingVlan ? vlan10 : Netcore::IntfId(), GetParam().rpaId);
  rs->pollWithoutVlanIs(GetParam().pollWithoutVlan);
  // The same route programmed for its fast-drop VLAN.
  rs->fastdropIs(vlan20);
  RouteHandle const fastdrop = rig.addRoute(k, "red", 20, GetParam().rpaId);
  rig.helper->lastAccessed[fastdrop] = 107;
  keyOf[fastdrop] = k;

  slice();
  EXPECT_EQ(rs->lastPollTime(), GetParam().polled ? 105 : 0);
  EXPECT_EQ(rig.traced("No accepting vlan for the route - still check for fastdrops"), !GetParam().polled);
  EXPECT_EQ(rs->fastdropLastPollTime(vlan20), 107);
  EXPECT_TRUE(rig.traced("Updating activity bits for fastdrop route: (10.0.0.1, 239.1.1.1), vlan: 20"));
  // Only the route's own stamp counts.
  EXPECT_TRUE(rig.traced(std::string("hitCount: ") + (GetParam().polled ? "1" : "0")));

  // A fast-drop time no newer than the one recorded is left alone.
  rs->fastdropLastPollTimeIs(vlan20, 300);
  slice();
  EXPECT_EQ(rs->fastdropLastPollTime(vlan20), 300);
}

INSTANTIATE_TEST_SUITE_P(Routes, AsyncAgingPollingTest,
                         ::testing::Values(Polling{"AcceptingVlan", true, false, 0, true},
                                           Polling{"NoVlan", false, false, 0, false},
                                           Polling{"NoVlanButPollWithoutVlan", false, true, 0, true},
                                           Polling{"NoVlanButRendezvousPoint", false, false, 5, true}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncAgingTest, IntervalChangeReArmsOnlyAnArmedReviewAndIsPublished) {
  start();
  rig.vrfConfig->activityPollingIntervalIs(15);
  EXPECT_EQ(reviewAt(), Vex::kNever);
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 15);
  route("red", Rig::key("10.0.0.1", "239.1.1.1"));
  rig.am.advanceBy(4.0);
  rig.vrfConfig->activityPollingIntervalIs(20);
  EXPECT_EQ(reviewAt(), rig.now() + 20);
  EXPECT_TRUE(rig.traced("Setting polling interval to: 20"));
  EXPECT_TRUE(rig.traced("AsyncMrouteSwitchRouteAgingSm::handlePollingInterval( 20, 20, 20 )"));
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 20);
}

TEST_F(AsyncAgingTest, ReviewFindingNoRoutesDisarmsTheClock) {
  start();
  route("red", Rig::key("10.0.0.1", "239.1.1.1"));
  rig.hwStatus->vrfStatus("red")->routeDel(Rig::key("10.0.0.1", "239.1.1.1"));
  ASSERT_NE(reviewAt(), Vex::kNever);  // deleting never disarms by itself
  slice();
  EXPECT_TRUE(rig.traced(": No routes present in mfibHwStatus. Nothing to review"));
  EXPECT_TRUE(rig.traced("Disabling aging review"));
  EXPECT_EQ(reviewAt(), Vex::kNever);
}

// The structured message when the platform cannot poll as often as configured.
class AsyncAgingIntervalLogTest : public AsyncAgingTest {
 protected:
  Log::ScopedCapture log;
};

TEST_F(AsyncAgingIntervalLogTest, UnsupportedIntervalIsRaisedToTheMinimumAndLoggedEachTimeItIsHandled) {
  rig.helper->minActivityPollInterval = 30;
  start();
  ASSERT_EQ(log->records().size(), 1u);
  EXPECT_EQ(log->records()[0].name, "MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED");
  EXPECT_EQ(log->records()[0].severity, Log::Severity::warning);
  EXPECT_EQ(log->records()[0].text, "The value is set to the minimum supported value of 30s instead of the configured 10s");
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 30);

  rig.vrfConfig->activityPollingIntervalIs(20);
  ASSERT_EQ(log->records().size(), 2u);
  EXPECT_EQ(log->records()[1].text, "The value is set to the minimum supported value of 30s instead of the configured 20s");

  rig.vrfConfig->activityPollingIntervalIs(40);
  EXPECT_EQ(log->records().size(), 2u);
  EXPECT_EQ(rig.hwStatus->pollingInterval(), 40);
}

TEST_F(AsyncAgingIntervalLogTest, MessageIsDefinedOnceWithItsTexts) {
  Log::Message const* m = Log::Message::message("MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED");
  ASSERT_TRUE(m);
  EXPECT_EQ(m, &AgingSm::pollingIntervalNotSupported());
  Log::MessageDef const& def = m->def();
  EXPECT_EQ(def.severity, Log::Severity::warning);
  EXPECT_EQ(def.format, "The value is set to the minimum supported value of %ds instead of the configured %ds");
  EXPECT_EQ(def.explanation,
            "The configured value is less than minimum supported activity polling interval, activity polling interval "
            "is set to the minimum supported value.");
  EXPECT_EQ(def.recommendedAction, Log::kNoActionRequired);
  EXPECT_EQ(def.throttle, (Log::Throttle{0, 1.0}));
  EXPECT_EQ(def.flags, 0u);
}

}  // namespace
}  // namespace FalTest
