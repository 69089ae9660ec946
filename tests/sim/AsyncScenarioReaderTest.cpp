// The scenario fields of the chips' flavour and of asynchronous chips, read
// into the scenario (their bad forms are among ScenarioTest's).
#include <gtest/gtest.h>

#include <string>

#include "sim/ScenarioLoader.h"

namespace {

using FalSim::AsyncReferenceChip;
using FalSim::Scenario;

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

}  // namespace
