// The work a scenario's run will do, told before it runs: hit-bit reads by
// aging passes over the routes wanted stretch by stretch, counter reads and
// samples, checked against what the run then does; and the refusal of a
// scenario estimated above the limit.
#include <gtest/gtest.h>

#include <string>

#include "sim/ScenarioError.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "sim/WorkEstimate.h"

namespace {

using FalSim::Scenario;
using FalSim::SimRunner;
using FalSim::WorkEstimate;

struct Case {
  char const* name;
  std::string chips;   // the "chips" section
  std::string extra;   // more top-level fields
  std::string events;  // after the first event, which adds all ten routes at t=1
  double end;
  double hitBitReads;
  double agingPasses;
  double counterReads;
};

std::ostream& operator<<(std::ostream& os, Case const& c) { return os << c.name; }

Scenario scenarioOf(Case const& c) {
  std::string const json = R"({"chips": )" + c.chips + R"(, "interfaces": {"ethernet": 2, "vlans": [10]},
    "aging": {"activityPollingInterval": 1},)" + c.extra + R"(
    "routeSets": [{"name": "s", "generate": {"count": 10, "diversity": 2, "seed": 1, "source": "10.0.0.1",
      "groupBase": "239.1.0.0", "acceptingVlan": 10, "portsPerSet": 1, "outputVlans": [10]}}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"})" + c.events + R"(], "end": )" + std::to_string(c.end) + "}";
  return FalSim::ScenarioLoader::parse(json, "work.json");
}

WorkEstimate estimateOf(Scenario const& s) { return WorkEstimate(s, SimRunner::sampleInterval(s, 0)); }

class WorkEstimateTest : public ::testing::TestWithParam<Case> {};

TEST_P(WorkEstimateTest, CountsTheWorkDueStretchByStretch) {
  WorkEstimate const estimate = estimateOf(scenarioOf(GetParam()));
  EXPECT_DOUBLE_EQ(estimate.hitBitReads(), GetParam().hitBitReads);
  EXPECT_DOUBLE_EQ(estimate.agingPasses(), GetParam().agingPasses);
  EXPECT_DOUBLE_EQ(estimate.counterReads(), GetParam().counterReads);
}

TEST_P(WorkEstimateTest, BoundsWhatTheRunThenDoesClosely) {
  Scenario s = scenarioOf(GetParam());
  WorkEstimate const estimate = estimateOf(s);
  FalSim::SimReport const report = SimRunner(std::move(s)).run();
  ASSERT_TRUE(report.ok());
  EXPECT_LE(report.hitBitReads, estimate.hitBitReads());
  EXPECT_GE(report.hitBitReads, 0.9 * estimate.hitBitReads());
  EXPECT_LE(report.agingPassesCompleted, estimate.agingPasses());
  EXPECT_GE(report.agingPassesCompleted, 0.9 * estimate.agingPasses());
  EXPECT_LE(report.counterReads, estimate.counterReads());
  EXPECT_GE(report.counterReads, 0.9 * estimate.counterReads());
}

INSTANTIATE_TEST_SUITE_P(
    Scenarios, WorkEstimateTest,
    ::testing::Values(
        Case{"OneSetAllAlong", R"({"count": 1})", "", "", 101, 1000, 100, 0},
        Case{"EveryChipAges", R"({"count": 3})", "", "", 101, 3000, 300, 0},
        Case{"HalfRemovedMidway", R"({"count": 1})", "",
             R"(, {"at": 51.5, "do": "removeRoutes", "set": "s", "count": 5})",
             101, 760, 101, 0},
        Case{"SlowerAgingLater", R"({"count": 1})", "",
             R"(, {"at": 51.5, "do": "config", "activityPollingInterval": 5})", 101.5, 610, 61, 0},
        // Nothing is due once the table is empty: the long stretch after it adds nothing.
        Case{"EmptiedThenIdleForLong", R"({"count": 1})", "", R"(, {"at": 11.5, "do": "removeRoutes", "set": "s"})",
             1e6, 110, 11, 0},
        // Routes added again after some were removed count as new ones.
        Case{"ReAddedAfterPartialRemoval", R"({"count": 1})", "",
             R"(, {"at": 11.5, "do": "removeRoutes", "set": "s", "count": 4},
                {"at": 21.5, "do": "addRoutes", "set": "s"})",
             31.5, 270, 31, 0},
        Case{"CountersPolled", R"({"count": 1})", R"("counters": {"all": true},)", "", 101, 1000, 100, 51}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(WorkEstimateLimitTest, AboveTheLimitTheErrorSaysTheEstimateAndTheFlag) {
  Case const c{"Long", R"({"count": 2})", "", "", 1e6, 0, 0, 0};
  WorkEstimate const estimate = estimateOf(scenarioOf(c));
  // Ten routes on two chips every second for a million seconds.
  EXPECT_DOUBLE_EQ(estimate.hitBitReads(), 2e7 - 20);
  EXPECT_NO_THROW(estimate.check("work.json", estimate.cpuSeconds(), "--long-run"));
  try {
    estimate.check("work.json", estimate.cpuSeconds() / 2, "--long-run");
    FAIL() << "no refusal";
  } catch (FalSim::ScenarioError const& e) {
    EXPECT_EQ(e.file(), "work.json");
    EXPECT_EQ(e.field(), "end");
    EXPECT_EQ(e.got(), "one whose clocks need " + estimate.text() + "; --long-run runs it anyway");
    EXPECT_NE(e.got().find("(2.0e+07 hit-bit reads in 2.0e+06 aging passes, 0 counter reads, 201 samples)"),
              std::string::npos)
        << e.got();
  }
}

TEST(WorkEstimateLimitTest, SamplesAskedForCountEvenWithNothingElseDue) {
  Scenario const s = FalSim::ScenarioLoader::parse(R"({"events": [], "end": 100000})", "samples.json");
  WorkEstimate const fine(s, 0.0001);
  EXPECT_DOUBLE_EQ(fine.samples(), 1e9 + 1);
  EXPECT_DOUBLE_EQ(fine.hitBitReads(), 0);
  EXPECT_GT(fine.cpuSeconds(), WorkEstimate::kDefaultLimitSeconds);
  EXPECT_LT(WorkEstimate(s, SimRunner::sampleInterval(s, 0)).cpuSeconds(), 0.01);
}

}  // namespace
