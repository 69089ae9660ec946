// The route programmer's key map: every key comes back exactly as it went in,
// whichever form it is held in, and keys that differ only in what a compact
// form could lose (family, length, VRF) stay apart.
#include "platform/mroutelib/RouteKeyMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "tests/doubles/RouteShapes.h"

namespace MrouteLib {
namespace {

using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;
using Routing::Multicast::Fib::IpGenRouteKey;
using Map = RouteKeyMap<std::uint64_t>;
constexpr auto key = &FalTest::RouteShapes::key;

// IPv6 bytes that begin as 10.0.0.1 does.
IpGenPrefix v6LikeV4() {
  std::array<std::uint8_t, 16> b{};
  b[0] = 10;
  b[3] = 1;
  return IpGenPrefix(IpGenAddr::v6(b), 128);
}

// Each pair of neighbours differs in one thing a compact form could drop.
std::vector<IpGenRouteKey> const& keys() {
  static std::vector<IpGenRouteKey> const k = {
      key("10.0.0.1", "239.1.1.1"),
      key("10.0.0.1", "239.1.1.2"),
      key("10.0.0.0/8", "239.1.1.1"),    // source not a host prefix
      key("10.0.0.0/32", "239.1.1.1"),   // same address, host length
      key("10.0.0.1", "239.0.0.0/8"),    // group not a host prefix
      key("0.0.0.0/0", "239.1.1.1"),     // (*, G), IPv4 empty source
      IpGenRouteKey(IpGenPrefix(), IpGenPrefix("239.1.1.1")),  // (*, G), family-less source
      key("0.0.0.0/0", "224.0.0.0/4"),   // the IPv4 wildcard
      key("255.255.255.255", "239.255.255.255"),
      IpGenRouteKey(v6LikeV4(), IpGenPrefix("239.1.1.1")),  // families mixed
      key("2001:db8::1", "ff3e::1"),
      key("2001:db8::/32", "ff3e::1"),
      key("::/0", "ff3e::1"),            // (*, G), IPv6
      key("::/0", "ff00::/8"),           // the IPv6 wildcard
      IpGenRouteKey(IpGenPrefix("10.0.0.1"), v6LikeV4()),
      IpGenRouteKey(),                   // the null key
  };
  return k;
}

TEST(RouteKeyMapTest, EveryKeyInEveryVrfComesBackWholeAndKeepsItsOwnValue) {
  Map map;
  std::map<std::uint64_t, Map::Id> made;  // value -> id
  std::uint64_t value = 0;
  for (char const* vrf : {"red", "blue"}) {
    for (auto const& k : keys()) {
      auto const id = map.idIs(vrf, k);
      auto [held, fresh] = map.try_emplace(id);
      ASSERT_TRUE(fresh) << vrf << ' ' << k;
      *held = ++value;
      made.emplace(value, id);
    }
  }
  ASSERT_EQ(map.size(), made.size());
  for (auto const& [v, id] : made) {
    auto const again = map.idOf(*id.vrfName, id.key);
    ASSERT_TRUE(again);
    auto const* held = map.find(*again);
    ASSERT_NE(held, nullptr) << *id.vrfName << ' ' << id.key;
    EXPECT_EQ(*held, v) << *id.vrfName << ' ' << id.key;
    EXPECT_FALSE(map.try_emplace(*again).second);
  }
  // The walk rebuilds each key from its held form.
  std::size_t seen = 0;
  map.walkBy([](std::uint64_t v) { return v; }).forEach([&](Map::Id const& id, std::uint64_t v) {
    ++seen;
    ASSERT_TRUE(made.contains(v));
    EXPECT_EQ(id.key, made.at(v).key) << "value " << v;
    EXPECT_EQ(*id.vrfName, *made.at(v).vrfName) << "value " << v;
  });
  EXPECT_EQ(seen, made.size());
}

TEST(RouteKeyMapTest, ErasedKeyIsGoneAloneAndComesBackFresh) {
  Map map;
  for (auto const& k : keys()) *map.try_emplace(map.idIs("red", k)).first = 7;
  for (std::size_t i = 0; i < keys().size(); i += 2) map.erase(map.idIs("red", keys()[i]));
  for (std::size_t i = 0; i < keys().size(); ++i) {
    auto const* held = map.find(map.idIs("red", keys()[i]));
    if (i % 2 == 0) {
      EXPECT_EQ(held, nullptr) << keys()[i];
    } else {
      ASSERT_NE(held, nullptr) << keys()[i];
      EXPECT_EQ(*held, 7u);
    }
  }
  auto [held, fresh] = map.try_emplace(map.idIs("red", keys()[0]));
  EXPECT_TRUE(fresh);
  EXPECT_EQ(*held, 0u);
}

TEST(RouteKeyMapTest, UnseenVrfHasNoId) {
  Map map;
  map.try_emplace(map.idIs("red", keys()[0]));
  EXPECT_FALSE(map.idOf("blue", keys()[0]));
  EXPECT_EQ(map.find(*map.idOf("red", keys()[1])), nullptr);
}

TEST(RouteKeyMapTest, WalkTakesBothFormsInRankOrder) {
  Map map;
  // Ranks interleave the forms: IPv4 keys get the even ones, the rest odd.
  std::vector<IpGenRouteKey> byRank(2 * keys().size());
  std::uint64_t narrow = 0, wide = 1;
  for (auto const& k : keys()) {
    bool const v4 = k.source().af() != Netcore::AddressFamily::ipv6 && k.af() == Netcore::AddressFamily::ipv4;
    std::uint64_t& rank = v4 ? narrow : wide;
    *map.try_emplace(map.idIs("red", k)).first = rank;
    byRank[rank] = k;
    rank += 2;
  }
  auto const walk = map.walkBy([](std::uint64_t v) { return v; });
  for (int pass = 0; pass < 2; ++pass) {
    std::vector<std::uint64_t> ranks;
    walk.forEach([&](Map::Id const& id, std::uint64_t v) {
      ranks.push_back(v);
      EXPECT_EQ(id.key, byRank[v]);
    });
    ASSERT_EQ(ranks.size(), keys().size());
    EXPECT_TRUE(std::is_sorted(ranks.begin(), ranks.end()));
  }
}

}  // namespace
}  // namespace MrouteLib
