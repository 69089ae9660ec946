#pragma once
// Fal::routeKeyHash: a hash of a multicast route key and 32 bits of the
// caller's own (an accepting VLAN, a VRF id), mixed in every bit.
//
// The key's own hash walks both prefixes and both addresses through several
// calls; this one folds the address words directly, a few multiplications in
// all. The library's tables keyed by route key use it: at a million routes a
// route add or an aging review hashes a key once or twice per route.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/vex/Export.h"

namespace Fal {

namespace KeyHash {

inline std::uint64_t load8(std::uint8_t const* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// Multiplies and folds the two halves of the product: every bit of the
// result depends on every bit of both inputs.
inline std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
  unsigned __int128 const p = static_cast<unsigned __int128>(a) * b;
  return static_cast<std::uint64_t>(p) ^ static_cast<std::uint64_t>(p >> 64);
}

inline constexpr std::uint64_t kSeeds[] = {0x9E3779B97F4A7C15ULL, 0xC2B2AE3D27D4EB4FULL, 0x165667B19E3779F9ULL,
                                           0xD6E8FEB86659FD93ULL, 0xA0761D6478BD642FULL, 0xE7037ED1A0B428DBULL};

}  // namespace KeyHash

FALMROUTE_EXPORT std::size_t routeKeyHash(Routing::Multicast::Fib::IpGenRouteKey const& key, std::uint32_t extra);

}  // namespace Fal
