// Costs of the Vex framework's hot operations: reference counting, immediate
// and deferred notification, the two collections at a million members, and
// clock arming and firing.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Entity.h"
#include "platform/vex/HashColl.h"
#include "platform/vex/OrderedColl.h"

namespace {

class Level : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Level> {
   public:
    virtual void onValue() {}
  };
  void valueIs(std::uint64_t v) {
    if (v == value_) return;
    value_ = v;
    notify(&Notifiee::onValue);
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0;
};

class LevelReactor : public Level::Notifiee {
 public:
  void onValue() override { sum_ += notifier()->value(); }
  std::uint64_t sum_ = 0;
};

void BM_PtrCopy(benchmark::State& state) {
  auto p = Vex::make<Level>();
  for (auto _ : state) {
    Vex::Ptr<Level> copy = p;
    benchmark::DoNotOptimize(copy);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PtrCopy);

// One change told to N reactors; items are deliveries.
void BM_NotifyFanOut(benchmark::State& state) {
  Vex::ActivityManager am;
  auto level = Vex::make<Level>();
  std::vector<std::unique_ptr<LevelReactor>> reactors(static_cast<std::size_t>(state.range(0)));
  for (auto& r : reactors) {
    r = std::make_unique<LevelReactor>();
    r->deferredIs(state.range(1) != 0);
    r->notifierIs(level);
  }
  std::uint64_t v = 0;
  for (auto _ : state) {
    level->valueIs(++v);
    if (state.range(1)) am.runOnce();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  benchmark::DoNotOptimize(reactors[0]->sum_);
}
BENCHMARK(BM_NotifyFanOut)->ArgNames({"notifiees", "deferred"})->ArgsProduct({{1, 10, 100}, {0, 1}});

constexpr int kMembers = 1'000'000;

std::vector<std::uint64_t> const& shuffledKeys() {
  static std::vector<std::uint64_t> const keys = [] {
    std::vector<std::uint64_t> k(kMembers);
    std::iota(k.begin(), k.end(), std::uint64_t{0});
    std::shuffle(k.begin(), k.end(), std::mt19937_64(42));
    return k;
  }();
  return keys;
}

template <class C>
void fill(C& c) {
  for (auto k : shuffledKeys()) c.set(k, k);
}

// Items are members inserted into an empty collection, a million per pass;
// bytes_per_member is the heap the filled collection holds.
template <class C>
void BM_CollInsert(benchmark::State& state) {
  double bytes = 0;
  for (auto _ : state) {
    auto before = mallinfo2().uordblks;
    auto c = std::make_unique<C>();
    fill(*c);
    state.PauseTiming();
    bytes = static_cast<double>(mallinfo2().uordblks - before);
    c.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kMembers);
  state.counters["bytes_per_member"] = bytes / kMembers;
}

template <class C>
void BM_CollLookup(benchmark::State& state) {
  C c;
  fill(c);
  auto const& keys = shuffledKeys();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(c.find(keys[i]));
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

template <class C>
void BM_CollErase(benchmark::State& state) {
  auto const& keys = shuffledKeys();
  for (auto _ : state) {
    state.PauseTiming();
    auto c = std::make_unique<C>();
    fill(*c);
    state.ResumeTiming();
    for (std::size_t i = keys.size(); i-- > 0;) c->erase(keys[i]);
  }
  state.SetItemsProcessed(state.iterations() * kMembers);
}

// A full pass with the deletion-safe iterator.
template <class C>
void BM_CollIterate(benchmark::State& state) {
  C c;
  fill(c);
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (auto it = c.iterator(); it; ++it) sum += it.value();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kMembers);
}

using Hash = Vex::HashColl<std::uint64_t, std::uint64_t>;
using Ordered = Vex::OrderedColl<std::uint64_t, std::uint64_t>;
BENCHMARK_TEMPLATE(BM_CollInsert, Hash)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_CollInsert, Ordered)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_CollLookup, Hash);
BENCHMARK_TEMPLATE(BM_CollLookup, Ordered);
BENCHMARK_TEMPLATE(BM_CollErase, Hash)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_CollErase, Ordered)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_CollIterate, Hash)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_CollIterate, Ordered)->Unit(benchmark::kMillisecond);

class ClockCounter : public Vex::Clock::Notifiee {
 public:
  void onTime() override { ++fired_; }
  std::uint64_t fired_ = 0;
};

// N clocks armed at distinct times, then run until all have fired; items are firings.
void BM_ClockArmAndFire(benchmark::State& state) {
  Vex::ActivityManager am;
  auto const n = static_cast<std::size_t>(state.range(0));
  std::vector<Vex::Ptr<Vex::Clock>> clocks;
  std::vector<std::unique_ptr<ClockCounter>> counters;
  for (std::size_t i = 0; i < n; ++i) {
    clocks.push_back(am.clockNew());
    counters.push_back(std::make_unique<ClockCounter>());
    counters.back()->notifierIs(clocks.back());
  }
  for (auto _ : state) {
    Vex::Seconds base = am.now();
    for (std::size_t i = 0; i < n; ++i) clocks[i]->timeMinIs(base + 1.0 + static_cast<double>((i * 7919) % n) * 1e-6);
    am.runUntil(base + 2.0);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  if (counters[0]->fired_ != static_cast<std::uint64_t>(state.iterations())) state.SkipWithError("a clock did not fire");
}
BENCHMARK(BM_ClockArmAndFire)->Arg(1)->Arg(1000)->Arg(100000);

// Making and dropping one clock while N others live (a timer per entry).
void BM_ClockNewAndDrop(benchmark::State& state) {
  Vex::ActivityManager am;
  std::vector<Vex::Ptr<Vex::Clock>> others;
  for (std::int64_t i = 0; i < state.range(0); ++i) others.push_back(am.clockNew());
  for (auto _ : state) {
    auto c = am.clockNew();
    c->timeMinIs(am.now() + 1.0);
    benchmark::DoNotOptimize(c);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ClockNewAndDrop)->Arg(0)->Arg(100000);

}  // namespace
