// Faults the invariant checker finds on its own, without a traffic
// expectation: fast-reroute protection lost, a parked state nobody cleared,
// a route's status that takes another set's rewritten entry for its own, a
// chip's table meddled with where the check walks it in order, set traffic
// that does not come from the route's sources.
#include "sim/InvariantChecker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>

#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::InvariantChecker;
using FalSim::ReferenceChip;
using FalSim::SimReport;
using FalSim::SimRunner;
using Routing::Multicast::Fib::IpGenRouteKey;

SimRunner runnerFor(std::string const& json) { return SimRunner(FalSim::ScenarioLoader::parse(json, "checker.json")); }

std::size_t findingsWith(SimReport const& r, std::string const& text) {
  return static_cast<std::size_t>(
      std::count_if(r.findings.begin(), r.findings.end(), [&](auto const& f) { return f.find(text) != std::string::npos; }));
}

IpGenRouteKey key(char const* s, char const* g) { return IpGenRouteKey(Netcore::IpGenPrefix(s), Netcore::IpGenPrefix(g)); }

constexpr char const* kNotRewritten = "protected on Ethernet2, which is down, is neither waiting for its fast-reroute "
                                      "rewrite nor rewritten";

constexpr char const* kAddThenFail =
    R"([{"at": 1, "do": "addRoutes", "set": "p"}, {"at": 3, "do": "interfaceDown", "interface": "Ethernet2"}])";

// One protected route, and Ethernet2 fails.
struct ProtectionCase {
  char const* name;
  char const* events;
  // Run just before the failure.
  std::function<void(SimRunner&)> meddle;
  bool reported;
};

std::ostream& operator<<(std::ostream& os, ProtectionCase const& c) { return os << c.name; }

class ProtectionCheckTest : public ::testing::TestWithParam<ProtectionCase> {};

