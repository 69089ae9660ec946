// The asynchronous flavour's route add with a shared set and its OIF-set share
// lookup at 1M routes, each beside the synchronous flavour's same step in the
// same run, both with no-op hooks.
//
// One population holds both flavours: 1M routes, each with its own OIF set
// (three outputs), programmed once on a Fal::MrouteSwitch and once on a
// Fal::Mroute::AsyncMrouteSwitch with the same route keys and outputs. Each
// flavour has its own registry's OIF sets, as one chip's library would: a
// set keeps the entry of the first chip that programs it. The bench holds
// each asynchronous route's record, as the route programmer's route does.
//
// RouteAdd: a batch of 1000 more routes, each sharing the set of a programmed
// route (share lookup, route, bind), then deleted again untimed; the two
// flavours' batches alternate within each iteration. OifSetShare: a round of
// 512 share lookups of programmed sets in random order, the result dropped at
// once as the route programmer does, on either flavour in turn.
//
// Counters (bench/Anchor.h): `async_ns` and `sync_ns` per route or lookup,
// `ratio` = async / sync, timed by this thread's CPU clock on both sides.
#include <benchmark/benchmark.h>

#include "bench/BenchMain.h"

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "async/AsyncMrouteSwitch.h"
#include "bench/Anchor.h"
#include "bench/AsyncNoopHooks.h"
#include "bench/SyncBenchRig.h"
#include "platform/fib/routing/RouteStatus.h"

namespace {

using namespace FalBench;
using AsyncSetPtr = Vex::Ptr<Fal::Mroute::AsyncMtableOifSet>;

constexpr std::uint32_t kBatch = 1000;
constexpr std::uint32_t kQueries = 1U << 18;
constexpr std::uint32_t kShareRound = 512;
constexpr Fal::VrfId kVrfId = 7;

// One chip of the asynchronous flavour, driven as the route programmer does.
struct AsyncWorld {
  AsyncWorld() {
    routeStatus->vrfStatusIs(vrf, kVrfId);
    sw = Fal::Mroute::asyncMrouteSwitchFactory("async-bench", routeStatus, hooks);
    info.vrfId = kVrfId;
    info.routeKeyType = static_cast<std::uint8_t>(Routing::Multicast::Fib::RouteKeyType::ipv4SG);
    info.acceptingVlan = Bridging::VlanIdOrNone(SyncWorld::kVlan);
  }
  ~AsyncWorld() { sw = nullptr; }
  AsyncWorld(AsyncWorld const&) = delete;
  AsyncWorld& operator=(AsyncWorld const&) = delete;

  // The chip's record for o; the transaction to bind with in xact.
  AsyncSetPtr allocSet(OifSetPtr const& o, MrouteLib::AsyncSwitchChip::XactPtr& xact) {
    xact = sw->doAllocateMtableOifSet(info, o, nullptr, MrouteLib::AsyncSwitchChip::kInvalidMulticastId, false);
    auto set = Vex::ptrCast<Fal::Mroute::AsyncMtableOifSet>(sw->oifSetResult());
    sw->oifSetResultIs(nullptr);
    return set;
  }
  // Programs a route replicating to o; held keeps the route's record.
  RouteHandle addRoute(IpGenRouteKey const& key, OifSetPtr const& o, AsyncSetPtr& held) {
    MrouteLib::AsyncSwitchChip::XactPtr xact;
    held = allocSet(o, xact);
    sw->doAllocateRoute(key, Bridging::VlanIdOrNone(SyncWorld::kVlan), false, 0, vrf, false);
    RouteHandle const h = sw->routeHandle();
    if (!h.isNull() && held) sw->doSetMtableOifSet(h, held, xact);
    return h;
  }

  L3::VrfName const vrf{"red"};
  MrouteLib::RouteKeyInfo info;
  Vex::Ptr<Routing::Hardware::RouteStatus> routeStatus = Vex::make<Routing::Hardware::RouteStatus>();
  Vex::Ptr<AsyncNoopHooks> hooks = Vex::make<AsyncNoopHooks>();
  Vex::Ptr<MrouteLib::OifSetRegistry> registry = Vex::make<MrouteLib::OifSetRegistry>();
  Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch> sw;
};

// The programmed route whose set the j-th batch route shares.
std::uint32_t sharedRoute(std::uint32_t j, std::uint32_t routes) { return (j * 997U) % routes; }

struct Population {
  explicit Population(std::uint32_t routes) : sync(Hooks::noop, routes + 2 * kBatch + 16), routes(routes) {
    sets.reserve(routes);
    asyncSets.reserve(routes);
    held.resize(routes);
    // One flavour after the other: made in turns, each flavour's sets and
    // records would sit beside the other's, and whichever runs first in an
    // iteration would bring the other's into the cache with its own.
    for (std::uint32_t i = 0; i < routes; ++i) {
      sets.push_back(sync.registry->oifSetIs(outputs(i)));
      if (sync.addRoute(routeKey(i), sets[i]).isNull()) ok = false;
    }
    for (std::uint32_t i = 0; i < routes; ++i) {
      asyncSets.push_back(async.registry->oifSetIs(outputs(i)));
      if (async.addRoute(routeKey(i), asyncSets[i], held[i]).isNull()) ok = false;
    }
    if (sync.sw->routeSize() != routes || async.sw->routeSize() != routes || async.sw->inUseOifSetSize() != routes) {
      ok = false;
    }
    // The route programmer has a batch's keys and OIF sets in hand: neither
    // flavour pays for finding them in a list of a million.
    for (std::uint32_t j = 0; j < kBatch; ++j) {
      batchKeys.push_back(routeKey(routes + j));
      batchSets.push_back(sets[sharedRoute(j, routes)]);
      asyncBatchSets.push_back(asyncSets[sharedRoute(j, routes)]);
    }
    batchHeld.resize(kBatch);
  }

