// A scenario written out reads back into the same scenario, and runs the
// same: the soak's reproducing files depend on it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "sim/scenario/ScenarioWriter.h"
#include "sim/soak/ScenarioShrinker.h"

namespace {

using FalSim::Scenario;
using FalSim::ScenarioLoader;
using FalSim::ScenarioWriter;

std::string sourceFile(std::string const& relative) { return std::string(FALMROUTE_SOURCE_DIR) + "/" + relative; }

class ScenarioWriterTest : public ::testing::TestWithParam<char const*> {};

TEST_P(ScenarioWriterTest, WrittenFileReadsBackAndRunsTheSame) {
  Scenario const original = ScenarioLoader::load(sourceFile(GetParam()));
  std::string const text = ScenarioWriter::text(original);
  Scenario const again = ScenarioLoader::parse(text, "written.json");
  // Written once more, nothing changes: the file holds all there is.
  EXPECT_EQ(ScenarioWriter::text(again), text);
  if (original.chips.kernel) return;  // a kernel chip needs root; the text is what matters here
  auto const a = FalSim::SimRunner(original).run();
  auto const b = FalSim::SimRunner(again).run();
  EXPECT_TRUE(b.ok());
  EXPECT_EQ(b.checks, a.checks);
  EXPECT_EQ(b.routesProgrammed, a.routesProgrammed);
  EXPECT_EQ(b.packetsForwarded, a.packetsForwarded);
  EXPECT_EQ(b.copies, a.copies);
  EXPECT_EQ(b.expectationsMet, a.expectationsMet);
  EXPECT_EQ(b.allocations, a.allocations);
  EXPECT_EQ(b.activityStamps, a.activityStamps);
  // The agent's clock starts at an epoch: the same charges, summed in
  // another order, may round differently in the last bits.
  EXPECT_NEAR(b.endTime, a.endTime, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Files, ScenarioWriterTest,
                         ::testing::Values("examples/iptv.json", "examples/churn.json", "examples/frr.json",
                                           "examples/restart.json", "examples/kernel.json",
                                           "examples/async-iptv.json", "examples/async-churn.json",
                                           "examples/async-frr.json", "examples/async-failures.json",
                                           "tests/sim/scenarios/always-due-clocks.json",
                                           "tests/sim/scenarios/set-traffic-prefix-sources.json"));

// A scenario whose chips' operation cost is written as costText.
std::string withOperationCost(std::string const& costText) {
  return R"({"name": "n", "chips": {"count": 1, "routes": 16, "replicationEntries": 16, "operationCost": )" + costText +
         R"(}, "events": [{"at": 0.5, "do": "restart"}], "end": 1.0})";
}

// A number of many digits is read to the nearest double, so the shortest
// text the writer prints for it reads back into the same number.
TEST(ScenarioWriterNumbersTest, ManyDigitsReadToTheNearestDoubleAndBackUnchanged) {
  std::string const digits = "0." + std::string(110, '0') + "7392445620511834114";
  Scenario const read = ScenarioLoader::parse(withOperationCost(digits), "digits.json");
  EXPECT_EQ(read.chips.operationCost, std::strtod(digits.c_str(), nullptr));
  std::string const written = ScenarioWriter::text(read);
  Scenario const again = ScenarioLoader::parse(written, "written.json");
  EXPECT_EQ(again.chips.operationCost, read.chips.operationCost);
  EXPECT_EQ(ScenarioWriter::text(again), written);
}

// Zero written with many places or a large exponent is zero (a full-precision
// parse once read these as tiny nonzero numbers).
TEST(ScenarioWriterNumbersTest, ZeroOfManyDigitsIsZero) {
  for (std::string const& text : {"0." + std::string(40, '0'), std::string("0e-30"), std::string("0.0e-400")}) {
    EXPECT_EQ(ScenarioLoader::parse(withOperationCost(text), "zero.json").chips.operationCost, 0.0) << text;
  }
}

// ---- shrinking ----

Scenario numbered(std::size_t n) {
  Scenario s;
  for (std::size_t i = 0; i < n; ++i) {
    Scenario::Event e;
    e.at = static_cast<double>(i);
    e.kind = Scenario::EventKind::restart;
    s.events.push_back(e);
  }
  return s;
}

// The "failure" needs the events that were at times 17 and 60, in that order.
bool needs17And60(Scenario const& s) {
  bool saw17 = false;
  for (auto const& e : s.events) {
    if (e.at == 17) saw17 = true;
    if (e.at == 60 && saw17) return true;
  }
  return false;
}

TEST(ScenarioShrinkerTest, KeepsOnlyTheEventsTheFailureNeeds) {
  auto const r = FalSim::ScenarioShrinker::shrink(numbered(100), needs17And60, 1000);
  ASSERT_EQ(r.scenario.events.size(), 2u);
  EXPECT_EQ(r.scenario.events[0].at, 17);
  EXPECT_EQ(r.scenario.events[1].at, 60);
  EXPECT_EQ(r.scenario.events[1].path, "events[1]");
  EXPECT_EQ(r.scenario.end, 60);
  EXPECT_FALSE(r.budgetSpent);
  // Halving finds two events among a hundred in far fewer runs than one per event each round.
  EXPECT_LT(r.trials, 100u);
}

TEST(ScenarioShrinkerTest, StopsAtItsBudgetWithAScenarioThatStillFails) {
  // Two halves, then four quarters: the second quarter goes at the fourth run.
  auto const r = FalSim::ScenarioShrinker::shrink(numbered(100), needs17And60, 4);
  EXPECT_TRUE(r.budgetSpent);
  EXPECT_EQ(r.trials, 4u);
  EXPECT_TRUE(needs17And60(r.scenario));
  EXPECT_EQ(r.scenario.events.size(), 75u);
}

}  // namespace
