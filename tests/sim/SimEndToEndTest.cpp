// Whole runs of the simulated agent: routes go through the route programmer,
// the library and the reference chips, and the tests ask what a packet does
// and what the report says.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "platform/upg/RapidJson.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::ReferenceChip;
using FalSim::Scenario;
using FalSim::SimReport;
using FalSim::SimRunner;

Scenario load(std::string const& json) { return FalSim::ScenarioLoader::parse(json, "e2e.json"); }

std::vector<MrouteLib::PortVlan> sorted(std::vector<MrouteLib::PortVlan> v) {
  std::sort(v.begin(), v.end());
  return v;
}

std::vector<MrouteLib::PortVlan> outputsOf(MrouteLib::DesiredRoute const& r) {
  auto const& pv = r.outputs().portVlan();
  return {pv.begin(), pv.end()};
}

bool anyFindingHas(SimReport const& r, std::string const& text) {
  return std::any_of(r.findings.begin(), r.findings.end(), [&](auto const& f) { return f.find(text) != std::string::npos; });
}

TEST(SimEndToEndTest, RoutesWithEqualOutputsShareOneEntryAndForwardThroughIt) {
  SimRunner runner(load(R"({
    "interfaces": {"ethernet": 6, "vlans": [10]}, "aging": {"activityPollingInterval": 1},
    "routeSets": [{"name": "g", "generate": {"count": 120, "diversity": 4, "source": "10.0.0.1",
                   "groupBase": "239.1.0.0", "acceptingVlan": 10, "portsPerSet": 2, "outputVlans": [10]}}],
    "events": [{"at": 1, "do": "addRoutes", "set": "g"},
               {"at": 1.5, "do": "traffic", "set": "g", "expectForwarded": true}],
    "end": 4})"));
  SimReport const report = runner.run();
  EXPECT_TRUE(report.ok());
  EXPECT_EQ(report.routesProgrammed, 120u);
  EXPECT_EQ(report.entriesInUse, 4u);
  EXPECT_DOUBLE_EQ(report.sharingRatio, 30.0);
  EXPECT_EQ(report.expectationsMet, 120u);
  // Every route was seen active by the aging review that followed the traffic.
  EXPECT_GE(report.agingPassesCompleted, 1u);
  EXPECT_EQ(report.routesWithActivity, 120u);

  Netcore::IpGenAddr const source("10.0.0.1");
  for (auto const& r : runner.scenario().routeSets[0].routes) {
    Netcore::IpGenAddr const group = r.key().group().address();
    EXPECT_EQ(sorted(runner.chip().forward(0, 0, source, group, Bridging::VlanIdOrNone(10))), outputsOf(r)) << r;
  }
  auto const wrongVlan = runner.chip().forwardWithReason(0, 0, source, Netcore::IpGenAddr("239.1.0.0"),
                                                         Bridging::VlanIdOrNone(11));
  EXPECT_EQ(wrongVlan.dropReason, ReferenceChip::DropReason::rpfFail);
}

// Routes leave at 2.0 and come back at reAddAt; their sets wait 4.0 s as zombies.
struct ZombieCase {
  double reAddAt;
  std::uint64_t reused;
  std::uint64_t expired;
  std::uint64_t allocations;
};

class ZombieLifetimeTest : public ::testing::TestWithParam<ZombieCase> {};

