#pragma once
// The index of a route's rendezvous-point address in the multicast FIB's
// shared table of those addresses.
#include <cstdint>

namespace Memtab::Multicast::Fib {
using RpaIndex = std::uint16_t;
}  // namespace Memtab::Multicast::Fib
