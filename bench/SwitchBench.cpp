// Route add and delete through Fal::MrouteSwitch with 10K, 100K and 1M routes
// programmed, the library's heap bytes per programmed route, and the OIF-set
// share lookup at 1M programmed sets, with the no-op hooks and with the
// reference chip.
//
// Population: `routes` routes, each with its own OIF set (three outputs), so
// the chip holds as many replication entries as routes; the heap figure is
// the library's per route at one set per route, its worst case. The platform
// OIF sets are made before counting starts: they belong to the route
// programmer, not to the library.
//
// Add and delete are timed in steady state on the full table: each iteration
// adds a batch of 1000 more routes (or deletes them). With newSet=0 a batch
// route shares the set of a programmed route (a share lookup, then the route);
// with newSet=1 it brings outputs nothing uses yet, so the add allocates a
// replication entry and the delete frees it (zombies off, so it is released at
// once rather than parked).
//
// Anchors (bench/Anchor.h), timed in alternating rounds with the library:
// for RouteAdd, inserting the same batch keys (route key and accepting VLAN)
// into a bare absl::flat_hash_map from key to handle that holds the
// population's keys, hashed as the library hashes route keys
// (Fal::routeKeyHash; the key's own hash costs the bare insert some 10 ns
// that the library does not pay); for OifSetShare, finding the same sets in a bare
// absl::flat_hash_map keyed by (set, chip), 16 bytes, in the same order.
//
// OifSetShare: doAllocateMtableOifSet of an OIF set that is already
// programmed, in random order over the 1M sets (the result is dropped at
// once, as the route programmer does). RegistryLookup: the route programmer's
// own step before it, finding the shared OifSet of a route's outputs in the
// platform registry. RegistryThenShare: both, as the route programmer runs
// them.
#include <benchmark/benchmark.h>

#include "bench/BenchMain.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <absl/container/flat_hash_map.h>

#include "bench/Anchor.h"
#include "bench/HeapMeter.h"
#include "bench/SyncBenchRig.h"
#include "model/RouteKeyHash.h"

namespace {

using namespace FalBench;

constexpr std::uint32_t kBatch = 1000;
constexpr std::uint32_t kQueries = 1U << 18;
// Share lookups per round of the alternation with the anchor.
constexpr std::uint32_t kShareRound = 512;

// The route add's anchor: route key and accepting VLAN to handle, hashed
// with the library's route key hash.
struct BareKeyHash {
  std::size_t operator()(Fal::RouteKeyVlanId const& k) const { return Fal::routeKeyHash(k.route, k.vlan.value()); }
};
using BareRouteMap = absl::flat_hash_map<Fal::RouteKeyVlanId, RouteHandle, BareKeyHash>;
Fal::RouteKeyVlanId bareKey(std::uint32_t i) { return {routeKey(i), Bridging::VlanIdOrNone(SyncWorld::kVlan)}; }

using BareShareMap = absl::flat_hash_map<SetChipKey, void const*>;
SetChipKey setChipKey(OifSetPtr const& s) { return {reinterpret_cast<std::uintptr_t>(s.get()), SyncWorld::kSwitchId}; }

struct Population {
  Population(Hooks hooks, std::uint32_t routes) : world(hooks, routes + 2 * kBatch + 16), routes(routes) {
    sets.reserve(routes + kBatch);
    handles.reserve(routes);
    for (std::uint32_t i = 0; i < routes + kBatch; ++i) sets.push_back(world.registry->oifSetIs(outputs(i)));
    batchHandles.reserve(kBatch);
    std::int64_t const before = HeapMeter::liveBytes();
    {
      HeapMeter::Scope meter;
      for (std::uint32_t i = 0; i < routes; ++i) {
        RouteHandle const h = world.addRoute(routeKey(i), sets[i]);
        HeapMeter::Pause p;
        handles.push_back(h);
      }
    }
    bytesPerRoute = static_cast<double>(HeapMeter::liveBytes() - before) / routes;
    if (world.sw->routeSize() != routes || world.sw->inUseOifSetSize() != routes) ok = false;
    bareRoutes.reserve(routes);
    for (std::uint32_t i = 0; i < routes; ++i) bareRoutes.emplace(bareKey(i), handles[i]);
    // The route programmer has a batch's keys and OIF sets in hand: neither
    // side pays for making them or for finding them in a list of a million.
    for (std::uint32_t j = 0; j < kBatch; ++j) {
      batchKeys.push_back(routeKey(routes + j));
      bareBatchKeys.push_back(bareKey(routes + j));
      sharedBatchSets.push_back(sets[(j * 997U) % routes]);
    }
  }