TEST_P(ProtectionCheckTest, ProtectedSetLeftOnTheFailedInterfaceIsReported) {
  SimRunner runner = runnerFor(std::string(R"({"interfaces": {"ethernet": 4, "vlans": [100, 200]},
    "routeSets": [{"name": "p", "routes": [{"source": "10.1.1.1", "group": "239.5.5.5", "acceptingVlan": 100,
      "outputs": ["Ethernet1.200", "Ethernet2.200"], "frr": {"protected": "Ethernet2", "backups": ["Ethernet3.200"]}}]}],
    "events": )") + GetParam().events + R"(, "end": 5})");
  runner.start();
  while (runner.nextEvent() < runner.scenario().events.size()) {
    bool const failureNext = runner.scenario().events[runner.nextEvent()].kind == FalSim::Scenario::EventKind::interfaceDown;
    if (failureNext && GetParam().meddle) GetParam().meddle(runner);
    runner.step();
  }
  runner.finish();
  SimReport const& report = runner.report();
  EXPECT_EQ(findingsWith(report, kNotRewritten), GetParam().reported ? 2u : 0u) << report.findings.size();
  EXPECT_EQ(report.violations, GetParam().reported ? 2u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ProtectionCheckTest,
    ::testing::Values(
        ProtectionCase{"Rewritten", kAddThenFail, nullptr, false},
        // The switch forgets to watch the set: the failure passes it by.
        ProtectionCase{"ProtectionLost", kAddThenFail,
                       [](SimRunner& runner) {
                         auto const oifSet = runner.agent().programmer().oifSet(L3::VrfName("default"),
                                                                                key("10.1.1.1", "239.5.5.5"));
                         ASSERT_TRUE(oifSet);
                         runner.agent().switchAt(0).frrMtableOifSetDel(oifSet.get());
                       },
                       true},
        // Made after the failure: watched for the next one only.
        ProtectionCase{"MadeAfterTheFailure",
                       R"([{"at": 3, "do": "interfaceDown", "interface": "Ethernet2"},
                           {"at": 4, "do": "addRoutes", "set": "p"}])",
                       nullptr, false}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(InvariantCheckerTest, RouteEveryChipHoldsWhoseStatusSaysNotProgrammedIsReported) {
  SimRunner runner = runnerFor(R"({"chips": {"count": 2}, "interfaces": {"ethernet": 2, "vlans": [10]},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}, {"at": 2, "do": "config", "zombies": true}]})");
  runner.start();
  ASSERT_TRUE(runner.step());
  ASSERT_EQ(runner.report().violations, 0u);
  // A parked state that nobody cleared.
  auto status = runner.agent().hwStatus(Netcore::AddressFamily::ipv4).vrfStatus(L3::VrfName("default"));
  ASSERT_TRUE(status);
  status->route(key("0.0.0.0/0", "239.1.1.1"))->programmedIs(false);
  runner.finish();
  SimReport const& report = runner.report();
  ASSERT_FALSE(report.findings.empty());
  EXPECT_EQ(report.findings[0],
            "events[1]: route [default] (*, 239.1.1.1): its status says not programmed, but every chip holds it as wanted");
}

// A route protected on Ethernet3 is held on its entry rewritten to the
// backups; then it wants Ethernet3.20 alone, whose rewritten form is the same
// backups. The synchronous chip's table is full, so the route is parked on its
// old entry; the asynchronous chip is still writing the new group. Either way
// the old entry is not the wanted one.
class AnotherSetsRewrittenEntryTest : public ::testing::TestWithParam<char const*> {};

TEST_P(AnotherSetsRewrittenEntryTest, IsNotTakenForTheWantedOne) {
  std::string const flavour = GetParam();
  char const* route = R"({"vrf": "default", "source": "*", "group": "ff3e::12", "acceptingVlan": 10,
    "frr": {"protected": "Ethernet3", "backups": ["Ethernet6.20", "Ethernet8"]}, "outputs": )";
  SimRunner runner = runnerFor(std::string(R"({"chips": {"count": 1, "flavour": ")") + flavour + R"("},
    "interfaces": {"ethernet": ["Ethernet3", "Ethernet6", "Ethernet8"], "vlans": [10, 20]},
    "events": [{"at": 1, "do": "addRoute", "route": )" + route + R"(["Ethernet3", "Ethernet3.20"]}},
               {"at": 2, "do": "interfaceDown", "interface": "Ethernet3"},
               {"at": 2.5, "do": "fault", "table": "replication", "forceFull": )" +
                               (flavour == "sync" ? "true" : "false") + R"(},
               {"at": 3, "do": "addRoute", "route": )" + route + R"(["Ethernet3.20"]}}]})");
  runner.start();
  while (runner.nextEvent() < runner.scenario().events.size()) ASSERT_TRUE(runner.step());
  EXPECT_EQ(runner.report().violations, 0u) << runner.report().findings[0];
  auto status = runner.agent().hwStatus(Netcore::AddressFamily::ipv6).vrfStatus(L3::VrfName("default"));
  ASSERT_TRUE(status);
  auto routeStatus = status->route(key("::/0", "ff3e::12"));
  ASSERT_TRUE(routeStatus);
  ASSERT_FALSE(routeStatus->programmed());
  // The chip's entry replicates to the wanted outputs' rewritten form, but
  // it was made for others: a status saying programmed is wrong.
  routeStatus->programmedIs(true);
  std::vector<std::string> const findings = InvariantChecker().check(runner.agent(), runner.desired());
  EXPECT_NE(std::find(findings.begin(), findings.end(),
                      "route [default] (*, ff3e::12): its status says programmed, but not every chip holds it as wanted"),
            findings.end());
}

INSTANTIATE_TEST_SUITE_P(Flavours, AnotherSetsRewrittenEntryTest, ::testing::Values("sync", "async"),
                         [](auto const& info) { return std::string(info.param); });

// Eight routes the chip holds in the order they are wanted, with handles
// counting up: the check finds each where it guesses it, after the one
// before. Meddling with the chip's table then must be found as it would be
// by looking every route up by key.
struct HeldRoute {
  MrouteLib::RouteHandle handle;
  IpGenRouteKey key;
  Bridging::VlanIdOrNone vlan;
  std::uint32_t oifSetIndex;
};

struct ChipWalkCase {
  char const* name;
  std::function<void(ReferenceChip&, std::vector<HeldRoute> const&)> meddle;
  std::vector<std::size_t> notHeld;  // wanted routes whose status must be found wrong
  std::size_t stale;                 // chip routes no wanted route accounts for
};

std::ostream& operator<<(std::ostream& os, ChipWalkCase const& c) { return os << c.name; }

