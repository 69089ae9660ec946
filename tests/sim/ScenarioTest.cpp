// Scenario files: what a good file turns into, and the exact message a bad
// one gets (file, field as a JSON path, what was expected, what was there).
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "sim/RouteSetGenerator.h"
#include "sim/ScenarioLoader.h"

namespace {

using FalSim::Scenario;
using FalSim::ScenarioError;
using FalSim::ScenarioLoader;

Scenario parse(std::string const& json) { return ScenarioLoader::parse(json, "t.json"); }

// A well-formed base for the error cases: two chips, ports 1-4, VLAN 100.
std::string withEvents(std::string const& routeSets, std::string const& events) {
  return R"({"chips": {"count": 2}, "interfaces": {"ethernet": 4, "vlans": [100]}, "routeSets": )" + routeSets +
         R"(, "events": )" + events + "}";
}

std::string withRoute(std::string const& route) {
  return withEvents(R"([{"name": "s", "routes": [)" + route + "]}]", "[]");
}

struct BadCase {
  char const* name;
  std::string json;
  std::string message;
};

std::ostream& operator<<(std::ostream& os, BadCase const& c) { return os << c.name; }

class BadScenarioTest : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadScenarioTest, NamesFileFieldAndExpectation) {
  try {
    parse(GetParam().json);
    FAIL() << "accepted a bad scenario";
  } catch (ScenarioError const& e) {
    EXPECT_EQ(e.what(), GetParam().message);
    EXPECT_EQ(e.file(), "t.json");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Messages, BadScenarioTest,
    ::testing::Values(
        BadCase{"SyntaxError", R"({"events": [)",
                "t.json: line 1, column 13: expected valid JSON (Invalid value.)"},
        BadCase{"NestedTooDeep", R"({"events": )" + std::string(100000, '[') + std::string(100000, ']') + "}",
                "t.json: line 1, column 75: expected JSON nested at most 64 levels deep"},
        BadCase{"NotAnObject", "[1, 2]", "t.json: (top level): expected a JSON object, got an array"},
        BadCase{"MissingEvents", "{}", "t.json: events: expected a list of events, got nothing"},
        BadCase{"UnknownTopLevelField", R"({"events": [], "chip": {}})",
                "t.json: chip: expected a known field (one of name, description, chips, interfaces, vrfs, zombies, "
                "aging, counters, routeSets, events, end, sampleInterval), got an unknown field"},
        BadCase{"TimeAsText", withEvents("[]", R"([{"at": "soon", "do": "restart"}])"),
                "t.json: events[0].at: expected a number of seconds >= 0, got the string \"soon\""},
        BadCase{"EventsOutOfOrder", withEvents("[]", R"([{"at": 2, "do": "restart"}, {"at": 1.5, "do": "restart"}])"),
                "t.json: events[1].at: expected a number of seconds >= 2 (the time of the event before), got the "
                "number 1.5"},
        BadCase{"UnknownEventKind", withEvents("[]", R"([{"at": 1, "do": "explode"}])"),
                "t.json: events[0].do: expected one of \"addRoutes\", \"removeRoutes\", \"addRoute\", "
                "\"removeRoute\", \"interfaceDown\", \"interfaceUp\", \"traffic\", \"config\", \"fault\", "
                "\"restart\", got the string \"explode\""},
        BadCase{"UndeclaredRouteSet", withEvents("[]", R"([{"at": 1, "do": "addRoutes", "set": "nope"}])"),
                "t.json: events[0].set: expected the name of a route set declared in routeSets, got the string "
                "\"nope\""},
        BadCase{"ChipOutOfRange", withEvents("[]", R"([{"at": 1, "do": "fault", "chip": 2, "table": "route", "failNext": 1}])"),
                "t.json: events[0].chip: expected a chip number from 0 to 1, got the number 2"},
        BadCase{"EmptyConfig", withEvents("[]", R"([{"at": 1, "do": "config"}])"),
                "t.json: events[0]: expected at least one setting (zombies, zombieLifetime, activityPollingInterval, "
                "allCounter, counterMode, counterRoutes, capacity), got none"},
        BadCase{"UndeclaredAcceptingVlan", withRoute(R"({"group": "239.1.1.1", "acceptingVlan": 300})"),
                "t.json: routeSets[0].routes[0].acceptingVlan: expected a VLAN declared in interfaces.vlans (100), got "
                "the number 300"},
        BadCase{"UndeclaredOutputPort",
                withRoute(R"({"group": "239.1.1.1", "acceptingVlan": 100, "outputs": ["Ethernet1.100", "Ethernet9.100"]})"),
                "t.json: routeSets[0].routes[0].outputs[1]: expected an output \"EthernetN.VLAN\" or \"EthernetN\" on a "
                "declared Ethernet port, got the string \"Ethernet9.100\""},
        BadCase{"NoRpfWithAcceptingVlan", withRoute(R"({"group": "239.1.1.1", "noRpf": true, "acceptingVlan": 100})"),
                "t.json: routeSets[0].routes[0].acceptingVlan: expected no accepting VLAN on a noRpf route, got the "
                "number 100"},
        BadCase{"GroupNotMulticast", withRoute(R"({"group": "10.1.1.1", "acceptingVlan": 100})"),
                "t.json: routeSets[0].routes[0].group: expected a multicast group address (\"239.1.1.1\", \"ff3e::1\") "
                "or prefix, got the string \"10.1.1.1\""},
        BadCase{"SourceOfOtherFamily", withRoute(R"({"source": "2001:db8::1", "group": "239.1.1.1", "acceptingVlan": 100})"),
                "t.json: routeSets[0].routes[0].source: expected \"*\" or a source address of the group's family "
                "(IPv4), got the string \"2001:db8::1\""},
        BadCase{"TooManyDistinctSets",
                withEvents(R"([{"name": "g", "generate": {"count": 100, "diversity": 7, "groupBase": "239.1.0.0",
                                  "acceptingVlan": 100, "portsPerSet": 2}}])",
                           "[]"),
                "t.json: routeSets[0].generate.diversity: expected a number of distinct output sets from 1 to 6 "
                "(4 ports, 2 per set, 1 VLAN, 100 routes), got the number 7"},
        BadCase{"GroupsRunOutOfMulticast",
                withEvents(R"([{"name": "g", "generate": {"count": 3, "groupBase": "239.255.255.254",
                                  "acceptingVlan": 100}}])",
                           "[]"),
                "t.json: routeSets[0].generate.count: expected a count whose groups stay multicast (from "
                "239.255.255.254), got a last group of 240.0.0.0"},
        // A file the user wrote by hand: repeated fields, odd names, numbers as written.
        BadCase{"SectionTwice", R"({"chips": {"count": 1}, "chips": {"count": "many"}, "events": []})",
                "t.json: chips: expected each field once per object, got a second one"},
        BadCase{"EventTimeTwice", withEvents("[]", R"([{"at": 1, "do": "restart", "at": 2}])"),
                "t.json: events[0].at: expected each field once per object, got a second one"},
        BadCase{"EmptyFieldName", R"({"": 1, "events": []})",
                "t.json: \"\": expected a known field (one of name, description, chips, interfaces, vrfs, zombies, "
                "aging, counters, routeSets, events, end, sampleInterval), got an unknown field"},
        BadCase{"NulAndBadUtf8InName", std::string("{\"chips\": {\"a\\u0000b\xff\": 1}, \"events\": []}"),
                "t.json: chips.\"a\\x00b\\xff\": expected a known field (one of count, routes, boundaries, "
                "replicationEntries, operationCost, chip, flavour, otherFlavour, transactionLatency, seed), got an "
                "unknown field"},
        BadCase{"BadUtf8InValue", std::string(R"({"events": [{"at": 1, "do": )") + "\"\xc3\xa9\xc3\x28\"}]}",
                "t.json: events[0].do: expected one of \"addRoutes\", \"removeRoutes\", \"addRoute\", "
                "\"removeRoute\", \"interfaceDown\", \"interfaceUp\", \"traffic\", \"config\", \"fault\", "
                "\"restart\", got the string \"\xc3\xa9\\xc3(\""},
        BadCase{"FractionalChipCount", R"({"chips": {"count": 2.0}, "events": []})",
                "t.json: chips.count: expected a whole number (a chip count from 1 to 1024), got the number 2.0"},
        BadCase{"ExponentTableSize", R"({"chips": {"routes": 1e3}, "events": []})",
                "t.json: chips.routes: expected a whole number (a table size from 0 to 100000000), got the number 1e3"},
        BadCase{"TimeShownAsWritten", withEvents("[]", R"([{"at": 2.50, "do": "restart"}, {"at": 1.0e0, "do": "restart"}])"),
                "t.json: events[1].at: expected a number of seconds >= 2.5 (the time of the event before), got the "
                "number 1.0e0"},
        // Routes the library would refuse without a word.
        BadCase{"InvalidRpaIndex", withRoute(R"({"group": "239.1.1.1", "acceptingVlan": 100, "rpaId": 65534})"),
                "t.json: routeSets[0].routes[0].rpaId: expected an RPA index from 0 to 65533, or 65535 for none (65534 "
                "is the invalid index), got the number 65534"},
        BadCase{"SameOutputTwice",
                withRoute(R"({"group": "239.1.1.1", "acceptingVlan": 100, "outputs": ["Ethernet1.100", "Ethernet1.100"]})"),
                "t.json: routeSets[0].routes[0].outputs[1]: expected an output not listed before, got the string "
                "\"Ethernet1.100\""},
        // VLANs: accepting, output and backup alike must be declared.
        BadCase{"UndeclaredOutputVlan",
                withRoute(R"({"group": "239.1.1.1", "acceptingVlan": 100, "outputs": ["Ethernet1.100", "Ethernet2.300"]})"),
                "t.json: routeSets[0].routes[0].outputs[1]: expected an output on a VLAN declared in interfaces.vlans "
                "(100), got the string \"Ethernet2.300\""},
        BadCase{"UndeclaredBackupVlan",
                withRoute(R"({"group": "239.1.1.1", "acceptingVlan": 100, "outputs": ["Ethernet1.100"],
                              "frr": {"protected": "Ethernet1", "backups": ["Ethernet3.7"]}})"),
                "t.json: routeSets[0].routes[0].frr.backups[0]: expected a backup output on a VLAN declared in "
                "interfaces.vlans (100), got the string \"Ethernet3.7\""},
        BadCase{"UndeclaredGeneratedOutputVlan",
                withEvents(R"([{"name": "g", "generate": {"count": 4, "groupBase": "239.1.0.0", "acceptingVlan": 100,
                                  "outputVlans": [200]}}])",
                           "[]"),
                "t.json: routeSets[0].generate.outputVlans[0]: expected a VLAN declared in interfaces.vlans (100), got "
                "the number 200"},
        BadCase{"RepeatedOutputVlans",
                withEvents(R"([{"name": "g", "generate": {"count": 4, "groupBase": "239.1.0.0", "acceptingVlan": 100,
                                  "outputVlans": [100, 100]}}])",
                           "[]"),
                "t.json: routeSets[0].generate.outputVlans[1]: expected an output VLAN not listed before, got the number "
                "100"},
        BadCase{"RepeatedGeneratorPorts",
                withEvents(R"([{"name": "g", "generate": {"count": 4, "groupBase": "239.1.0.0", "acceptingVlan": 100,
                                  "ports": ["Ethernet2", "Ethernet3", "Ethernet2"]}}])",
                           "[]"),
                "t.json: routeSets[0].generate.ports[2]: expected a port not listed before, got the string "
                "\"Ethernet2\""},
        BadCase{"RepeatedExpectedCopy",
                withEvents("[]", R"([{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1",
                                      "vlan": 100, "expect": ["Ethernet1.100", "Ethernet1.100"]}])"),
                "t.json: events[0].expect[1]: expected a copy not listed before, got the string \"Ethernet1.100\""},
        BadCase{"TrafficOnUndeclaredVlan",
                withEvents("[]", R"([{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 5}])"),
                "t.json: events[0].vlan: expected a VLAN declared in interfaces.vlans (100), got the number 5"},
        BadCase{"TrafficOnVlanZero",
                withEvents("[]", R"([{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 0}])"),
                "t.json: events[0].vlan: expected a VLAN declared in interfaces.vlans (leave \"vlan\" out for untagged "
                "packets), got the number 0"},
        // Traffic expectations.
        BadCase{"SetSourceOfTheOtherFamily",
                withEvents(R"([{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 100}]}])",
                           R"([{"at": 1, "do": "traffic", "set": "s", "source": "2001:db8::1"}])"),
                "t.json: events[0].source: expected a source address of the family of set \"s\"'s routes (IPv4), got "
                "the string \"2001:db8::1\""},
        BadCase{"SetSourceOfAMixedSet",
                withEvents(R"([{"name": "s", "routes": [{"group": "239.1.1.1", "acceptingVlan": 100},
                                                        {"group": "ff3e::1", "acceptingVlan": 100}]}])",
                           R"([{"at": 1, "do": "traffic", "set": "s", "source": "10.0.0.1"}])"),
                "t.json: events[0].source: expected no source for set \"s\", whose routes are of both families, got "
                "the string \"10.0.0.1\""},
        BadCase{"UnknownDropReason",
                withEvents("[]", R"([{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1",
                                      "expectDropped": "lost"}])"),
                "t.json: events[0].expectDropped: expected the reason every packet is dropped: one of \"noRoute\", "
                "\"rpfFail\", \"boundary\", \"noEntry\", got the string \"lost\""},
        BadCase{"DroppedAndCopies",
                withEvents("[]", R"([{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1",
                                      "expect": [], "expectDropped": "noRoute"}])"),
                "t.json: events[0].expect: expected no such field beside \"expectDropped\", got an array"},
        BadCase{"ExpectForwardedFalse",
                withEvents("[]", R"([{"at": 1, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1",
                                      "expectForwarded": false}])"),
                "t.json: events[0].expectForwarded: expected true (or \"expectDropped\" for packets that must be "
                "dropped), got false"},
        BadCase{"VrfNameTooLong", R"({"vrfs": [{"name": ")" + std::string(101, 'v') + R"(", "id": 1}], "events": []})",
                "t.json: vrfs[0].name: expected a VRF name of 1 to 100 bytes, got the string \"" + std::string(60, 'v') +
                    "...\""}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(ScenarioLoaderTest, UnreadableFileIsNamed) {
  try {
    ScenarioLoader::load("/nonexistent/x.json");
    FAIL() << "read a file that does not exist";
  } catch (ScenarioError const& e) {
    EXPECT_STREQ(e.what(), "/nonexistent/x.json: (file): expected a readable scenario file, got a file that cannot be opened");
  }
}

