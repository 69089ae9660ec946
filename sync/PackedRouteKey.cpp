#include "sync/PackedRouteKey.h"

#include <arpa/inet.h>

#include <cstring>

namespace Fal {

namespace {

using Netcore::AddressFamily;
using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;

std::uint64_t load8(std::uint8_t const* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// Multiplies and folds the two halves of the product: every bit of the
// result depends on every bit of both inputs.
std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
  unsigned __int128 const p = static_cast<unsigned __int128>(a) * b;
  return static_cast<std::uint64_t>(p) ^ static_cast<std::uint64_t>(p >> 64);
}

constexpr std::uint64_t kSeeds[] = {0x9E3779B97F4A7C15ULL, 0xC2B2AE3D27D4EB4FULL, 0x165667B19E3779F9ULL,
                                    0xD6E8FEB86659FD93ULL, 0xA0761D6478BD642FULL, 0xE7037ED1A0B428DBULL};

}  // namespace

PackedRouteKey::PackedRouteKey(IpGenRouteKey const& key, bool own) {
  // A prefix packs when its address has nothing past its first four bytes
  // and it is IPv4, or the all-zero address of no family.
  auto packPrefix = [](IpGenPrefix const& p, std::uint8_t* addr, std::uint8_t& len) {
    IpGenAddr const& a = p.address();
    std::uint8_t const* b = a.bytes().data();
    std::uint32_t mid;
    std::memcpy(&mid, b + 4, 4);
    if (mid != 0 || load8(b + 8) != 0) return false;
    if (a.af() == AddressFamily::ipv4) {
      len = static_cast<std::uint8_t>(p.len() | kV4);
    } else if (a.af() == AddressFamily::ipunknown && b[0] == 0 && b[1] == 0 && b[2] == 0 && b[3] == 0) {
      len = static_cast<std::uint8_t>(p.len());
    } else {
      return false;
    }
    std::memcpy(addr, b, 4);
    return true;
  };
  if (packPrefix(key.source(), bytes_, bytes_[8]) && packPrefix(key.group(), bytes_ + 4, bytes_[9])) return;
  IpGenRouteKey const* block = own ? new IpGenRouteKey(key) : &key;
  std::memcpy(bytes_, &block, sizeof block);
  bytes_[8] = own ? kOwned : 0;
  bytes_[9] = kWhole;
}

PackedRouteKey::~PackedRouteKey() {
  if (!packed() && (bytes_[8] & kOwned)) delete whole();
}

PackedRouteKey::IpGenRouteKey const* PackedRouteKey::whole() const {
  IpGenRouteKey const* block;
  std::memcpy(&block, bytes_, sizeof block);
  return block;
}

PackedRouteKey::IpGenRouteKey PackedRouteKey::key() const {
  if (!packed()) return *whole();
  auto unpackPrefix = [](std::uint8_t const* addr, std::uint8_t len) {
    std::uint32_t n;
    std::memcpy(&n, addr, 4);
    IpGenAddr const a = (len & kV4) ? IpGenAddr::v4(ntohl(n)) : IpGenAddr();
    return IpGenPrefix(a, len & ~kV4);
  };
  return IpGenRouteKey(unpackPrefix(bytes_, bytes_[8]), unpackPrefix(bytes_ + 4, bytes_[9]));
}

std::size_t PackedRouteKey::hash(std::uint16_t vlan) const {
  if (packed()) {
    std::uint64_t const tail = bytes_[8] | std::uint64_t{bytes_[9]} << 8 | std::uint64_t{vlan} << 16;
    return fold(load8(bytes_) ^ kSeeds[0], tail ^ kSeeds[1]);
  }
  IpGenRouteKey const& k = *whole();
  std::uint8_t const* s = k.source().address().bytes().data();
  std::uint8_t const* g = k.group().address().bytes().data();
  std::uint64_t const meta = k.source().len() | std::uint64_t{static_cast<std::uint8_t>(k.source().af())} << 8 |
                             std::uint64_t{k.group().len()} << 16 |
                             std::uint64_t{static_cast<std::uint8_t>(k.group().af())} << 24 | std::uint64_t{vlan} << 32;
  std::uint64_t const h = fold(load8(s) ^ kSeeds[0], load8(s + 8) ^ kSeeds[1]) ^
                          fold(load8(g) ^ kSeeds[2], load8(g + 8) ^ kSeeds[3]);
  return fold(h ^ kSeeds[4], meta ^ kSeeds[5]);
}

bool operator==(PackedRouteKey const& a, PackedRouteKey const& b) {
  if (a.packed() != b.packed()) return false;
  if (!a.packed()) return *a.whole() == *b.whole();
  return load8(a.bytes_) == load8(b.bytes_) && a.bytes_[8] == b.bytes_[8] && a.bytes_[9] == b.bytes_[9];
}

}  // namespace Fal