  SyncWorld sync;  // first: its activity manager is the current one for both
  AsyncWorld async;
  std::uint32_t routes;
  std::vector<OifSetPtr> sets;       // the synchronous chip's
  std::vector<OifSetPtr> asyncSets;  // the same outputs, the asynchronous chip's
  std::vector<AsyncSetPtr> held;  // each asynchronous route's record
  std::vector<IpGenRouteKey> batchKeys;
  std::vector<OifSetPtr> batchSets;       // programmed routes' sets, shared by the batch routes
  std::vector<OifSetPtr> asyncBatchSets;  // the same, the asynchronous chip's
  std::vector<RouteHandle> batchHandles;
  std::vector<AsyncSetPtr> batchHeld;
  bool ok = true;
};

Population& population(std::uint32_t routes) {
  static std::unique_ptr<Population> p;
  if (!p || p->routes != routes) {
    p.reset();
    p = std::make_unique<Population>(routes);
  }
  return *p;
}

void BM_AsyncRouteAdd(benchmark::State& state, std::uint32_t routes) {
  Population& pop = population(routes);
  if (!pop.ok) state.SkipWithError("the population was not fully programmed");
  pop.sync.l3Status->mrouteZombieEnabledIs(true);
  CpuStopwatch async;
  CpuStopwatch sync;
  for (auto _ : state) {
    async.start();
    for (std::uint32_t j = 0; j < kBatch; ++j) {
      pop.batchHandles.push_back(pop.async.addRoute(pop.batchKeys[j], pop.asyncBatchSets[j], pop.batchHeld[j]));
    }
    async.stop();
    state.PauseTiming();
    if (pop.async.sw->routeSize() != pop.routes + kBatch) {
      state.SkipWithError("an asynchronous batch route was refused");
      break;
    }
    for (RouteHandle h : pop.batchHandles) pop.async.sw->doDeleteRoute(h);
    pop.batchHandles.clear();
    for (auto& s : pop.batchHeld) s = nullptr;
    sync.start();
    for (std::uint32_t j = 0; j < kBatch; ++j) {
      pop.batchHandles.push_back(pop.sync.addRoute(pop.batchKeys[j], pop.batchSets[j]));
    }
    sync.stop();
    if (pop.sync.sw->routeSize() != pop.routes + kBatch) {
      state.SkipWithError("a synchronous batch route was refused");
      break;
    }
    for (RouteHandle h : pop.batchHandles) pop.sync.deleteRoute(h);
    pop.batchHandles.clear();
    state.ResumeTiming();
  }
  auto const items = static_cast<double>(state.iterations()) * kBatch;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  state.counters["routes"] = pop.routes;
  reportRatio(state, async, sync, items, "async_ns", "sync_ns");
}

void BM_AsyncOifSetShare(benchmark::State& state, std::uint32_t routes) {
  Population& pop = population(routes);
  if (!pop.ok) state.SkipWithError("the population was not fully programmed");
  pop.sync.l3Status->mrouteZombieEnabledIs(true);
  std::mt19937 rng(42);
  std::vector<OifSetPtr> queries;
  std::vector<OifSetPtr> asyncQueries;
  for (std::uint32_t q = 0; q < kQueries; ++q) {
    std::uint32_t const i = rng() % pop.routes;
    queries.push_back(pop.sets[i]);
    asyncQueries.push_back(pop.asyncSets[i]);
  }
  auto& asw = *pop.async.sw;
  auto& ssw = *pop.sync.sw;
  CpuStopwatch async;
  CpuStopwatch sync;
  std::size_t k = 0;
  for (auto _ : state) {
    std::size_t const from = k;
    async.start();
    for (std::uint32_t q = 0; q < kShareRound; ++q) {
      benchmark::DoNotOptimize(
          asw.doAllocateMtableOifSet(pop.async.info, asyncQueries[k], nullptr, MrouteLib::AsyncSwitchChip::kInvalidMulticastId, false)
              .get());
      benchmark::DoNotOptimize(asw.oifSetResult().get());
      asw.oifSetResultIs(nullptr);
      if (++k == queries.size()) k = 0;
    }
    async.stop();
    state.PauseTiming();
    k = from;
    sync.start();
    for (std::uint32_t q = 0; q < kShareRound; ++q) {
      ssw.doAllocateMtableOifSet(queries[k]);
      benchmark::DoNotOptimize(ssw.oifSetResult().get());
      ssw.oifSetResultIs(nullptr);
      if (++k == queries.size()) k = 0;
    }
    sync.stop();
    state.ResumeTiming();
  }
  if (asw.inUseOifSetSize() != pop.routes || asw.zombieOifSet().size() != 0) state.SkipWithError("a lookup changed the sets");
  auto const items = static_cast<double>(state.iterations()) * kShareRound;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  state.counters["sets"] = static_cast<double>(asw.inUseOifSetSize());
  reportRatio(state, async, sync, items, "async_ns", "sync_ns");
}

void registerAll() {
  for (std::uint32_t routes : {10'000U, 1'000'000U}) {
    std::string const suffix = "/noop/routes:" + std::to_string(routes);
    benchmark::RegisterBenchmark(("BM_AsyncRouteAdd" + suffix).c_str(), BM_AsyncRouteAdd, routes);
    benchmark::RegisterBenchmark(("BM_AsyncOifSetShare" + suffix).c_str(), BM_AsyncOifSetShare, routes);
  }
}

}  // namespace

void FalBench::registerBenchmarks() { registerAll(); }
