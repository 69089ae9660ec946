#pragma once
// Fal::Mroute::InUseRouteHandleTable: the handle of each programmed route by
// its InUseRouteHandleKey, each key held in as few bytes as its shape allows.
//
// The aging review looks a handle up for every route it visits, and at a
// million routes each lookup reads a cold slot. A full key is 44 bytes, a
// slot with its handle 48, and the review fetches three lines to be sure of
// finding it. Nearly every key is an IPv4 (S, G) or (*, G) route with one
// group, a VLAN and a small VRF id: those are held in 12 bytes (a 16-byte
// slot, four to a line) and the review fetches one line, two at most. Any
// other key (IPv6, a source or group prefix, a range of groups, a VRF id
// past 16 bits) is held whole in a table of its own. Each key has one form,
// so the two tables never hold the same key.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "model/LinearProbeMap.h"
#include "model/RouteKeyHash.h"
#include "model/mroute/InUseRouteHandleKey.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/net/AddressFamily.h"

namespace Fal::Mroute {

class InUseRouteHandleTable {
 public:
  std::size_t size() const { return narrow_.size() + wide_.size(); }
  bool empty() const { return size() == 0; }

  // The handle recorded under key; the invalid handle when none.
  MrouteLib::RouteHandle find(InUseRouteHandleKey const& key) const { return find(key.routeKey, key.vlan, key.vrfId); }
  // The same for the key of these parts, made whole only when it has no
  // packed form (the aging review looks up every route this way).
  MrouteLib::RouteHandle find(Routing::Multicast::Fib::IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                              Fal::VrfId vrfId) const {
    NarrowKey narrow;
    MrouteLib::RouteHandle const* const h = narrowOf(routeKey, vlan, vrfId, narrow)
                                                ? narrow_.find(narrow)
                                                : wide_.find(InUseRouteHandleKey(routeKey, vlan, vrfId));
    return h ? *h : MrouteLib::RouteHandle::invalid();
  }
  // Records handle (not the invalid one) under key, replacing the one there was.
  void set(InUseRouteHandleKey const& key, MrouteLib::RouteHandle handle) {
    NarrowKey narrow;
    if (narrowOf(key.routeKey, key.vlan, key.vrfId, narrow)) {
      narrow_.set(narrow, handle);
    } else {
      wide_.set(key, handle);
    }
  }
  // Removes key's handle; false when there was none.
  bool erase(InUseRouteHandleKey const& key) {
    NarrowKey narrow;
    return narrowOf(key.routeKey, key.vlan, key.vrfId, narrow) ? narrow_.erase(narrow) : wide_.erase(key);
  }
  // Starts fetching what find() will read first (a hint; no effect).
  void prefetch(InUseRouteHandleKey const& key) const { prefetch(key.routeKey, key.vlan, key.vrfId); }
  void prefetch(Routing::Multicast::Fib::IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                Fal::VrfId vrfId) const {
    NarrowKey narrow;
    if (narrowOf(routeKey, vlan, vrfId, narrow)) {
      narrow_.prefetch(narrow);
    } else {
      wide_.prefetch(InUseRouteHandleKey(routeKey, vlan, vrfId));
    }
  }

 private:
  // Both addresses as their four bytes in network order; the rest packs the
  // VLAN (12 bits), the source's shape (2 bits) and the VRF id (16 bits).
  struct NarrowKey {
    std::uint32_t source = 0;
    std::uint32_t group = 0;
    std::uint32_t rest = 0;
    friend bool operator==(NarrowKey const&, NarrowKey const&) = default;
  };
  static_assert(sizeof(NarrowKey) == 12);

  // A (*, G) source is the empty prefix of either IPv4 or no family: kept
  // apart, as the full key's comparison keeps them.
  enum SourceShape : std::uint32_t { kSourceHost = 0, kSourceAnyV4 = 1, kSourceAnyNoFamily = 2 };
  static constexpr std::uint32_t kMaxNarrowVrfId = 0xFFFF;

  static std::uint32_t firstWord(Netcore::IpGenAddr const& a) {
    std::uint32_t w;
    std::memcpy(&w, a.bytes().data(), sizeof w);
    return w;
  }
  static bool allZero(Netcore::IpGenAddr const& a) {
    std::uint64_t w[2];
    std::memcpy(w, a.bytes().data(), sizeof w);
    return (w[0] | w[1]) == 0;
  }

  // Whether key has a narrow form, and that form in out. An IPv4 address
  // holds zeros past its first four bytes, so its first word is all of it.
  static bool narrowOf(Routing::Multicast::Fib::IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                       Fal::VrfId vrfId, NarrowKey& out) {
    Netcore::IpGenPrefix const& group = routeKey.group();
    if (group.af() != Netcore::AddressFamily::ipv4 || group.len() != 32 || vrfId > kMaxNarrowVrfId) return false;
    Netcore::IpGenPrefix const& source = routeKey.source();
    std::uint32_t shape;
    if (source.af() == Netcore::AddressFamily::ipv4 && source.len() == 32) {
      shape = kSourceHost;
    } else if (source.len() == 0 && source.af() == Netcore::AddressFamily::ipv4 && allZero(source.address())) {
      shape = kSourceAnyV4;
    } else if (source.len() == 0 && source.af() == Netcore::AddressFamily::ipunknown && allZero(source.address())) {
      shape = kSourceAnyNoFamily;
    } else {
      return false;
    }
    out.source = firstWord(source.address());
    out.group = firstWord(group.address());
    out.rest = vlan.value() | shape << 12 | vrfId << 16;
    return true;
  }

  struct NarrowHash {
    std::size_t operator()(NarrowKey const& k) const {
      std::uint64_t const addresses = static_cast<std::uint64_t>(k.source) << 32 | k.group;
      return KeyHash::fold(addresses ^ KeyHash::kSeeds[0], k.rest ^ KeyHash::kSeeds[1]);
    }
  };
  struct WideHash {
    std::size_t operator()(InUseRouteHandleKey const& k) const {
      return routeKeyHash(k.routeKey, k.vlan.value() | k.vrfId << 16);
    }
  };

  LinearProbeMap<NarrowKey, MrouteLib::RouteHandle, NarrowHash> narrow_;
  LinearProbeMap<InUseRouteHandleKey, MrouteLib::RouteHandle, WideHash> wide_;
};

}  // namespace Fal::Mroute
