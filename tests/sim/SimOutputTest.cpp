// What a run tells its user: progress lines while it runs, also through a
// long stretch of virtual time after the last event, and reports that stay
// readable (and valid JSON) whatever bytes the scenario's names hold.
#include <gtest/gtest.h>

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