TEST(ScenarioLoaderTest, DirectoryIsNotAScenario) {
  try {
    ScenarioLoader::load("/");
    FAIL() << "read a directory";
  } catch (ScenarioError const& e) {
    EXPECT_STREQ(e.what(), "/: (file): expected a readable scenario file, got a directory");
  }
}

TEST(ScenarioLoaderTest, ResolvesRoutesAndFillsDefaults) {
  Scenario const s = parse(withEvents(
      R"([{"name": "s", "routes": [
           {"group": "239.1.1.1", "acceptingVlan": 100, "outputs": ["Ethernet2.100", "Ethernet1"],
            "frr": {"protected": "Ethernet2", "backups": ["Ethernet3.100"]}},
           {"source": "10.0.0.1", "group": "239.1.1.2", "noRpf": true, "rpaId": 3}]}])",
      R"([{"at": 1, "do": "addRoutes", "set": "s", "count": 1}, {"at": 2.5, "do": "interfaceDown", "interface": "Ethernet2"}])"));
  EXPECT_EQ(s.name, "t");
  ASSERT_EQ(s.vrfs.size(), 1u);
  EXPECT_EQ(s.vrfs[0].name, L3::VrfName("default"));
  EXPECT_EQ(s.ethernet.size(), 4u);
  ASSERT_EQ(s.routeSets.size(), 1u);
  auto const& starG = s.routeSets[0].routes[0];
  EXPECT_TRUE(starG.key().isStarG());
  EXPECT_EQ(starG.acceptingVlan().value(), 100);
  EXPECT_EQ(starG.acceptingIntfId(), Netcore::IntfId::vlan(100));
  EXPECT_EQ(starG.outputs().portVlanSize(), 2u);
  EXPECT_EQ(starG.outputs().intfId(), Netcore::IntfId::ethernet(2));
  EXPECT_EQ(starG.outputs().currentIif(), Netcore::IntfId::ethernet(2));
  EXPECT_TRUE(starG.outputs().portVlanFrr(MrouteLib::PortVlan("Ethernet3.100")));
  auto const& noRpf = s.routeSets[0].routes[1];
  EXPECT_TRUE(noRpf.noRpf());
  EXPECT_EQ(noRpf.acceptingVlan().value(), 0);
  EXPECT_EQ(noRpf.rpaId(), 3);
  EXPECT_EQ(s.routeSets[0].distinctOutputs, 2u);
  ASSERT_EQ(s.events.size(), 2u);
  EXPECT_EQ(s.events[0].count, 1u);
  EXPECT_EQ(s.events[1].intf, Netcore::IntfId::ethernet(2));
  EXPECT_EQ(s.events[1].path, "events[1]");
  // The run goes on past the last event for the zombies' lifetime and a second.
  EXPECT_DOUBLE_EQ(s.end, 2.5 + 4.0 + 1.0);
}

