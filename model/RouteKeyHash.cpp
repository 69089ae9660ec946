#include "model/RouteKeyHash.h"

namespace Fal {

std::size_t routeKeyHash(Routing::Multicast::Fib::IpGenRouteKey const& k, std::uint32_t extra) {
  using KeyHash::fold;
  using KeyHash::kSeeds;
  using KeyHash::load8;
  std::uint8_t const* s = k.source().address().bytes().data();
  std::uint8_t const* g = k.group().address().bytes().data();
  std::uint64_t const meta = k.source().len() | std::uint64_t{static_cast<std::uint8_t>(k.source().af())} << 8 |
                             std::uint64_t{k.group().len()} << 16 |
                             std::uint64_t{static_cast<std::uint8_t>(k.group().af())} << 24 | std::uint64_t{extra} << 32;
  std::uint64_t const h = fold(load8(s) ^ kSeeds[0], load8(s + 8) ^ kSeeds[1]) ^ fold(load8(g) ^ kSeeds[2], load8(g + 8) ^ kSeeds[3]);
  return fold(h ^ kSeeds[4], meta ^ kSeeds[5]);
}

}  // namespace Fal
