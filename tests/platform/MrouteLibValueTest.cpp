// The value types of the multicast route library: route handles, port-VLANs,
// port-VLAN sets (identity, hashing, FRR rebuild, text forms) and desired
// routes (copies that share outputs stay values).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/mroutelib/RouteKeyInfo.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Strep.h"

namespace MrouteLib {
namespace {

using Bridging::VlanIdOrNone;
using Netcore::IntfId;

PortVlan pv(std::string_view text) { return PortVlan(text); }

std::vector<std::string> texts(PortVlanSet::PortVlanColl const& c) {
  std::vector<std::string> out;
  for (auto const& p : c) out.push_back(p.stringValue());
  return out;
}

TEST(MrouteLibRouteHandle, OnlyTheAllOnesValueIsNull) {
  EXPECT_TRUE(RouteHandle().isNull());
  EXPECT_TRUE(RouteHandle(0xFFFFFFFF).isNull());
  EXPECT_TRUE(invalidRouteHandle.isNull());
  EXPECT_EQ(RouteHandle::invalid(), invalidRouteHandle);
  EXPECT_FALSE(RouteHandle(0).isNull());
  EXPECT_FALSE(RouteHandle(0xFFFFFFFE).isNull());
  EXPECT_LT(RouteHandle(7), RouteHandle(8));
}

TEST(MrouteLibRouteHandle, PrintsDecimalAndParsesBack) {
  EXPECT_EQ(Vex::strep(RouteHandle(4096)), "4096");
  EXPECT_EQ(Vex::strep(invalidRouteHandle), "4294967295");
  for (auto h : {RouteHandle(0), RouteHandle(12345), invalidRouteHandle})
    EXPECT_EQ(Vex::parse<RouteHandle>(Vex::strep(h)), h);
  EXPECT_THROW(Vex::parse<RouteHandle>("4294967296"), Vex::ParseError);
}

TEST(MrouteLibPortVlan, ShortFormRoundTripsWithAndWithoutVlan) {
  EXPECT_EQ(PortVlan(IntfId::ethernet(1), VlanIdOrNone(100)).stringValue(), "Ethernet1.100");
  EXPECT_EQ(pv("Ethernet1.100"), PortVlan(IntfId::ethernet(1), VlanIdOrNone(100)));
  EXPECT_EQ(pv("Port-Channel5"), PortVlan(IntfId("Port-Channel5"), VlanIdOrNone()));
  EXPECT_EQ(pv("Port-Channel5").stringValue(), "Port-Channel5");
  EXPECT_THROW(pv("Ethernet1.4095"), Vex::RangeException);
  EXPECT_THROW(pv("Ethernet1.x"), Vex::ParseError);
  EXPECT_THROW(pv("Bogus1.10"), Vex::ParseError);
}

TEST(MrouteLibPortVlan, OrdersByPortThenVlanAndStrepRoundTrips) {
  EXPECT_LT(pv("Ethernet1.200"), pv("Ethernet2.100"));
  EXPECT_LT(pv("Ethernet2"), pv("Ethernet2.1"));
  auto p = pv("Ethernet7.42");
  EXPECT_EQ(Vex::strep(p), "Value('MrouteLib::PortVlan', ** {'port': 'Ethernet7', 'vlan': 42})");
  EXPECT_EQ(Vex::parse<PortVlan>(Vex::strep(p)), p);
}

TEST(MrouteLibPortVlanSet, CollectionsStaySortedWithoutDuplicates) {
  PortVlanSet s;
  for (auto t : {"Ethernet3.10", "Ethernet1.10", "Ethernet2.20", "Ethernet1.10"}) s.portVlanIs(pv(t));
  EXPECT_EQ(texts(s.portVlan()), (std::vector<std::string>{"Ethernet1.10", "Ethernet2.20", "Ethernet3.10"}));
  s.portVlanDel(pv("Ethernet2.20"));
  s.portVlanDel(pv("Ethernet9.20"));
  EXPECT_EQ(texts(s.portVlan()), (std::vector<std::string>{"Ethernet1.10", "Ethernet3.10"}));
  EXPECT_TRUE(s.portVlan(pv("Ethernet3.10")));
  EXPECT_FALSE(s.portVlan(pv("Ethernet2.20")));
  s.natVlanIs(VlanIdOrNone(30));
  s.natVlanIs(VlanIdOrNone(5));
  s.natVlanIs(VlanIdOrNone(30));
  EXPECT_EQ(s.natVlan(), (PortVlanSet::NatVlanColl{VlanIdOrNone(5), VlanIdOrNone(30)}));
  s.portVlanDelAll();
  EXPECT_EQ(s.portVlanSize(), 0u);
}

TEST(MrouteLibPortVlanSet, EqualContentIsEqualWhateverTheInsertionOrder) {
  PortVlanSet a, b;
  for (auto t : {"Ethernet1.10", "Ethernet2.10", "Ethernet3.10"}) a.portVlanIs(pv(t));
  for (auto t : {"Ethernet3.10", "Ethernet1.10", "Ethernet2.10"}) b.portVlanIs(pv(t));
  a.portVlanFrrIs(pv("Ethernet8.10"));
  b.portVlanFrrIs(pv("Ethernet8.10"));
  a.saveHash();  // the saved hash is a cache, not part of the content
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(a.savedHash(), a.hash());
}

// Each mutation changes one field that defines the set's identity.
struct FieldChange {
  char const* name;
  std::function<void(PortVlanSet&)> change;
};

class MrouteLibPortVlanSetIdentity : public testing::TestWithParam<FieldChange> {};

TEST_P(MrouteLibPortVlanSetIdentity, ChangingTheFieldChangesEqualityAndHash) {
  PortVlanSet base;
  base.portVlanIs(pv("Ethernet1.10"));
  base.portVlanFrrIs(pv("Ethernet4.10"));
  base.natVlanIs(VlanIdOrNone(50));
  base.currentIifIs(IntfId::ethernet(9));
  base.intfIdIs(IntfId::ethernet(1));
  PortVlanSet changed = base;
  ASSERT_EQ(changed, base);
  GetParam().change(changed);
  EXPECT_NE(changed, base);
  EXPECT_NE(changed.hash(), base.hash());
}

INSTANTIATE_TEST_SUITE_P(
    AllFields, MrouteLibPortVlanSetIdentity,
    testing::Values(FieldChange{"portVlan", [](PortVlanSet& s) { s.portVlanIs(pv("Ethernet2.10")); }},
                    FieldChange{"portVlanFrr", [](PortVlanSet& s) { s.portVlanFrrIs(pv("Ethernet5.10")); }},
                    FieldChange{"portVlanFrrDel", [](PortVlanSet& s) { s.portVlanFrrDelAll(); }},
                    FieldChange{"frrMovedToOutputs",
                                [](PortVlanSet& s) {
                                  s.portVlanFrrDel(pv("Ethernet4.10"));
                                  s.portVlanIs(pv("Ethernet4.10"));
                                }},
                    FieldChange{"natVlan", [](PortVlanSet& s) { s.natVlanIs(VlanIdOrNone(51)); }},
                    FieldChange{"natVlanDel", [](PortVlanSet& s) { s.natVlanDel(VlanIdOrNone(50)); }},
                    FieldChange{"toCpu", [](PortVlanSet& s) { s.toCpuIs(true); }},
                    FieldChange{"currentIif", [](PortVlanSet& s) { s.currentIifIs(IntfId::ethernet(8)); }},
                    FieldChange{"currentIifType", [](PortVlanSet& s) { s.currentIifTypeIs(2); }},
                    FieldChange{"intfId", [](PortVlanSet& s) { s.intfIdIs(IntfId()); }},
                    FieldChange{"notInHw", [](PortVlanSet& s) { s.notInHwIs(PortVlanSet::kNotInHw); }}),
    [](testing::TestParamInfo<FieldChange> const& info) { return std::string(info.param.name); });

TEST(MrouteLibPortVlanSet, EmptyMeansNoOutputOfAnyKind) {
  EXPECT_TRUE(PortVlanSet().empty());
  PortVlanSet cpu, nat, frr, iifOnly;
  cpu.toCpuIs(true);
  nat.natVlanIs(VlanIdOrNone(3));
  frr.portVlanFrrIs(pv("Ethernet1.3"));
  iifOnly.currentIifIs(IntfId::ethernet(1));
  EXPECT_FALSE(cpu.empty());
  EXPECT_FALSE(nat.empty());
  EXPECT_FALSE(frr.empty());
  EXPECT_TRUE(iifOnly.empty());
}

TEST(MrouteLibPortVlanSet, NotInHwOfOneMeansNotUsedInHardware) {
  PortVlanSet s;
  EXPECT_EQ(s.notInHw(), 0);
  EXPECT_TRUE(s.usedInHw());
  s.notInHwIs(1);
  EXPECT_FALSE(s.usedInHw());
}

PortVlanSet frrProtected() {
  PortVlanSet s;
  for (auto t : {"Ethernet1.10", "Ethernet1.20", "Ethernet2.10", "Ethernet3.10"}) s.portVlanIs(pv(t));
  s.portVlanFrrIs(pv("Ethernet5.10"));
  s.portVlanFrrIs(pv("Ethernet3.10"));
  s.natVlanIs(VlanIdOrNone(7));
  s.toCpuIs(true);
  s.currentIifIs(IntfId::ethernet(9));
  s.intfIdIs(IntfId::ethernet(1));
  return s;
}

TEST(MrouteLibPortVlanSet, FrrReplacesEveryOutputOnTheProtectedPortByTheBackups) {
  auto after = frrProtected().withFrrApplied();
  EXPECT_EQ(texts(after.portVlan()), (std::vector<std::string>{"Ethernet2.10", "Ethernet3.10", "Ethernet5.10"}));
  EXPECT_EQ(after.portVlanFrrSize(), 0u);
  EXPECT_TRUE(after.intfId().isEmpty());
  EXPECT_EQ(after.currentIif(), IntfId::ethernet(9));
  EXPECT_TRUE(after.toCpu());
  EXPECT_TRUE(after.natVlan(VlanIdOrNone(7)));
  EXPECT_EQ(after.savedHash(), after.hash());
  EXPECT_EQ(after.withFrrApplied(), after);
}

TEST(MrouteLibPortVlanSet, FrrKeepsOutputsWhenNothingLeavesThroughTheProtectedPort) {
  auto noOutputThere = frrProtected();
  noOutputThere.intfIdIs(IntfId::ethernet(6));
  auto unprotected = frrProtected();
  unprotected.intfIdIs(IntfId());
  for (auto const& s : {noOutputThere, unprotected}) {
    auto after = s.withFrrApplied();
    EXPECT_EQ(after.portVlan(), s.portVlan());
    EXPECT_EQ(after.portVlanFrrSize(), 0u);
  }
}

TEST(MrouteLibPortVlanSet, StrepRoundTripsEveryFieldAndPrettyNamesThem) {
  auto s = frrProtected();
  s.currentIifTypeIs(3);
  s.notInHwIs(1);
  auto text = Vex::strep(s);
  EXPECT_EQ(text.rfind("Value('MrouteLib::PortVlanSet', ** {'portVlan': [Value('MrouteLib::PortVlan', ", 0), 0u);
  auto back = Vex::parse<PortVlanSet>(text);
  EXPECT_EQ(back, s);
  EXPECT_EQ(Vex::parse<PortVlanSet>(Vex::strep(PortVlanSet())), PortVlanSet());
  EXPECT_EQ(s.pretty(),
            "{portVlan: [Ethernet1.10, Ethernet1.20, Ethernet2.10, Ethernet3.10], portVlanFrr: [Ethernet3.10, "
            "Ethernet5.10], natVlan: [7], toCpu: true, currentIif: Ethernet9, currentIifType: 3, intfId: Ethernet1, "
            "notInHw: 1}");
  EXPECT_THROW(Vex::parse<PortVlanSet>(text.substr(0, text.size() - 2)), Vex::ParseError);
}

TEST(MrouteLibRouteKeyInfo, StrepRoundTrips) {
  RouteKeyInfo k{.vrfId = 70000, .routeKeyType = 2, .acceptingVlan = Bridging::VlanIdOrNone(10), .bridge = true,
                 .fastdrop = false};
  EXPECT_EQ(Vex::strep(k), "Value('MrouteLib::RouteKeyInfo', ** {'vrfId': 70000, 'routeKeyType': 2, 'acceptingVlan': 10, "
                           "'bridge': True, 'fastdrop': False})");
  EXPECT_EQ(Vex::parse<RouteKeyInfo>(Vex::strep(k)), k);
  EXPECT_THROW(Vex::parse<RouteKeyInfo>("Value('MrouteLib::RouteKeyInfo', ** {'vrfId': 1, 'routeKeyType': 2, "
                                        "'acceptingVlan': 4095, 'bridge': True, 'fastdrop': False})"),
               Vex::RangeException)
      << "the VLAN is checked on the way in";
}

// Copies of a route, and routes given another's outputs, hold one set of
// outputs until one of them changes its own: the others keep theirs.
TEST(MrouteLibDesiredRoute, CopiesSharingOutputsStayIndependentValues) {
  DesiredRoute a(L3::VrfName("red"), Routing::Multicast::Fib::IpGenRouteKey(Netcore::IpGenPrefix("10.0.0.1/32"),
                                                                             Netcore::IpGenPrefix("239.1.1.1/32")));
  EXPECT_TRUE(a.outputs().empty());
  a.outputs().portVlanIs(pv("Ethernet1.100"));
  DesiredRoute b = a;
  DesiredRoute c;
  c.outputsShare(a);
  EXPECT_EQ(&std::as_const(b).outputs(), &std::as_const(a).outputs()) << "a copy shares the outputs";
  EXPECT_EQ(&std::as_const(c).outputs(), &std::as_const(a).outputs());
  EXPECT_EQ(a, b);

  b.outputs().portVlanIs(pv("Ethernet2.100"));
  EXPECT_NE(a, b);
  EXPECT_EQ(texts(std::as_const(a).outputs().portVlan()), (std::vector<std::string>{"Ethernet1.100"}));
  EXPECT_EQ(texts(std::as_const(c).outputs().portVlan()), (std::vector<std::string>{"Ethernet1.100"}));
  EXPECT_EQ(texts(std::as_const(b).outputs().portVlan()), (std::vector<std::string>{"Ethernet1.100", "Ethernet2.100"}));

  a.outputsIs(PortVlanSet());
  EXPECT_TRUE(std::as_const(a).outputs().empty());
  EXPECT_EQ(texts(std::as_const(c).outputs().portVlan()), (std::vector<std::string>{"Ethernet1.100"}));
  // No outputs and empty outputs are the same value.
  DesiredRoute d(a.vrfName(), a.key());
  EXPECT_EQ(a, d);
}

}  // namespace
}  // namespace MrouteLib