// ---- the generator ----

FalSim::RouteSetGenerator::Shape shape(std::uint64_t seed) {
  FalSim::RouteSetGenerator::Shape s;
  s.count = 500;
  s.diversity = 12;
  s.seed = seed;
  s.vrf = L3::VrfName("default");
  s.source = Netcore::IpGenPrefix("0.0.0.0/0");
  s.groupBase = Netcore::IpGenAddr("239.1.0.250");
  s.acceptingVlans = {Bridging::VlanId(10), Bridging::VlanId(20)};
  for (std::uint32_t i = 1; i <= 8; ++i) s.ports.push_back(Netcore::IntfId::ethernet(i));
  s.portsPerSet = 3;
  s.outputVlans = {Bridging::VlanIdOrNone(200)};
  return s;
}

std::set<std::string> outputSets(Scenario::RouteSet const& rs) {
  std::set<std::string> out;
  for (auto const& r : rs.routes) out.insert(r.outputs().pretty());
  return out;
}

TEST(RouteSetGeneratorTest, SameSeedSameRoutesEverySetUsed) {
  auto const a = FalSim::RouteSetGenerator::generate("a", shape(9));
  auto const b = FalSim::RouteSetGenerator::generate("b", shape(9));
  ASSERT_EQ(a.routes.size(), 500u);
  EXPECT_EQ(a.routes, b.routes);
  EXPECT_EQ(outputSets(a).size(), 12u);
  EXPECT_EQ(a.distinctOutputs, 12u);
  EXPECT_NE(outputSets(FalSim::RouteSetGenerator::generate("c", shape(10))), outputSets(a));
  // Consecutive groups across an octet boundary, accepting VLANs in turn.
  EXPECT_EQ(a.routes[6].key().group().address(), Netcore::IpGenAddr("239.1.1.0"));
  EXPECT_EQ(a.routes[6].acceptingVlan().value(), 10);
  EXPECT_EQ(a.routes[7].acceptingVlan().value(), 20);
  EXPECT_EQ(a.routes[7].acceptingIntfId(), Netcore::IntfId::vlan(20));
}

