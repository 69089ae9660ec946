// mroute-sim as a user runs it: a bad scenario file ends with exit status 2
// and one line naming the file, the field and what was expected; a run ends
// with its report, its status and its published counters withdrawn; a soak
// prints its summary and exits 0 when it ran clean.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/sim/MrouteSimProcess.h"

namespace {

using SimTest::MrouteSimProcess;

MrouteSimProcess mrouteSim(std::string const& arguments) { return MrouteSimProcess::run(arguments + " 2>&1"); }

struct BadFile {
  char const* name;
  std::string text;
  std::string message;  // after "mroute-sim: FILE: "
};

std::ostream& operator<<(std::ostream& os, BadFile const& b) { return os << b.name; }

class BadFileTest : public ::testing::TestWithParam<BadFile> {};

TEST_P(BadFileTest, ExitsTwoNamingFileFieldAndExpectedForm) {
  std::string const path = ::testing::TempDir() + GetParam().name + ".json";
  std::ofstream(path) << GetParam().text;
  MrouteSimProcess const run = mrouteSim("'" + path + "'");
  EXPECT_EQ(run.status, 2) << run.out;
  EXPECT_EQ(run.out, "mroute-sim: " + path + ": " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    NewUsersFiles, BadFileTest,
    ::testing::Values(
        BadFile{"DuplicatedSection", R"({"chips": {"count": 1}, "chips": {"count": "many"}, "events": []})",
                "chips: expected each field once per object, got a second one"},
        BadFile{"EmptyName", R"({"": 1, "events": []})",
                "\"\": expected a known field (one of name, description, chips, interfaces, vrfs, zombies, aging, "
                "counters, routeSets, events, end, sampleInterval), got an unknown field"},
        BadFile{"FractionalCount", R"({"chips": {"count": 2.0}, "events": []})",
                "chips.count: expected a whole number (a chip count from 1 to 1024), got the number 2.0"},
        BadFile{"InvalidRpaIndex",
                R"({"interfaces": {"vlans": [10]}, "routeSets": [{"name": "s", "routes": [
                      {"group": "239.1.1.1", "acceptingVlan": 10, "rpaId": 65534}]}], "events": []})",
                "routeSets[0].routes[0].rpaId: expected an RPA index from 0 to 65533, or 65535 for none (65534 is the "
                "invalid index), got the number 65534"},
        BadFile{"UndeclaredOutputVlan",
                R"({"interfaces": {"ethernet": 2, "vlans": [10]}, "routeSets": [{"name": "s", "routes": [
                      {"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.20"]}]}], "events": []})",
                "routeSets[0].routes[0].outputs[0]: expected an output on a VLAN declared in interfaces.vlans (10), got "
                "the string \"Ethernet1.20\""},
        BadFile{"UnknownDropReason",
                R"({"events": [{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1",
                                "expectDropped": "dropped"}]})",
                "events[0].expectDropped: expected the reason every packet is dropped: one of \"noRoute\", \"rpfFail\", "
                "\"boundary\", \"noEntry\", got the string \"dropped\""}),
    [](auto const& info) { return std::string(info.param.name); });

