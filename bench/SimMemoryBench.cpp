// mroute-sim's heap at a million routes, by component, so the next cut is
// visible (BENCHMARKS.md, "The simulator at a million routes").
//
// The scenario is bench/scenarios/million-routes.json (or the file in
// FALMROUTE_SIM_SCENARIO). The whole run's heap is counted in place: the
// scenario as loaded, then the agent with every route of the first event
// programmed (SimRunner up to after that event: library, route programmer,
// FIB status, reference chip, wanted routes, all of it). Beside it each
// component the simulator adds around the library is built on its own from
// the same routes, as the run builds it, and counted alone:
// - chip: the reference chip's tables (replication entries for the distinct
//   output sets, one route entry per route, the prefix index);
// - status: the FIB's hardware route status of every route;
// - programmer: the route programmer's records and the shared OIF sets;
// - wanted: the runner's book of wanted routes.
// What the run holds beyond those is the library and the rest of the agent
// (library_and_agent). Every figure is bytes per wanted route.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>

#include "bench/BenchMain.h"
#include "bench/HeapMeter.h"
#include "platform/fib/hardware/Status.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "sim/ReferenceChipTables.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"
#include "sim/WantedRoutes.h"

namespace {

using MrouteLib::DesiredRoute;

std::string scenarioPath() {
  if (char const* p = std::getenv("FALMROUTE_SIM_SCENARIO")) return p;
  return std::string(FALMROUTE_SOURCE_DIR) + "/bench/scenarios/million-routes.json";
}

// The routes of the scenario's first event (an addRoutes of a set).
std::vector<DesiredRoute> const& firstRoutes(FalSim::Scenario const& s) {
  return s.routeSets.at(s.events.at(0).set).routes;
}

// Counts what a component holds: from an empty count to the moment it is
// built (it is alive then; what it frees on the way out is not counted).
class Held {
 public:
  Held() : before_(HeapMeter::liveBytes()) {}
  std::int64_t bytes() const { return HeapMeter::liveBytes() - before_; }

 private:
  HeapMeter::Scope meter_;
  std::int64_t before_;
};

void BM_SimMemory(benchmark::State& state) {
  std::int64_t scenarioBytes = 0, runBytes = 0, chipBytes = 0, statusBytes = 0, programmerBytes = 0, wantedBytes = 0;
  std::size_t routes = 0;
  for (auto _ : state) {
    FalSim::Scenario scenario;
    {
      Held held;
      scenario = FalSim::ScenarioLoader::load(scenarioPath());
      scenarioBytes = held.bytes();
    }
    auto const& wanted = firstRoutes(scenario);
    routes = wanted.size();

    {
      // The chip programmed as the library programs it: an entry per distinct
      // set, then each route pointing at its set's entry. The sets and the
      // bench's own map from set to entry are made before counting starts.
      MrouteLib::OifSetRegistry sets;
      std::vector<MrouteLib::OifSetPtr> setOf;
      absl::flat_hash_map<MrouteLib::OifSet const*, std::uint32_t> entryOf;
      for (auto const& r : wanted) {
        setOf.push_back(sets.oifSetIs(r.outputs()));
        entryOf.emplace(setOf.back().get(), 0);
      }
      FalSim::ReferenceChipTables chip(1, scenario.chips.capacity);
      Held held;
      for (auto& [set, index] : entryOf) index = chip.entryAllocate(0, set->portVlanSet());
      for (std::size_t i = 0; i < wanted.size(); ++i) {
        FalSim::ReferenceChipTables::RouteEntry e;
        e.key = wanted[i].key();
        e.acceptingVlan = wanted[i].acceptingVlan();
        e.oifSetIndex = entryOf.at(setOf[i].get());
        chip.routeAllocate(0, std::move(e), false, "bench");
      }
      chipBytes = held.bytes();
    }
    {
      auto status = Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
      Held held;
      for (auto const& r : wanted) status->vrfStatusIs(r.vrfName())->routeIs(r.key())->acceptingIntfIdIs(r.acceptingIntfId());
      statusBytes = held.bytes();
    }
    {
      // No chip and no status: its records and the shared OIF sets alone.
      auto programmer = Vex::make<MrouteLib::RouteProgrammer>(Vex::make<MrouteLib::OifSetRegistry>(), nullptr, nullptr);
      Held held;
      for (auto const& r : wanted) programmer->routeIs(r);
      programmerBytes = held.bytes();
    }
    {
      FalSim::WantedRoutes book;
      Held held;
      for (auto const& r : wanted) book.kept(r);
      wantedBytes = held.bytes();
    }
    {
      Held held;
      // Last: the runner takes the scenario over, as mroute-sim hands it.
      FalSim::SimRunner runner(std::move(scenario));
      runner.start();
      runner.step();
      runBytes = held.bytes();
    }
  }
  auto perRoute = [&](std::int64_t b) { return static_cast<double>(b) / static_cast<double>(routes); };
  state.counters["routes"] = static_cast<double>(routes);
  state.counters["scenario_B"] = perRoute(scenarioBytes);
  state.counters["run_B"] = perRoute(runBytes);
  state.counters["chip_B"] = perRoute(chipBytes);
  state.counters["status_B"] = perRoute(statusBytes);
  state.counters["programmer_B"] = perRoute(programmerBytes);
  state.counters["wanted_B"] = perRoute(wantedBytes);
  state.counters["library_and_agent_B"] = perRoute(runBytes - chipBytes - statusBytes - programmerBytes - wantedBytes);
}

}  // namespace

void FalBench::registerBenchmarks() {
  benchmark::RegisterBenchmark("BM_SimMemory/million-routes", BM_SimMemory)->Iterations(1)->Unit(benchmark::kSecond);
}
