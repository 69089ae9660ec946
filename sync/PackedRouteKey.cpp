#include "sync/PackedRouteKey.h"

#include <arpa/inet.h>

#include <bit>
#include <cstring>

#include "model/RouteKeyHash.h"

namespace Fal {

namespace {

using Netcore::AddressFamily;
using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;
using KeyHash::fold;
using KeyHash::kSeeds;
using KeyHash::load8;

}  // namespace

PackedRouteKey::PackedRouteKey(IpGenRouteKey const& key, bool own) {
  // A prefix packs when its address has nothing past its first four bytes
  // and it is IPv4, or the all-zero address of no family.
  auto packPrefix = [](IpGenPrefix const& p, std::uint32_t& addr, std::uint8_t& len) {
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
    std::memcpy(&addr, b, 4);
    return true;
  };
  std::uint32_t source = 0;
  std::uint32_t group = 0;
  if (packPrefix(key.source(), source, bytes_[8]) && packPrefix(key.group(), group, bytes_[9])) {
    // Both addresses in one store: hashing and comparing read them as one
    // word, and a word read back from two narrower stores just made waits
    // until they have reached the cache.
    std::uint64_t const word = std::endian::native == std::endian::little
                                   ? std::uint64_t{source} | std::uint64_t{group} << 32
                                   : std::uint64_t{source} << 32 | std::uint64_t{group};
    std::memcpy(bytes_, &word, sizeof word);
    return;
  }
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
  return routeKeyHash(*whole(), vlan);
}

bool operator==(PackedRouteKey const& a, PackedRouteKey const& b) {
  if (a.packed() != b.packed()) return false;
  if (!a.packed()) return *a.whole() == *b.whole();
  return load8(a.bytes_) == load8(b.bytes_) && a.bytes_[8] == b.bytes_[8] && a.bytes_[9] == b.bytes_[9];
}

}  // namespace Fal
