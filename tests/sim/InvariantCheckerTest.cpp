// Faults the invariant checker finds on its own, without a traffic
// expectation: fast-reroute protection lost, a parked state nobody cleared,
// a route's status that takes another set's rewritten entry for its own, set
// traffic that does not come from the route's sources.
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
