// Whole runs with asynchronous chips: transactions that fail as the scenario
// injects them, what the report says about them, and chips that misbehave
// behind the asynchronous hooks, which the invariant checker must catch.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "platform/upg/RapidJson.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::AsyncReferenceChip;
using FalSim::Scenario;
using FalSim::SimReport;
using FalSim::SimRunner;
using Routing::Multicast::Fib::IpGenRouteKey;

Scenario load(std::string const& json) { return FalSim::ScenarioLoader::parse(json, "async.json"); }

std::string firstFinding(SimReport const& r) { return r.findings.empty() ? "" : r.findings[0]; }

bool anyFindingHas(SimReport const& r, std::string const& text) {
  return std::any_of(r.findings.begin(), r.findings.end(), [&](auto const& f) { return f.find(text) != std::string::npos; });
}

Vex::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus const> status(SimRunner& runner, IpGenRouteKey const& key) {
  auto vrf = runner.agent().hwStatus(key.af()).vrfStatus(L3::VrfName("default"));
  return vrf ? vrf->route(key) : nullptr;
}

// Runs the next event and lets the chips' transactions complete.
void stepAndSettle(SimRunner& runner) {
  ASSERT_TRUE(runner.step());
  runner.runUntil(runner.now() + 0.5);
}

struct FailureCase {
  char const* kind;  // "group" or "ingress"
  // Of two chips, the one whose transactions fail; the other runs the
  // synchronous flavour beside it and programs every route at once.
  std::uint32_t chip;
};

std::ostream& operator<<(std::ostream& os, FailureCase const& c) { return os << c.kind; }

class TransactionFailureTest : public ::testing::TestWithParam<FailureCase> {};

TEST_P(TransactionFailureTest, RoutesParkWithTheChipsReasonAndAreProgrammedOnceFailuresStop) {
  std::string const kind = GetParam().kind;
  std::string const chip = std::to_string(GetParam().chip);
  std::string const other = std::to_string(1 - GetParam().chip);
  SimRunner runner(load(R"({"chips": {"count": 2, "flavour": "async", "otherFlavour": [)" + other + R"(]},
    "interfaces": {"ethernet": 4, "vlans": [10]},
    "routeSets": [{"name": "s", "routes": [
      {"source": "10.0.0.1", "group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1", "Ethernet2"]},
      {"source": "10.0.0.1", "group": "239.1.1.2", "acceptingVlan": 10, "outputs": ["Ethernet3"]}]}],
    "events": [{"at": 1, "do": "fault", "chip": )" + chip + R"(, "transaction": ")" + kind + R"(", "failNext": 100},
               {"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 5, "do": "fault", "chip": )" + chip + R"(, "transaction": ")" + kind + R"(", "failNext": 0},
               {"at": 6, "do": "traffic", "set": "s", "expectForwarded": true}]})"));
  IpGenRouteKey const first(Netcore::IpGenPrefix("10.0.0.1/32"), Netcore::IpGenPrefix("239.1.1.1/32"));
  runner.start();
  ASSERT_TRUE(runner.step());
  stepAndSettle(runner);
  // Retried every second, failing each time; the library never retries itself.
  runner.runUntil(4.9);
  EXPECT_EQ(runner.agent().programmer().routesParked(), 2u);
  ASSERT_TRUE(status(runner, first));
  EXPECT_FALSE(status(runner, first)->programmed());
  EXPECT_EQ(status(runner, first)->failureReason(), AsyncReferenceChip::kReasonHardwareError);
  auto const dropped = runner.chip().forwardWithReason(GetParam().chip, 0, Netcore::IpGenAddr("10.0.0.1"),
                                                       Netcore::IpGenAddr("239.1.1.1"), Bridging::VlanIdOrNone(10));
  EXPECT_FALSE(dropped.forwarded());
  // The synchronous chip beside it has the routes all along.
  EXPECT_EQ(runner.chip().forward(1 - GetParam().chip, 0, Netcore::IpGenAddr("10.0.0.1"),
                                  Netcore::IpGenAddr("239.1.1.2"), Bridging::VlanIdOrNone(10)),
            (std::vector<MrouteLib::PortVlan>{MrouteLib::PortVlan("Ethernet3")}));

  // Failures stop: the parked routes are retried at once.
  stepAndSettle(runner);
  EXPECT_EQ(runner.agent().programmer().routesParked(), 0u);
  EXPECT_TRUE(status(runner, first)->programmed());
  EXPECT_EQ(status(runner, first)->failureReason(), 0u);
  while (runner.step()) {
  }
  runner.finish();
  SimReport const& report = runner.report();
  EXPECT_TRUE(report.ok()) << firstFinding(report);
  EXPECT_EQ(report.peakRoutesParked, 2u);
  using ByReason = std::vector<std::pair<std::string, std::size_t>>;
  EXPECT_EQ(report.peakParkedByReason, (ByReason{{"hardwareError", 2}}));
  EXPECT_EQ(report.routesProgrammed, 2u);
  EXPECT_GT(report.xactsFailed, 2u);
  ASSERT_EQ(report.xactsFailedByReason.size(), 1u);
  EXPECT_EQ(report.xactsFailedByReason[0].first, "hardwareError");
  EXPECT_EQ(report.xactsFailedByReason[0].second, report.xactsFailed);
  EXPECT_EQ(report.xactsStarted, report.xactsCompleted + report.xactsFailed);
  EXPECT_EQ(report.expectationsMet, 4u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, TransactionFailureTest,
                         ::testing::Values(FailureCase{"group", 0}, FailureCase{"ingress", 1}),
                         [](auto const& info) { return std::string(info.param.kind); });

TEST(AsyncSimTest, FailuresWithAProbabilityAreTheSameEveryRunAndEndOnceItIsZero) {
  std::string const json = R"({"chips": {"flavour": "async", "seed": 5}, "interfaces": {"ethernet": 6, "vlans": [10]},
    "routeSets": [{"name": "g", "generate": {"count": 50, "diversity": 10, "groupBase": "239.1.0.0",
                   "acceptingVlan": 10, "portsPerSet": 2}}],
    "events": [{"at": 1, "do": "fault", "transaction": "ingress", "probability": 0.5},
               {"at": 1, "do": "addRoutes", "set": "g"},
               {"at": 4, "do": "fault", "transaction": "ingress", "probability": 0},
               {"at": 5, "do": "traffic", "set": "g", "expectForwarded": true}]})";
  SimReport const a = SimRunner(load(json)).run();
  SimReport const b = SimRunner(load(json)).run();
  EXPECT_TRUE(a.ok()) << firstFinding(a);
  EXPECT_GT(a.xactsFailed, 0u);
  EXPECT_GT(a.peakRoutesParked, 0u);
  EXPECT_EQ(a.routesProgrammed, 50u);
  EXPECT_EQ(a.expectationsMet, 50u);
  EXPECT_EQ(b.xactsFailed, a.xactsFailed);
  EXPECT_EQ(b.retries, a.retries);
}

