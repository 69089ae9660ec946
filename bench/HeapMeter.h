#pragma once
// Heap bytes held by the code under measurement, counted by the replacement
// global operator new/delete in HeapMeter.cpp (link that file into the bench
// binary that includes this header).
//
// Counting is off by default and costs one branch per allocation then. While
// a HeapMeter::Scope is open every block allocated or freed moves the count by
// its usable size (what the allocator really hands out, rounding included);
// a HeapMeter::Pause inside it stops counting, so the allocations of a hook
// object (a software chip) are left out of the library's figure. A block
// allocated outside any scope and freed inside one is subtracted too; benches
// open the scope on an empty library so that cannot skew the figure.
#include <cstdint>

namespace HeapMeter {

// Bytes allocated minus bytes freed while counting. The per-route objects'
// pool (Vex::routeObjectPool) counts as the blocks it has handed out, not as
// its chunks, which it keeps when its blocks are freed: a component counted
// after another whose blocks it reuses is charged for them all the same.
// That holds while the pool takes its chunks with counting on, as every
// bench does (it opens its scope before the first route is made).
std::int64_t liveBytes();
bool counting();
void countingIs(bool on);

class Scope {
 public:
  Scope() : was_(counting()) { countingIs(true); }
  ~Scope() { countingIs(was_); }
  Scope(Scope const&) = delete;
  Scope& operator=(Scope const&) = delete;

 private:
  bool was_;
};

class Pause {
 public:
  Pause() : was_(counting()) { countingIs(false); }
  ~Pause() { countingIs(was_); }
  Pause(Pause const&) = delete;
  Pause& operator=(Pause const&) = delete;

 private:
  bool was_;
};

}  // namespace HeapMeter
