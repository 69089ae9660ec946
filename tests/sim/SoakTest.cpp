// The fault soak: a clean agent runs clean through every kind of step with
// its forwarding compared to the model; a chip with a rare fault is caught,
// and the soak hands over a short scenario file that shows the same finding.
#include <gtest/gtest.h>

#include <cstdio>
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

}  // namespace
