#pragma once
// Fal::PackedRouteKey: a multicast route key as a programmed route keeps it,
// in 10 bytes.
//
// A switch keeps one key per programmed route, so its size counts at a
// million routes. An IPv4 key (each prefix IPv4, or the empty prefix of a
// (*, G) source) is kept as its two addresses, lengths and families: 10 bytes
// instead of the 36 of IpGenRouteKey. Any other key is kept whole in a block
// of its own that the packed bytes point to. Either way the key reads back
// exactly as it was given.
//
// Hashing and comparison work on the packed bytes: a lookup packs its key
// once (a probe, which points at a key it cannot pack instead of copying it)
// and compares 10 bytes per candidate. Whether a key packs depends on the
// key alone, so equal keys are always in the same form.
#include <cstddef>
#include <cstdint>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/vex/Export.h"

namespace Fal {

class PackedRouteKey;
FALMROUTE_EXPORT bool operator==(PackedRouteKey const& a, PackedRouteKey const& b);

class FALMROUTE_EXPORT PackedRouteKey {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

  // Keeps key, whole in a block of its own when it does not pack.
  explicit PackedRouteKey(IpGenRouteKey const& key) : PackedRouteKey(key, true) {}
  // For a lookup: a key that does not pack is pointed at, not copied, so it
  // must outlive the probe.
  static PackedRouteKey probe(IpGenRouteKey const& key) { return PackedRouteKey(key, false); }
  PackedRouteKey(PackedRouteKey const&) = delete;
  PackedRouteKey& operator=(PackedRouteKey const&) = delete;
  ~PackedRouteKey();

  IpGenRouteKey key() const;
  // False when the key is kept whole.
  bool packed() const { return (bytes_[9] & kWhole) == 0; }
  // A hash of the key and an accepting VLAN, mixed in every bit.
  std::size_t hash(std::uint16_t vlan) const;
  friend bool operator==(PackedRouteKey const& a, PackedRouteKey const& b);

 private:
  // bytes_[0..4) source address and [4..8) group address in network order;
  // [8] and [9] the source's and the group's prefix length, with kV4 set for
  // an IPv4 prefix (clear for the empty prefix of no family). A key kept whole
  // sets kWhole in [9] and keeps its block's address in [0..8); kOwned in [8]
  // then says whether the block is this key's to free.
  static constexpr std::uint8_t kV4 = 0x40;
  static constexpr std::uint8_t kWhole = 0x80;
  static constexpr std::uint8_t kOwned = 0x01;

  PackedRouteKey(IpGenRouteKey const& key, bool own);
  IpGenRouteKey const* whole() const;

  std::uint8_t bytes_[10];
};

}  // namespace Fal
