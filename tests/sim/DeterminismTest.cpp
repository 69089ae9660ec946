// A run in virtual time is a function of its scenario: mroute-sim run twice on
// the same file, as two processes (hash seeds and addresses differ from
// process to process), gives the same JSON report apart from wall-clock time.
#include <gtest/gtest.h>

#include <string>

#include "platform/upg/RapidJson.h"
#include "tests/sim/MrouteSimProcess.h"
#include "tests/sim/ScenarioFileTestName.h"

namespace {

using SimTest::MrouteSimProcess;

MrouteSimProcess mrouteSim(std::string const& file) {
  return MrouteSimProcess::run(std::string("--json '") + FALMROUTE_SOURCE_DIR + "/" + file + "'");
}

class DeterminismTest : public ::testing::TestWithParam<char const*> {};

TEST_P(DeterminismTest, TwoProcessesGiveTheSameReport) {
  MrouteSimProcess const first = mrouteSim(GetParam());
  MrouteSimProcess const second = mrouteSim(GetParam());
  ASSERT_EQ(first.status, 0) << first.out;
  EXPECT_EQ(second.status, first.status);
  rapidjson::Document a, b;
  a.Parse(first.out.c_str());
  b.Parse(second.out.c_str());
  ASSERT_FALSE(a.HasParseError()) << first.out;
  ASSERT_FALSE(b.HasParseError()) << second.out;
  for (auto* doc : {&a, &b}) {
    ASSERT_TRUE((*doc)["run"].RemoveMember("wallSeconds")) << "the report no longer has run.wallSeconds";
  }
  EXPECT_TRUE(a == b) << "first:\n" << first.out << "\nsecond:\n" << second.out;
}

INSTANTIATE_TEST_SUITE_P(
    Scenarios, DeterminismTest,
    ::testing::Values("examples/iptv.json", "examples/churn.json", "examples/frr.json", "examples/restart.json",
                      "examples/async-iptv.json", "examples/async-churn.json", "examples/async-frr.json",
                      "examples/async-failures.json",
                      "tests/sim/scenarios/parked-routes-wanted-order.json",
                      "tests/sim/scenarios/always-due-clocks.json",
                      "tests/sim/scenarios/generated-multichip-churn.json"),
    [](auto const& info) { return SimTest::scenarioFileTestName(info.param); });

}  // namespace
