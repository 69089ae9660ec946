// Cost of sharing OIF sets: finding the OifSet of an existing content in a
// registry of 1K and 1M sets (target: under 200 ns at 1M), and making and
// dropping a new one. BM_ColdRead gives the cost of one read that misses
// every cache on the machine at hand, to read the 1M figures against: a hit
// at that size needs two dependent such reads at least (the table slot, then
// the set it points to, whose content is compared).
//
// Lookups walk through up to 256K query sets, each a copy of a set drawn at
// random from the whole population. The queries are read in order (the
// hardware prefetcher keeps them close, as a set the caller has just built
// would be), while the registry's sets they hit are scattered: at 1M sets a
// target is rarely met twice while it is still cached, so each lookup pays
// the cache misses of a large route table.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "bench/Anchor.h"
#include "platform/mroutelib/OifSetRegistry.h"

namespace {

using MrouteLib::OifSetPtr;
using MrouteLib::OifSetRegistry;
using MrouteLib::PortVlan;
using MrouteLib::PortVlanSet;

// Four outputs and one FRR backup; distinct for every i below 4M.
PortVlanSet content(std::uint32_t i) {
  PortVlanSet s;
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1 + i % 1000), Bridging::VlanIdOrNone(1 + (i / 1000) % 4094)));
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1001 + i % 7), Bridging::VlanIdOrNone(10)));
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1010 + i % 5), Bridging::VlanIdOrNone(20)));
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1020), Bridging::VlanIdOrNone(1 + i % 4094)));
  s.portVlanFrrIs(PortVlan(Netcore::IntfId::ethernet(1030 + i % 3), Bridging::VlanIdOrNone(30)));
  s.intfIdIs(Netcore::IntfId::ethernet(1 + i % 1000));
  s.currentIifIs(Netcore::IntfId::ethernet(2000));
  return s;
}

struct Population {
  OifSetRegistry registry;
  std::vector<OifSetPtr> held;
  std::vector<PortVlanSet> queries;
};

// Built once per size and kept for every run of the benchmarks.
Population& population(std::uint32_t n) {
  static std::map<std::uint32_t, std::unique_ptr<Population>> cache;
  auto& p = cache[n];
  if (!p) {
    p = std::make_unique<Population>();
    p->held.reserve(n);
    for (std::uint32_t i = 0; i < n; ++i) p->held.push_back(p->registry.oifSetIs(content(i)));
    std::mt19937 rng(42);
    std::uint32_t q = std::min<std::uint32_t>(n, 1u << 18);
    p->queries.reserve(q);
    for (std::uint32_t j = 0; j < q; ++j) p->queries.push_back(content(rng() % n));
  }
  return *p;
}

void BM_OifSetIsExisting(benchmark::State& state) {
  auto& pop = population(static_cast<std::uint32_t>(state.range(0)));
  std::size_t k = 0;
  for (auto _ : state) {
    OifSetPtr s = pop.registry.oifSetIs(pop.queries[k]);
    benchmark::DoNotOptimize(s.get());
    if (++k == pop.queries.size()) k = 0;
  }
  if (pop.registry.size() != pop.held.size()) state.SkipWithError("a lookup created a set");
  state.SetItemsProcessed(state.iterations());
  state.counters["sets"] = static_cast<double>(pop.registry.size());
}
BENCHMARK(BM_OifSetIsExisting)->Arg(1000)->Arg(1000000);

