// mroute-sim as a user runs it: a bad scenario file ends with exit status 2
// and one line naming the file, the field and what was expected; a soak
// prints its summary and exits 0 when it ran clean.
#include <gtest/gtest.h>

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
