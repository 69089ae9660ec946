// The timed work of Fal::MrouteSwitchSm on one chip, with the no-op hooks and
// with the reference chip:
// - ZombieCreate / ZombieExpire: 100K OIF sets, each the only set of one
//   route, become zombies as their routes are deleted, then all expire in one
//   run of the zombie clock. Items are sets.
// - FrrPass: 10K sets with fast-reroute backups whose incoming interface goes
//   down; one updateFrrMtableOif marks them and the review pass rewrites every
//   one in place. Items are sets; sets_per_slice is how many one 0.1 s slice
//   of CPU rewrites at that rate. (The pass's own budget runs on virtual time,
//   which neither hook object advances here, so it never stops early.)
// - AgingReview: a full review in one slice, items are routes; with the
//   reference chip at 100K and 1M routes (AgingBench has the no-op hooks at
//   those sizes), and with the no-op hooks at 10K routes, which stay in cache
//   and so give the review's computation alone.
// Figures are CPU time: the machine is shared.
#include <benchmark/benchmark.h>

#include "bench/BenchMain.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/SyncBenchRig.h"

namespace {

using namespace FalBench;

constexpr std::uint32_t kZombieSets = 100'000;
constexpr std::uint32_t kFrrSets = 10'000;

// One world at a time, with `sets` platform OIF sets and as many route keys.
struct SetWorld {
  SetWorld(Hooks hooks, std::uint32_t n, bool frr) : world(hooks, n + 16), n(n), frr(frr) {
    sets.reserve(n);
    for (std::uint32_t i = 0; i < n; ++i) sets.push_back(world.registry->oifSetIs(outputs(i, frr)));
    handles.reserve(n);
  }
  // One route per set: each set is programmed, and held by that route only.
  bool programAll() {
    for (std::uint32_t i = 0; i < n; ++i) handles.push_back(world.addRoute(routeKey(i), sets[i]));
    return world.sw->routeSize() == n && world.sw->inUseOifSetSize() == n;
  }
  void deleteAll() {
    for (RouteHandle h : handles) world.deleteRoute(h);
    handles.clear();
  }