// Lookup only, no reference taken beyond the result.
void BM_OifSetLookup(benchmark::State& state) {
  auto& pop = population(static_cast<std::uint32_t>(state.range(0)));
  std::size_t k = 0;
  for (auto _ : state) {
    OifSetPtr s = pop.registry.oifSet(pop.queries[k]);
    benchmark::DoNotOptimize(s.get());
    if (++k == pop.queries.size()) k = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OifSetLookup)->Arg(1000)->Arg(1000000);

// A content the registry does not hold: made, then released at once, which
// removes it again.
void BM_OifSetIsNewAndRelease(benchmark::State& state) {
  auto n = static_cast<std::uint32_t>(state.range(0));
  auto& pop = population(n);
  std::vector<PortVlanSet> fresh;
  for (std::uint32_t i = 0; i < 4096; ++i) fresh.push_back(content(n + i));
  std::size_t k = 0;
  for (auto _ : state) {
    OifSetPtr s = pop.registry.oifSetIs(fresh[k]);
    benchmark::DoNotOptimize(s.get());
    if (++k == fresh.size()) k = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OifSetIsNewAndRelease)->Arg(1000)->Arg(1000000);

// One dependent read per iteration, at a random cache line of 256 MB.
void BM_ColdRead(benchmark::State& state) {
  struct alignas(64) Line {
    Line* next;
  };
  std::size_t const n = (std::size_t{256} << 20) / sizeof(Line);
  std::vector<Line> lines(n);
  std::vector<std::uint32_t> order(n);
  for (std::uint32_t i = 0; i < n; ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  for (std::size_t i = 0; i < n; ++i) lines[order[i]].next = &lines[order[(i + 1) % n]];
  Line const* p = &lines[order[0]];
  for (auto _ : state) {
    p = p->next;
    benchmark::DoNotOptimize(p);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColdRead);

// The floor under a share lookup at 1M sets, with no library code: a query
// holds a set (from a vector, in random order); the lookup reads the set and
// then the entry it points to, and takes and drops a reference on the entry
// (two dependent reads of memory not seen lately), followed by `work` steps
// of unrelated computation standing for the library's bookkeeping (traces,
// ring record, verify request, result attribute). Timed in alternating rounds
// beside a bare absl find of a 16-byte key over the same sets (the share
// lookup's anchor): `ratio` shows how the floor rises with the instructions
// between consecutive lookups, as the processor overlaps the reads of
// consecutive lookups only while they fit in its window of instructions.
struct PairWorld {
  struct alignas(8) Entry {
    std::uint32_t refs = 1;
    bool dirty = false;
    char rest[51];  // an entry is 56 bytes
  };
  struct Set {
    std::uint32_t refs = 1;
    Entry* entry = nullptr;
    char rest[184];  // a platform set is 200 bytes
  };
  using Key = FalBench::SetChipKey;
  static constexpr std::uint32_t kSets = 1'000'000;
  PairWorld() {
    sets.reserve(kSets);
    entries.reserve(kSets);
    for (std::uint32_t i = 0; i < kSets; ++i) {
      sets.push_back(std::make_unique<Set>());
      entries.push_back(std::make_unique<Entry>());
      sets.back()->entry = entries.back().get();
      bare.emplace(Key{reinterpret_cast<std::uintptr_t>(sets.back().get()), 1}, entries.back().get());
    }
    std::mt19937 rng(42);
    for (std::uint32_t j = 0; j < (1U << 18); ++j) {
      Set* s = sets[rng() % kSets].get();
      queries.push_back(s);
      keys.push_back(Key{reinterpret_cast<std::uintptr_t>(s), 1});
    }
  }
  std::vector<std::unique_ptr<Set>> sets;
  std::vector<std::unique_ptr<Entry>> entries;
  absl::flat_hash_map<Key, Entry*> bare;
  std::vector<Set*> queries;
  std::vector<Key> keys;
};

[[gnu::noinline]] PairWorld::Entry* sharePair(PairWorld::Set* s) {
  ++s->refs;
  PairWorld::Entry* e = s->entry;
  if (e->dirty) e = nullptr;
  else ++e->refs;
  --s->refs;
  return e;
}

void BM_DependentPair(benchmark::State& state) {
  static PairWorld w;
  auto const work = static_cast<int>(state.range(0));
  constexpr std::size_t kRound = 512;
  FalBench::CpuStopwatch lib;
  FalBench::CpuStopwatch anchor;
  std::size_t k = 0;
  for (auto _ : state) {
    std::size_t const from = k;
    lib.start();
    for (std::size_t q = 0; q < kRound; ++q) {
      PairWorld::Entry* e = sharePair(w.queries[k]);
      for (int i = 0; i < work; ++i) benchmark::DoNotOptimize(i);
      if (e) --e->refs;
      if (++k == w.queries.size()) k = 0;
    }
    lib.stop();
    state.PauseTiming();
    k = from;
    anchor.start();
    for (std::size_t q = 0; q < kRound; ++q) {
      auto it = w.bare.find(w.keys[k]);
      benchmark::DoNotOptimize(it->second);
      if (++k == w.queries.size()) k = 0;
    }
    anchor.stop();
    state.ResumeTiming();
  }
  auto const items = static_cast<double>(state.iterations()) * kRound;
  state.SetItemsProcessed(static_cast<std::int64_t>(items));
  FalBench::reportAgainstAnchor(state, lib, anchor, items);
}
BENCHMARK(BM_DependentPair)->ArgName("work")->Arg(0)->Arg(25)->Arg(50)->Arg(100)->Arg(200);

}  // namespace
