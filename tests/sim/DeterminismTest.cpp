// A run in virtual time is a function of its scenario: mroute-sim run twice on
// the same file, as two processes (hash seeds and addresses differ from
// process to process), gives the same JSON report apart from wall-clock time.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>

#include "platform/upg/RapidJson.h"

namespace {

struct SimRun {
  int status = -1;
  std::string out;
};

SimRun mrouteSim(std::string const& file) {
  SimRun run;
  std::string const command = std::string("'") + MROUTE_SIM + "' --json '" + FALMROUTE_SOURCE_DIR + "/" + file + "'";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;) run.out.append(buf, n);
  int const raw = pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return run;
}

class DeterminismTest : public ::testing::TestWithParam<char const*> {};

TEST_P(DeterminismTest, TwoProcessesGiveTheSameReport) {
  SimRun const first = mrouteSim(GetParam());
  SimRun const second = mrouteSim(GetParam());
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
                      "tests/sim/scenarios/parked-routes-wanted-order.json",
                      "tests/sim/scenarios/always-due-clocks.json",
                      "tests/sim/scenarios/generated-multichip-churn.json"),
    [](auto const& info) {
      std::string name = info.param;
      name = name.substr(name.rfind('/') + 1);
      name = name.substr(0, name.find('.'));
      for (char& ch : name) {
        if (ch == '-') ch = '_';
      }
      return name;
    });

}  // namespace
