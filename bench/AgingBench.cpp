// The synchronous route aging review at 100K and 1M routes: reviewed routes
// per second of CPU for a full review in one slice, with a hit-bit hook that
// answers at once (every route idle, or every route hit and stamped).
//
// Routes are spread over 16 VRFs, programmed on the switch with accepting
// VLANs 1..4000, so every route costs the review what it costs in an agent:
// the VLAN lookup, the switch's handle and route lookups, the hook call and,
// when hit, the stamp.
//
// Anchor (bench/Anchor.h): a bare walk over an absl::flat_hash_map from
// route key to route status holding the same routes, calling an empty
// function (not inlined) per route, timed in the same iterations as the
// review; `ratio` is review time / walk time per route.
//
// BM_AsyncAgingSlice: the asynchronous flavour's reviewer
// (Fal::Mroute::AsyncMrouteSwitchRouteAgingSm over an AsyncMrouteSwitch with
// the same routes programmed, no-op hooks) walking the same hardware status
// in its slices of 256 routes until the review completes, beside the
// synchronous review of the same routes in the same iterations: `async_ns`
// and `sync_ns` per route, `ratio` = async / sync.
#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "async/AsyncMrouteSwitch.h"
#include "async/AsyncMrouteSwitchRouteAgingSm.h"
#include "bench/Anchor.h"
#include "bench/AsyncNoopHooks.h"
#include "platform/fib/routing/RouteStatus.h"
#include "platform/vex/ActivityManager.h"
#include "sync/MrouteSwitchSm.h"

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::VrfConfig;
using Routing::Multicast::Fib::Hardware::RouteStatus;
using Routing::Multicast::Fib::Hardware::Status;

constexpr std::uint32_t kVrfs = 16;
constexpr std::uint32_t kVlans = 4000;

// Programs every route and answers every hit-bit read at once.
class NoopHitHelper : public FalHelper::MrouteSmHelper {
 public:
  NoopHitHelper() : MrouteSmHelper("aging-bench") {}
  bool hit = false;

  MrouteLib::RouteHandle doAllocateMroute(std::uint32_t, std::uint16_t, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool,
                                          std::uint32_t, bool, std::uint16_t) override {
    return MrouteLib::RouteHandle(nextHandle_++);
  }
  bool mrouteHitBit(std::uint32_t, std::uint16_t, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) override { return hit; }
  bool mrouteHitBitCacheRefresh(std::uint32_t) override { return true; }
  void mrouteHitBitCacheClear(std::uint32_t) override {}
  void doCommitMrouteBatch() override {}

 private:
  std::uint32_t nextHandle_ = 1;
};

L3::VrfName vrfName(std::uint32_t v) {
  std::string const name = v == 0 ? "default" : "vrf" + std::to_string(v);
  return L3::VrfName(name);
}

// One chip with its state machine and `routes` routes in the IPv4 hardware status.
struct World {
  explicit World(std::uint32_t routes) : routes(routes) {
    for (std::uint32_t v = 0; v < kVrfs; ++v) l3Status->vrfIs(vrfName(v), v + 1);
    for (std::uint32_t vlan = 1; vlan <= kVlans; ++vlan) intfVlan->mappingIs(Netcore::IntfId::vlan(vlan), Bridging::VlanId(vlan));
    auto sw = Fal::mrouteSwitchFactory(1, acsd, l3Status, helper, Vex::make<Ip::Status>(), hw4, hw6);
    for (std::uint32_t i = 0; i < routes; ++i) {
      IpGenRouteKey const key(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + i), 32),
                              Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF000000U + i / 3), 32));
      std::uint32_t const vlan = 1 + i % kVlans;
      L3::VrfName const vrf = vrfName(i % kVrfs);
      auto status = hw4->vrfStatusIs(vrf)->routeIs(key);
      status->acceptingIntfIdIs(Netcore::IntfId::vlan(vlan));
      bare.emplace(key, status.get());
      sw->doAllocateRoute(key, Bridging::VlanIdOrNone(vlan), false, nullptr, false, false, 0, vrf);
    }
    acsd->initializedIs(true);
    sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(
        1, acsd, l3Status, sw, intfVlan, Vex::make<VrfConfig>(), Vex::make<VrfConfig>(), hw4, hw6, helper, am.clockNew(),
        am.clockNew(), Vex::make<Interface::EthIntfStatusDir>(), Vex::make<Interface::AllIntfStatusDir>(),
        Vex::make<Interface::AllIntfStatusLocalDir>(), false, Vex::make<Fal::MrouteHitConfig>(),
        Vex::make<Fal::MrouteHitStatus>());
    sm->handleInitialized();
    sm->agingReviewQuotaIs(1e9);  // a whole review in one slice
  }

  std::uint32_t const routes;
  Vex::ActivityManager am;  // first: everything below lives on it
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>();
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<NoopHitHelper> helper = Vex::make<NoopHitHelper>();
  Vex::Ptr<Status> hw4 = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Status> hw6 = Vex::make<Status>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<IntfVlanId::Table> intfVlan = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Fal::MrouteSwitchSm> sm;
  absl::flat_hash_map<IpGenRouteKey, RouteStatus*> bare;  // the anchor's map of the same routes
};

