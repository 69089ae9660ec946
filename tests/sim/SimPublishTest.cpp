// The simulator's agent publishes its counter status for other processes,
// one table per incarnation under the same name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fib/CounterStatus.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "tests/doubles/ShmNames.h"

namespace {

using FalMrouteTest::shmLeftovers;
using Routing::Multicast::Fib::CounterStatus;

constexpr char kScenario[] = R"({
  "interfaces": {"ethernet": 4, "vlans": [10]},
  "counters": {"all": true},
  "routeSets": [{"name": "g", "routes": [
    {"source": "10.0.0.1", "group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1"]}]}],
  "events": [{"at": 1, "do": "addRoutes", "set": "g"},
             {"at": 2, "do": "traffic", "set": "g", "expectForwarded": true},
             {"at": 5, "do": "restart"}],
  "end": 6})";

TEST(SimPublishTest, ReaderFollowsTheCountersAcrossARestart) {
  std::string const name = FalMrouteTest::uniqueShmName("sim.counterStatus");
  {
    FalSim::SimRunner::Options options;
    options.counterStatusName = name;
    FalSim::SimRunner runner(FalSim::ScenarioLoader::parse(kScenario, "publish.json"), options);
    runner.start();
    ASSERT_TRUE(runner.agent().counterStatus().control()->published()) << runner.agent().counterStatus().control()->error();
    auto reader = Vex::make<CounterStatus>(Memtab::CollectionControl::collectionControlIs(name, Memtab::Mode::reader));
    struct Told : CounterStatus::Notifiee {
      int mounts = 0;
      void onMountStatus() override { ++mounts; }
    } told;
    told.notifierIs(reader);
    ASSERT_TRUE(reader->mounted());

    runner.step();  // routes
    runner.step();  // traffic
    runner.runUntil(4.5);
    reader->refresh();
    EXPECT_EQ(reader->size(), runner.agent().counterStatus().size());
    ASSERT_GT(reader->size(), 0U) << "the wildcard counter counted the traffic";
    auto const ctl = reader->ctlRecord();
    EXPECT_EQ(ctl, runner.agent().counterStatus().ctlRecord());
    EXPECT_GT(ctl.currActive, 0U);
    EXPECT_EQ(ctl.capacity, CounterStatus::kDefaultCapacity);
    EXPECT_EQ(told.mounts, 0);

    runner.step();  // restart: a new agent publishes a fresh table under the same name
    reader->refresh();
    EXPECT_EQ(told.mounts, 1) << "the reader moved to the new incarnation's table";
    EXPECT_TRUE(reader->mounted());
    EXPECT_EQ(reader->size(), runner.agent().counterStatus().size());
    runner.finish();
  }
  EXPECT_EQ(shmLeftovers(), std::vector<std::string>()) << "the simulator removed what it published";
}

}  // namespace