// The route of held, programmed again (on the entry at index).
void programAgain(ReferenceChip& chip, HeldRoute const& held, std::uint32_t index) {
  ReferenceChip::RouteEntry e;
  e.key = held.key;
  e.acceptingVlan = held.vlan;
  e.oifSetIndex = index;
  ASSERT_FALSE(chip.routeAllocate(0, std::move(e), false, "test").isNull());
}

class ChipWalkTest : public ::testing::TestWithParam<ChipWalkCase> {};

TEST_P(ChipWalkTest, FindsWhatALookupByKeyFinds) {
  std::string routes;
  for (int g = 1; g <= 8; ++g) {
    routes += std::string(g > 1 ? ", " : "") + R"({"source": "10.0.0.1", "group": "239.1.1.)" + std::to_string(g) +
              R"(", "acceptingVlan": 10, "outputs": ["Ethernet)" + std::to_string(1 + g % 2) + R"("]})";
  }
  SimRunner runner = runnerFor(R"({"interfaces": {"ethernet": 2, "vlans": [10]},
    "routeSets": [{"name": "s", "routes": [)" + routes + R"(]}], "events": [{"at": 1, "do": "addRoutes", "set": "s"}]})");
  runner.start();
  ASSERT_TRUE(runner.step());
  ASSERT_EQ(runner.report().violations, 0u) << runner.report().findings[0];
  ReferenceChip& chip = runner.chip();
  std::vector<HeldRoute> held;
  for (auto const& want : runner.desired()) {
    auto const* r = chip.route(0, 0, want.key(), want.acceptingVlan());
    ASSERT_TRUE(r);
    held.push_back({r->handle, r->key, r->acceptingVlan, r->oifSetIndex});
    ASSERT_EQ(r->handle.value(), held.front().handle.value() + held.size() - 1);
  }
  ASSERT_EQ(held.size(), 8u);
  if (GetParam().meddle) GetParam().meddle(chip, held);

  std::vector<std::string> const findings = InvariantChecker().check(runner.agent(), runner.desired());
  std::vector<std::string> statusFindings;
  for (auto const& f : findings) {
    if (f.find(": its status says") != std::string::npos) statusFindings.push_back(f);
  }
  std::vector<std::string> expected;
  for (std::size_t i : GetParam().notHeld) {
    expected.push_back("route [default] " + held[i].key.pretty() +
                       ": its status says programmed, but not every chip holds it as wanted");
  }
  EXPECT_EQ(statusFindings, expected);
  std::string const stale =
      "chip 0: the chip holds " + std::to_string(GetParam().stale) + " route or boundary entries that no wanted route accounts for";
  EXPECT_EQ(std::count(findings.begin(), findings.end(), stale), GetParam().stale > 0 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Meddling, ChipWalkTest,
    ::testing::Values(
        ChipWalkCase{"None", nullptr, {}, 0},
        ChipWalkCase{"RouteMissing", [](ReferenceChip& chip, auto const& held) { chip.routeDel(0, held[4].handle); },
                     {4}, 0},
        ChipWalkCase{"RouteOnAnotherSetsEntry",
                     [](ReferenceChip& chip, auto const& held) {
                       chip.routeEntryIs(0, held[4].handle, held[5].oifSetIndex, "test");
                     },
                     {4}, 0},
        ChipWalkCase{"RouteNobodyWants",
                     [](ReferenceChip& chip, auto const& held) {
                       programAgain(chip, {{}, key("10.0.0.1", "239.1.1.99"), held[0].vlan, 0}, held[0].oifSetIndex);
                     },
                     {}, 1},
        // Route 3 again, last, then a second route 4 on another set's entry
        // right after it, where the walk guesses route 4: the first route 4
        // programmed is the one a lookup finds, and it is as wanted.
        ChipWalkCase{"SecondRouteOfAKeyWhereTheWalkGuesses",
                     [](ReferenceChip& chip, auto const& held) {
                       chip.routeDel(0, held[3].handle);
                       programAgain(chip, held[3], held[3].oifSetIndex);
                       programAgain(chip, held[4], held[5].oifSetIndex);
                     },
                     {}, 1}),
    [](auto const& info) { return std::string(info.param.name); });

