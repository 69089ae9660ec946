// The fault soak: a clean agent runs clean through every kind of step with
// its forwarding compared to the model; a chip with a rare fault is caught,
// and the soak hands over a short scenario file that shows the same finding.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>

#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "sim/soak/Soak.h"

namespace {

using FalSim::ReferenceChip;
using FalSim::Soak;

Soak::Summary soak(std::uint64_t steps, std::uint64_t seed, FalSim::SimRunner::ChipFactory factory = {},
                   std::string repro = {}) {
  Soak::Options o;
  o.steps = steps;
  o.seed = seed;
  o.chipFactory = std::move(factory);
  o.reproPath = std::move(repro);
  return Soak(std::move(o)).run();
}

TEST(SoakTest, CleanAgentRunsEveryKindOfStepWithTheModelAgreeing) {
  auto const s = soak(4000, 7);
  EXPECT_TRUE(s.ok()) << *s.finding;
  EXPECT_EQ(s.steps, 4000u);
  EXPECT_EQ(s.violations, 0u);
  EXPECT_EQ(s.failedExpectations, 0u);
  using K = FalSim::Scenario::EventKind;
  for (K k : {K::addRoute, K::removeRoute, K::interfaceDown, K::interfaceUp, K::traffic, K::config, K::fault, K::restart}) {
    EXPECT_GT(s.eventsByKind[static_cast<std::size_t>(k)], 0u) << FalSim::eventKindName(k);
  }
  // Most probes are predicted, both ways, and most forwarded ones to the copy.
  EXPECT_GT(s.probes, 3 * s.probesUnpredicted);
  EXPECT_GT(s.probesForwarded, s.probes / 4);
  EXPECT_LT(s.probesForwarded, s.probes);
  EXPECT_GT(s.probesForwarded, 2 * s.probesCopiesLeftOpen);
  // The faults bit: allocations were refused, zombies reused, sets rerouted.
  EXPECT_GT(s.refusedAllocations, 0u);
  EXPECT_GT(s.zombieReuses, 0u);
  EXPECT_GT(s.frrRewrites, 0u);
  // One check per event, one at the start and one at the end.
  EXPECT_EQ(s.checks, s.events + 2);
}

TEST(SoakTest, SameSeedSameSoak) {
  auto const a = soak(1500, 11);
  auto const b = soak(1500, 11);
  auto const c = soak(1500, 12);
  EXPECT_EQ(a.events, b.events);
  EXPECT_EQ(a.eventsByKind, b.eventsByKind);
  EXPECT_EQ(a.probes, b.probes);
  EXPECT_EQ(a.refusedAllocations, b.refusedAllocations);
  EXPECT_DOUBLE_EQ(a.virtualTime, b.virtualTime);
  EXPECT_NE(a.eventsByKind, c.eventsByKind);
}

// Ignores the deletion of a route that has fast drop set, and only that.
class ForgetsFastdropDeletes : public ReferenceChip {
 public:
  using ReferenceChip::ReferenceChip;
  void doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                      Vex::Ptr<Fal::Route const> const& route) override {
    auto const* held = this->route(switchId, handle);
    if (held && held->fastdrop) return;
    ReferenceChip::doDeleteMroute(switchId, vrfId, handle, route);
  }
};

TEST(SoakTest, RareChipFaultIsCaughtAndAShortFileShowsIt) {
  std::string const path = ::testing::TempDir() + "soak-repro.json";
  std::remove(path.c_str());
  FalSim::SimRunner::ChipFactory factory = [](Vex::Name name, std::uint32_t chips, FalSim::ReferenceChipCapacity capacity) {
    return Vex::Ptr<ReferenceChip>(Vex::make<ForgetsFastdropDeletes>(std::move(name), chips, capacity));
  };
  auto const s = soak(20000, 3, factory, path);
  ASSERT_FALSE(s.ok());
  EXPECT_GT(s.steps, 1u);
  EXPECT_LT(s.steps, 20000u);
  EXPECT_TRUE(s.reproConfirmed);
  EXPECT_EQ(s.reproPath, path);
  // Add the route, take it away (and a little set-up at most).
  EXPECT_GE(s.reproEvents, 2u);
  EXPECT_LE(s.reproEvents, 6u) << "see " << path;

  // The file, run as any scenario, fails with the soak's finding.
  FalSim::SimRunner::Options options;
  options.chipFactory = factory;
  FalSim::Scenario const repro = FalSim::ScenarioLoader::load(path);
  EXPECT_EQ(repro.events.size(), s.reproEvents);
  auto const report = FalSim::SimRunner(repro, options).run();
  ASSERT_FALSE(report.findings.empty());
  EXPECT_EQ(Soak::shape(report.findings.front()), Soak::shape(*s.finding));
  // A chip that deletes what it is told holds the file's routes as wanted.
  EXPECT_TRUE(FalSim::SimRunner(repro).run().ok());
}

