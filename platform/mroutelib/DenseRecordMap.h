#pragma once
// MrouteLib::DenseRecordMap: (key, record) pairs in dense slots, found by key
// through a hash set of slot numbers.
//
// The pairs live in pages of 1024 slots; the hash set holds a 4-byte slot
// number per pair and reads a pair's key from its slot. At a million routes
// this is one pair and a few bytes of set per route, where a node per pair
// costs the node's allocation and a pointer slot besides. A pair stays where
// it is while others come and go, as a node would. A freed slot is reset to
// a default pair (its resources go at once) and reused by the next pair; pages
// are kept, so the slots held are the most pairs ever held at once.
//
// Key and Value are default-constructible (Value need not be movable); Key is
// hashed with Hash (which may hold state). A caller that has a key's hash at
// hand for less than Hash takes (from a fuller form of the key, say) passes it
// along with the key.
// The map cannot be copied or moved: the set's hasher points back at it.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "absl/container/flat_hash_set.h"
#include "absl/hash/hash.h"

namespace MrouteLib {

template <class Key, class Value, class Hash = absl::Hash<Key>>
class DenseRecordMap {
  static constexpr unsigned kPageBits = 10;
  static constexpr std::uint32_t kPageSize = 1U << kPageBits;

 public:
  using value_type = std::pair<Key, Value>;

  explicit DenseRecordMap(Hash hash = Hash()) : hash_(std::move(hash)), index_(0, SlotHash{this}, SlotEq{this}) {}
  DenseRecordMap(DenseRecordMap const&) = delete;
  DenseRecordMap& operator=(DenseRecordMap const&) = delete;

  std::size_t size() const { return index_.size(); }
  bool empty() const { return index_.empty(); }

  // The pair of key; null when there is none. hash: Hash()(key).
  value_type* find(Key const& key) { return find(key, hash_(key)); }
  value_type* find(Key const& key, std::size_t hash) {
    auto it = index_.find(Probe{&key, hash});
    return it == index_.end() ? nullptr : &at(*it);
  }
  value_type const* find(Key const& key) const { return find(key, hash_(key)); }
  value_type const* find(Key const& key, std::size_t hash) const {
    auto it = index_.find(Probe{&key, hash});
    return it == index_.end() ? nullptr : &at(*it);
  }

  // The pair of key, made with a default record when there was none
  // (second: made). hash: Hash()(key).
  std::pair<value_type*, bool> try_emplace(Key const& key) { return try_emplace(key, hash_(key)); }
  std::pair<value_type*, bool> try_emplace(Key const& key, std::size_t hash) {
    bool made = false;
    // One probe finds the key or the place for it; the new slot's key is
    // written before the set holds its number.
    auto it = index_.lazy_emplace(Probe{&key, hash}, [&](auto const& construct) {
      std::uint32_t const slot = slotNew();
      at(slot).first = key;
      construct(slot);
      made = true;
    });
    return {&at(*it), made};
  }

  // Removes the pair (one this map handed out). hash: Hash()(pair->first).
  void erase(value_type* pair) { erase(pair, hash_(pair->first)); }
  void erase(value_type* pair, std::size_t hash) {
    auto it = index_.find(Probe{&pair->first, hash});
    std::uint32_t const slot = *it;
    index_.erase(it);
    std::destroy_at(pair);
    std::construct_at(pair);
    free_.push_back(slot);
  }

  // Calls fn(pair) for every pair, in no particular order.
  template <class Fn>
  void forEach(Fn&& fn) {
    for (std::uint32_t slot : index_) fn(at(slot));
  }

 private:
  // A key with its hash, known already.
  struct Probe {
    Key const* key;
    std::size_t hash;
  };
  // The set hashes and compares slot numbers by their pairs' keys, and
  // probes by theirs, so that a lookup needs no slot of its own.
  struct SlotHash {
    using is_transparent = void;
    DenseRecordMap const* map;
    std::size_t operator()(std::uint32_t slot) const { return map->hash_(map->at(slot).first); }
    std::size_t operator()(Probe const& probe) const { return probe.hash; }
  };
  struct SlotEq {
    using is_transparent = void;
    DenseRecordMap const* map;
    Key const& keyOf(std::uint32_t slot) const { return map->at(slot).first; }
    static Key const& keyOf(Probe const& probe) { return *probe.key; }
    template <class A, class B>
    bool operator()(A const& a, B const& b) const {
      return keyOf(a) == keyOf(b);
    }
  };

  std::uint32_t slotNew() {
    if (!free_.empty()) {
      std::uint32_t const slot = free_.back();
      free_.pop_back();
      return slot;
    }
    if (used_ == 0) pages_.push_back(std::make_unique<value_type[]>(kPageSize));
    std::uint32_t const slot = static_cast<std::uint32_t>(pages_.size() - 1) << kPageBits | used_;
    used_ = (used_ + 1) & (kPageSize - 1);
    return slot;
  }
  value_type& at(std::uint32_t slot) { return pages_[slot >> kPageBits][slot & (kPageSize - 1)]; }
  value_type const& at(std::uint32_t slot) const { return pages_[slot >> kPageBits][slot & (kPageSize - 1)]; }

  std::vector<std::unique_ptr<value_type[]>> pages_;
  std::uint32_t used_ = 0;  // slots handed out in the last page (0: it is full, or there is none)
  std::vector<std::uint32_t> free_;
  Hash hash_;
  absl::flat_hash_set<std::uint32_t, SlotHash, SlotEq> index_;
};

}  // namespace MrouteLib