TEST(RouteSetGeneratorTest, ProtectsOnlySetsWithAnOutputOnTheProtectedPort) {
  auto s = shape(4);
  s.frr = FalSim::RouteSetGenerator::Frr{Netcore::IntfId::ethernet(1), {MrouteLib::PortVlan("Ethernet8.300")}};
  auto const rs = FalSim::RouteSetGenerator::generate("f", s);
  std::size_t protectedRoutes = 0;
  for (auto const& r : rs.routes) {
    bool const onPort1 = r.outputs().portVlan(MrouteLib::PortVlan("Ethernet1.200"));
    EXPECT_EQ(r.outputs().portVlanFrrSize(), onPort1 ? 1u : 0u);
    EXPECT_EQ(r.outputs().intfId(), onPort1 ? Netcore::IntfId::ethernet(1) : Netcore::IntfId());
    protectedRoutes += onPort1;
  }
  EXPECT_GT(protectedRoutes, 0u);
  EXPECT_LT(protectedRoutes, rs.routes.size());
}

TEST(RouteSetGeneratorTest, EveryCombinationWhenDiversityIsTheMaximum) {
  auto s = shape(1);
  s.ports.resize(5);
  s.portsPerSet = 2;
  s.outputVlans = {Bridging::VlanIdOrNone(1), Bridging::VlanIdOrNone(2)};
  ASSERT_EQ(FalSim::RouteSetGenerator::maxDistinct(s), 20u);
  s.diversity = 20;
  EXPECT_EQ(outputSets(FalSim::RouteSetGenerator::generate("all", s)).size(), 20u);
}

