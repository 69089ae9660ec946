// Over a churn of routes that share groups, leave them and come back, no
// group is deleted while a route points at it, and every group is deleted
// exactly once by the end, whichever way it ends: zombie expiry, forced
// purge, the state machine's clean-up or the switch going away.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Rig = AsyncMrouteSwitchRig;
using MrouteLib::RouteHandle;

class AsyncGroupLifetimeTest : public ::testing::Test {
 protected:
  // The chip's view must hold after every step.
  void check(char const* step) {
    EXPECT_TRUE(rig.helper->violations.empty()) << step << ": " << rig.helper->violations.front();
    for (auto const& [h, set] : rig.bound) {
      EXPECT_EQ(rig.helper->groups.count(set->multicastId()), 1u) << step << ": group of route " << h.value();
    }
  }
  // Routes share, leave, come back (the zombie is brought back) and move
  // between sets; returns with two routes still bound and one zombie waiting.
  void churn() {
    RouteHandle const h1 = rig.program(k1, oA);
    RouteHandle const h2 = rig.program(k2, oA);
    RouteHandle const h3 = rig.program(k3, oB);
    check("shared");
    rig.unprogram(h1);
    EXPECT_TRUE(rig.sw->zombieOifSet().empty());  // still in use by h2
    rig.unprogram(h2);
    EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);
    check("A waits");
    RouteHandle const h4 = rig.program(k4, oA);
    EXPECT_EQ(rig.inUseId(oA), 1u);
    EXPECT_TRUE(rig.sw->zombieOifSet().empty());
    check("A back");
    rig.unprogram(h3);
    RouteHandle const h5 = rig.program(k1, oC);
    rig.bind(h5, rig.allocSet(oB));  // moves to B, brought back; C waits
    EXPECT_EQ(rig.inUseId(oB), 2u);
    EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);
    check("moved");
    live = {h4, h5};
  }

  Rig rig;
  Rig::IpGenRouteKey const k1 = Rig::key("10.0.0.1", "239.1.1.1");
  Rig::IpGenRouteKey const k2 = Rig::key("10.0.0.2", "239.1.1.1");
  Rig::IpGenRouteKey const k3 = Rig::key("10.0.0.3", "239.1.1.1");
  Rig::IpGenRouteKey const k4 = Rig::key("10.0.0.4", "239.1.1.1");
  MrouteLib::OifSetPtr const oA = rig.oifSet(Rig::outputs({"Ethernet1.100", "Ethernet2.100"}));
  MrouteLib::OifSetPtr const oB = rig.oifSet(Rig::outputs({"Ethernet3.100"}));
  MrouteLib::OifSetPtr const oC = rig.oifSet(Rig::outputs({"Ethernet4.100"}));
  std::vector<RouteHandle> live;
};

// How the groups left waiting after the churn come to an end.
enum class Ending { zombieExpiry, forcedPurge, cleanUp, switchGone };

struct LifetimeMode {
  char const* name;
  Ending ending;
};

class AsyncGroupEndingTest : public AsyncGroupLifetimeTest, public ::testing::WithParamInterface<LifetimeMode> {};

TEST_P(AsyncGroupEndingTest, EveryGroupIsDeletedExactlyOnceAndNeverUnderARoute) {
  Ending const ending = GetParam().ending;
  if (ending != Ending::switchGone) rig.startSm();
  churn();
  for (RouteHandle h : live) rig.unprogram(h);
  check("all left");
  EXPECT_TRUE(rig.helper->groupDeletes.empty());  // all three wait as zombies
  switch (ending) {
    case Ending::zombieExpiry:
      rig.am.runUntil(rig.now() + 3.0);
      break;
    case Ending::forcedPurge:
      for (int i = 0; i < 4; ++i) rig.sm->doForcePurgeOneZombie();  // one more than there are
      break;
    case Ending::cleanUp:
      rig.sm = nullptr;
      break;
    case Ending::switchGone:
      rig.sw = nullptr;
      break;
  }
  EXPECT_EQ(rig.helper->groupDeletes, (std::map<std::uint32_t, std::uint32_t>{{1, 1}, {2, 1}, {3, 1}}));
  EXPECT_TRUE(rig.helper->groups.empty());
  check("ended");
  // Nothing is left to delete a group a second time.
  rig.am.runUntil(rig.now() + 10.0);
  rig.sm = nullptr;
  rig.sw = nullptr;
  EXPECT_EQ(rig.helper->groupDeletes.size(), 3u);
  check("gone");
}

INSTANTIATE_TEST_SUITE_P(Endings, AsyncGroupEndingTest,
                         ::testing::Values(LifetimeMode{"ZombieExpiry", Ending::zombieExpiry},
                                           LifetimeMode{"ForcedPurge", Ending::forcedPurge},
                                           LifetimeMode{"CleanUp", Ending::cleanUp},
                                           LifetimeMode{"SwitchGone", Ending::switchGone}),
                         [](auto const& info) { return std::string(info.param.name); });

// Routes still bound when the state machine cleans up keep their groups; the
// groups go when the routes do, once each.
TEST_F(AsyncGroupLifetimeTest, CleanUpLeavesTheGroupsOfBoundRoutesToTheirRoutes) {
  rig.startSm();
  churn();
  rig.sm = nullptr;
  EXPECT_EQ(rig.helper->groupDeletes, (std::map<std::uint32_t, std::uint32_t>{{3, 1}}));
  check("cleaned up");
  for (RouteHandle h : live) rig.unprogram(h);
  EXPECT_EQ(rig.helper->groupDeletes, (std::map<std::uint32_t, std::uint32_t>{{1, 1}, {2, 1}, {3, 1}}));
  check("routes gone");
}

}  // namespace
}  // namespace FalTest
