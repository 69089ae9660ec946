// What a run tells its user: progress lines while it runs, also through a
// long stretch of virtual time after the last event, and reports that stay
// readable (and valid JSON) whatever bytes the scenario's names hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/upg/RapidJson.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::SimRunner;

// The progress lines of a run whose wall clock moves a second at every look.
std::vector<std::string> progressLines(FalSim::Scenario scenario, double afterWallSeconds, double everyWallSeconds) {
  std::vector<std::string> lines;
  double wall = 0;
  SimRunner::Options options;
  options.progress = [&](std::string const& line) { lines.push_back(line); };
  options.progressAfterWallSeconds = afterWallSeconds;
  options.progressEveryWallSeconds = everyWallSeconds;
  options.wallClock = [&] { return wall += 1; };
  SimRunner(std::move(scenario), std::move(options)).run();
  return lines;
}

// One route, aging every second from t=1 up to end.
FalSim::Scenario agingAlone(std::string const& name, int end) {
  return FalSim::ScenarioLoader::parse(R"({"name": ")" + name + R"(", "interfaces": {"ethernet": 2, "vlans": [10]},
    "aging": {"activityPollingInterval": 1},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}], "end": )" + std::to_string(end) + "}",
                                       name + ".json");
}

TEST(SimOutputTest, ProgressLinesGoOnThroughTheStretchAfterTheLastEvent) {
  // Aging wakes every second up to t=600; the only event is at t=1.
  std::vector<std::string> const lines = progressLines(agingAlone("quiet", 600), 0, 10);

  std::size_t inStretch = 0;
  for (auto const& line : lines) {
    EXPECT_EQ(line.rfind("mroute-sim: quiet: event 1/1 at t=", 0), 0u) << line;
    if (line.find("(running to t=600 s)") != std::string::npos) ++inStretch;
  }
  // Hundreds of wake-ups after the event, a line every ten of them.
  EXPECT_GT(inStretch, 10u);
}

TEST(SimOutputTest, ProgressInAStretchTellsTheWallTimeLeftAtItsPaceSoFar) {
  // One aging pass a second up to t=1000; the runner looks at the wall clock
  // once per clock time it runs to.
  std::vector<std::string> const lines = progressLines(agingAlone("paced", 1000), 5, 3);

  std::regex const stretch(R"(^mroute-sim: paced: event 1/1 at t=(\d+) s \(running to t=1000 s\), 1 routes wanted, )"
                           R"(0 violations, (\d+) s elapsed, about (\d+) s to go$)");
  std::size_t seen = 0;
  double lastWall = 0;
  for (auto const& line : lines) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, stretch)) << line;
    double const t = std::stod(m[1]);
    double const elapsed = std::stod(m[2]);
    double const left = std::stod(m[3]);
    // A wall second per virtual second: what is left of the stretch, give or take the looks between events.
    EXPECT_NEAR(left, 1000 - t, 0.05 * (1000 - t) + 2) << line;
    // A line every few wall seconds, never two in one.
    if (seen > 0) {
      EXPECT_GE(elapsed - lastWall, 3) << line;
    }
    lastWall = elapsed;
    ++seen;
  }
  EXPECT_GT(seen, 200u);
}

TEST(SimOutputTest, ProgressGoesOnInsideAFastRerouteThatTakesItsTime) {
  // The interface fails at t=8 (events[5], the sixth of twelve); the
  // asynchronous chips rewrite the protected groups over several turns of
  // the loop. Besides the line after the event, one comes between turns.
  std::vector<std::string> const lines =
      progressLines(FalSim::ScenarioLoader::load(std::string(FALMROUTE_SOURCE_DIR) + "/examples/async-frr.json"), 0, 0);

  std::regex const during(
      R"(^mroute-sim: async-frr: event 6/12 at t=8\.\d+ s, \d+ routes wanted, 0 violations, \d+ s elapsed$)");
  std::size_t const inside =
      std::count_if(lines.begin(), lines.end(), [&](std::string const& l) { return std::regex_match(l, during); });
  EXPECT_GT(inside, 1u);
}

TEST(SimOutputTest, NamesWithNulsAndBadUtf8AreEscapedInEveryReport) {
  std::string const json = std::string(R"({"name": "a\u0000b)") + "\xff" + R"(c\u00e9", "events": []})";
  SimRunner runner(FalSim::ScenarioLoader::parse(json, "odd.json"));
  auto const report = runner.run();

  std::ostringstream verdict;
  report.printVerdict(verdict);
  EXPECT_EQ(verdict.str().rfind("mroute-sim: a\\x00b\\xffc\xc3\xa9: OK", 0), 0u) << verdict.str();

  std::ostringstream human;
  report.printHuman(human);
  EXPECT_NE(human.str().find("Scenario      a\\x00b\\xffc\xc3\xa9\n"), std::string::npos) << human.str();

  std::ostringstream out;
  report.printJson(out);
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseValidateEncodingFlag>(out.str().c_str());
  ASSERT_FALSE(doc.HasParseError()) << out.str();
  EXPECT_STREQ(doc["scenario"].GetString(), "a\\x00b\\xffc\xc3\xa9");
}

}  // namespace
