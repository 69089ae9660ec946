// Route keys and counter rows of the multicast FIB model.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "platform/fib/Counter.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/vex/Strep.h"

namespace {

using Netcore::IpGenPrefix;
using Routing::Multicast::Fib::Counter;
using Routing::Multicast::Fib::CounterMode;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;

IpGenRouteKey key(char const* source, char const* group) { return IpGenRouteKey(IpGenPrefix(source), IpGenPrefix(group)); }

struct KeyCase {
  char const* name;
  IpGenRouteKey key;
  RouteKeyType kind;
  char const* pretty;
};

class RouteKeyKindTest : public ::testing::TestWithParam<KeyCase> {};

TEST_P(RouteKeyKindTest, KindFollowsSourceAndGroupFamily) { EXPECT_EQ(GetParam().key.kind(), GetParam().kind); }

TEST_P(RouteKeyKindTest, StrepParsesBackToEqualKey) {
  auto const& k = GetParam().key;
  auto back = Vex::parse<IpGenRouteKey>(Vex::strep(k));
  EXPECT_EQ(back, k);
  EXPECT_EQ(back.kind(), GetParam().kind);
}

TEST_P(RouteKeyKindTest, PrettyAndStreamShowSourceAndGroup) {
  std::ostringstream os;
  os << GetParam().key;
  EXPECT_EQ(GetParam().key.pretty(), GetParam().pretty);
  EXPECT_EQ(os.str(), GetParam().pretty);
}

INSTANTIATE_TEST_SUITE_P(
    AllKinds, RouteKeyKindTest,
    ::testing::Values(KeyCase{"v4SG", key("10.0.0.1", "239.1.1.1"), RouteKeyType::ipv4SG, "(10.0.0.1, 239.1.1.1)"},
                      KeyCase{"v4StarG", key("0.0.0.0/0", "239.1.1.1"), RouteKeyType::ipv4StarG, "(*, 239.1.1.1)"},
                      KeyCase{"v4Wildcard", IpGenRouteKey::wildcard(), RouteKeyType::ipv4Wildcard, "(*, 224.0.0.0/4)"},
                      KeyCase{"v6SG", key("2001:db8::1", "ff3e::8000:1"), RouteKeyType::ipv6SG, "(2001:db8::1, ff3e::8000:1)"},
                      KeyCase{"v6StarG", key("::/0", "ff3e::1"), RouteKeyType::ipv6StarG, "(*, ff3e::1)"},
                      KeyCase{"v6Wildcard", IpGenRouteKey::wildcard6(), RouteKeyType::ipv6Wildcard, "(*, ff00::/8)"},
                      // The default key of no family, which marks "no route".
                      KeyCase{"none", IpGenRouteKey(), RouteKeyType::invalid, "(*, none)"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(RouteKeyTest, StrepHasTheRegisteredTypeNameAndBothPrefixes) {
  EXPECT_EQ(Vex::strep(key("10.0.0.1", "239.1.1.1")),
            "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'source': 10.0.0.1/32, 'group': 239.1.1.1/32})");
  EXPECT_THROW(Vex::parse<IpGenRouteKey>("Value('Other', ** {'source': 10.0.0.1/32, 'group': 239.1.1.1/32})"),
               Vex::ParseError);
}

TEST(RouteKeyTest, DefaultKeyIsInvalidAndOnlyWildcardsAreWildcards) {
  EXPECT_EQ(IpGenRouteKey().kind(), RouteKeyType::invalid);
  EXPECT_TRUE(IpGenRouteKey::wildcard().isWildcard());
  EXPECT_TRUE(IpGenRouteKey::wildcard6().isWildcard());
  // Same group as the wildcard but a real source: an ordinary (S, G).
  EXPECT_FALSE(key("10.0.0.1", "224.0.0.0/4").isWildcard());
  EXPECT_EQ(IpGenRouteKey::wildcardOf(Netcore::AddressFamily::ipv6), IpGenRouteKey::wildcard6());
}

TEST(RouteKeyTest, OrdersBySourceThenGroup) {
  EXPECT_LT(key("10.0.0.1", "239.9.9.9"), key("10.0.0.2", "224.0.0.1"));
  EXPECT_LT(key("10.0.0.1", "239.1.1.1"), key("10.0.0.1", "239.1.1.2"));
  EXPECT_LT(key("0.0.0.0/0", "239.1.1.1"), key("10.0.0.1", "224.0.0.1"));
  EXPECT_EQ(std::hash<IpGenRouteKey>()(key("10.0.0.1", "239.1.1.1")), key("10.0.0.1/32", "239.1.1.1/32").hash());
}

TEST(CounterTest, StrepParsesBackToEqualRow) {
  Counter c(key("10.0.0.1", "239.1.1.1"), -42, 12.75, true);
  EXPECT_EQ(Vex::strep(c),
            "Value('Routing::Multicast::Fib::Counter', ** {'routeKey': "
            "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'source': 10.0.0.1/32, 'group': 239.1.1.1/32}), "
            "'value': -42, 'updateTime': 12.75, 'active': True})");
  EXPECT_EQ(Vex::parse<Counter>(Vex::strep(c)), c);
  std::ostringstream os;
  os << c;
  EXPECT_EQ(os.str(), Vex::strep(c));
}

TEST(CounterTest, OrdersByKeyThenUpdateTimeThenValueThenActive) {
  auto a = key("10.0.0.1", "239.1.1.1");
  auto b = key("10.0.0.2", "239.1.1.1");
  EXPECT_LT(Counter(a, 100, 9.0, true), Counter(b, 1, 1.0, false));
  EXPECT_LT(Counter(a, 100, 1.0, true), Counter(a, 1, 2.0, false));
  EXPECT_LT(Counter(a, 1, 1.0, true), Counter(a, 2, 1.0, false));
  EXPECT_LT(Counter(a, 1, 1.0, false), Counter(a, 1, 1.0, true));
  EXPECT_NE(Counter(a, 1, 1.0, false), Counter(a, 1, 1.0, true));
}

TEST(CounterModeTest, PrintsAndParsesByLiteralName) {
  std::ostringstream os;
  os << CounterMode::packetsAndBytes;
  EXPECT_EQ(os.str(), "packetsAndBytes");
  EXPECT_EQ(Vex::parse<CounterMode>("bytes"), CounterMode::bytes);
  EXPECT_NE(Vex::enumTypeByName("Routing::Multicast::Fib::RouteKeyType"), nullptr);
}

}  // namespace