// Chips of both flavours: the seed picks each chip's, and every combination
// comes up among a few seeds.
TEST(SoakTest, SeedsPickSyncAsyncAndMixedChips) {
  std::set<std::string> seen;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) seen.insert(soak(1, seed).chips);
  EXPECT_TRUE(seen.contains("sync, sync"));
  EXPECT_TRUE(seen.contains("async, async"));
  EXPECT_TRUE(seen.contains("sync, async") || seen.contains("async, sync"));
}

struct CleanCase {
  char const* name;
  std::uint64_t seed;
  char const* chips;
};

std::ostream& operator<<(std::ostream& os, CleanCase const& c) { return os << c.name; }

class AsyncSoakTest : public ::testing::TestWithParam<CleanCase> {};

// Failed transactions park routes, the route programmer retries them, and
// the model only compares flows whose routes are programmed: no finding.
TEST_P(AsyncSoakTest, CleanAgentRunsThroughFailedTransactionsWithTheModelAgreeing) {
  auto const s = soak(3000, GetParam().seed);
  ASSERT_EQ(s.chips, GetParam().chips);
  EXPECT_TRUE(s.ok()) << *s.finding;
  EXPECT_EQ(s.violations, 0u);
  EXPECT_EQ(s.failedExpectations, 0u);
  // Failures were injected (only injection fails a write with hardwareError),
  // and the routes they parked were programmed in the end.
  EXPECT_GT(s.transactions, 0u);
  ASSERT_TRUE(s.failedTransactionsByReason.contains("hardwareError"));
  EXPECT_GT(s.failedTransactionsByReason.at("hardwareError"), 0u);
  EXPECT_GT(s.routesWantedAtEnd, 150u);
  EXPECT_GT(s.routesProgrammedAtEnd, s.routesWantedAtEnd * 9 / 10);
  // Most flows are compared; those that are not add up by reason.
  EXPECT_GT(s.probes, 8 * s.probesUnpredicted);
  std::uint64_t skipped = 0;
  for (auto const& [reason, n] : s.unpredictedByReason) skipped += n;
  EXPECT_EQ(skipped, s.probesUnpredicted);
  EXPECT_GT(s.probesForwarded, s.probes / 4);
  EXPECT_LT(s.probesForwarded, s.probes);
}

INSTANTIATE_TEST_SUITE_P(Flavours, AsyncSoakTest,
                         ::testing::Values(CleanCase{"BothAsync", 2, "async, async"},
                                           CleanCase{"AsyncBesideSync", 3, "sync, async"}),
                         [](auto const& info) { return std::string(info.param.name); });

// Keeps a group that it is told to delete when the group's write failed.
class KeepsGroupsWhoseWriteFailed : public FalSim::AsyncReferenceChip {
 public:
  using AsyncReferenceChip::AsyncReferenceChip;
  void doDeleteOifSet(std::uint32_t mcastId) override {
    auto const xact = groupXact(mcastId);
    if (xact && xact->failed() && xact->reason() == kReasonHardwareError) return;
    AsyncReferenceChip::doDeleteOifSet(mcastId);
  }
};

TEST(SoakTest, AsyncChipFaultAfterAFailedTransactionIsCaughtAndAShortFileShowsIt) {
  std::string const path = ::testing::TempDir() + "soak-async-repro.json";
  std::remove(path.c_str());
  Soak::Options o;
  o.steps = 20000;
  o.seed = 2;
  o.reproPath = path;
  o.asyncChipFactory = [](FalSim::ReferenceChipTables& tables, std::uint32_t chip) {
    return Vex::Ptr<FalSim::AsyncReferenceChip>(Vex::make<KeepsGroupsWhoseWriteFailed>("leaky", tables, chip));
  };
  auto const factory = o.asyncChipFactory;
  auto const s = Soak(std::move(o)).run();
  ASSERT_EQ(s.chips, "async, async");
  ASSERT_FALSE(s.ok());
  EXPECT_LT(s.steps, 20000u);
  EXPECT_TRUE(s.reproConfirmed);
  EXPECT_EQ(s.reproPath, path);
  EXPECT_LE(s.reproEvents, 8u) << "see " << path;

  // The file keeps the asynchronous chips and the transaction fault that
  // set it off, and run as any scenario fails with the soak's finding.
  FalSim::Scenario const repro = FalSim::ScenarioLoader::load(path);
  EXPECT_EQ(repro.chips.asyncCount(), 2u);
  EXPECT_TRUE(std::any_of(repro.events.begin(), repro.events.end(),
                          [](auto const& e) { return e.kind == FalSim::Scenario::EventKind::fault && e.fault.transaction; }));
  FalSim::SimRunner::Options options;
  options.asyncChipFactory = factory;
  auto const report = FalSim::SimRunner(repro, options).run();
  ASSERT_FALSE(report.findings.empty());
  EXPECT_EQ(Soak::shape(report.findings.front()), Soak::shape(*s.finding));
  EXPECT_TRUE(FalSim::SimRunner(repro).run().ok());
}

}  // namespace
