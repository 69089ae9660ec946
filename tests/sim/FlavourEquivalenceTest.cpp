// The two flavours of the library on the same workload forward alike: a
// synchronous and an asynchronous chip side by side in one agent, and one
// scenario run all "sync" and all "async", send the same packets to the same
// ports. Every route of the scenario's sets is looked up on every chip, on
// its accepting VLAN and on one it does not accept, whether wanted or not
// (each look-up is traffic as the chip sees it, made alike on both sides).
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "tests/sim/ScenarioFileTestName.h"

namespace {

using FalSim::ReferenceChip;
using FalSim::Scenario;
using FalSim::SimReport;
using FalSim::SimRunner;

std::string firstFinding(SimReport const& r) { return r.findings.empty() ? "" : r.findings[0]; }

// What chip c does with one packet of every route of the scenario's sets, as text.
std::vector<std::string> forwarding(SimRunner& runner, std::uint32_t c) {
  std::vector<std::string> out;
  Scenario const& s = runner.scenario();
  for (auto const& set : s.routeSets) {
    for (auto const& r : set.routes) {
      if (r.bridge()) continue;
      auto const vrfId = static_cast<std::uint16_t>(s.vrfId(r.vrfName()).value_or(0));
      Netcore::IpGenAddr const source = SimRunner::flowSource(r.key(), Netcore::IpGenAddr());
      Netcore::IpGenAddr const group = r.key().group().address();
      for (Bridging::VlanIdOrNone vlan : {r.acceptingVlan(), Bridging::VlanIdOrNone(4001)}) {
        auto result = runner.chip().forwardWithReason(c, vrfId, source, group, vlan);
        std::sort(result.copies.begin(), result.copies.end());
        std::ostringstream os;
        os << r.vrfName() << " (" << source << ", " << group << ") vlan " << vlan << ": "
           << FalSim::dropReasonName(result.dropReason) << (result.toCpu ? " +cpu" : "") << " [";
        for (auto const& pv : result.copies) os << ' ' << pv;
        os << " ]";
        out.push_back(os.str());
      }
    }
  }
  return out;
}

// The first look-up two snapshots disagree on; empty when they agree.
std::string firstDifference(std::vector<std::string> const& a, std::vector<std::string> const& b) {
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    if (a[i] != b[i]) return a[i] + "  <->  " + b[i];
  }
  return a.size() == b.size() ? "" : "different numbers of look-ups";
}

Scenario sideBySide() {
  // Chip 1 runs the asynchronous flavour, chip 0 the synchronous one.
  return FalSim::ScenarioLoader::parse(R"({
    "chips": {"count": 2, "replicationEntries": 64, "otherFlavour": [1], "transactionLatency": 0.02},
    "interfaces": {"ethernet": 8, "vlans": [10, 20]},
    "vrfs": [{"name": "default", "id": 0}, {"name": "red", "id": 5}],
    "zombies": {"enabled": true, "lifetime": 2.0},
    "routeSets": [
      {"name": "shared", "generate": {"count": 60, "diversity": 6, "seed": 9, "source": "*", "groupBase": "239.1.0.0",
                                      "acceptingVlan": [10, 20], "portsPerSet": 2, "outputVlans": [20]}},
      {"name": "special", "routes": [
        {"source": "10.0.0.1", "group": "239.5.5.5", "acceptingVlan": 10,
         "outputs": ["Ethernet1.20", "Ethernet2.20"], "frr": {"protected": "Ethernet2", "backups": ["Ethernet8.20"]}},
        {"vrf": "red", "source": "10.0.0.1", "group": "239.5.5.6", "noRpf": true, "outputs": ["Ethernet3"]},
        {"vrf": "red", "source": "10.0.0.1", "group": "239.5.5.7", "acceptingVlan": 20, "bridge": true},
        {"source": "*", "group": "ff3e::1", "acceptingVlan": 10, "outputs": ["Ethernet4.10"]},
        {"source": "10.0.0.1", "group": "239.5.5.8", "acceptingVlan": 10, "outputs": []}]},
      {"name": "moved", "routes": [
        {"source": "10.0.0.1", "group": "239.5.5.5", "acceptingVlan": 10, "outputs": ["Ethernet5.20"]}]}
    ],
    "events": [
      {"at": 1, "do": "addRoutes", "set": "shared"},
      {"at": 1, "do": "addRoutes", "set": "special"},
      {"at": 2, "do": "interfaceDown", "interface": "Ethernet2"},
      {"at": 3, "do": "removeRoutes", "set": "shared"},
      {"at": 4, "do": "addRoutes", "set": "shared"},
      {"at": 5, "do": "addRoutes", "set": "moved"},
      {"at": 6, "do": "interfaceUp", "interface": "Ethernet2"},
      {"at": 7, "do": "removeRoutes", "set": "shared"},
      {"at": 11, "do": "addRoutes", "set": "shared", "count": 20}
    ],
    "end": 13})",
                                       "side-by-side.json");
}

