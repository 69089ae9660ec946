// Scenario files that once went wrong (tests/sim/scenarios/), run whole: each
// must end clean and with the outcome its description promises. And the
// fast-reroute example on one, two and four chips.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::ReferenceChip;
using FalSim::Scenario;
using FalSim::SimReport;
using FalSim::SimRunner;

std::string sourceFile(std::string const& relative) { return std::string(FALMROUTE_SOURCE_DIR) + "/" + relative; }

std::string firstFinding(SimReport const& r) { return r.findings.empty() ? "" : r.findings[0]; }

bool programmed(SimRunner& runner, char const* vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) {
  auto status = runner.agent().hwStatus(key.af()).vrfStatus(L3::VrfName(vrf));
  auto route = status ? status->route(key) : nullptr;
  return route && route->programmed();
}

struct FaultCase {
  char const* file;
  // What the run must have done, beyond ending clean.
  std::function<void(SimRunner&, SimReport const&)> outcome;
};

std::ostream& operator<<(std::ostream& os, FaultCase const& c) { return os << c.file; }

class FaultScenarioTest : public ::testing::TestWithParam<FaultCase> {};

TEST_P(FaultScenarioTest, EndsCleanWithTheOutcomeItDescribes) {
  SimRunner runner(FalSim::ScenarioLoader::load(sourceFile(std::string("tests/sim/scenarios/") + GetParam().file)));
  SimReport const report = runner.run();
  EXPECT_TRUE(report.ok()) << firstFinding(report);
  EXPECT_EQ(report.violations, 0u) << firstFinding(report);
  GetParam().outcome(runner, report);
}

