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

TEST(SimOutputTest, ProgressLinesGoOnThroughTheStretchAfterTheLastEvent) {
  // Aging wakes every second up to t=600; the only event is at t=1.
  auto scenario = FalSim::ScenarioLoader::parse(R"({"name": "quiet", "interfaces": {"ethernet": 2, "vlans": [10]},
    "aging": {"activityPollingInterval": 1},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}], "end": 600})",
                                                "quiet.json");
  std::vector<std::string> lines;
  double wall = 0;
  SimRunner::Options options;
  options.progress = [&](std::string const& line) { lines.push_back(line); };
  options.progressAfterWallSeconds = 0;
  options.progressEveryWallSeconds = 10;
  // Every look at the wall clock finds a second gone.
  options.wallClock = [&] { return wall += 1; };
  SimRunner(std::move(scenario), std::move(options)).run();

  std::size_t inStretch = 0;
  for (auto const& line : lines) {
    EXPECT_EQ(line.rfind("mroute-sim: quiet: event 1/1 at t=", 0), 0u) << line;
    if (line.find("(running to t=600 s)") != std::string::npos) ++inStretch;
  }
  // Hundreds of wake-ups after the event, a line every ten of them.
  EXPECT_GT(inStretch, 10u);
}

TEST(SimOutputTest, ProgressInAStretchTellsTheWallTimeLeftAtItsPaceSoFar) {
  // One aging pass a second up to t=1000; the fake wall clock moves a second
  // at every look, and the runner looks once per clock time it runs to.
  auto scenario = FalSim::ScenarioLoader::parse(R"({"name": "paced", "interfaces": {"ethernet": 2, "vlans": [10]},
    "aging": {"activityPollingInterval": 1},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}], "end": 1000})",
                                                "paced.json");
  std::vector<std::string> lines;
  double wall = 0;
  SimRunner::Options options;
  options.progress = [&](std::string const& line) { lines.push_back(line); };
  options.progressAfterWallSeconds = 5;
  options.progressEveryWallSeconds = 3;
  options.wallClock = [&] { return wall += 1; };
  SimRunner(std::move(scenario), std::move(options)).run();

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
  auto scenario = FalSim::ScenarioLoader::load(std::string(FALMROUTE_SOURCE_DIR) + "/examples/async-frr.json");
  std::vector<std::string> lines;
  double wall = 0;
  SimRunner::Options options;
  options.progress = [&](std::string const& line) { lines.push_back(line); };
  options.progressAfterWallSeconds = 0;
  options.progressEveryWallSeconds = 0;
  options.wallClock = [&] { return wall += 1; };
  SimRunner(std::move(scenario), std::move(options)).run();

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