// The chips' flavour and asynchronous chips' fields (AsyncScenarioReader).
std::string asyncFault(std::string const& fields) {
  return R"({"chips": {"count": 2, "flavour": "async"}, "events": [{"at": 1, "do": "fault", )" + fields + "}]}";
}

INSTANTIATE_TEST_SUITE_P(
    AsyncMessages, BadScenarioTest,
    ::testing::Values(
        BadCase{"FlavourTwice", R"({"chips": {"flavour": "async", "flavour": "sync"}, "events": []})",
                "t.json: chips.flavour: expected each field once per object, got a second one"},
        BadCase{"FlavourNotAName", R"({"chips": {"flavour": 1}, "events": []})",
                R"(t.json: chips.flavour: expected one of "sync", "async", got the number 1)"},
        BadCase{"OtherFlavourNotAList", R"({"chips": {"count": 2, "otherFlavour": 1}, "events": []})",
                "t.json: chips.otherFlavour: expected a list of chip numbers, got the number 1"},
        BadCase{"SeedNotWhole", R"({"chips": {"seed": 1.0}, "events": []})",
                "t.json: chips.seed: expected a whole number (a seed from 0 to 2^53), got the number 1.0"},
        BadCase{"TransactionTwice", asyncFault(R"("transaction": "group", "failNext": 1, "transaction": "ingress")"),
                "t.json: events[0].transaction: expected each field once per object, got a second one"},
        BadCase{"ProbabilityTwice", asyncFault(R"("transaction": "group", "probability": 0.5, "probability": 1)"),
                "t.json: events[0].probability: expected each field once per object, got a second one"},
        BadCase{"TransactionFailNextNotWhole", asyncFault(R"("transaction": "group", "failNext": 2.5)"),
                "t.json: events[0].failNext: expected a whole number (a number of transactions to fail, 0 to 1000000), got "
                "the number 2.5"},
        BadCase{"UnknownFlavour", R"({"chips": {"flavour": "fast"}, "events": []})",
                R"(t.json: chips.flavour: expected one of "sync", "async", got the string "fast")"},
        BadCase{"OtherFlavourPastTheLastChip", R"({"chips": {"count": 2, "otherFlavour": [2]}, "events": []})",
                "t.json: chips.otherFlavour[0]: expected a chip number from 0 to 1, not listed before, got the number 2"},
        BadCase{"OtherFlavourTwice", R"({"chips": {"count": 2, "otherFlavour": [1, 1]}, "events": []})",
                "t.json: chips.otherFlavour[1]: expected a chip number from 0 to 1, not listed before, got the number 1"},
        BadCase{"NegativeLatency", R"({"chips": {"transactionLatency": -1}, "events": []})",
                "t.json: chips.transactionLatency: expected a latency in seconds from 0 to 10, got the number -1"},
        BadCase{"AsyncKernelChip", R"({"chips": {"chip": "kernel", "flavour": "async"}, "events": []})",
                R"(t.json: chips.flavour: expected the "sync" flavour on every chip of "chip": "kernel", got 1 asynchronous chip(s))"},
        BadCase{"UnknownTransactionKind", asyncFault(R"("transaction": "boot", "failNext": 1)"),
                R"(t.json: events[0].transaction: expected one of "group", "update", "ingress", got the string "boot")"},
        BadCase{"TransactionFaultOnSyncChip",
                R"({"chips": {"count": 2, "otherFlavour": [0]}, "events": [{"at": 1, "do": "fault", "chip": 1,
                   "transaction": "group", "failNext": 1}]})",
                R"(t.json: events[0].transaction: expected a fault on an asynchronous chip ("flavour": "async"), got chip 1, which runs the sync flavour)"},
        BadCase{"TransactionFaultWithNoAsyncChip",
                R"({"events": [{"at": 1, "do": "fault", "transaction": "group", "failNext": 1}]})",
                R"(t.json: events[0].transaction: expected a fault on an asynchronous chip ("flavour": "async"), got no asynchronous chip)"},
        BadCase{"TransactionFaultSaysNotHow", asyncFault(R"("transaction": "group")"),
                R"(t.json: events[0]: expected "failNext" or "probability", got neither)"},
        BadCase{"ProbabilityAboveOne", asyncFault(R"("transaction": "group", "probability": 2)"),
                "t.json: events[0].probability: expected a probability from 0 to 1, got the number 2"},
        BadCase{"ProbabilityOnATableFault", asyncFault(R"("table": "route", "probability": 0.5)"),
                R"(t.json: events[0].probability: expected no probability on a table fault (only beside "transaction"), got the number 0.5)"},
        BadCase{"TableBesideTransaction", asyncFault(R"("transaction": "group", "table": "route", "failNext": 1)"),
                R"(t.json: events[0].table: expected no such field beside "transaction", got the string "route")"}),
    [](auto const& info) { return std::string(info.param.name); });


}  // namespace