INSTANTIATE_TEST_SUITE_P(
    Files, FaultScenarioTest,
    ::testing::Values(
        FaultCase{"frr-zombie-resurrected.json",
                  [](SimRunner&, SimReport const& r) {
                    EXPECT_EQ(r.zombieReuses, 1u);
                    EXPECT_EQ(r.interfaceFailures, 2u);
                    EXPECT_EQ(r.frrRewrites, 1u);
                    EXPECT_EQ(r.expectationsMet, 2u);
                  }},
        FaultCase{"parked-routes-wanted-order.json",
                  [](SimRunner& runner, SimReport const& r) {
                    EXPECT_EQ(r.routesDesired, 6u);
                    EXPECT_EQ(r.routesProgrammed, 5u);
                    // The slot freed at 3.0 went to the generated route wanted first.
                    auto const& generated = runner.scenario().routeSets[0].routes;
                    EXPECT_TRUE(programmed(runner, "default", generated[0].key()));
                    EXPECT_FALSE(programmed(runner, "default", generated[1].key()));
                  }},
        FaultCase{"always-due-clocks.json",
                  [](SimRunner& runner, SimReport const& r) {
                    // One turn of four 0.05 s slices past the end at most.
                    EXPECT_GE(r.endTime, 111.3);
                    EXPECT_LE(r.endTime, 111.3 + 4 * 0.05 + 1e-9);
                    EXPECT_EQ(runner.chip().capacity(0).routes, 15u);
                    EXPECT_EQ(r.routesProgrammed, 8u);
                    // The capacity change came at most one turn late, and aging went on.
                    EXPECT_LE(r.eventsLate, 1u);
                    EXPECT_GT(r.agingPassesCompleted, 4u);
                  }},
        FaultCase{"no-outputs-refused-table.json",
                  [](SimRunner& runner, SimReport const& r) {
                    EXPECT_EQ(r.routesProgrammed, 1u);
                    ASSERT_EQ(runner.chip().routes(0).size(), 1u);
                    EXPECT_EQ(runner.chip().routes(0).begin()->second.oifSetIndex, ReferenceChip::kNowhereIndex);
                    EXPECT_EQ(runner.chip().failNextAllocations(0, ReferenceChip::Table::replication), 5u);
                  }},
        FaultCase{"no-outputs-freed-together.json",
                  [](SimRunner& runner, SimReport const& r) {
                    EXPECT_EQ(r.packetsForwarded, 6u);
                    EXPECT_EQ(r.copies, 0u);
                    EXPECT_EQ(r.allocations, 0u);
                    EXPECT_EQ(r.entriesInUse, 0u);
                    EXPECT_TRUE(runner.agent().switchAt(0).zombieOifSet().empty());
                    EXPECT_EQ(r.zombiesEntered, 0u);
                  }},
        FaultCase{"parked-route-back-on-bound-entry.json",
                  [](SimRunner&, SimReport const& r) {
                    EXPECT_EQ(r.peakRoutesParked, 1u);
                    EXPECT_EQ(r.routesParked, 0u);
                    EXPECT_EQ(r.routesProgrammed, 2u);
                  }},
        FaultCase{"partial-capacity.json",
                  [](SimRunner& runner, SimReport const& r) {
                    EXPECT_EQ(runner.chip().capacity(0).routes, 10u);
                    EXPECT_EQ(runner.chip().capacity(0).replicationEntries, 100u);
                    EXPECT_EQ(r.routesProgrammed, 3u);
                    EXPECT_EQ(r.expectationsMet, 1u);
                  }},
        FaultCase{"async-readd-refused-group.json",
                  [](SimRunner& runner, SimReport const& r) {
                    EXPECT_EQ(r.peakRoutesParked, 1u);
                    EXPECT_EQ(r.routesProgrammed, 1u);
                    EXPECT_EQ(r.expectationsMet, 2u * 2u);  // both flows on both chips
                    for (std::uint32_t c = 0; c < 2; ++c) EXPECT_EQ(runner.chip().routes(c).size(), 1u);
                  }},
        FaultCase{"async-restart-attribute-change.json",
                  [](SimRunner& runner, SimReport const& r) {
                    EXPECT_EQ(r.restarts, 1u);
                    // The asynchronous chip holds the route once, on its new VLAN.
                    auto const& routes = runner.chip().routes(1);
                    ASSERT_EQ(routes.size(), 1u);
                    EXPECT_EQ(routes.begin()->second.acceptingVlan, Bridging::VlanIdOrNone(30));
                  }},
        FaultCase{"async-repoint-same-rewritten-form.json",
                  [](SimRunner&, SimReport const& r) {
                    EXPECT_EQ(r.interfaceFailures, 1u);
                    EXPECT_EQ(r.routesProgrammed, 1u);
                    EXPECT_EQ(r.expectationsMet, 2u);  // both chips on the new entry
                  }},
        FaultCase{"set-traffic-prefix-sources.json",
                  [](SimRunner&, SimReport const& r) {
                    // From 10.0.0.9 both flows take the noRpf prefix route (one
                    // copy each); without a source, each route carries its own.
                    EXPECT_EQ(r.packetsForwarded, 4u);
                    EXPECT_EQ(r.copies, 2u + 3u);
                    EXPECT_EQ(r.expectationsMet, 4u);
                  }}),
    [](auto const& info) {
      std::string name = info.param.file;
      name = name.substr(0, name.find('.'));
      std::string out;
      bool up = true;
      for (char ch : name) {
        if (ch == '-') {
          up = true;
        } else {
          out += up ? static_cast<char>(std::toupper(static_cast<unsigned char>(ch))) : ch;
          up = false;
        }
      }
      return out;
    });

class FrrExampleTest : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(FrrExampleTest, ConvergesOnEveryChip) {
  Scenario scenario = FalSim::ScenarioLoader::load(sourceFile("examples/frr.json"));
  std::uint32_t const chips = GetParam();
  scenario.chips.count = chips;
  SimReport const report = SimRunner(std::move(scenario)).run();
  EXPECT_TRUE(report.ok()) << firstFinding(report);
  EXPECT_EQ(report.interfaceFailures, 1u);
  // Every chip rewrites every set protected on the failed port.
  EXPECT_EQ(report.frrRewrites, 113u * chips);
  EXPECT_EQ(report.expectationsMet, 606u * chips);
}

INSTANTIATE_TEST_SUITE_P(Chips, FrrExampleTest, ::testing::Values(1u, 2u, 4u),
                         [](auto const& info) { return std::to_string(info.param); });

}  // namespace
