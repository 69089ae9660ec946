// Fal::PackedRouteKey: every kind of key reads back exactly, packed or kept
// whole, and equal keys hash and compare equal whichever way they are held;
// through the switch, a route of each kind is found by its key again.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sync/PackedRouteKey.h"
#include "tests/doubles/MrouteSwitchRig.h"

namespace FalTest {
namespace {

using Routing::Multicast::Fib::IpGenRouteKey;

struct KeyCase {
  std::string name;
  IpGenRouteKey key;
  bool packs;
};

IpGenRouteKey key(char const* source, char const* group) {
  return IpGenRouteKey(Netcore::IpGenPrefix(source), Netcore::IpGenPrefix(group));
}

std::vector<KeyCase> keyCases() {
  return {
      {"Ipv4SG", key("10.1.2.3", "239.1.1.1"), true},
      {"Ipv4HighBits", key("255.254.253.252", "239.255.255.255"), true},
      {"Ipv4StarG", key("0.0.0.0/0", "239.1.1.1"), true},
      {"StarGWithoutFamily", IpGenRouteKey(Netcore::IpGenPrefix(), Netcore::IpGenPrefix("239.1.1.1")), true},
      {"Ipv4Wildcard", IpGenRouteKey::wildcard(), true},
      {"Ipv4ShortPrefixes", key("10.0.0.0/8", "232.0.0.0/8"), true},
      {"DefaultKey", IpGenRouteKey(), true},
      {"Ipv6SG", key("2001:db8::1", "ff3e::1234"), false},
      {"Ipv6Wildcard", IpGenRouteKey::wildcard6(), false},
      {"Ipv6StarG", key("::/0", "ff05::1"), false},
      {"MixedFamilies", key("10.0.0.1", "ff3e::1"), false},
  };
}

class PackedRouteKeyTest : public ::testing::TestWithParam<KeyCase> {};

TEST_P(PackedRouteKeyTest, ReadsBackExactlyAndMatchesItsProbe) {
  IpGenRouteKey const& k = GetParam().key;
  Fal::PackedRouteKey const held(k);
  EXPECT_EQ(held.packed(), GetParam().packs);
  EXPECT_EQ(held.key(), k);
  EXPECT_EQ(held.key().pretty(), k.pretty());
  IpGenRouteKey const copy = k;  // a probe of an equal key held elsewhere
  auto const probe = Fal::PackedRouteKey::probe(copy);
  EXPECT_TRUE(held == probe);
  EXPECT_EQ(held.hash(10), probe.hash(10));
  EXPECT_EQ(probe.key(), k);
}

TEST_P(PackedRouteKeyTest, DiffersFromEveryOtherKind) {
  Fal::PackedRouteKey const held(GetParam().key);
  for (KeyCase const& other : keyCases()) {
    if (other.name == GetParam().name) continue;
    Fal::PackedRouteKey const otherHeld(other.key);
    EXPECT_FALSE(held == otherHeld) << other.name;
    EXPECT_NE(held.hash(10), otherHeld.hash(10)) << other.name;
  }
  EXPECT_NE(held.hash(10), held.hash(11));
}

// Through the switch: a route of each kind is programmed, found by its key
// and VLAN, and hands its key to the hooks as it was given.
TEST_P(PackedRouteKeyTest, RouteIsFoundByItsKeyAndKeepsIt) {
  MrouteSwitchRig rig;
  rig.start();
  IpGenRouteKey const& k = GetParam().key;
  auto const h = rig.addRoute(k, nullptr);
  ASSERT_FALSE(h.isNull());
  EXPECT_EQ(rig.sw->route(h)->key(), k);
  EXPECT_EQ(rig.sw->routeKeyToHandle(Fal::RouteKeyVlanId(k, Bridging::VlanIdOrNone(10))), h);
  EXPECT_TRUE(rig.sw->routeKeyToHandle(Fal::RouteKeyVlanId(k, Bridging::VlanIdOrNone(11))).isNull());
  rig.sw->doDeleteRoute(h);
  EXPECT_TRUE(rig.sw->routeKeyToHandle(Fal::RouteKeyVlanId(k, Bridging::VlanIdOrNone(10))).isNull());
}

INSTANTIATE_TEST_SUITE_P(Keys, PackedRouteKeyTest, ::testing::ValuesIn(keyCases()),
                         [](::testing::TestParamInfo<KeyCase> const& info) { return info.param.name; });

}  // namespace
}  // namespace FalTest
