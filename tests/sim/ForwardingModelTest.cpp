// The soak's model of forwarding, from the wanted routes alone: which route
// decides a flow, when it is dropped and why, and what it leaves open.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "sim/soak/ForwardingModel.h"

namespace {

using FalSim::ForwardingModel;
using Kind = ForwardingModel::Prediction::Kind;
using DropReason = FalSim::ReferenceChip::DropReason;
using MrouteLib::DesiredRoute;
using MrouteLib::PortVlan;

DesiredRoute route(char const* vrf, char const* source, char const* group, std::uint32_t vlan,
                   std::initializer_list<char const*> outputs) {
  DesiredRoute r{L3::VrfName(vrf),
                 Routing::Multicast::Fib::IpGenRouteKey(Netcore::IpGenPrefix(source), Netcore::IpGenPrefix(group))};
  if (vlan == 0) {
    r.noRpfIs(true);
  } else {
    r.acceptingVlanIs(Bridging::VlanIdOrNone(vlan));
  }
  for (char const* o : outputs) r.outputs().portVlanIs(PortVlan(o));
  return r;
}

DesiredRoute boundary(char const* group, std::uint32_t vlan) {
  DesiredRoute r = route("default", "0.0.0.0/0", group, vlan, {});
  r.bridgeIs(true);
  return r;
}

DesiredRoute protectedRoute() {
  DesiredRoute r = route("default", "10.0.0.1/32", "239.1.1.7/32", 10, {"Ethernet1.10", "Ethernet2.10"});
  r.outputs().intfIdIs(Netcore::IntfId::ethernet(1));
  r.outputs().currentIifIs(Netcore::IntfId::ethernet(1));
  r.outputs().portVlanFrrIs(PortVlan("Ethernet5.10"));
  return r;
}

// Every route of the case is wanted; those named in notProgrammed are not on
// every chip; sets protected on Ethernet1 may be rerouted when ethernet1Failed.
struct ModelCase {
  char const* name;
  std::vector<DesiredRoute> routes;
  ForwardingModel::Flow flow;
  Kind kind;
  DropReason reason = DropReason::none;
  std::vector<PortVlan> copies = {};
  bool copiesKnown = true;
  std::set<std::string> notProgrammed = {};
  bool ethernet1Failed = false;
};

std::ostream& operator<<(std::ostream& os, ModelCase const& c) { return os << c.name; }

ForwardingModel::Flow flow(char const* source, char const* group, std::uint32_t vlan, char const* vrf = "default") {
  return {L3::VrfName(vrf), Netcore::IpGenAddr(source), Netcore::IpGenAddr(group), Bridging::VlanIdOrNone(vlan)};
}

class ForwardingModelTest : public ::testing::TestWithParam<ModelCase> {};

TEST_P(ForwardingModelTest, PredictsWhatTheWantedRoutesForward) {
  auto const& c = GetParam();
  FalSim::DesiredRoutes wanted;
  for (auto const& r : c.routes) wanted[{r.vrfName(), r.key()}] = r;
  ForwardingModel const model(
      [&](DesiredRoute const& r) { return !c.notProgrammed.contains(r.key().group().stringValue()); },
      [&](MrouteLib::PortVlanSet const& outputs) {
        return c.ethernet1Failed && outputs.currentIif() == Netcore::IntfId::ethernet(1);
      });
  auto const p = model.predict(wanted, c.flow);
  ASSERT_EQ(p.kind, c.kind);
  if (c.kind == Kind::dropped) {
    EXPECT_EQ(p.reason, c.reason);
  }
  if (c.kind == Kind::forwarded) {
    EXPECT_EQ(p.copiesKnown, c.copiesKnown);
    if (c.copiesKnown) {
      EXPECT_EQ(p.copies, c.copies);
    }
  }
}

auto const kStarG = route("default", "0.0.0.0/0", "239.1.1.1/32", 10, {"Ethernet1.10"});
auto const kSG = route("default", "10.0.0.1/32", "239.1.1.1/32", 20, {"Ethernet3.20", "Ethernet2"});
auto const kGroupPrefix = route("default", "0.0.0.0/0", "239.1.1.0/24", 10, {"Ethernet4"});
auto const kSourcePrefix = route("default", "10.0.0.0/24", "239.1.1.0/24", 30, {"Ethernet6"});

INSTANTIATE_TEST_SUITE_P(
    Cases, ForwardingModelTest,
    ::testing::Values(
        ModelCase{"SourceRouteBeforeStarG", {kStarG, kSG}, flow("10.0.0.1", "239.1.1.1", 20), Kind::forwarded,
                  DropReason::none, {PortVlan("Ethernet2"), PortVlan("Ethernet3.20")}},
        ModelCase{"OtherSourcesTakeStarG", {kStarG, kSG}, flow("10.0.0.2", "239.1.1.1", 10), Kind::forwarded,
                  DropReason::none, {PortVlan("Ethernet1.10")}},
        ModelCase{"LongerSourcePrefixBeforeLongerGroup", {kStarG, kSourcePrefix}, flow("10.0.0.9", "239.1.1.1", 30),
                  Kind::forwarded, DropReason::none, {PortVlan("Ethernet6")}},
        ModelCase{"GroupPrefixCoversTheRest", {kStarG, kGroupPrefix}, flow("192.0.2.1", "239.1.1.9", 10), Kind::forwarded,
                  DropReason::none, {PortVlan("Ethernet4")}},
        ModelCase{"MostSpecificDecidesAloneOnRpf", {kStarG, kSG}, flow("10.0.0.1", "239.1.1.1", 10), Kind::dropped,
                  DropReason::rpfFail},
        ModelCase{"NoRpfAcceptsAnyVlan", {route("default", "0.0.0.0/0", "239.1.1.1/32", 0, {"Ethernet1"})},
                  flow("10.0.0.1", "239.1.1.1", 30), Kind::forwarded, DropReason::none, {PortVlan("Ethernet1")}},
        ModelCase{"NothingCoversIt", {kSG}, flow("10.0.0.2", "239.1.1.1", 20), Kind::dropped, DropReason::noRoute},
        ModelCase{"OtherVrfsRoutesDoNotCount", {kStarG}, flow("10.0.0.1", "239.1.1.1", 10, "red"), Kind::dropped,
                  DropReason::noRoute},
        ModelCase{"BoundaryStopsItsVlan", {kStarG, boundary("239.1.1.0/24", 10)}, flow("10.0.0.1", "239.1.1.1", 10),
                  Kind::dropped, DropReason::boundary},
        ModelCase{"BoundaryLetsOtherVlansPass", {kSG, boundary("239.1.1.0/24", 10)}, flow("10.0.0.1", "239.1.1.1", 20),
                  Kind::forwarded, DropReason::none, {PortVlan("Ethernet2"), PortVlan("Ethernet3.20")}},
        ModelCase{"CoveringRouteNotProgrammedLeavesItOpen", {kStarG, kGroupPrefix}, flow("10.0.0.1", "239.1.1.1", 10),
                  Kind::unknown, DropReason::none, {}, true, {"239.1.1.0/24"}},
        ModelCase{"UnrelatedRouteNotProgrammedDoesNot", {kStarG, route("default", "0.0.0.0/0", "239.9.9.9/32", 10, {})},
                  flow("10.0.0.1", "239.1.1.1", 10), Kind::forwarded, DropReason::none, {PortVlan("Ethernet1.10")}, true,
                  {"239.9.9.9/32"}},
        ModelCase{"ProtectedOutputsAsTheyAre", {protectedRoute()}, flow("10.0.0.1", "239.1.1.7", 10),
                  Kind::forwarded, DropReason::none, {PortVlan("Ethernet1.10"), PortVlan("Ethernet2.10")}},
        ModelCase{"ProtectedOutputsOpenWhenTheyMayBeRerouted", {protectedRoute()}, flow("10.0.0.1", "239.1.1.7", 10),
                  Kind::forwarded, DropReason::none, {}, false, {}, true}),
    [](auto const& info) { return std::string(info.param.name); });

// Routes not programmed, when the caller says which may be held as a
// boundary: one that a programmed, more specific route shadows does not
// matter, unless it may stop the flow as a boundary.
struct ShadowCase {
  char const* name;
  std::vector<DesiredRoute> routes;
  ForwardingModel::Flow flow;
  std::set<std::string> notProgrammed;
  std::set<std::string> mayHoldBoundary;
  Kind kind;
  char const* leftOpenBy = "";  // the group of the route reported, when unknown
};

std::ostream& operator<<(std::ostream& os, ShadowCase const& c) { return os << c.name; }

class ForwardingModelShadowTest : public ::testing::TestWithParam<ShadowCase> {};

TEST_P(ForwardingModelShadowTest, RouteNotProgrammedMattersOnlyWhereAChipCouldLookAtIt) {
  auto const& c = GetParam();
  FalSim::DesiredRoutes wanted;
  for (auto const& r : c.routes) wanted[{r.vrfName(), r.key()}] = r;
  auto group = [](DesiredRoute const& r) { return r.key().group().stringValue(); };
  ForwardingModel const model([&](DesiredRoute const& r) { return !c.notProgrammed.contains(group(r)); },
                              [](MrouteLib::PortVlanSet const&) { return false; },
                              [&](DesiredRoute const& r) { return c.mayHoldBoundary.contains(group(r)); });
  auto const p = model.predict(wanted, c.flow);
  ASSERT_EQ(p.kind, c.kind);
  if (c.kind == Kind::unknown) {
    ASSERT_NE(p.unprogrammed, nullptr);
    EXPECT_EQ(group(*p.unprogrammed), c.leftOpenBy);
  } else {
    EXPECT_EQ(p.unprogrammed, nullptr);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ForwardingModelShadowTest,
    ::testing::Values(
        ShadowCase{"LessSpecificShadowed", {kStarG, kGroupPrefix}, flow("10.0.0.1", "239.1.1.1", 10), {"239.1.1.0/24"},
                   {}, Kind::forwarded},
        ShadowCase{"ShadowedDropStillPredicted", {kStarG, kGroupPrefix}, flow("10.0.0.1", "239.1.1.1", 30),
                   {"239.1.1.0/24"}, {}, Kind::dropped},
        ShadowCase{"ShadowedButOnceABoundary", {kStarG, kGroupPrefix}, flow("10.0.0.1", "239.1.1.1", 10),
                   {"239.1.1.0/24"}, {"239.1.1.0/24"}, Kind::unknown, "239.1.1.0/24"},
        ShadowCase{"MostSpecificNotProgrammed", {kStarG, kGroupPrefix}, flow("10.0.0.1", "239.1.1.1", 10),
                   {"239.1.1.1/32"}, {}, Kind::unknown, "239.1.1.1/32"},
        ShadowCase{"MoreSpecificSourceNotProgrammed", {kStarG, kSG}, flow("10.0.0.1", "239.1.1.1", 20),
                   {"239.1.1.1/32"}, {}, Kind::unknown, "239.1.1.1/32"},
        ShadowCase{"BoundaryOnAnotherVlanNotProgrammed", {kStarG, boundary("239.1.1.0/24", 20)},
                   flow("10.0.0.1", "239.1.1.1", 10), {"239.1.1.0/24"}, {"239.1.1.0/24"}, Kind::unknown, "239.1.1.0/24"}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
