#pragma once
// Vex::prefetch: starts fetching the cache line that holds p. A hint: it
// never faults and has no effect on any result.
//
// Use it rather than __builtin_prefetch alone. GCC 12 takes a function whose
// only work is the builtin (a table's prefetch(key) whose hash is all
// inline) to have no effects at all, and drops every call to it before it
// would inline one. The empty volatile asm beside the builtin is an effect
// the compiler must keep; it emits no instruction.
namespace Vex {

inline void prefetch(void const* p) {
  __builtin_prefetch(p);
  asm volatile("");
}

}  // namespace Vex