  SyncWorld world;
  std::uint32_t routes;
  std::vector<OifSetPtr> sets;  // sets[routes..] are the new sets of the batches
  std::vector<RouteHandle> handles;
  std::vector<RouteHandle> batchHandles;
  std::vector<IpGenRouteKey> batchKeys;
  std::vector<OifSetPtr> sharedBatchSets;  // programmed routes' sets, shared by the batch routes
  std::vector<Fal::RouteKeyVlanId> bareBatchKeys;
  BareRouteMap bareRoutes;  // the population's keys, as the route add's anchor holds them
  BareShareMap bareShare;   // the population's sets, as the share lookup's anchor holds them
  double bytesPerRoute = 0;
  bool ok = true;
};

// One population at a time: the 1M ones need the memory the others hold.
Population& population(Hooks hooks, std::uint32_t routes) {
  static std::unique_ptr<Population> p;
  if (!p || p->world.hooks() != hooks || p->routes != routes) {
    p.reset();
    p = std::make_unique<Population>(hooks, routes);
  }
  return *p;
}

OifSetPtr const& batchSet(Population& pop, std::uint32_t j, bool newSet) {
  return newSet ? pop.sets[pop.routes + j] : pop.sharedBatchSets[j];
}

void addBatch(Population& pop, bool newSet) {
  for (std::uint32_t j = 0; j < kBatch; ++j) {
    pop.batchHandles.push_back(pop.world.addRoute(pop.batchKeys[j], batchSet(pop, j, newSet)));
  }
}

void deleteBatch(Population& pop) {
  for (RouteHandle h : pop.batchHandles) pop.world.deleteRoute(h);
  pop.batchHandles.clear();
}

// The anchor's batch: the same keys into the bare map, and out again.
void bareAddBatch(Population& pop) {
  for (std::uint32_t j = 0; j < kBatch; ++j) pop.bareRoutes.emplace(pop.bareBatchKeys[j], RouteHandle(j + 1));
}
void bareDeleteBatch(Population& pop) {
  for (auto const& k : pop.bareBatchKeys) pop.bareRoutes.erase(k);
}

void report(benchmark::State& state, Population const& pop) {
  state.counters["routes"] = pop.routes;
  state.counters["lib_bytes_per_route"] = pop.bytesPerRoute;
  if (!pop.ok) state.SkipWithError("the population was not fully programmed");
}

void BM_RouteAdd(benchmark::State& state, Hooks hooks, std::uint32_t routes, bool newSet) {
  Population& pop = population(hooks, routes);
  pop.world.l3Status->mrouteZombieEnabledIs(!newSet);
  CpuStopwatch lib;
  CpuStopwatch anchor;
  for (auto _ : state) {
    lib.start();
    addBatch(pop, newSet);
    lib.stop();
    state.PauseTiming();
    if (pop.world.sw->routeSize() != pop.routes + kBatch) state.SkipWithError("a batch route was refused");
    deleteBatch(pop);
    anchor.start();
    bareAddBatch(pop);
    anchor.stop();
    if (pop.bareRoutes.size() != pop.routes + kBatch) state.SkipWithError("a bare insert found its key");
    bareDeleteBatch(pop);
    state.ResumeTiming();
  }
  auto const items = static_cast<double>(state.iterations()) * kBatch;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  report(state, pop);
  reportAgainstAnchor(state, lib, anchor, items);
}

void BM_RouteDelete(benchmark::State& state, Hooks hooks, std::uint32_t routes, bool newSet) {
  Population& pop = population(hooks, routes);
  pop.world.l3Status->mrouteZombieEnabledIs(!newSet);
  for (auto _ : state) {
    state.PauseTiming();
    addBatch(pop, newSet);
    state.ResumeTiming();
    deleteBatch(pop);
  }
  if (pop.world.sw->routeSize() != pop.routes) state.SkipWithError("a batch route was left behind");
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kBatch);
  report(state, pop);
}

std::vector<std::uint32_t> queryOrder(std::uint32_t n) {
  std::mt19937 rng(42);
  std::vector<std::uint32_t> order(std::min(n, kQueries));
  for (auto& q : order) q = rng() % n;
  return order;
}

BareShareMap const& bareShareMap(Population& pop) {
  if (pop.bareShare.empty()) {
    pop.bareShare.reserve(pop.routes);
    for (std::uint32_t i = 0; i < pop.routes; ++i) {
      pop.bareShare.emplace(setChipKey(pop.sets[i]), pop.world.sw->inUseOifSet(pop.sets[i].get()).get());
    }
  }
  return pop.bareShare;
}