// The chip's table is full for the last route of the set, which comes
// between two the chip holds in (VRF, key) order: where the check guesses
// it is the next route's entry, which must not be taken for it.
TEST(InvariantCheckerTest, WantedRouteTheChipRefusedBetweenTwoItHoldsIsNotTakenForTheNext) {
  std::string routes;
  for (int g : {1, 2, 3, 5, 6, 7, 8, 4}) {
    routes += std::string(g > 1 ? ", " : "") + R"({"source": "10.0.0.1", "group": "239.1.1.)" + std::to_string(g) +
              R"(", "acceptingVlan": 10, "outputs": ["Ethernet)" + std::to_string(1 + g % 2) + R"("]})";
  }
  SimRunner runner = runnerFor(R"({"chips": {"routes": 7}, "interfaces": {"ethernet": 2, "vlans": [10]},
    "routeSets": [{"name": "s", "routes": [)" + routes + R"(]}], "events": [{"at": 1, "do": "addRoutes", "set": "s"}]})");
  runner.start();
  ASSERT_TRUE(runner.step());
  EXPECT_EQ(runner.agent().programmer().routesParked(), 1u);
  EXPECT_EQ(runner.report().violations, 0u) << runner.report().findings[0];
  EXPECT_EQ(InvariantChecker().check(runner.agent(), runner.desired()), std::vector<std::string>{});
}

struct FlowCase {
  char const* name;
  IpGenRouteKey key;
  char const* source;
  char const* group;
  char const* setSource;  // "" when the event names none
  std::optional<std::string> finding;
};

std::ostream& operator<<(std::ostream& os, FlowCase const& c) { return os << c.name; }

class FlowCheckTest : public ::testing::TestWithParam<FlowCase> {};

TEST_P(FlowCheckTest, FlowMustComeFromTheRoutesSourcesAndTheEventsSourceWhenItFits) {
  FlowCase const& c = GetParam();
  MrouteLib::DesiredRoute route(L3::VrfName("default"), c.key);
  Netcore::IpGenAddr const setSource = *c.setSource ? Netcore::IpGenAddr(c.setSource) : Netcore::IpGenAddr();
  auto const finding =
      InvariantChecker::flowFinding(route, Netcore::IpGenAddr(c.source), Netcore::IpGenAddr(c.group), setSource);
  EXPECT_EQ(finding, c.finding);
}

INSTANTIATE_TEST_SUITE_P(
    Flows, FlowCheckTest,
    ::testing::Values(
        FlowCase{"WildcardFromTheUnspecifiedAddress", key("0.0.0.0/0", "224.0.0.0/4"), "0.0.0.0", "224.0.0.0", "10.0.0.9",
                 "traffic for route [default] (*, 224.0.0.0/4) is sent from 0.0.0.0, which is not one of the route's "
                 "sources"},
        FlowCase{"PrefixIgnoringTheEventsSource", key("10.0.0.0/24", "224.0.0.0/4"), "10.0.0.0", "224.0.0.0", "10.0.0.9",
                 "traffic for route [default] (10.0.0.0/24, 224.0.0.0/4) is sent from 10.0.0.0, not from the event's "
                 "source 10.0.0.9"},
        FlowCase{"PrefixFromOutside", key("10.0.0.0/24", "239.1.1.1"), "10.0.1.5", "239.1.1.1", "",
                 "traffic for route [default] (10.0.0.0/24, 239.1.1.1) is sent from 10.0.1.5, which is not one of the "
                 "route's sources"},
        FlowCase{"GroupOutsideThePrefix", key("10.0.0.1", "239.2.0.0/16"), "10.0.0.1", "239.3.0.1", "",
                 "traffic for route [default] (10.0.0.1, 239.2.0.0/16) is sent to 239.3.0.1, which is not one of the "
                 "route's groups"},
        FlowCase{"WildcardFromTheEventsSource", key("0.0.0.0/0", "224.0.0.0/4"), "10.0.0.9", "224.0.0.0", "10.0.0.9",
                 std::nullopt},
        FlowCase{"PrefixFromInsideWhenTheEventsSourceDoesNotFit", key("10.0.0.0/24", "239.1.1.1"), "10.0.0.1",
                 "239.1.1.1", "192.0.2.7", std::nullopt},
        FlowCase{"Ipv6HostRoute", key("2001:db8::5", "ff3e::1"), "2001:db8::5", "ff3e::1", "", std::nullopt}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
