// Entities of the multicast FIB model: hardware status, configuration and
// published counters.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fib/CounterStatus.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "platform/fib/hardware/Status.h"
#include "platform/vex/Assert.h"

namespace {

using namespace Routing::Multicast::Fib;
using Hardware::RouteStatus;
using Hardware::Status;
using Hardware::VrfStatus;
using Netcore::IntfId;

IpGenRouteKey sg(std::uint32_t source) {
  return IpGenRouteKey(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + source), 32),
                       Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF010101U), 32));
}

struct StatusRecorder : Status::Notifiee {
  std::vector<std::string> calls;
  void onHwRouting() override { calls.push_back("hwRouting"); }
  void onVrfStatus(L3::VrfName const& n) override { calls.push_back("vrfStatus " + n.stringValue()); }
};

struct VrfRecorder : VrfStatus::Notifiee {
  std::vector<IpGenRouteKey> routes;
  void onRoute(IpGenRouteKey const& k) override { routes.push_back(k); }
};

struct RouteRecorder : RouteStatus::Notifiee {
  std::vector<std::string> calls;
  void onLastPollTime() override { calls.push_back("lastPollTime"); }
  void onFastdrop(IntfId const& i) override { calls.push_back("fastdrop " + i.stringValue()); }
};

class FibStatusTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override { Vex::fatalHandlerIs(previous_); }
  Vex::Ptr<Status> status_ = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::FatalHandler previous_;
};

TEST_F(FibStatusTest, VrfStatusIsCreatesOnceAndNotifiesOnlyOnChange) {
  StatusRecorder rec;
  rec.notifierIs(status_);
  auto red = status_->vrfStatusIs("red");
  EXPECT_EQ(status_->vrfStatusIs("red"), red);
  EXPECT_EQ(status_->vrfStatus("red"), red);
  EXPECT_EQ(status_->vrfStatus("blue"), nullptr);
  status_->vrfStatusDel("blue");
  status_->hwRoutingIs(true);
  status_->hwRoutingIs(true);
  status_->vrfStatusDel("red");
  EXPECT_EQ(rec.calls, (std::vector<std::string>{"vrfStatus red", "hwRouting", "vrfStatus red"}));
  EXPECT_EQ(status_->vrfStatusSize(), 0u);
}

TEST_F(FibStatusTest, RouteIsCreatesOnceAndRouteKnowsItsVrf) {
  auto vrf = status_->vrfStatusIs("red");
  VrfRecorder rec;
  rec.notifierIs(vrf);
  auto r = vrf->routeIs(sg(1));
  EXPECT_EQ(vrf->routeIs(sg(1)), r);
  EXPECT_EQ(r->key(), sg(1));
  EXPECT_EQ(r->vrfName(), L3::VrfName("red"));
  vrf->routeIs(sg(2));
  status_->vrfStatusIs("blue")->routeIs(sg(1));
  EXPECT_EQ(status_->routes(), 3u);

  vrf->routeDel(sg(1));
  vrf->routeDel(sg(1));
  EXPECT_EQ(rec.routes, (std::vector<IpGenRouteKey>{sg(1), sg(2), sg(1)}));
  EXPECT_EQ(vrf->route(sg(1)), nullptr);
  // A route status still held elsewhere no longer claims a VRF, even once that VRF is gone.
  EXPECT_EQ(r->vrfName(), L3::VrfName());
  auto kept = vrf->route(sg(2));
  rec.notifierIs(nullptr);
  vrf = nullptr;
  status_->vrfStatusDel("red");
  EXPECT_EQ(kept->vrfName(), L3::VrfName());
}

TEST_F(FibStatusTest, RouteWalkResumesAtSuccessorOfDeletedBookmark) {
  auto vrf = status_->vrfStatusIs("red");
  for (std::uint32_t i = 0; i < 50; ++i) vrf->routeIs(sg(i));
  std::vector<IpGenRouteKey> order;
  for (auto it = vrf->routeIterator(); !it.done(); ++it) order.push_back(it.key());
  ASSERT_EQ(order.size(), 50u);

  IpGenRouteKey bookmark = order[20];
  vrf->routeDel(bookmark);
  auto resumed = vrf->routeIterator(bookmark);
  ASSERT_FALSE(resumed.done());
  EXPECT_EQ(resumed.key(), order[21]);

  // A live iterator whose route is deleted under it moves on to the next one.
  auto live = vrf->routeIterator(order[30]);
  vrf->routeDel(order[30]);
  EXPECT_EQ(live.key(), order[31]);
  ++live;
  EXPECT_EQ(live.key(), order[32]);

  // Deleting the last route leaves a bookmark at it with nothing to resume.
  vrf->routeDel(order.back());
  EXPECT_TRUE(vrf->routeIterator(order.back()).done());
}

