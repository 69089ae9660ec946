#pragma once
// MrouteLib::RouteKeyMap: values by (VRF name, multicast route key), each key
// held in as few bytes as its family allows.
//
// At a million routes the keys are a good part of what a route programmer
// holds: a full key is 36 bytes, padded to 48 beside a pointer to the VRF's
// name. Here every VRF name is held once and a key names its VRF by a 4-byte
// index. An IPv4 key (both addresses with their lengths; the source of a
// (*, G) either the IPv4 or the family-less empty prefix) is held in 12 bytes
// beside it; any other key (IPv6, families mixed, the null key) whole. Each
// kind has its own DenseRecordMap.
//
// Keys are handed out as Id: the VRF's one name and the full key, rebuilt on
// the stack. An Id hashes by the VRF name's text and the key's hash() whatever
// form its key is held in, and the maps hash their keys as the Ids they stand
// for. A VRF's name stays once it has been seen, so that the Ids handed out
// stay valid; there are a handful.
//
// The map cannot be copied or moved: its maps' hashers point back at it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "absl/container/node_hash_map.h"
#include "absl/hash/hash.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/DenseRecordMap.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/types/VrfName.h"

namespace MrouteLib {

template <class Value>
class RouteKeyMap {
 public:
  struct Id {
    L3::VrfName const* vrfName;  // the map's one copy of the name
    std::uint32_t vrf;           // its index in the map
    Routing::Multicast::Fib::IpGenRouteKey key;
    friend bool operator==(Id const&, Id const&) = default;
    template <typename H>
    friend H AbslHashValue(H h, Id const& id) {
      return H::combine(std::move(h), id.vrfName->stringValue(), id.key.hash());
    }
  };

 private:
  // The held forms and their maps come before Walk, whose members name them
  // (a nested class's member declarations see only what precedes them).

  // An IPv4 key, its addresses in host order.
  struct NarrowKey {
    std::uint32_t vrf = 0;
    std::uint32_t source = 0;
    std::uint32_t group = 0;
    std::uint8_t sourceLen = 0;
    std::uint8_t groupLen = 0;
    bool sourceV4 = false;  // else the family-less empty source
    friend bool operator==(NarrowKey const&, NarrowKey const&) = default;
  };
  struct WideKey {
    std::uint32_t vrf = 0;
    Routing::Multicast::Fib::IpGenRouteKey key;
    friend bool operator==(WideKey const&, WideKey const&) = default;
  };
  static_assert(sizeof(NarrowKey) == 16 && sizeof(WideKey) == 40, "keys hold no padding but their own");

  // Hashes a held key as the Id it stands for.
  struct KeyHash {
    RouteKeyMap const* map;
    std::size_t operator()(NarrowKey const& k) const { return absl::Hash<Id>()(map->idOfNarrow(k)); }
    std::size_t operator()(WideKey const& k) const { return absl::Hash<Id>()(map->idOfWide(k)); }
  };
  using NarrowMap = DenseRecordMap<NarrowKey, Value, KeyHash>;
  using WideMap = DenseRecordMap<WideKey, Value, KeyHash>;

 public:
  RouteKeyMap() : narrow_(KeyHash{this}), wide_(KeyHash{this}) {}
  RouteKeyMap(RouteKeyMap const&) = delete;
  RouteKeyMap& operator=(RouteKeyMap const&) = delete;

  std::size_t size() const { return narrow_.size() + wide_.size(); }
  bool empty() const { return size() == 0; }

  // The id of key in vrfName, the name kept from now on.
  Id idIs(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) {
    auto [it, made] = vrfIndex_.try_emplace(vrfName, static_cast<std::uint32_t>(vrfNames_.size()));
    if (made) vrfNames_.push_back(&it->first);
    return Id{&it->first, it->second, key};
  }
  // The id of key in vrfName; none when the map never saw that VRF (so it
  // holds no key in it).
  std::optional<Id> idOf(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) const {
    auto it = vrfIndex_.find(vrfName);
    if (it == vrfIndex_.end()) return std::nullopt;
    return Id{&it->first, it->second, key};
  }