// The asynchronous reviewer over the same routes and hardware status as w's
// synchronous one, on a switch of its own with the routes programmed.
struct AsyncAging {
  explicit AsyncAging(World& w) {
    for (std::uint32_t v = 0; v < kVrfs; ++v) routeStatus->vrfStatusIs(vrfName(v), v + 1);
    sw = Fal::Mroute::asyncMrouteSwitchFactory("aging-bench", routeStatus, hooks);
    for (std::uint32_t v = 0; v < kVrfs; ++v) {
      L3::VrfName const vrf = vrfName(v);
      for (auto it = w.hw4->vrfStatus(vrf)->routeIterator(); !it.done(); ++it) {
        Bridging::VlanIdOrNone const vlan = w.intfVlan->intfIdToVlanId(it.value()->acceptingIntfId());
        sw->doAllocateRoute(it.key(), vlan, false, 0, vrf, false);
      }
    }
    // No clock: the bench runs each slice itself.
    aging = Fal::Mroute::AsyncMrouteSwitchRouteAgingSm::AsyncMrouteSwitchRouteAgingSmIs(
        Netcore::AddressFamily::ipv4, sw, w.intfVlan, nullptr, w.hw4, hooks, nullptr);
  }
  ~AsyncAging() {
    aging = nullptr;
    sw = nullptr;
  }
  AsyncAging(AsyncAging const&) = delete;
  AsyncAging& operator=(AsyncAging const&) = delete;

  // One whole review, slice after slice.
  void review() {
    do aging->doRouteAgingReview();
    while (!aging->vrfBookmark().stringValue().empty());
  }

  Vex::Ptr<Routing::Hardware::RouteStatus> routeStatus = Vex::make<Routing::Hardware::RouteStatus>();
  Vex::Ptr<FalBench::AsyncNoopHooks> hooks = Vex::make<FalBench::AsyncNoopHooks>();
  Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch> sw;
  Vex::Ptr<Fal::Mroute::AsyncMrouteSwitchRouteAgingSm> aging;
};

// The anchor's per-route call: does nothing, and is not inlined.
[[gnu::noinline]] void visitRoute(IpGenRouteKey const& key, RouteStatus* status) { benchmark::DoNotOptimize(status); }

std::unique_ptr<AsyncAging>& asyncAging() {
  static std::unique_ptr<AsyncAging> a;
  return a;
}

// One world at a time: the 1M-route one needs the memory the 100K one holds.
World& world(std::uint32_t routes) {
  static std::unique_ptr<World> w;
  if (!w || w->routes != routes) {
    asyncAging().reset();
    w.reset();
    setenv("FAL_NOOP_AGENT", "1", 1);  // hooks this bench does not override do nothing
    w = std::make_unique<World>(routes);
  }
  return *w;
}

// Both benches' cases: routes, whether every route was hit since the last review.
void agingArgs(benchmark::internal::Benchmark* b) {
  b->ArgNames({"routes", "hit"});
  for (std::int64_t routes : {100'000, 1'000'000}) b->Args({routes, 0})->Args({routes, 1});
}

// One whole synchronous review at a new time, timed on sw; false when it
// did not complete in its one slice.
bool syncReview(World& w, FalBench::CpuStopwatch& sw) {
  w.am.advanceBy(1.0);  // each pass stamps a new time
  sw.start();
  w.sm->doRouteHitCacheRefresh();
  sw.stop();
  return !w.sm->routeAgingReviewInProgress();
}

// Args: routes, whether every hit bit reads set.
void BM_AgingReview(benchmark::State& state) {
  auto const routes = static_cast<std::uint32_t>(state.range(0));
  World& w = world(routes);
  w.helper->hit = state.range(1) != 0;
  FalBench::CpuStopwatch lib;
  FalBench::CpuStopwatch anchor;
  for (auto _ : state) {
    if (!syncReview(w, lib)) {
      state.SkipWithError("the review did not complete in one slice");
      break;
    }
    state.PauseTiming();
    anchor.start();
    for (auto const& [key, status] : w.bare) visitRoute(key, status);
    anchor.stop();
    state.ResumeTiming();
  }
  auto const items = static_cast<double>(state.iterations()) * routes;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  FalBench::reportAgainstAnchor(state, lib, anchor, items);
}
BENCHMARK(BM_AgingReview)->Apply(agingArgs)->Unit(benchmark::kMillisecond);

// Args: routes, whether every route was hit since the last review.
void BM_AsyncAgingSlice(benchmark::State& state) {
  auto const routes = static_cast<std::uint32_t>(state.range(0));
  World& w = world(routes);
  if (!asyncAging()) asyncAging() = std::make_unique<AsyncAging>(w);
  AsyncAging& a = *asyncAging();
  w.helper->hit = a.hooks->hit = state.range(1) != 0;
  if (a.sw->routeSize() != routes) state.SkipWithError("the asynchronous switch does not hold every route");
  FalBench::CpuStopwatch async;
  FalBench::CpuStopwatch sync;
  for (auto _ : state) {
    w.am.advanceBy(1.0);  // each pass stamps a new time
    a.hooks->activityReads = 0;
    async.start();
    a.review();
    async.stop();
    state.PauseTiming();
    if (a.hooks->activityReads != routes) {
      state.SkipWithError("the asynchronous review did not find every route's handle");
      break;
    }
    if (!syncReview(w, sync)) {
      state.SkipWithError("the synchronous review did not complete in one slice");
      break;
    }
    state.ResumeTiming();
  }
  auto const items = static_cast<double>(state.iterations()) * routes;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  if (a.aging->hitCount() != 0) state.SkipWithError("a review did not complete");
  FalBench::reportRatio(state, async, sync, items, "async_ns", "sync_ns");
}
BENCHMARK(BM_AsyncAgingSlice)->Apply(agingArgs)->Unit(benchmark::kMillisecond);

}  // namespace
