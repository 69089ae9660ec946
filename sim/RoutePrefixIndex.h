#pragma once
// FalSim::RoutePrefixIndex: a chip table's handles by (VRF, route key), for
// the lookups a packet makes. Keys are reduced to what a lookup compares
// (VRF, family, both prefix lengths and the masked address bytes; a (*,G)
// source is all zero whatever family its empty prefix carries), and the
// index keeps the prefix-length pairs present, so a packet lookup probes one
// hash per distinct pair instead of scanning the table.
//
// The index holds handles only: a key is read from the table's own entry
// (through the KeyOf the owner gives), so at a million routes it costs a
// few bytes per route instead of a copy of every reduced key (40 bytes) and
// a handle list per key. The first handle of a key is in the hash table; the
// others of the same key (other accepting VLANs) follow it in a chain, in the
// order they were added. An entry must be in its table while its handle is
// indexed: add it after storing the entry, remove it before erasing it.
//
// The hash table is the index's own: open addressing with linear probing,
// each slot a handle and its key's 32-bit hash side by side. A lookup reads
// one slot (no separate control bytes) and the entry of a slot whose hash
// matches; growing rehashes from the stored hashes without reading entries.
#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "model/HugePageAllocator.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/net/IpGenAddr.h"

namespace FalSim {

class RoutePrefixIndex {
 public:
  // The VRF and key of the entry of a handle that is in the owner's table.
  struct EntryKey {
    std::uint16_t vrfId;
    Routing::Multicast::Fib::IpGenRouteKey const* key;
  };
  using KeyOf = EntryKey (*)(void const* owner, MrouteLib::RouteHandle h);

  // The handles of one key, in the order they were added.
  class Handles {
   public:
    class iterator {
     public:
      iterator(RoutePrefixIndex const* index, std::uint32_t h) : index_(index), h_(h) {}
      MrouteLib::RouteHandle operator*() const { return MrouteLib::RouteHandle(h_); }
      iterator& operator++() {
        h_ = index_->next(h_);
        return *this;
      }
      friend bool operator==(iterator const&, iterator const&) = default;

     private:
      RoutePrefixIndex const* index_;
      std::uint32_t h_;
    };
    Handles(RoutePrefixIndex const* index, std::uint32_t first) : index_(index), first_(first) {}
    iterator begin() const { return iterator(index_, first_); }
    iterator end() const { return iterator(index_, kNone); }
    MrouteLib::RouteHandle front() const { return MrouteLib::RouteHandle(first_); }

   private:
    RoutePrefixIndex const* index_;
    std::uint32_t first_;
  };

  RoutePrefixIndex(KeyOf keyOf, void const* owner);
  RoutePrefixIndex(RoutePrefixIndex const&) = delete;
  RoutePrefixIndex& operator=(RoutePrefixIndex const&) = delete;

  void add(MrouteLib::RouteHandle h);
  void remove(MrouteLib::RouteHandle h);
  // The handles programmed for exactly this key (masked as a lookup compares
  // it), or none.
  std::optional<Handles> find(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  // Whether some key has more than one handle (routes of one key with other
  // accepting VLANs): while none has, the entry that holds a key is the only
  // one a lookup of that key can answer.
  bool chained() const { return !next_.empty(); }
  // A hint that the key will be found soon: fetches its slot. No effect.
  void prefetch(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  // Appends the handles of each key of vrfId covering (source, group), most
  // specific first (longest source, then longest group); only the first with
  // firstOnly.
  void matches(std::uint16_t vrfId, Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group,
               std::vector<Handles>& out, bool firstOnly) const;

 private:
  static constexpr std::uint32_t kNone = MrouteLib::RouteHandle::kInvalidValue;

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
  // A key's first handle (kNone: free) and the key's hash.
  struct Slot {
    std::uint32_t handle = kNone;
    std::uint32_t hash = 0;
  };

  static LookupKey lookupKey(std::uint16_t vrfId, Routing::Multicast::Fib::IpGenRouteKey const& key);
  static std::uint32_t hashOf(LookupKey const& k);
  LookupKey lookupKeyOf(std::uint32_t h) const;
  // The slot holding the first handle of k, or the free slot ending its
  // probe; the table is not empty.
  std::size_t slotOf(LookupKey const& k, std::uint32_t hash) const;
  std::uint32_t firstOf(LookupKey const& k) const;
  std::uint32_t next(std::uint32_t h) const;
  // Frees slot i, moving the probe run after it back.
  void slotErase(std::size_t i);
  // Twice the slots (16 at first), placed again from their stored hashes.
  void grow();

  KeyOf keyOf_;
  void const* owner_;
  std::vector<Slot, Fal::HugePageAllocator<Slot>> slots_;  // a power of two of them, or none
  std::size_t used_ = 0;
  // Handle -> the next handle of the same key.
  absl::flat_hash_map<std::uint32_t, std::uint32_t> next_;
  std::map<LengthPair, std::uint32_t> lengths_;
};

}  // namespace FalSim
