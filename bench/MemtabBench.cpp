// The shared-memory table at its capacity: the writer's insert, replace and
// delete, and a reader's lookup through its own read-only mapping, beside a
// plain absl::flat_hash_map of the same rows in the same run.
//
// Rows are the counter key map's (route key, VRF, counter key), and the
// table is made with the map's capacity (MrouteCounterConstants), published
// under a name as an agent publishes it. Items are rows; each iteration
// touches every row once, in a shuffled order.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "async/MrouteCounterKeyMapTable.h"

namespace {

using Fal::Mroute::MrouteCounterConstants;
using Fal::Mroute::MrouteCounterKey;
using Fal::Mroute::MrouteCounterKeyMapEntry;
using Memtab::CollectionControl;
using Rows = Memtab::Collection<Fal::Mroute::MrouteCounterKeyMapTable::Rows>;

constexpr std::uint32_t kCapacity = MrouteCounterConstants::maxCounterTableSize;

std::vector<MrouteCounterKeyMapEntry> const& entries() {
  static std::vector<MrouteCounterKeyMapEntry> const all = [] {
    std::vector<MrouteCounterKeyMapEntry> v;
    v.reserve(kCapacity);
    for (std::uint32_t i = 0; i < kCapacity; ++i) {
      Routing::Multicast::Fib::IpGenRouteKey const key(
          Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + i * 7), 32),
          Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF000000U + (i % 509)), 32));
      v.push_back({MrouteCounterKey(i % 5, key), 0x100000ULL + i});
    }
    std::shuffle(v.begin(), v.end(), std::mt19937(7));
    return v;
  }();
  return all;
}

std::string tableName() { return "bench-" + std::to_string(::getpid()) + ".counterKeyMap"; }

// A writer publishing the table and a reader of it, in this process.
struct Published {
  Published() {
    writer.controlIs(CollectionControl::collectionControlIs(name, Memtab::Mode::writer), kCapacity);
    reader.controlIs(CollectionControl::collectionControlIs(name, Memtab::Mode::reader), 0);
  }
  void fill() {
    for (auto const& e : entries()) writer.set(e);
  }
  std::string const name = tableName();
  Rows writer;
  Rows reader;
};

using Plain = absl::flat_hash_map<MrouteCounterKey, MrouteCounterKeyMapEntry>;

void finish(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kCapacity);
  state.counters["rows"] = kCapacity;
}

void BM_MemtabInsert(benchmark::State& state) {
  Published t;
  for (auto _ : state) {
    for (auto const& e : entries()) benchmark::DoNotOptimize(t.writer.set(e));
    state.PauseTiming();
    t.writer.clear();
    state.ResumeTiming();
  }
  finish(state);
}
BENCHMARK(BM_MemtabInsert);

void BM_PlainInsert(benchmark::State& state) {
  Plain m;
  m.reserve(kCapacity);
  for (auto _ : state) {
    for (auto const& e : entries()) m.insert_or_assign(e.key, e);
    state.PauseTiming();
    m.clear();
    m.reserve(kCapacity);
    state.ResumeTiming();
  }
  finish(state);
}
BENCHMARK(BM_PlainInsert);

void BM_MemtabReplace(benchmark::State& state) {
  Published t;
  t.fill();
  std::uint64_t round = 0;
  for (auto _ : state) {
    ++round;
    for (auto e : entries()) {
      e.counterKey += round;
      benchmark::DoNotOptimize(t.writer.set(e));
    }
  }
  finish(state);
}
BENCHMARK(BM_MemtabReplace);

void BM_PlainReplace(benchmark::State& state) {
  Plain m;
  for (auto const& e : entries()) m.emplace(e.key, e);
  std::uint64_t round = 0;
  for (auto _ : state) {
    ++round;
    for (auto e : entries()) {
      e.counterKey += round;
      m.insert_or_assign(e.key, e);
    }
  }
  finish(state);
}
BENCHMARK(BM_PlainReplace);

void BM_MemtabDelete(benchmark::State& state) {
  Published t;
  for (auto _ : state) {
    state.PauseTiming();
    t.fill();
    state.ResumeTiming();
    for (auto const& e : entries()) benchmark::DoNotOptimize(t.writer.erase(e.key));
  }
  finish(state);
}
BENCHMARK(BM_MemtabDelete);

void BM_PlainDelete(benchmark::State& state) {
  Plain m;
  m.reserve(kCapacity);
  for (auto _ : state) {
    state.PauseTiming();
    for (auto const& e : entries()) m.emplace(e.key, e);
    state.ResumeTiming();
    for (auto const& e : entries()) benchmark::DoNotOptimize(m.erase(e.key));
  }
  finish(state);
}
BENCHMARK(BM_PlainDelete);

// Lookups through the reader's own read-only mapping, every row present.
void BM_MemtabReaderLookup(benchmark::State& state) {
  Published t;
  t.fill();
  std::uint64_t sum = 0;
  for (auto _ : state) {
    for (auto const& e : entries()) sum += t.reader.find(e.key)->counterKey;
  }
  benchmark::DoNotOptimize(sum);
  finish(state);
}
BENCHMARK(BM_MemtabReaderLookup);

void BM_PlainLookup(benchmark::State& state) {
  Plain m;
  for (auto const& e : entries()) m.emplace(e.key, e);
  std::uint64_t sum = 0;
  for (auto _ : state) {
    for (auto const& e : entries()) sum += m.find(e.key)->second.counterKey;
  }
  benchmark::DoNotOptimize(sum);
  finish(state);
}
BENCHMARK(BM_PlainLookup);

// A reader's lookup of keys that are not there: a probe to the end of its run.
void BM_MemtabReaderLookupAbsent(benchmark::State& state) {
  Published t;
  t.fill();
  std::vector<MrouteCounterKey> absent;
  for (auto const& e : entries()) absent.push_back(MrouteCounterKey(e.key.vrfId + 100, e.key.sg));
  std::uint64_t misses = 0;
  for (auto _ : state) {
    for (auto const& k : absent) misses += !t.reader.find(k);
  }
  benchmark::DoNotOptimize(misses);
  finish(state);
}
BENCHMARK(BM_MemtabReaderLookupAbsent);

}  // namespace