  // The value of id; null when there is none.
  Value* find(Id const& id) { return const_cast<Value*>(std::as_const(*this).find(id)); }
  Value const* find(Id const& id) const {
    return inMap(*this, id, [](auto const& map, auto const& key, std::size_t hash) -> Value const* {
      auto const* pair = map.find(key, hash);
      return pair ? &pair->second : nullptr;
    });
  }
  // The value of id, made default when there was none (second: made). It
  // stays where it is until it is erased.
  std::pair<Value*, bool> try_emplace(Id const& id) {
    return inMap(*this, id, [](auto& map, auto const& key, std::size_t hash) {
      auto [pair, made] = map.try_emplace(key, hash);
      return std::pair<Value*, bool>(&pair->second, made);
    });
  }
  // Removes the value of id, if any.
  void erase(Id const& id) {
    inMap(*this, id, [](auto& map, auto const& key, std::size_t hash) {
      if (auto* pair = map.find(key, hash)) map.erase(pair, hash);
    });
  }

  // Every value with its id, ordered by rank(value) (a number, distinct for
  // each value) as it was when the walk was made. A walk can be taken more
  // than once; values erased meanwhile must not be walked again.
  template <class Rank>
  class Walk {
   public:
    // Calls fn(id, value) for each, by rank.
    template <class Fn>
    void forEach(Fn&& fn) const {
      auto n = narrow_.begin();
      auto w = wide_.begin();
      while (n != narrow_.end() || w != wide_.end()) {
        if (w == wide_.end() || (n != narrow_.end() && rank_((*n)->second) < rank_((*w)->second))) {
          fn(map_->idOfNarrow((*n)->first), (*n)->second);
          ++n;
        } else {
          fn(map_->idOfWide((*w)->first), (*w)->second);
          ++w;
        }
      }
    }

   private:
    friend class RouteKeyMap;
    Walk(RouteKeyMap const* map, Rank rank) : map_(map), rank_(std::move(rank)) {}
    RouteKeyMap const* map_;
    Rank rank_;
    std::vector<typename RouteKeyMap::NarrowMap::value_type*> narrow_;
    std::vector<typename RouteKeyMap::WideMap::value_type*> wide_;
  };
  template <class Rank>
  Walk<Rank> walkBy(Rank rank) {
    Walk<Rank> walk(this, std::move(rank));
    collect(narrow_, walk.narrow_, walk.rank_);
    collect(wide_, walk.wide_, walk.rank_);
    return walk;
  }

 private:
  // The narrow form of id's key; none when it has none. An address of no
  // family is all zeros, and an IPv4 one zero past its first four bytes.
  static std::optional<NarrowKey> narrowOf(Id const& id) {
    auto const& source = id.key.source();
    auto const& group = id.key.group();
    if (group.af() != Netcore::AddressFamily::ipv4) return std::nullopt;
    bool const sourceV4 = source.af() == Netcore::AddressFamily::ipv4;
    if (!sourceV4 && source.af() != Netcore::AddressFamily::ipunknown) return std::nullopt;
    return NarrowKey{id.vrf,
                     source.address().v4Addr(),
                     group.address().v4Addr(),
                     static_cast<std::uint8_t>(source.len()),
                     static_cast<std::uint8_t>(group.len()),
                     sourceV4};
  }
  Id idOfNarrow(NarrowKey const& k) const {
    Netcore::IpGenPrefix source = k.sourceV4 ? Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(k.source), k.sourceLen)
                                             : Netcore::IpGenPrefix();
    Netcore::IpGenPrefix group(Netcore::IpGenAddr::v4(k.group), k.groupLen);
    return Id{vrfNames_[k.vrf], k.vrf, Routing::Multicast::Fib::IpGenRouteKey(std::move(source), std::move(group))};
  }
  Id idOfWide(WideKey const& k) const { return Id{vrfNames_[k.vrf], k.vrf, k.key}; }

  // fn(map, key, hash): id's key in the form its map holds, and the map.
  template <class Self, class Fn>
  static decltype(auto) inMap(Self& self, Id const& id, Fn&& fn) {
    std::size_t const hash = absl::Hash<Id>()(id);
    if (auto narrow = narrowOf(id)) return fn(self.narrow_, *narrow, hash);
    return fn(self.wide_, WideKey{id.vrf, id.key}, hash);
  }

  template <class Map, class Rank>
  static void collect(Map& map, std::vector<typename Map::value_type*>& out, Rank const& rank) {
    out.reserve(map.size());
    map.forEach([&out](typename Map::value_type& pair) { out.push_back(&pair); });
    std::sort(out.begin(), out.end(), [&rank](auto const* a, auto const* b) { return rank(a->second) < rank(b->second); });
  }

  // Every VRF name seen, once; by index. Declared before the maps, whose
  // hashers read them, and which go first.
  absl::node_hash_map<L3::VrfName, std::uint32_t> vrfIndex_;
  std::vector<L3::VrfName const*> vrfNames_;
  NarrowMap narrow_;
  WideMap wide_;
};

}  // namespace MrouteLib