TEST_P(ZombieLifetimeTest, ReturningRoutesReuseZombiesOnlyWithinTheirLifetime) {
  std::ostringstream json;
  json << R"({"interfaces": {"ethernet": 4, "vlans": [10]},
    "routeSets": [{"name": "g", "generate": {"count": 30, "diversity": 3, "groupBase": "239.1.0.0",
                   "acceptingVlan": 10, "portsPerSet": 2}}],
    "events": [{"at": 1, "do": "addRoutes", "set": "g"}, {"at": 2, "do": "removeRoutes", "set": "g"},
               {"at": )"
       << GetParam().reAddAt << R"(, "do": "addRoutes", "set": "g"},
               {"at": )"
       << GetParam().reAddAt << R"(, "do": "traffic", "set": "g", "expectForwarded": true}]})";
  SimReport const report = SimRunner(load(json.str())).run();
  EXPECT_TRUE(report.ok());
  EXPECT_EQ(report.zombiesEntered, 3u);
  EXPECT_EQ(report.zombieReuses, GetParam().reused);
  EXPECT_EQ(report.zombieExpiries, GetParam().expired);
  EXPECT_EQ(report.allocations, GetParam().allocations);
  EXPECT_EQ(report.entriesInUse, 3u);
}

INSTANTIATE_TEST_SUITE_P(BothSidesOfExpiry, ZombieLifetimeTest,
                         ::testing::Values(ZombieCase{5.9, 3, 0, 3}, ZombieCase{6.0, 0, 3, 6}),
                         [](auto const& info) { return info.param.reused ? "JustBefore" : "AtExpiry"; });

TEST(SimEndToEndTest, InterfaceFailureRewritesProtectedSetsInSlicesAndForwardsToBackups) {
  // 121 sets, each one VLAN on Ethernet1 protected by Ethernet2.500; each
  // rewrite costs 1 ms, so the pass needs a 0.1 s slice and a second one.
  std::string vlans;
  for (int v = 1; v <= 120; ++v) vlans += (v > 1 ? ", " : "") + std::to_string(v);
  SimRunner runner(load(R"({"chips": {"operationCost": 0.001}, "interfaces": {"ethernet": 2, "vlans": [)" + vlans +
                        R"(, 500, 999]},
    "routeSets": [{"name": "p", "generate": {"count": 120, "diversity": 120, "groupBase": "239.1.0.0",
                   "acceptingVlan": 10, "ports": ["Ethernet1"], "portsPerSet": 1, "outputVlans": [)" +
                        vlans + R"(],
                   "frr": {"protected": "Ethernet1", "backups": ["Ethernet2.500"]}}},
                  {"name": "one", "routes": [{"group": "239.9.9.9", "acceptingVlan": 10, "outputs": ["Ethernet1.999"],
                   "frr": {"protected": "Ethernet1", "backups": ["Ethernet2.500"]}}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "p"}, {"at": 1, "do": "addRoutes", "set": "one"},
               {"at": 5, "do": "traffic", "source": "10.9.9.9", "group": "239.9.9.9", "vlan": 10, "expect": ["Ethernet1.999"]},
               {"at": 6, "do": "interfaceDown", "interface": "Ethernet1"},
               {"at": 7, "do": "traffic", "source": "10.9.9.9", "group": "239.9.9.9", "vlan": 10, "expect": ["Ethernet2.500"]},
               {"at": 7, "do": "traffic", "set": "p", "expectForwarded": true}]})"));
  SimReport const report = runner.run();
  EXPECT_TRUE(report.ok()) << (report.findings.empty() ? "" : report.findings[0]);
  EXPECT_EQ(report.interfaceFailures, 1u);
  EXPECT_EQ(report.frrRewrites, 121u);
  EXPECT_NEAR(report.lastConvergence, 0.121, 1e-9);
  EXPECT_EQ(report.expectationsMet, 2u + 120u);
  for (auto const& [index, entry] : runner.chip().replicationEntries(0)) {
    EXPECT_EQ(entry.portVlanSet.portVlan().size(), 1u);
    EXPECT_EQ(entry.portVlanSet.portVlan()[0], MrouteLib::PortVlan("Ethernet2.500"));
  }
}

TEST(SimEndToEndTest, FullReplicationTableParksRoutesUntilRoomReturns) {
  SimRunner runner(load(R"({"chips": {"replicationEntries": 2}, "interfaces": {"ethernet": 4, "vlans": [10]},
    "routeSets": [{"name": "s", "routes": [
      {"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1"]},
      {"group": "239.1.1.2", "acceptingVlan": 10, "outputs": ["Ethernet2"]},
      {"group": "239.1.1.3", "acceptingVlan": 10, "outputs": ["Ethernet3"]},
      {"group": "239.1.1.4", "acceptingVlan": 10, "outputs": ["Ethernet4"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "config", "capacity": {"replicationEntries": 8}},
               {"at": 3, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.4", "vlan": 10, "expect": ["Ethernet4"]}]})"));
  runner.start();
  ASSERT_TRUE(runner.step());
  EXPECT_EQ(runner.agent().programmer().routesParked(), 2u);
  EXPECT_EQ(runner.chip().replicationEntries(0).size(), 2u);
  std::size_t programmed = 0;
  auto vrf = runner.agent().hwStatus(Netcore::AddressFamily::ipv4).vrfStatus(L3::VrfName("default"));
  for (auto it = vrf->routeIterator(); !it.done(); ++it) programmed += it.value()->programmed();
  EXPECT_EQ(programmed, 2u);
  EXPECT_FALSE(runner.agent().switchAt(0).mtableFree());
  runner.finish();
  SimReport const& report = runner.report();
  EXPECT_TRUE(report.ok());
  EXPECT_EQ(report.routesProgrammed, 4u);
  EXPECT_EQ(report.peakRoutesParked, 2u);
  EXPECT_GE(report.tableFullEpisodes[static_cast<std::size_t>(ReferenceChip::Table::replication)], 1u);
  EXPECT_EQ(report.expectationsMet, 1u);
}

TEST(SimEndToEndTest, RestartRecoversTheRoutesTheChipsHoldAndKeepsForwarding) {
  SimReport const report = SimRunner(load(R"({"chips": {"count": 2}, "interfaces": {"ethernet": 4, "vlans": [10, 20]},
    "vrfs": [{"name": "default", "id": 0}, {"name": "red", "id": 7}],
    "routeSets": [{"name": "s", "routes": [
      {"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1", "Ethernet2.20"]},
      {"vrf": "red", "source": "10.0.0.1", "group": "239.1.1.2", "acceptingVlan": 20, "outputs": ["Ethernet3"]},
      {"vrf": "red", "group": "239.1.1.3", "noRpf": true, "outputs": ["Ethernet4"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "restart"},
               {"at": 3, "do": "traffic", "vrf": "red", "source": "10.0.0.1", "group": "239.1.1.2", "vlan": 20,
                "expect": ["Ethernet3"]},
               {"at": 3, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 10,
                "expect": ["Ethernet1", "Ethernet2.20"]}]})"))
                                .run();
  EXPECT_TRUE(report.ok()) << (report.findings.empty() ? "" : report.findings[0]);
  EXPECT_EQ(report.restarts, 1u);
  EXPECT_EQ(report.routesRecovered, 3u);
  // Per chip: three routes and three entries of the old agent.
  EXPECT_EQ(report.staleEntriesCleared, 12u);
  EXPECT_EQ(report.routesProgrammed, 3u);
  EXPECT_EQ(report.expectationsMet, 4u);
}

// Chips that get it wrong, so the checker has something to find.
class LeakingChip : public ReferenceChip {
 public:
  using ReferenceChip::ReferenceChip;
  // Never gives a freed entry back.
  void handleFreeMtableOifSet(std::uint32_t, Vex::Ptr<Fal::MtableOifSet> const&) override {}
};

class StickyRouteChip : public ReferenceChip {
 public:
  using ReferenceChip::ReferenceChip;
  // Says it deleted the route, keeps it.
  void doDeleteMroute(std::uint32_t, std::uint16_t, MrouteLib::RouteHandle, Vex::Ptr<Fal::Route const> const&) override {}
};

struct MisbehaviourCase {
  char const* name;
  SimRunner::ChipFactory factory;
  std::string finding;
};

std::ostream& operator<<(std::ostream& os, MisbehaviourCase const& c) { return os << c.name; }

class MisbehavingChipTest : public ::testing::TestWithParam<MisbehaviourCase> {};

TEST_P(MisbehavingChipTest, InvariantCheckerCatchesItAtTheEventThatCausedIt) {
  SimRunner::Options options;
  options.chipFactory = GetParam().factory;
  SimReport const report = SimRunner(load(R"({"interfaces": {"ethernet": 4, "vlans": [10]},
    "zombies": {"enabled": false},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}, {"at": 2, "do": "removeRoutes", "set": "s"}]})"),
                                     options)
                                .run();
  EXPECT_FALSE(report.ok());
  EXPECT_GT(report.violations, 0u);
  ASSERT_FALSE(report.findings.empty());
  EXPECT_EQ(report.findings[0].rfind("events[1]: ", 0), 0u) << report.findings[0];
  EXPECT_TRUE(anyFindingHas(report, GetParam().finding)) << report.findings[0];
}

template <class Chip>
SimRunner::ChipFactory factory() {
  return [](Vex::Name name, std::uint32_t chips, FalSim::ReferenceChipCapacity capacity) -> Vex::Ptr<ReferenceChip> {
    return Vex::make<Chip>(std::move(name), chips, capacity);
  };
}

INSTANTIATE_TEST_SUITE_P(
    Chips, MisbehavingChipTest,
    ::testing::Values(
        MisbehaviourCase{"LeaksFreedEntries", factory<LeakingChip>(),
                         "is programmed but the library holds no set for it (leaked)"},
        MisbehaviourCase{"KeepsDeletedRoutes", factory<StickyRouteChip>(),
                         "route or boundary entries that no wanted route accounts for"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(SimEndToEndTest, UnmetTrafficExpectationFailsTheRunWithoutBreakingInvariants) {
  SimReport const report = SimRunner(load(R"({"interfaces": {"ethernet": 2, "vlans": [10]},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 10,
                "expect": ["Ethernet2.10"]}]})"))
                                .run();
  EXPECT_FALSE(report.ok());
  EXPECT_EQ(report.violations, 0u);
  EXPECT_EQ(report.expectationsFailed, 1u);
  ASSERT_EQ(report.findings.size(), 1u);
  EXPECT_EQ(report.findings[0],
            "events[1]: chip 0: (10.0.0.1, 239.1.1.1) on VLAN 10 gave [Ethernet1.10], expected [Ethernet2.10]");
}

TEST(SimEndToEndTest, JsonReportCarriesTheFiguresAndVerdict) {
  SimReport const report = SimRunner(load(R"({"interfaces": {"ethernet": 3, "vlans": [10]},
    "routeSets": [{"name": "g", "generate": {"count": 10, "diversity": 2, "groupBase": "239.1.0.0",
                   "acceptingVlan": 10, "portsPerSet": 1}}],
    "events": [{"at": 1, "do": "addRoutes", "set": "g"}]})"))
                                .run();
  std::ostringstream os;
  report.printJson(os);
  rapidjson::Document doc;
  doc.Parse(os.str().c_str());
  ASSERT_FALSE(doc.HasParseError()) << os.str();
  EXPECT_TRUE(doc["ok"].GetBool());
  EXPECT_EQ(doc["routes"]["programmed"].GetUint64(), 10u);
  EXPECT_EQ(doc["replication"]["entriesInUse"].GetUint64(), 2u);
  EXPECT_DOUBLE_EQ(doc["replication"]["sharingRatio"].GetDouble(), 5.0);
  EXPECT_TRUE(doc["invariants"]["hold"].GetBool());
  EXPECT_EQ(doc["invariants"]["checks"].GetUint64(), report.checks);
}

}  // namespace

namespace {

// Counters made as the agent comes up (the wildcard counter of "all") are
// published at the agent's first instant; polling then updates them. The
// control record must count each published row once.
TEST(SimEndToEndTest, CountersPublishedAtStartAreCountedOnceInTheControlRecord) {
  SimRunner runner(load(R"({"interfaces": {"ethernet": 2, "vlans": [10]}, "counters": {"all": true},
    "routeSets": [{"name": "s", "routes": [{"source": "10.0.0.1", "group": "239.1.1.1", "acceptingVlan": 10,
                   "outputs": ["Ethernet1"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "traffic", "set": "s", "packets": 5, "expectForwarded": true}],
    "end": 8})"));
  SimReport const report = runner.run();
  EXPECT_TRUE(report.ok());
  auto const& counters = runner.agent().counterStatus();
  ASSERT_GT(counters.size(), 0u);
  EXPECT_EQ(counters.ctlRecord().currSize, counters.size());
  EXPECT_EQ(counters.ctlRecord().currActive, report.counterActive);
  EXPECT_EQ(report.countedTotal, 5);
}

}  // namespace