TEST(FlavourEquivalenceTest, SyncAndAsyncChipsSideBySideSendTheSamePacketsToTheSamePorts) {
  SimRunner runner(sideBySide());
  runner.start();
  ASSERT_FALSE(runner.agent().async(0));
  ASSERT_TRUE(runner.agent().async(1));
  auto const& events = runner.scenario().events;
  while (runner.step()) {
    // Once the asynchronous chip's transactions have completed (well before
    // the next event), both chips forward alike.
    Vex::Seconds const settled = runner.now() + 0.5;
    if (runner.nextEvent() < events.size() && events[runner.nextEvent()].at <= settled) continue;
    runner.runUntil(settled);
    EXPECT_EQ(firstDifference(forwarding(runner, 0), forwarding(runner, 1)), "")
        << "after " << events[runner.nextEvent() - 1].path;
  }
  runner.finish();
  SimReport const& report = runner.report();
  EXPECT_TRUE(report.ok()) << firstFinding(report);
  EXPECT_EQ(firstDifference(forwarding(runner, 0), forwarding(runner, 1)), "");
  EXPECT_EQ(report.asyncChips, 1u);
  EXPECT_GT(report.xactsCompleted, 0u);
  EXPECT_EQ(report.xactsFailed, 0u);
  EXPECT_EQ(report.routesWaiting, 0u);
  // One rewrite in place per protected group on each chip.
  EXPECT_EQ(report.groupUpdates, 1u);
  EXPECT_EQ(report.frrRewrites, 2u);
  // The shared set's groups came back from the zombies at 4 and were purged after 7.
  EXPECT_GT(report.groupsResurrected, 0u);
  EXPECT_GT(report.groupsPurged, 0u);
  EXPECT_GT(report.groupsShared, 0u);
}

// One scenario, run with every chip in one flavour and then the other. Left
// out: the scenarios whose packets are sent while transactions are still
// queued behind the chips' operation costs (generated-multichip-churn sends
// traffic 1 s after a restart whose reprogramming takes about as long), and
// those that inject transaction failures, which only asynchronous chips have.
class SameScenarioBothFlavoursTest : public ::testing::TestWithParam<char const*> {};

// What a run reported, and what every chip did with every route at each
// traffic event and at the end. The runner goes with the run: one event
// loop is current at a time.
struct RecordedRun {
  SimReport report;
  std::vector<std::vector<std::string>> seen;
};

RecordedRun runRecording(Scenario scenario) {
  RecordedRun run;
  SimRunner runner(std::move(scenario));
  auto snapshot = [&] {
    for (std::uint32_t c = 0; c < runner.scenario().chips.count; ++c) run.seen.push_back(forwarding(runner, c));
  };
  runner.start();
  while (runner.step()) {
    if (runner.scenario().events[runner.nextEvent() - 1].kind == Scenario::EventKind::traffic) snapshot();
  }
  runner.finish();
  snapshot();
  run.report = runner.report();
  return run;
}

TEST_P(SameScenarioBothFlavoursTest, ForwardsIdentically) {
  Scenario scenario = FalSim::ScenarioLoader::load(std::string(FALMROUTE_SOURCE_DIR) + "/" + GetParam());
  Scenario allSync = scenario;
  allSync.chips.flavourIs(Scenario::Flavour::sync);
  Scenario allAsync = scenario;
  allAsync.chips.flavourIs(Scenario::Flavour::async);
  RecordedRun const sync = runRecording(std::move(allSync));
  RecordedRun const async = runRecording(std::move(allAsync));

  SimReport const& s = sync.report;
  SimReport const& a = async.report;
  EXPECT_TRUE(s.ok()) << firstFinding(s);
  EXPECT_TRUE(a.ok()) << firstFinding(a);
  EXPECT_EQ(a.asyncChips, scenario.chips.count);
  EXPECT_EQ(s.asyncChips, 0u);
  EXPECT_EQ(a.packetsSent, s.packetsSent);
  EXPECT_EQ(a.packetsForwarded, s.packetsForwarded);
  EXPECT_EQ(a.packetsDropped, s.packetsDropped);
  EXPECT_EQ(a.copies, s.copies);
  EXPECT_EQ(a.expectationsMet, s.expectationsMet);
  EXPECT_EQ(a.routesProgrammed, s.routesProgrammed);
  ASSERT_EQ(async.seen.size(), sync.seen.size());
  for (std::size_t i = 0; i < sync.seen.size(); ++i) {
    EXPECT_EQ(firstDifference(sync.seen[i], async.seen[i]), "") << "snapshot " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Examples, SameScenarioBothFlavoursTest,
    ::testing::Values("examples/iptv.json", "examples/churn.json", "examples/frr.json", "examples/restart.json",
                      "examples/async-iptv.json", "examples/async-frr.json",
                      "tests/sim/scenarios/frr-zombie-resurrected.json",
                      "tests/sim/scenarios/no-outputs-freed-together.json",
                      "tests/sim/scenarios/set-traffic-prefix-sources.json"),
    [](auto const& info) { return SimTest::scenarioFileTestName(info.param); });

}  // namespace
