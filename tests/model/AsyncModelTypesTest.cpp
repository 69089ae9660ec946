// Value types of the asynchronous flavour: text forms and parsing back,
// orderings, equality and hashing.
#include <gtest/gtest.h>

#include <absl/container/flat_hash_set.h>

#include <cmath>
#include <limits>
#include <set>
#include <sstream>
#include <string>

#include "model/MrouteXactType.h"
#include "model/mroute/AsyncMrouteSwitchRoute.h"
#include "model/mroute/InUseRouteHandleKey.h"
#include "model/mroute/ZombieKey.h"
#include "platform/vex/Assert.h"
#include "platform/vex/HashColl.h"

namespace {

using Fal::Mroute::AsyncMrouteSwitchRoute;
using Fal::Mroute::InUseRouteHandleKey;
using Fal::Mroute::ZombieKey;
using FalHelper::MrouteXactType;
using Routing::Multicast::Fib::IpGenRouteKey;

IpGenRouteKey key(char const* s, char const* g) { return IpGenRouteKey(Netcore::IpGenPrefix(s), Netcore::IpGenPrefix(g)); }

constexpr char kKeyText[] = "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'source': 10.0.0.1/32, 'group': 239.1.1.1/32})";

// Every value of T prints in its strep form, parses back equal, and prints
// the same through operator<<; equal values hash equal, in std and absl.
template <class T>
void roundTrips(std::vector<T> const& values) {
  absl::flat_hash_set<T> set;
  for (T const& v : values) {
    std::string const text = Vex::strep(v);
    EXPECT_EQ(Vex::parse<T>(text), v) << text;
    std::ostringstream os;
    os << v;
    EXPECT_EQ(os.str(), text);
    T const copy = Vex::parse<T>(text);
    EXPECT_EQ(std::hash<T>()(copy), std::hash<T>()(v)) << text;
    set.insert(v);
    EXPECT_TRUE(set.contains(copy)) << text;
  }
}

TEST(AsyncMrouteSwitchRouteTest, StrepFormRoundTripAndOrdering) {
  AsyncMrouteSwitchRoute const r(key("10.0.0.1/32", "239.1.1.1/32"), 7);
  EXPECT_EQ(Vex::strep(r), std::string("Value('Fal::Mroute::AsyncMrouteSwitchRoute', ** {'routeKey': ") + kKeyText + ", 'rpaId': 7})");
  roundTrips<AsyncMrouteSwitchRoute>({r, AsyncMrouteSwitchRoute(), AsyncMrouteSwitchRoute(key("::/0", "ff00::/8"), 65535)});

  AsyncMrouteSwitchRoute const sameKeyLowRpa(r.routeKey, 2);
  AsyncMrouteSwitchRoute const otherKey(key("10.0.0.2/32", "239.1.1.1/32"), 0);
  EXPECT_LT(sameKeyLowRpa, r) << "equal keys order by RPA index";
  EXPECT_LT(r, otherKey) << "the key comes first, whatever the RPA index";
  EXPECT_NE(sameKeyLowRpa, r);
  EXPECT_THROW(Vex::parse<AsyncMrouteSwitchRoute>(
                   std::string("Value('Fal::Mroute::AsyncMrouteSwitchRoute', ** {'routeKey': ") + kKeyText + ", 'rpaId': 65536})"),
               Vex::ParseError)
      << "an RPA index is 16 bits";
}

TEST(InUseRouteHandleKeyTest, StrepFormRoundTripEqualityAndOrdering) {
  InUseRouteHandleKey const k(key("10.0.0.1/32", "239.1.1.1/32"), Bridging::VlanIdOrNone(10), 70000);
  EXPECT_EQ(Vex::strep(k),
            std::string("Value('Fal::Mroute::InUseRouteHandleKey', ** {'routeKey': ") + kKeyText + ", 'vlan': 10, 'vrfId': 70000})");
  roundTrips<InUseRouteHandleKey>({k, InUseRouteHandleKey()});
  EXPECT_NE(k, InUseRouteHandleKey(k.routeKey, Bridging::VlanIdOrNone(11), 70000));
  EXPECT_NE(k, InUseRouteHandleKey(k.routeKey, k.vlan, 1));
  EXPECT_LT(InUseRouteHandleKey(k.routeKey, Bridging::VlanIdOrNone(), 9), k) << "no VLAN first";
  EXPECT_EQ(InUseRouteHandleKey(), InUseRouteHandleKey(IpGenRouteKey(), Bridging::VlanIdOrNone(), 0));

  // Usable as a key of the framework's hashed collection.
  Vex::HashColl<InUseRouteHandleKey, std::uint32_t> handles;
  handles.set(k, 5);
  EXPECT_EQ(*handles.find(Vex::parse<InUseRouteHandleKey>(Vex::strep(k))), 5U);
}

TEST(MrouteZombieKeyTest, StrepFormRoundTrip) {
  EXPECT_EQ(Vex::strep(ZombieKey(17, 3.5)), "Value('Fal::Mroute::ZombieKey', ** {'multicastId': 17, 'expiryTime': 3.5})");
  EXPECT_EQ(Vex::strep(ZombieKey()), "Value('Fal::Mroute::ZombieKey', ** {'multicastId': 0, 'expiryTime': inf})");
  roundTrips<ZombieKey>({ZombieKey(17, 3.5), ZombieKey(), ZombieKey(0xFFFFFFFE, 1e-9), ZombieKey(3, 0.1 + 0.2)});
  EXPECT_THROW(Vex::parse<ZombieKey>("Value('Fal::Mroute::ZombieKey', ** {'multicastId': -1, 'expiryTime': 1})"),
               Vex::ParseError);
}

TEST(MrouteZombieKeyTest, OrdersByExpiryThenIdWithTheEmptyKeyLast) {
  std::set<ZombieKey> zombies{ZombieKey(), ZombieKey(9, 2.0), ZombieKey(1, 3.0), ZombieKey(4, 2.0)};
  std::vector<ZombieKey> const order(zombies.begin(), zombies.end());
  EXPECT_EQ(order, (std::vector<ZombieKey>{ZombieKey(4, 2.0), ZombieKey(9, 2.0), ZombieKey(1, 3.0), ZombieKey()}));
  EXPECT_TRUE(ZombieKey().isEmpty());
  EXPECT_FALSE(ZombieKey().isZombie());
  EXPECT_TRUE(ZombieKey(0, 4.0).isZombie());
  EXPECT_FALSE(ZombieKey(0, 4.0).isEmpty());
}

TEST(MrouteZombieKeyTest, EqualityNeedsBothFieldsAndNaNEqualsNothing) {
  EXPECT_EQ(ZombieKey(5, 1.0), ZombieKey(5, 1.0));
  EXPECT_NE(ZombieKey(5, 1.0), ZombieKey(6, 1.0));
  EXPECT_NE(ZombieKey(5, 1.0), ZombieKey(5, 1.5));
  double const nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(ZombieKey(5, nan), ZombieKey(5, nan));
  EXPECT_EQ(std::hash<ZombieKey>()(ZombieKey(5, 0.0)), std::hash<ZombieKey>()(ZombieKey(5, -0.0)))
      << "equal times hash alike";
}

TEST(MrouteXactTypeTest, TextFormsAndTypeName) {
  EXPECT_EQ(Vex::strep(MrouteXactType::oifSet), "oifSet");
  EXPECT_EQ(Vex::strep(MrouteXactType::ingress), "ingress");
  EXPECT_EQ(Vex::parse<MrouteXactType>("ingress"), MrouteXactType::ingress);
  EXPECT_EQ(Vex::parse<MrouteXactType>("oifSet"), MrouteXactType::oifSet);
  EXPECT_THROW(Vex::parse<MrouteXactType>("egress"), Vex::ParseError);
  auto const* type = Vex::enumTypeByName("FalHelper::MrouteXactType");
  ASSERT_NE(type, nullptr) << "registered when the library loads";
  EXPECT_EQ(type->value("ingress"), 1);
  EXPECT_EQ(static_cast<int>(MrouteXactType::oifSet), 0);
}

}  // namespace
