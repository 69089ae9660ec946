#pragma once
// Vex::prefetch: starts fetching the cache line that holds p. A hint: it
// never faults and has no effect on any result.
//
// Use it rather than __builtin_prefetch alone. GCC 12 takes a function whose
// only work is the builtin (a table's prefetch(key) whose hash is all
// inline) to have no effects at all, and drops every call to it before it
// would inline one. The empty volatile asm beside the builtin is an effect
// the compiler must keep; it emits no instruction.
#include <cstddef>

namespace Vex {

inline void prefetch(void const* p) {
  __builtin_prefetch(p);
  asm volatile("");
}

// Starts fetching every line that holds one of the Bytes bytes at p (an
// object need not start on a line, so its last byte may lie one line further
// than its size alone says).
template <std::size_t Bytes>
inline void prefetchBytes(void const* p) {
  auto const* at = static_cast<char const*>(p);
  for (std::size_t offset = 0; offset < Bytes; offset += 64) prefetch(at + offset);
  if constexpr (Bytes % 64 != 0) prefetch(at + Bytes - 1);
}

}  // namespace Vex
