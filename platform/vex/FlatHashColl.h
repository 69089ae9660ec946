#pragma once
// A hashed collection of (key, value) pairs laid out flat (FlatHashTable):
// same interface and the same stable order as HashColl, and a walk over all
// members reads memory front to back.
//
// Unlike HashColl, find() and findOrInsert() return pointers that stay valid
// only until the next insertion or removal, and members read as
// std::pair<K, V>. Removal detaches a member before releasing its value.
#include <cstdint>
#include <functional>
#include <utility>

#include "platform/vex/FlatHashTable.h"

namespace Vex {

namespace detail {
// A slot holding the key beside its value.
template <class K, class V>
struct FlatPairSlot {
  std::uint64_t hash = 0;
  std::pair<K, V> kv{};
  bool isUsed = false;

  bool used() const { return isUsed; }
  K const& key() const { return kv.first; }
  std::pair<K, V> const& member() const { return kv; }
  V const& value() const { return kv.second; }
  void fill(K const& key, V value) {
    kv.first = key;
    kv.second = std::move(value);
    isUsed = true;
  }
  void moveTo(FlatPairSlot& to) {
    to.hash = hash;
    to.kv.first = std::move(kv.first);
    to.kv.second = std::move(kv.second);
    to.isUsed = true;
    isUsed = false;
  }
  V take() { return std::move(kv.second); }
  void vacate() {
    isUsed = false;
    kv.second = V{};
  }
};
}  // namespace detail

template <class K, class V, class Hash = std::hash<K>>
class FlatHashColl : public FlatHashTable<K, detail::FlatPairSlot<K, V>, Hash> {
 public:
  V const* find(K const& key) const {
    auto* s = this->slotOf(key);
    return s ? &s->kv.second : nullptr;
  }
  V* find(K const& key) {
    auto* s = this->slotOf(key);
    return s ? &s->kv.second : nullptr;
  }

  // Inserts or replaces; returns true when something changed.
  bool set(K const& key, V value) {
    auto [v, inserted] = findOrInsert(key);
    if (inserted) {
      *v = std::move(value);
      return true;
    }
    if (*v == value) return false;
    std::swap(*v, value);  // the old value is released after the collection is consistent
    return true;
  }
  // Returns the value under key, inserting a default one when absent.
  std::pair<V*, bool> findOrInsert(K const& key) {
    auto [s, inserted] = this->findOrInsertWith(key, [] { return V{}; });
    return {&s->kv.second, inserted};
  }
};

}  // namespace Vex