// A scenario estimated above --work-limit is refused with the estimate
// before anything runs; --long-run runs it all the same.
TEST(MrouteSimCommandTest, LongRunIsRefusedUpFrontUnlessAskedFor) {
  std::string const path = ::testing::TempDir() + "long.json";
  std::ofstream(path) << R"({"interfaces": {"ethernet": 2, "vlans": [10]}, "aging": {"activityPollingInterval": 1},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"}], "end": 3})";
  MrouteSimProcess const refused = mrouteSim("-q --work-limit 0 '" + path + "'");
  EXPECT_EQ(refused.status, 2) << refused.out;
  EXPECT_EQ(refused.out.rfind("mroute-sim: " + path +
                                  ": end: expected a run whose clocks need at most 0 s of CPU time, got one whose clocks "
                                  "need about ",
                              0),
            0u)
      << refused.out;
  EXPECT_NE(refused.out.find(" s of CPU time (2 hit-bit reads in 2 aging passes, 0 counter reads, "), std::string::npos)
      << refused.out;
  EXPECT_NE(refused.out.find(" samples); --long-run runs it anyway\n"), std::string::npos) << refused.out;

  MrouteSimProcess const ran = mrouteSim("-q --work-limit 0 --long-run '" + path + "'");
  EXPECT_EQ(ran.status, 0) << ran.out;
  EXPECT_NE(ran.out.find(": OK ("), std::string::npos) << ran.out;
  EXPECT_EQ(ran.out.find("a long run"), std::string::npos) << ran.out;  // -q: no note either
  MrouteSimProcess const told = mrouteSim("--work-limit 0 --long-run '" + path + "'");
  EXPECT_EQ(told.status, 0) << told.out;
  EXPECT_NE(told.out.find("mroute-sim: " + path + ": a long run: its clocks need about "), std::string::npos)
      << told.out;

  MrouteSimProcess const defaultLimit = mrouteSim("-q '" + path + "'");
  EXPECT_EQ(defaultLimit.status, 0) << defaultLimit.out;
}

// However a run ends, freeing its objects or leaving them to the operating
// system, its whole report is out, its exit status says whether it held,
// and the counters it published are withdrawn.
struct RunEnd {
  char const* name;
  char const* flags;
  bool met;  // whether the traffic gets what it expects
};

std::ostream& operator<<(std::ostream& os, RunEnd const& r) { return os << r.name; }

class RunEndTest : public ::testing::TestWithParam<RunEnd> {};

TEST_P(RunEndTest, ReportsAndWithdrawsThePublishedCounters) {
  std::string const path = ::testing::TempDir() + "end-" + GetParam().name + ".json";
  std::ofstream(path) << R"({"name": "end", "interfaces": {"ethernet": 2, "vlans": [10]}, "counters": {"all": true},
    "routeSets": [{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 10, "expect": ["Ethernet)"
                      << (GetParam().met ? 1 : 2) << R"(.10"]}]})";
  MrouteSimProcess const run = mrouteSim(std::string(GetParam().flags) + " '" + path + "'");
  EXPECT_EQ(run.status, GetParam().met ? 0 : 1) << run.out;
  EXPECT_NE(run.out.find(GetParam().met ? "\nVerdict" : "expected [Ethernet2.10]"), std::string::npos) << run.out;
  // "counters published as sim-<pid> (/dev/shm/falmroute.sim-<pid>.counterStatus)"
  auto const at = run.out.find("(/dev/shm/");
  ASSERT_NE(at, std::string::npos) << run.out;
  std::string const published = run.out.substr(at + 1, run.out.find(')', at) - at - 1);
  EXPECT_FALSE(std::filesystem::exists(published)) << published;
}

INSTANTIATE_TEST_SUITE_P(Ends, RunEndTest,
                         ::testing::Values(RunEnd{"Held", "", true}, RunEnd{"Broken", "", false},
                                           RunEnd{"HeldFullTeardown", "--full-teardown", true},
                                           RunEnd{"BrokenFullTeardown", "--full-teardown", false}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST(MrouteSimCommandTest, HelpNamesTheLongRunFlagAndTheLimit) {
  MrouteSimProcess const help = mrouteSim("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--long-run"), std::string::npos) << help.out;
  EXPECT_NE(help.out.find("--work-limit FLOAT:NONNEGATIVE=20"), std::string::npos) << help.out;
}

TEST(MrouteSimCommandTest, CleanSoakPrintsItsSummaryAndExitsZero) {
  MrouteSimProcess const run = mrouteSim("-q --soak 300 --seed 5 --repro '" + ::testing::TempDir() + "unused.json'");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out.rfind("Soak          seed 5, 300 steps, ", 0), 0u) << run.out;
  EXPECT_NE(run.out.find("\nVerdict       OK\n"), std::string::npos) << run.out;
}

TEST(MrouteSimCommandTest, SoakTakesNoScenarioFile) {
  MrouteSimProcess const run = mrouteSim("--soak 10 examples/iptv.json");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "mroute-sim: --soak runs no scenario file (examples/iptv.json)\n");
}

}  // namespace
