// Route counter polling by Fal::MrouteSm: one doCounterPolling over 100K
// published, active counters. traffic=0: every read answers 0, so nothing is
// republished (the common poll). traffic=1: every read answers 1, so every
// row is rewritten with its new value and time (the worst poll). With the
// reference chip the counters exist on the chip and carry no traffic. Items
// are counters polled; CPU time, as the machine is shared.
#include <benchmark/benchmark.h>

#include "bench/BenchMain.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/SyncBenchRig.h"
#include "platform/fib/CounterStatus.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "sync/MrouteSm.h"

namespace {

using namespace FalBench;

constexpr std::uint32_t kCounters = 100'000;

struct CounterWorld {
  explicit CounterWorld(Hooks hooks) : hooks(hooks) {
    if (hooks == Hooks::noop) {
      noop = Vex::make<NoopHooks>();
      helper = noop;
    } else {
      helper = Vex::make<MeteredChip>(FalSim::ReferenceChipCapacity{});
    }
    acsd->initializedIs(true);
    sm = Fal::MrouteSmIs(acsd, l3Status, vrfConfig, hwStatus, ipStatus, helper, enabledStatus);
    sm->mfibCounterStatusIs(counterStatus);
    sm->mfibCounterStatusCtlIs(counterCtl);
    for (std::uint32_t i = 0; i < kCounters; ++i) {
      IpGenRouteKey const key = routeKey(i);
      helper->doCreateMrouteCounter(7, key);
      sm->updateMfibCounter(key, 0, true);
    }
  }
  ~CounterWorld() { sm = nullptr; }

  Hooks hooks;
  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(100.0)};
  Vex::Ptr<Fal::VerifyData> verifyData = Vex::make<Fal::VerifyData>(false);
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>(verifyData);
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hwStatus =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Ip::Status> ipStatus = Vex::make<Ip::Status>();
  Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus> enabledStatus =
      Vex::make<Routing::Multicast::Fib::VrfEnabledStatus>();
  Vex::Ptr<Routing::Multicast::Fib::CounterStatus> counterStatus =
      Vex::make<Routing::Multicast::Fib::CounterStatus>(kCounters + 16);
  Vex::Ptr<Routing::Multicast::Fib::CounterStatusCtl> counterCtl =
      Vex::make<Routing::Multicast::Fib::CounterStatusCtl>(counterStatus);
  Vex::Ptr<NoopHooks> noop;
  Vex::Ptr<FalHelper::MrouteSmHelper> helper;
  Vex::Ptr<Fal::MrouteSm> sm;
};

void BM_CounterPolling(benchmark::State& state, Hooks hooks, bool traffic) {
  static std::unique_ptr<CounterWorld> w;
  if (!w || w->hooks != hooks) {
    w.reset();
    w = std::make_unique<CounterWorld>(hooks);
  }
  if (w->noop) w->noop->counterAmount = traffic ? 1 : 0;
  if (w->counterCtl->currActive() != kCounters) state.SkipWithError("not every counter is active");
  for (auto _ : state) {
    w->am.advanceBy(2.0);
    w->sm->doCounterPolling();
  }
  if (w->counterStatus->size() != kCounters || w->counterCtl->currActive() != kCounters) {
    state.SkipWithError("the poll changed the set of counters");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kCounters);
}

void registerAll() {
  benchmark::RegisterBenchmark("BM_CounterPolling/noop/counters:100000/traffic:0", BM_CounterPolling, Hooks::noop, false)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_CounterPolling/noop/counters:100000/traffic:1", BM_CounterPolling, Hooks::noop, true)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_CounterPolling/chip/counters:100000/traffic:0", BM_CounterPolling, Hooks::chip, false)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

void FalBench::registerBenchmarks() { registerAll(); }