TEST(AsyncSimTest, FailedRewriteInPlaceKeepsTheOldOutputsAndIsReported) {
  SimRunner runner(load(R"({"chips": {"flavour": "async"}, "interfaces": {"ethernet": 3, "vlans": [10]},
    "routeSets": [{"name": "p", "routes": [{"source": "10.0.0.1", "group": "239.1.1.1", "acceptingVlan": 10,
                   "outputs": ["Ethernet1", "Ethernet2"], "frr": {"protected": "Ethernet2", "backups": ["Ethernet3"]}}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "p"},
               {"at": 2, "do": "fault", "transaction": "update", "failNext": 1},
               {"at": 2, "do": "interfaceDown", "interface": "Ethernet2"},
               {"at": 3, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 10,
                "expect": ["Ethernet1", "Ethernet2"]}]})"));
  SimReport const report = runner.run();
  // The chip said the write failed; nothing retries it, and that breaks no invariant.
  EXPECT_TRUE(report.ok()) << firstFinding(report);
  EXPECT_EQ(report.groupUpdates, 1u);
  EXPECT_EQ(report.xactsFailed, 1u);
  EXPECT_EQ(report.expectationsMet, 1u);
}

TEST(AsyncSimTest, JsonReportCarriesTheAsynchronousFigures) {
  SimReport const report = SimRunner(load(R"({"chips": {"count": 2, "flavour": "async", "otherFlavour": [0]},
    "interfaces": {"ethernet": 3, "vlans": [10]}, "zombies": {"lifetime": 1}, "aging": {"activityPollingInterval": 1},
    "routeSets": [{"name": "g", "generate": {"count": 10, "diversity": 2, "groupBase": "239.1.0.0",
                   "acceptingVlan": 10, "portsPerSet": 1}}],
    "events": [{"at": 1, "do": "fault", "chip": 1, "transaction": "group", "failNext": 1},
               {"at": 1, "do": "addRoutes", "set": "g"},
               {"at": 3, "do": "removeRoutes", "set": "g"},
               {"at": 3.5, "do": "addRoutes", "set": "g"},
               {"at": 4, "do": "removeRoutes", "set": "g"}], "end": 8})"))
                                .run();
  std::ostringstream os;
  report.printJson(os);
  rapidjson::Document doc;
  doc.Parse(os.str().c_str());
  ASSERT_FALSE(doc.HasParseError()) << os.str();
  EXPECT_TRUE(doc["ok"].GetBool());
  auto const& async = doc["async"];
  EXPECT_EQ(async["chips"].GetUint64(), 1u);
  EXPECT_EQ(async["transactions"]["started"].GetUint64(), report.xactsStarted);
  EXPECT_EQ(async["transactions"]["failed"].GetUint64(), 1u);
  EXPECT_EQ(async["transactions"]["failedByReason"]["hardwareError"].GetUint64(), 1u);
  EXPECT_GT(async["transactions"]["longestWait"].GetDouble(), 0.0);
  EXPECT_EQ(async["groups"]["resurrected"].GetUint64(), 2u);
  EXPECT_EQ(async["groups"]["purged"].GetUint64(), 2u);
  EXPECT_EQ(async["groups"]["shared"].GetUint64(), report.groupsShared);
  EXPECT_GT(report.groupsShared, 0u);
  EXPECT_GT(async["aging"]["slices"].GetUint64(), 0u);
  EXPECT_EQ(async["aging"]["stamps"].GetUint64(), report.lastAccessStamps);
}

// Asynchronous chips that get it wrong behind the hooks.
class LeakingGroupsChip : public AsyncReferenceChip {
 public:
  using AsyncReferenceChip::AsyncReferenceChip;
  // Never deletes a group.
  void doDeleteOifSet(std::uint32_t) override {}
};

class StickyRouteAsyncChip : public AsyncReferenceChip {
 public:
  using AsyncReferenceChip::AsyncReferenceChip;
  // Says it deleted the route, keeps it.
  void doDeleteRoute(RouteHandle) override {}
};

class IgnoresRebindingChip : public AsyncReferenceChip {
 public:
  using AsyncReferenceChip::AsyncReferenceChip;
  // A route already bound stays on its group; the binding still succeeds.
  void doSetMtableOifSet(RouteHandle handle, std::uint32_t mcastId, XactPtr xact) override {
    auto const* r = tables().route(chip(), handle);
    AsyncReferenceChip::doSetMtableOifSet(handle, r && r->oifSetIndex != 0 ? r->oifSetIndex : mcastId, xact);
  }
};

class DropsVerifiesChip : public AsyncReferenceChip {
 public:
  using AsyncReferenceChip::AsyncReferenceChip;
  void doScheduleVerify() override {}
};

struct AsyncMisbehaviourCase {
  char const* name;
  FalSim::SimAgent::AsyncChipFactory factory;
  std::string finding;
};

std::ostream& operator<<(std::ostream& os, AsyncMisbehaviourCase const& c) { return os << c.name; }

template <class Chip>
FalSim::SimAgent::AsyncChipFactory asyncFactory() {
  return [](FalSim::ReferenceChipTables& tables, std::uint32_t chip) -> Vex::Ptr<AsyncReferenceChip> {
    return Vex::make<Chip>("FalSim::AsyncReferenceChip", tables, chip);
  };
}

class MisbehavingAsyncChipTest : public ::testing::TestWithParam<AsyncMisbehaviourCase> {};

TEST_P(MisbehavingAsyncChipTest, InvariantCheckerCatchesIt) {
  SimRunner::Options options;
  options.asyncChipFactory = GetParam().factory;
  SimReport const report = SimRunner(load(R"({"chips": {"flavour": "async"}, "interfaces": {"ethernet": 4, "vlans": [10]},
    "zombies": {"enabled": false},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1"]}]},
                  {"name": "moved", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet2"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}, {"at": 2, "do": "addRoutes", "set": "moved"},
               {"at": 3, "do": "removeRoutes", "set": "moved"}]})"),
                                     options)
                                .run();
  EXPECT_FALSE(report.ok());
  EXPECT_GT(report.violations, 0u);
  EXPECT_TRUE(anyFindingHas(report, GetParam().finding)) << firstFinding(report);
}

INSTANTIATE_TEST_SUITE_P(
    Chips, MisbehavingAsyncChipTest,
    ::testing::Values(
        AsyncMisbehaviourCase{"LeaksDeletedGroups", asyncFactory<LeakingGroupsChip>(),
                              "is programmed but the library holds no set for it (leaked)"},
        AsyncMisbehaviourCase{"KeepsDeletedRoutes", asyncFactory<StickyRouteAsyncChip>(),
                              "the library holds 0 route handles, the chip 1 ingress entries"},
        AsyncMisbehaviourCase{"IgnoresRebinding", asyncFactory<IgnoresRebindingChip>(),
                              "freed while 1 route(s) still point at it"},
        AsyncMisbehaviourCase{"DropsVerifies", asyncFactory<DropsVerifiesChip>(),
                              "hardware change(s) not followed by a verify"}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