TEST_F(FibStatusTest, VrfWalkResumesAtSuccessorOfDeletedVrf) {
  for (char const* n : {"a", "b", "c", "d", "e"}) status_->vrfStatusIs(n);
  std::vector<L3::VrfName> order;
  for (auto it = status_->vrfStatusIterator(); !it.done(); ++it) order.push_back(it.key());
  ASSERT_EQ(order.size(), 5u);
  status_->vrfStatusDel(order[2]);
  EXPECT_EQ(status_->vrfStatusIterator(order[2]).key(), order[3]);
}

TEST_F(FibStatusTest, FastdropStampsNotifyOnlyOnChange) {
  auto r = status_->vrfStatusIs("red")->routeIs(sg(1));
  RouteRecorder rec;
  rec.notifierIs(r);
  IntfId const v10 = IntfId::vlan(10);
  EXPECT_EQ(r->fastdropSize(), 0u);
  EXPECT_TRUE(r->fastdropIterator().done());
  r->fastdropIs(v10);
  r->fastdropIs(v10);
  r->fastdropLastPollTimeIs(v10, 5.0);
  r->fastdropLastPollTimeIs(v10, 5.0);
  r->lastPollTimeIs(5.0);
  r->lastPollTimeIs(5.0);
  EXPECT_EQ(r->fastdropLastPollTime(v10), 5.0);
  EXPECT_EQ(r->fastdropLastPollTime(IntfId::vlan(11)), 0.0);
  EXPECT_EQ(rec.calls, (std::vector<std::string>{"fastdrop Vlan10", "fastdrop Vlan10", "lastPollTime"}));
  auto it = r->fastdropIterator();
  ASSERT_FALSE(it.done());
  EXPECT_EQ(it.key(), v10);
}

TEST_F(FibStatusTest, FlagsAcceptOnlyTwoBits) {
  auto r = status_->vrfStatusIs("red")->routeIs(sg(1));
  r->flagsIs(3);
  EXPECT_TRUE(r->activityPollingSuppressed());
  EXPECT_THROW(r->flagsIs(4), Vex::FatalError);
  EXPECT_EQ(r->flags(), 3);
}

TEST_F(FibStatusTest, CounterStatusReadsAbsentRowAsNeverWritten) {
  auto counters = Vex::make<CounterStatus>();
  EXPECT_EQ(counters->counter(sg(1)).updateTime(), 0.0);
  Counter row(sg(1), 7, 3.5, true);
  counters->counterIs(row);
  counters->counterIs(Counter(sg(2), 1, 4.0, false));
  EXPECT_EQ(counters->counter(sg(1)), row);
  EXPECT_EQ(counters->size(), 2u);
  counters->counterDel(sg(1));
  EXPECT_EQ(counters->counter(sg(1)), Counter());
  EXPECT_EQ(counters->size(), 1u);
}

TEST_F(FibStatusTest, CounterStatusCtlCountsUpAndDownButNeverBelowZero) {
  auto ctl = Vex::make<CounterStatusCtl>(2);
  ctl->currSizeInc(2);
  ctl->currActiveInc(1);
  ctl->currSizeInc(-1);
  EXPECT_EQ(ctl->currSize(), 1u);
  EXPECT_EQ(ctl->currActive(), 1u);
  EXPECT_EQ(ctl->capacity(), 2u);
  EXPECT_THROW(ctl->currActiveInc(-2), Vex::FatalError);
  EXPECT_EQ(ctl->currActive(), 1u);
}

TEST_F(FibStatusTest, VrfConfigDefaultsAndPerVrfConfig) {
  auto cfg = Vex::make<VrfConfig>();
  EXPECT_EQ(cfg->counterMode(), CounterMode::packets);
  EXPECT_EQ(cfg->pollingInterval(), 10);
  EXPECT_EQ(cfg->activityPollingInterval(), 10);
  auto red = cfg->configIs("red");
  EXPECT_EQ(cfg->configIs("red"), red);
  EXPECT_EQ(red->name(), L3::VrfName("red"));
  EXPECT_FALSE(red->counterRoute(sg(1)));
  red->counterRouteIs(sg(1), true);
  EXPECT_TRUE(red->counterRoute(sg(1)));
  red->clearCounterRouteIs(sg(1), 2);
  EXPECT_EQ(red->clearCounterRoute(sg(1)), 2u);
  cfg->configDel("red");
  EXPECT_EQ(cfg->config("red"), nullptr);
}

TEST_F(FibStatusTest, VrfEnabledStatusIteratesByName) {
  auto enabled = Vex::make<VrfEnabledStatus>();
  enabled->vrfIs("red");
  enabled->vrfIs("blue");
  std::vector<std::string> names;
  for (auto it = enabled->vrfIterator(); !it.done(); ++it) names.push_back(it.key().stringValue());
  EXPECT_EQ(names, (std::vector<std::string>{"blue", "red"}));
  EXPECT_TRUE(enabled->vrf("red"));
  EXPECT_FALSE(enabled->vrf("green"));
}

}  // namespace
