#pragma once
// FalSim::RoutePrefixIndex: a chip table's handles by (VRF, route key), for
// the lookups a packet makes. Keys are reduced to what a lookup compares
// (VRF, family, both prefix lengths and the masked address bytes; a (*,G)
// source is all zero whatever family its empty prefix carries), and the
// index keeps the prefix-length pairs present, so a packet lookup probes one
// hash per distinct pair instead of scanning the table.
#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/net/IpGenAddr.h"

namespace FalSim {

class RoutePrefixIndex {
 public:
  using Handles = absl::InlinedVector<MrouteLib::RouteHandle, 1>;

  void add(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key, MrouteLib::RouteHandle h);
  void remove(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key, MrouteLib::RouteHandle h);
  // The handles programmed for exactly this key (masked as a lookup compares
  // it), or null.
  Handles const* find(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  // Appends the handles of each key of vrfId covering (source, group), most
  // specific first (longest source, then longest group); only the first with
  // firstOnly.
  void matches(std::uint16_t vrfId, Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group,
               std::vector<Handles const*>& out, bool firstOnly) const;

 private:
  struct LookupKey {
    std::array<std::uint8_t, 16> source{};
    std::array<std::uint8_t, 16> group{};
    std::uint16_t vrfId = 0;
    std::uint8_t af = 0;
    std::uint8_t sourceLen = 0;
    std::uint8_t groupLen = 0;
    friend bool operator==(LookupKey const&, LookupKey const&) = default;
    template <typename H>
    friend H AbslHashValue(H h, LookupKey const& k) {
      return H::combine(std::move(h), k.source, k.group, k.vrfId, k.af, k.sourceLen, k.groupLen);
    }
  };
  // (family, source length, group length), most specific first.
  struct LengthPair {
    std::uint8_t af;
    std::uint8_t sourceLen;
    std::uint8_t groupLen;
    friend bool operator<(LengthPair const& a, LengthPair const& b) {
      if (a.af != b.af) return a.af < b.af;
      if (a.sourceLen != b.sourceLen) return a.sourceLen > b.sourceLen;
      return a.groupLen > b.groupLen;
    }
  };

  static LookupKey lookupKey(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key);
  Handles const* find(LookupKey const& k) const;

  absl::flat_hash_map<LookupKey, Handles> byKey_;
  std::map<LengthPair, std::uint32_t> lengths_;
};

}  // namespace FalSim