// Each iteration is a round of kShareRound lookups, then (untimed by the
// framework, timed for the anchor) the same round of bare finds.
void BM_OifSetShare(benchmark::State& state, Hooks hooks, std::uint32_t sets) {
  Population& pop = population(hooks, sets);
  pop.world.l3Status->mrouteZombieEnabledIs(true);
  std::vector<std::uint32_t> const order = queryOrder(pop.routes);
  std::vector<OifSetPtr> queries;
  std::vector<SetChipKey> bareQueries;
  queries.reserve(order.size());
  bareQueries.reserve(order.size());
  auto& sw = *pop.world.sw;
  BareShareMap const& bare = bareShareMap(pop);
  for (auto i : order) {
    queries.push_back(pop.sets[i]);
    bareQueries.push_back(setChipKey(pop.sets[i]));
  }
  CpuStopwatch lib;
  CpuStopwatch anchor;
  std::size_t k = 0;
  std::size_t missed = 0;
  for (auto _ : state) {
    std::size_t const from = k;
    lib.start();
    for (std::uint32_t q = 0; q < kShareRound; ++q) {
      sw.doAllocateMtableOifSet(queries[k]);
      benchmark::DoNotOptimize(sw.oifSetResult().get());
      sw.oifSetResultIs(nullptr);
      if (++k == queries.size()) k = 0;
    }
    lib.stop();
    state.PauseTiming();
    k = from;
    anchor.start();
    for (std::uint32_t q = 0; q < kShareRound; ++q) {
      auto it = bare.find(bareQueries[k]);
      if (it == bare.end()) ++missed;
      else benchmark::DoNotOptimize(it->second);
      if (++k == queries.size()) k = 0;
    }
    anchor.stop();
    state.ResumeTiming();
  }
  if (sw.inUseOifSetSize() != pop.routes || sw.zombieOifSet().size() != 0) state.SkipWithError("a lookup changed the sets");
  if (missed != 0) state.SkipWithError("a bare find missed");
  auto const items = static_cast<double>(state.iterations()) * kShareRound;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  state.counters["sets"] = static_cast<double>(sw.inUseOifSetSize());
  reportAgainstAnchor(state, lib, anchor, items);
}

void BM_RegistryLookup(benchmark::State& state, Hooks hooks, std::uint32_t sets) {
  Population& pop = population(hooks, sets);
  std::vector<PortVlanSet> queries;
  queries.reserve(kQueries);
  for (auto i : queryOrder(pop.routes)) queries.push_back(outputs(i));
  auto& registry = *pop.world.registry;
  std::size_t const sizeBefore = registry.size();
  std::size_t k = 0;
  for (auto _ : state) {
    OifSetPtr s = registry.oifSetIs(queries[k]);
    benchmark::DoNotOptimize(s.get());
    if (++k == queries.size()) k = 0;
  }
  if (registry.size() != sizeBefore) state.SkipWithError("a lookup created a set");
  state.SetItemsProcessed(state.iterations());
  state.counters["sets"] = static_cast<double>(registry.size());
}

// The route programmer's whole step for a route's outputs: find the shared
// OifSet in the registry, then the chip's set for it. Less RegistryLookup,
// this is what sharing adds once the caller has the OifSet in hand (and in
// cache), which OifSetShare alone cannot show: there the first touch of the
// OifSet is a cold read of its own.
void BM_RegistryThenShare(benchmark::State& state, Hooks hooks, std::uint32_t sets) {
  Population& pop = population(hooks, sets);
  pop.world.l3Status->mrouteZombieEnabledIs(true);
  std::vector<PortVlanSet> queries;
  queries.reserve(kQueries);
  for (auto i : queryOrder(pop.routes)) queries.push_back(outputs(i));
  auto& registry = *pop.world.registry;
  auto& sw = *pop.world.sw;
  std::size_t k = 0;
  for (auto _ : state) {
    OifSetPtr s = registry.oifSetIs(queries[k]);
    sw.doAllocateMtableOifSet(s);
    benchmark::DoNotOptimize(sw.oifSetResult().get());
    sw.oifSetResultIs(nullptr);
    if (++k == queries.size()) k = 0;
  }
  if (sw.inUseOifSetSize() != pop.routes || sw.zombieOifSet().size() != 0) state.SkipWithError("a lookup changed the sets");
  state.SetItemsProcessed(state.iterations());
  state.counters["sets"] = static_cast<double>(sw.inUseOifSetSize());
}

// Grouped by population, so each is built once.
void registerAll() {
  for (Hooks hooks : {Hooks::noop, Hooks::chip}) {
    for (std::uint32_t routes : {10'000U, 100'000U, 1'000'000U}) {
      for (bool newSet : {false, true}) {
        std::string const suffix = std::string("/") + hooksName(hooks) + "/routes:" + std::to_string(routes) +
                                   "/newSet:" + (newSet ? "1" : "0");
        benchmark::RegisterBenchmark(("BM_RouteAdd" + suffix).c_str(), BM_RouteAdd, hooks, routes, newSet);
        benchmark::RegisterBenchmark(("BM_RouteDelete" + suffix).c_str(), BM_RouteDelete, hooks, routes, newSet);
      }
      if (routes == 1'000'000U) {
        std::string const suffix = std::string("/") + hooksName(hooks) + "/sets:" + std::to_string(routes);
        benchmark::RegisterBenchmark(("BM_OifSetShare" + suffix).c_str(), BM_OifSetShare, hooks, routes);
        benchmark::RegisterBenchmark(("BM_RegistryLookup" + suffix).c_str(), BM_RegistryLookup, hooks, routes);
        benchmark::RegisterBenchmark(("BM_RegistryThenShare" + suffix).c_str(), BM_RegistryThenShare, hooks, routes);
      }
    }
  }
}

}  // namespace

void FalBench::registerBenchmarks() { registerAll(); }
