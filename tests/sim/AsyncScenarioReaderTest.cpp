// The scenario fields of the chips' flavour and of asynchronous chips: read
// into the scenario, and refused with the file, the field and the expected
// form when wrong.
#include <gtest/gtest.h>

#include <string>

#include "sim/ScenarioLoader.h"

namespace {

using FalSim::AsyncReferenceChip;
using FalSim::Scenario;
using FalSim::ScenarioError;

Scenario parse(std::string const& json) { return FalSim::ScenarioLoader::parse(json, "t.json"); }

TEST(AsyncScenarioReaderTest, ChipsTakeTheirFlavourAndSingleChipsTheOther) {
  Scenario const s = parse(R"({"chips": {"count": 4, "flavour": "async", "otherFlavour": [2, 0],
    "transactionLatency": 0.25, "seed": 9}, "events": []})");
  EXPECT_EQ(s.chips.flavourOf(0), Scenario::Flavour::sync);
  EXPECT_EQ(s.chips.flavourOf(1), Scenario::Flavour::async);
  EXPECT_EQ(s.chips.flavourOf(2), Scenario::Flavour::sync);
  EXPECT_EQ(s.chips.flavourOf(3), Scenario::Flavour::async);
  EXPECT_EQ(s.chips.asyncCount(), 2u);
  EXPECT_DOUBLE_EQ(s.chips.transactionLatency, 0.25);
  EXPECT_EQ(s.chips.seed, 9u);

  Scenario const plain = parse(R"({"chips": {"count": 2}, "events": []})");
  EXPECT_EQ(plain.chips.asyncCount(), 0u);
}

TEST(AsyncScenarioReaderTest, TransactionFaultNamesItsKindAndHowTransactionsFail) {
  Scenario const s = parse(R"({"chips": {"count": 2, "otherFlavour": [1]}, "events": [
    {"at": 1, "do": "fault", "chip": 1, "transaction": "update", "failNext": 3, "probability": 0.5},
    {"at": 2, "do": "fault", "transaction": "ingress", "probability": 0}]})");
  ASSERT_EQ(s.events.size(), 2u);
  Scenario::Fault const& f = s.events[0].fault;
  EXPECT_EQ(f.chip, 1u);
  EXPECT_EQ(f.transaction, AsyncReferenceChip::Operation::update);
  EXPECT_EQ(f.failNext, 3u);
  EXPECT_EQ(f.probability, 0.5);
  Scenario::Fault const& all = s.events[1].fault;
  EXPECT_FALSE(all.chip);
  EXPECT_EQ(all.transaction, AsyncReferenceChip::Operation::ingress);
  EXPECT_FALSE(all.failNext);
  EXPECT_EQ(all.probability, 0.0);
}

struct BadCase {
  char const* name;
  std::string json;
  std::string message;
};

std::ostream& operator<<(std::ostream& os, BadCase const& c) { return os << c.name; }

class BadAsyncScenarioTest : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadAsyncScenarioTest, NamesFileFieldAndExpectation) {
  try {
    parse(GetParam().json);
    FAIL() << "accepted a bad scenario";
  } catch (ScenarioError const& e) {
    EXPECT_EQ(e.what(), GetParam().message);
  }
}

std::string asyncFault(std::string const& fields) {
  return R"({"chips": {"count": 2, "flavour": "async"}, "events": [{"at": 1, "do": "fault", )" + fields + "}]}";
}

INSTANTIATE_TEST_SUITE_P(
    Messages, BadAsyncScenarioTest,
    ::testing::Values(
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
