#pragma once
// What the library's figures are read against: the same work done by a bare
// absl container, timed in the same benchmark run so that the shared
// machine's load at that moment weighs on both alike. A bench times its
// library step and the bare step with the same clock (this thread's CPU
// time) in alternating rounds and reports both per item and their ratio.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

namespace FalBench {

// Accumulates this thread's CPU time over the intervals it is running.
class CpuStopwatch {
 public:
  void start() { began_ = now(); }
  void stop() { total_ += now() - began_; }
  double seconds() const { return static_cast<double>(total_) * 1e-9; }

 private:
  static std::int64_t now() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
  }
  std::int64_t began_ = 0;
  std::int64_t total_ = 0;
};

// Reports `<first>` and `<second>` (nanoseconds per item) and `ratio` =
// first / second.
inline void reportRatio(benchmark::State& state, CpuStopwatch const& first, CpuStopwatch const& second, double items,
                        char const* firstName, char const* secondName) {
  if (items <= 0 || second.seconds() <= 0) return;
  double const firstNs = first.seconds() * 1e9 / items;
  double const secondNs = second.seconds() * 1e9 / items;
  state.counters[firstName] = firstNs;
  state.counters[secondName] = secondNs;
  state.counters["ratio"] = firstNs / secondNs;
}

// Reports `lib_ns` and `anchor_ns` (nanoseconds per item) and
// `ratio` = lib / anchor: the library is `ratio` times slower than the bare
// container (a speed of at least half the anchor's is a ratio of at most 2).
inline void reportAgainstAnchor(benchmark::State& state, CpuStopwatch const& lib, CpuStopwatch const& anchor,
                                double items) {
  reportRatio(state, lib, anchor, items, "lib_ns", "anchor_ns");
}

// The share lookup's anchor key: 16 bytes, a set's address and a chip.
struct SetChipKey {
  std::uint64_t set;
  std::uint64_t chip;
  friend bool operator==(SetChipKey const&, SetChipKey const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, SetChipKey const& k) {
    return H::combine(std::move(h), k.set, k.chip);
  }
};

}  // namespace FalBench