  SyncWorld world;
  std::uint32_t n;
  bool frr;
  std::vector<OifSetPtr> sets;
  std::vector<RouteHandle> handles;
};

SetWorld& setWorld(Hooks hooks, std::uint32_t n, bool frr) {
  static std::unique_ptr<SetWorld> w;
  if (!w || w->world.hooks() != hooks || w->n != n || w->frr != frr) {
    w.reset();
    w = std::make_unique<SetWorld>(hooks, n, frr);
  }
  return *w;
}

// Runs the zombie clock past every expiry; true when none is left.
bool expireZombies(SetWorld& w) {
  w.world.am.runUntil(w.world.am.now() + w.world.sw->zombieLifetime() + 1.0);
  return w.world.sw->zombieOifSet().size() == 0;
}

void BM_ZombieCreate(benchmark::State& state, Hooks hooks) {
  SetWorld& w = setWorld(hooks, kZombieSets, false);
  w.world.l3Status->mrouteZombieEnabledIs(true);
  for (auto _ : state) {
    state.PauseTiming();
    if (!w.programAll()) state.SkipWithError("a set or route was refused");
    state.ResumeTiming();
    w.deleteAll();
    state.PauseTiming();
    if (w.world.sw->zombieOifSet().size() != kZombieSets) state.SkipWithError("not every set became a zombie");
    if (!expireZombies(w)) state.SkipWithError("zombies were left");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kZombieSets);
}

void BM_ZombieExpire(benchmark::State& state, Hooks hooks) {
  SetWorld& w = setWorld(hooks, kZombieSets, false);
  w.world.l3Status->mrouteZombieEnabledIs(true);
  for (auto _ : state) {
    state.PauseTiming();
    if (!w.programAll()) state.SkipWithError("a set or route was refused");
    w.deleteAll();
    if (w.world.sw->zombieOifSet().size() != kZombieSets) state.SkipWithError("not every set became a zombie");
    state.ResumeTiming();
    if (!expireZombies(w)) state.SkipWithError("zombies were left");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kZombieSets);
}

void BM_FrrPass(benchmark::State& state, Hooks hooks) {
  SetWorld& w = setWorld(hooks, kFrrSets, true);
  // Freed sets are released at once, so each iteration starts from fresh ones.
  w.world.l3Status->mrouteZombieEnabledIs(false);
  Netcore::IntfId const iif = Netcore::IntfId::ethernet(2000);
  for (auto _ : state) {
    state.PauseTiming();
    if (!w.programAll() || w.world.sw->frrMtableOifSet().size() != kFrrSets) {
      state.SkipWithError("a set or route was refused");
    }
    state.ResumeTiming();
    w.world.sm->updateFrrMtableOif(iif);
    state.PauseTiming();
    if (w.world.sw->frrProcessingOifSet().size() != 0 || w.world.sw->frrMtableOifSet().size() != 0) {
      state.SkipWithError("the pass did not rewrite every set");
    }
    w.deleteAll();
    state.ResumeTiming();
  }
  auto const sets = static_cast<double>(state.iterations()) * kFrrSets;
  state.SetItemsProcessed(static_cast<std::int64_t>(sets));
  state.counters["sets_per_slice"] = benchmark::Counter(sets * 0.1, benchmark::Counter::kIsRate);
}

// Routes in the IPv4 hardware status of VRF red, accepting on Vlan10, each
// programmed on the chip without outputs.
struct AgingWorld {
  AgingWorld(Hooks hooks, std::uint32_t routes) : world(hooks, routes + 16), routes(routes) {
    Netcore::IntfId const vlan10 = Netcore::IntfId::vlan(10);
    world.intfVlanIdTable->mappingIs(vlan10, Bridging::VlanId(10));
    auto vrf = world.hwStatus->vrfStatusIs(world.vrf);
    for (std::uint32_t i = 0; i < routes; ++i) {
      IpGenRouteKey const key = routeKey(i);
      vrf->routeIs(key)->acceptingIntfIdIs(vlan10);
      world.sw->doAllocateRoute(key, Bridging::VlanIdOrNone(10), false, nullptr, false, false, 0, world.vrf);
    }
    world.sm->handleInitialized();
    world.sm->agingReviewQuotaIs(1e9);  // a whole review in one slice
  }
  SyncWorld world;
  std::uint32_t routes;
};

void BM_AgingReview(benchmark::State& state, Hooks hooks, std::uint32_t routes) {
  static std::unique_ptr<AgingWorld> w;
  if (!w || w->routes != routes || w->world.hooks() != hooks) {
    w.reset();
    w = std::make_unique<AgingWorld>(hooks, routes);
  }
  if (w->world.sw->routeSize() != routes) state.SkipWithError("a route was refused");
  for (auto _ : state) {
    w->world.am.advanceBy(1.0);
    w->world.sm->doRouteHitCacheRefresh();
    if (w->world.sm->routeAgingReviewInProgress()) {
      state.SkipWithError("the review did not complete in one slice");
      break;
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * routes);
  if (state.thread_index() == 0 && routes == 1'000'000U) w.reset();
}

void registerAll() {
  for (Hooks hooks : {Hooks::noop, Hooks::chip}) {
    std::string const h = hooksName(hooks);
    benchmark::RegisterBenchmark(("BM_ZombieCreate/" + h + "/sets:100000").c_str(), BM_ZombieCreate, hooks)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_ZombieExpire/" + h + "/sets:100000").c_str(), BM_ZombieExpire, hooks)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_FrrPass/" + h + "/sets:10000").c_str(), BM_FrrPass, hooks)
        ->Unit(benchmark::kMillisecond);
  }
  // Small enough to stay in cache: what the review computes per route, without memory waits.
  benchmark::RegisterBenchmark("BM_AgingReview/noop/routes:10000", BM_AgingReview, Hooks::noop, 10'000U)
      ->Unit(benchmark::kMillisecond);
  for (std::uint32_t routes : {100'000U, 1'000'000U}) {
    benchmark::RegisterBenchmark(("BM_AgingReview/chip/routes:" + std::to_string(routes)).c_str(), BM_AgingReview,
                                 Hooks::chip, routes)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

void FalBench::registerBenchmarks() { registerAll(); }
