#include <gtest/gtest.h>

#include <string>

#include "model/MrouteHitAction.h"
#include "model/MrouteHitRequest.h"
#include "model/MtableOifSetPtr.h"
#include "model/RouteKeyVlanId.h"
#include "model/ZombieKey.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Assert.h"

namespace {

using Fal::MrouteHitAction;
using Fal::MrouteHitRequest;
using Fal::RouteKeyVlanId;
using Fal::ZombieKey;
using Routing::Multicast::Fib::IpGenRouteKey;

IpGenRouteKey key(char const* s, char const* g) { return IpGenRouteKey(Netcore::IpGenPrefix(s), Netcore::IpGenPrefix(g)); }

TEST(ZombieKeyTest, OrdersByExpiryThenGroupId) {
  ZombieKey early(9, 1.0), late(1, 2.0), lateHigh(5, 2.0);
  EXPECT_TRUE(early < late) << "the earlier expiry comes first whatever the group id";
  EXPECT_FALSE(late < early);
  EXPECT_TRUE(late < lateHigh) << "equal expiry orders by group id";
  EXPECT_FALSE(lateHigh < late);
  EXPECT_FALSE(late < late);
  EXPECT_TRUE(early < ZombieKey()) << "the non-zombie key (expiry +infinity) sorts last";
}

TEST(ZombieKeyTest, DefaultIsNotAZombie) {
  EXPECT_FALSE(ZombieKey().isZombie());
  EXPECT_TRUE(ZombieKey(3, 4.0).isZombie());
  EXPECT_EQ(ZombieKey(3, 4.0), ZombieKey(3, 4.0));
  EXPECT_NE(ZombieKey(3, 4.0), ZombieKey(3, 4.5));
}

TEST(ZombieKeyTest, StrepFormAndRoundTrip) {
  EXPECT_EQ(Vex::strep(ZombieKey(7, 2.5)), "Value('Fal::ZombieKey', ** {'groupId': 7, 'expiryTime': 2.5})");
  for (ZombieKey k : {ZombieKey(7, 2.5), ZombieKey(), ZombieKey(0xFFFFFFFE, 1e-9)}) {
    EXPECT_EQ(Vex::parse<ZombieKey>(Vex::strep(k)), k) << Vex::strep(k);
  }
  std::ostringstream os;
  os << ZombieKey(1, 3.0);
  EXPECT_EQ(os.str(), Vex::strep(ZombieKey(1, 3.0)));
  EXPECT_THROW(Vex::parse<ZombieKey>("Value('Fal::ZombieKey', ** {'groupId': x, 'expiryTime': 1})"), Vex::ParseError);
}

TEST(RouteKeyVlanIdTest, SameRouteOrdersByVlanWithNoVlanFirst) {
  auto r = key("10.0.0.1/32", "239.1.1.1/32");
  RouteKeyVlanId none(r, Bridging::VlanIdOrNone(0)), v5(r, Bridging::VlanIdOrNone(5)), v6(r, Bridging::VlanIdOrNone(6));
  EXPECT_TRUE(none < v5);
  EXPECT_TRUE(v5 < v6);
  EXPECT_FALSE(v6 < none);
}

TEST(RouteKeyVlanIdTest, DifferentRoutesOrderByRouteWhateverTheVlan) {
  auto a = key("10.0.0.1/32", "239.1.1.1/32");
  auto b = key("10.0.0.2/32", "239.1.1.1/32");
  ASSERT_TRUE(a < b);
  EXPECT_TRUE(RouteKeyVlanId(a, Bridging::VlanIdOrNone(4094)) < RouteKeyVlanId(b, Bridging::VlanIdOrNone(0)));
  EXPECT_FALSE(RouteKeyVlanId(b, Bridging::VlanIdOrNone(0)) < RouteKeyVlanId(a, Bridging::VlanIdOrNone(4094)));
}

TEST(RouteKeyVlanIdTest, HashCombinesPrefixesAndVlan) {
  auto r = key("10.0.0.1/32", "239.1.1.1/32");
  RouteKeyVlanId k(r, Bridging::VlanIdOrNone(10));
  std::size_t expected = std::hash<Netcore::IpGenPrefix>()(r.source()) ^ std::hash<Netcore::IpGenPrefix>()(r.group()) ^
                         std::hash<Bridging::VlanIdOrNone>()(Bridging::VlanIdOrNone(10));
  EXPECT_EQ(std::hash<RouteKeyVlanId>()(k), expected);
  EXPECT_EQ(std::hash<RouteKeyVlanId>()(k), std::hash<RouteKeyVlanId>()(RouteKeyVlanId(r, Bridging::VlanIdOrNone(10))));
}

TEST(RouteKeyVlanIdTest, StrepRoundTripForBothFamilies) {
  for (auto const& k : {RouteKeyVlanId(key("10.0.0.1/32", "239.1.1.1/32"), Bridging::VlanIdOrNone(100)),
                        RouteKeyVlanId(key("2001:db8::1/128", "ff3e::8000:1/128"), Bridging::VlanIdOrNone(0)),
                        RouteKeyVlanId(key("0.0.0.0/0", "239.0.0.0/8"), Bridging::VlanIdOrNone(4094))}) {
    auto text = Vex::strep(k);
    EXPECT_EQ(text.rfind("Value('Fal::RouteKeyVlanId', ** {'route': ", 0), 0u) << text;
    EXPECT_EQ(Vex::parse<RouteKeyVlanId>(text), k) << text;
  }
}

TEST(MrouteHitActionTest, EnumerationServices) {
  EXPECT_EQ(Fal::MrouteHitActionInstance(1), MrouteHitAction::read);
  EXPECT_EQ(Fal::MrouteHitActionInstance(2), MrouteHitAction::clear);
  EXPECT_EQ(Fal::MrouteHitActionInstance("clear"), MrouteHitAction::clear);
  EXPECT_THROW(Fal::MrouteHitActionInstance(0), Vex::RangeException) << "no literal has the value 0";
  EXPECT_THROW(Fal::MrouteHitActionInstance("write"), Vex::RangeException);
  EXPECT_EQ(Fal::stringValue(MrouteHitAction::read), "read");
  EXPECT_EQ(Fal::valueToStrep(MrouteHitAction::clear), "clear");
  EXPECT_EQ(Fal::sequenceToValue(0), MrouteHitAction::read);
  EXPECT_EQ(Fal::sequenceToValue(1), MrouteHitAction::clear);
  EXPECT_THROW(Fal::sequenceToValue(2), Vex::RangeException);
  EXPECT_EQ(Vex::parse<MrouteHitAction>("clear"), MrouteHitAction::clear);
  ASSERT_NE(Vex::enumTypeByName("Fal::MrouteHitAction"), nullptr);
}

TEST(MrouteHitRequestTest, DefaultsEqualityAndStrep) {
  MrouteHitRequest def;
  EXPECT_EQ(def.requestId, 0u);
  EXPECT_EQ(def.action, MrouteHitAction::read);
  EXPECT_NE(MrouteHitRequest(1, MrouteHitAction::read), MrouteHitRequest(1, MrouteHitAction::clear));
  MrouteHitRequest r(42, MrouteHitAction::clear);
  EXPECT_EQ(Vex::strep(r), "Value('Fal::MrouteHitRequest', ** {'requestId': 42, 'action': clear})");
  EXPECT_EQ(Vex::parse<MrouteHitRequest>(Vex::strep(r)), r);
  EXPECT_EQ(Vex::parse<MrouteHitRequest>(Vex::strep(def)), def);
}

TEST(MtableOifSetPtrTest, ComparesPointersAndRoundTrips) {
  alignas(8) static char storage[16];
  auto* fake = reinterpret_cast<Fal::MtableOifSet*>(storage);
  Fal::MtableOifSetPtr p(fake), q(fake), none;
  EXPECT_EQ(p, q);
  EXPECT_NE(p, none);
  EXPECT_EQ(Vex::strep(none).rfind("RawPtr('Fal::MtableOifSet', ", 0), 0u);
  EXPECT_EQ(Vex::parse<Fal::MtableOifSetPtr>(Vex::strep(p)), p);
  EXPECT_EQ(Vex::parse<Fal::MtableOifSetPtr>(Vex::strep(none)), none);
}

TEST(ValueRangeTest, VlanBounds) {
  EXPECT_EQ(Bridging::VlanId(4094).value(), 4094);
  EXPECT_EQ(Bridging::VlanIdOrNone(4094).value(), 4094);
  EXPECT_EQ(Bridging::VlanIdOrNone(0).value(), 0) << "0 means no VLAN";
  try {
    Bridging::VlanId(4095);
    FAIL() << "VLAN 4095 accepted";
  } catch (Vex::RangeException const& e) {
    EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
  }
  try {
    Bridging::VlanIdOrNone(4095);
    FAIL() << "VLAN 4095 accepted";
  } catch (Vex::RangeException const& e) {
    EXPECT_STREQ(e.what(), "VlanIdOrNone::value > 4094 not allowed");
  }
  EXPECT_THROW(Bridging::VlanId(0), Vex::RangeException);
}

TEST(ValueRangeTest, VrfNameAtMostOneHundredBytes) {
  EXPECT_EQ(L3::VrfName(std::string(100, 'v')).stringValue().size(), 100u);
  try {
    L3::VrfName(std::string(101, 'v'));
    FAIL() << "a 101-byte VRF name was accepted";
  } catch (Vex::RangeException const& e) {
    EXPECT_STREQ(e.what(), "VrfName::bytes > VrfName::maxLength not allowed");
  }
}

}  // namespace
