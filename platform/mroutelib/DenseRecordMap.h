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
// Key and Value are default-constructible; Key is hashed with absl::Hash.
// The map cannot be copied or moved: the set's hasher points back at it.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "absl/container/flat_hash_set.h"
#include "absl/hash/hash.h"

namespace MrouteLib {

template <class Key, class Value>
class DenseRecordMap {
  static constexpr unsigned kPageBits = 10;
  static constexpr std::uint32_t kPageSize = 1U << kPageBits;

 public:
  using value_type = std::pair<Key, Value>;

  DenseRecordMap() : index_(0, SlotHash{this}, SlotEq{this}) {}
  DenseRecordMap(DenseRecordMap const&) = delete;
  DenseRecordMap& operator=(DenseRecordMap const&) = delete;

  std::size_t size() const { return index_.size(); }
  bool empty() const { return index_.empty(); }

  // The pair of key; null when there is none.
  value_type* find(Key const& key) {
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : &at(*it);
  }
  value_type const* find(Key const& key) const {
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : &at(*it);
  }

  // The pair of key, made with a default record when there was none
  // (second: made).
  std::pair<value_type*, bool> try_emplace(Key const& key) {
    if (auto it = index_.find(key); it != index_.end()) return {&at(*it), false};
    std::uint32_t slot;
    if (!free_.empty()) {
      slot = free_.back();
      free_.pop_back();
    } else {
      if (used_ == 0) pages_.push_back(std::make_unique<value_type[]>(kPageSize));
      slot = static_cast<std::uint32_t>(pages_.size() - 1) << kPageBits | used_;
      used_ = (used_ + 1) & (kPageSize - 1);
    }
    value_type& pair = at(slot);
    pair.first = key;
    index_.insert(slot);
    return {&pair, true};
  }

  // Removes the pair (one this map handed out).
  void erase(value_type* pair) {
    auto it = index_.find(pair->first);
    std::uint32_t const slot = *it;
    index_.erase(it);
    *pair = value_type();
    free_.push_back(slot);
  }

  // Calls fn(pair) for every pair, in no particular order.
  template <class Fn>
  void forEach(Fn&& fn) {
    for (std::uint32_t slot : index_) fn(at(slot));
  }

 private:
  // The set hashes and compares slot numbers by their pairs' keys, and keys
  // as themselves, so that a lookup by key needs no slot of its own.
  struct SlotHash {
    using is_transparent = void;
    DenseRecordMap const* map;
    std::size_t operator()(std::uint32_t slot) const { return absl::Hash<Key>()(map->at(slot).first); }
    std::size_t operator()(Key const& key) const { return absl::Hash<Key>()(key); }
  };
  struct SlotEq {
    using is_transparent = void;
    DenseRecordMap const* map;
    Key const& keyOf(std::uint32_t slot) const { return map->at(slot).first; }
    static Key const& keyOf(Key const& key) { return key; }
    template <class A, class B>
    bool operator()(A const& a, B const& b) const {
      return keyOf(a) == keyOf(b);
    }
  };

  value_type& at(std::uint32_t slot) { return pages_[slot >> kPageBits][slot & (kPageSize - 1)]; }
  value_type const& at(std::uint32_t slot) const { return pages_[slot >> kPageBits][slot & (kPageSize - 1)]; }

  std::vector<std::unique_ptr<value_type[]>> pages_;
  std::uint32_t used_ = 0;  // slots handed out in the last page (0: it is full, or there is none)
  std::vector<std::uint32_t> free_;
  absl::flat_hash_set<std::uint32_t, SlotHash, SlotEq> index_;
};

}  // namespace MrouteLib
