#pragma once
// A hashed collection laid out flat: members sit in one array, in the
// collection's iteration order, so a walk over all of them reads memory
// front to back. Same interface and the same stable order as HashColl:
// members are ordered by (mixed hash, key), an iterator can be placed where
// a key would stand even when the key is absent, and iterators survive
// insertion and deletion of any member, the current one included (they find
// their place again by their member's hash and key).
//
// Layout: ordered linear probing. A member's home slot is its hash scaled to
// the array (so homes rise with the hash); it sits at its home or after it,
// and the members of the array are sorted. A lookup scans from the home to
// the first member not before its key; an insertion shifts the members from
// its place to the next free slot one step on; a removal shifts the members
// after it back as far as their homes allow. Between two members of a walk
// there are only free slots, so a walk never chases a pointer.
//
// Unlike HashColl, find() and findOrInsert() return pointers that stay valid
// only until the next insertion or removal, and members read as
// std::pair<K, V>. Removal detaches a member before releasing its value.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vex/HashColl.h"

namespace Vex {

template <class K, class V, class Hash = std::hash<K>>
class FlatHashColl {
  struct Slot {
    std::uint64_t hash = 0;
    std::pair<K, V> kv{};
    bool used = false;
  };

 public:
  FlatHashColl() = default;
  FlatHashColl(FlatHashColl const&) = delete;
  FlatHashColl& operator=(FlatHashColl const&) = delete;
  ~FlatHashColl() { clear(); }

  static constexpr std::size_t npos = ~std::size_t{0};

  class Iterator {
   public:
    Iterator() = default;
    K const& key() const { return sync(), slot().kv.first; }
    V const& value() const { return sync(), slot().kv.second; }
    std::pair<K, V> const& operator*() const { return sync(), slot().kv; }
    std::pair<K, V> const* operator->() const { return &**this; }
    bool done() const { return sync(), index_ == npos; }
    explicit operator bool() const { return !done(); }
    Iterator& operator++() {
      if (coll_->version_ != version_) {
        index_ = coll_->successor(hash_, key_, /*inclusive=*/false);
        version_ = coll_->version_;
      } else {
        index_ = coll_->nextUsed(index_ + 1);
      }
      remember();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) {
      return a.done() && b.done() ? true : a.coll_ == b.coll_ && a.index_ == b.index_;
    }
    // The member `ahead` members on, or null when there is none or the
    // collection changed since the iterator last moved: a hint for fetching
    // ahead of a walk, cheaper than a second iterator (it reads only the slot
    // array and copies nothing). Valid until the collection changes.
    std::pair<K, V> const* peek(std::size_t ahead) const {
      if (!coll_ || index_ == npos || coll_->version_ != version_) return nullptr;
      std::size_t i = index_;
      for (std::size_t n = 0; n < ahead; ++n) {
        i = coll_->nextUsed(i + 1);
        if (i == npos) return nullptr;
      }
      return &coll_->slots_[i].kv;
    }

   private:
    friend class FlatHashColl;
    Iterator(FlatHashColl const* c, std::size_t index) : coll_(c), index_(index), version_(c->version_) { remember(); }
    Slot const& slot() const { return coll_->slots_[index_]; }
    void remember() {
      if (index_ != npos) {
        hash_ = slot().hash;
        key_ = slot().kv.first;
      }
    }
    void sync() const {
      if (!coll_ || coll_->version_ == version_) return;
      auto* self = const_cast<Iterator*>(this);
      if (index_ != npos) self->index_ = coll_->successor(hash_, key_, /*inclusive=*/true);
      self->version_ = coll_->version_;
      self->remember();
    }
    FlatHashColl const* coll_ = nullptr;
    std::size_t index_ = npos;
    std::uint64_t version_ = 0;
    std::uint64_t hash_ = 0;
    K key_{};
  };

  // Range-for support over (key, value) pairs; do not change the collection inside such a loop.
  class RangeIter {
   public:
    RangeIter(FlatHashColl const* c, std::size_t i) : c_(c), i_(i) {}
    std::pair<K, V> const& operator*() const { return c_->slots_[i_].kv; }
    std::pair<K, V> const* operator->() const { return &c_->slots_[i_].kv; }
    RangeIter& operator++() {
      i_ = c_->nextUsed(i_ + 1);
      return *this;
    }
    bool operator!=(RangeIter const& o) const { return i_ != o.i_; }
    bool operator==(RangeIter const& o) const { return i_ == o.i_; }

   private:
    FlatHashColl const* c_;
    std::size_t i_;
  };
  RangeIter begin() const { return RangeIter(this, nextUsed(0)); }
  RangeIter end() const { return RangeIter(this, npos); }

  Iterator iterator() const { return Iterator(this, nextUsed(0)); }
  // Positioned at key, or where it would stand (its successor) when absent.
  Iterator iterator(K const& key) const { return Iterator(this, successor(hashOf(key), key, true)); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V const* find(K const& key) const {
    std::size_t const i = indexOf(key);
    return i == npos ? nullptr : &slots_[i].kv.second;
  }
  V* find(K const& key) {
    std::size_t const i = indexOf(key);
    return i == npos ? nullptr : &slots_[i].kv.second;
  }
  bool contains(K const& key) const { return indexOf(key) != npos; }
  // A hint that key will be looked up soon: fetches its home slot. No effect.
  void prefetch(K const& key) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[homeOf(hashOf(key))]);
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
    std::uint64_t const h = hashOf(key);
    if ((size_ + 1) * kMaxLoadDen > homes_ * kMaxLoadNum) grow();
    for (;;) {
      std::size_t const at = scan(h, key);
      if (at < slots_.size() && slots_[at].used && slots_[at].hash == h && slots_[at].kv.first == key) {
        return {&slots_[at].kv.second, false};
      }
      std::size_t free = at;
      while (free < slots_.size() && slots_[free].used) ++free;
      if (free == slots_.size()) {
        grow();  // the run would leave the array: more room, then again
        continue;
      }
      for (std::size_t i = free; i > at; --i) moveSlot(i - 1, i);
      Slot& s = slots_[at];
      s.hash = h;
      s.kv.first = key;
      s.kv.second = V{};
      s.used = true;
      ++size_;
      ++version_;
      return {&s.kv.second, true};
    }
  }

  bool erase(K const& key) {
    std::size_t const at = indexOf(key);
    if (at == npos) return false;
    [[maybe_unused]] V dead = std::move(slots_[at].kv.second);
    std::size_t hole = at;
    for (std::size_t i = at + 1; i < slots_.size() && slots_[i].used && homeOf(slots_[i].hash) <= hole; ++i) {
      moveSlot(i, hole);
      hole = i;
    }
    slots_[hole].used = false;
    slots_[hole].kv.second = V{};
    --size_;
    ++version_;
    return true;  // dead is released here, after the member is gone
  }

  void clear() {
    std::vector<Slot> old;
    old.swap(slots_);
    homes_ = 0;
    size_ = 0;
    ++version_;
  }

  // Slots in the array (members and free slots).
  std::size_t slotCount() const { return slots_.size(); }

 private:
  // Grown before the members exceed 4/5 of the homes.
  static constexpr std::size_t kMaxLoadNum = 4;
  static constexpr std::size_t kMaxLoadDen = 5;
  // Free slots past the last home, for runs that start near the end.
  static constexpr std::size_t kTail = 32;

  static bool before(std::uint64_t h1, K const& k1, std::uint64_t h2, K const& k2) {
    return h1 != h2 ? h1 < h2 : k1 < k2;
  }
  static std::uint64_t hashOf(K const& key) { return mixHash(static_cast<std::uint64_t>(Hash()(key))); }
  // The hash scaled to [0, homes_): rises with the hash, so members sorted by
  // hash are sorted by home.
  std::size_t homeOf(std::uint64_t h) const {
    return static_cast<std::size_t>((static_cast<unsigned __int128>(h) * homes_) >> 64);
  }

  // The first slot at or after the home of (h, key) that is free or holds a
  // member not before it.
  std::size_t scan(std::uint64_t h, K const& key) const {
    std::size_t i = homeOf(h);
    while (i < slots_.size() && slots_[i].used && before(slots_[i].hash, slots_[i].kv.first, h, key)) ++i;
    return i;
  }
  std::size_t indexOf(K const& key) const {
    if (size_ == 0) return npos;
    std::uint64_t const h = hashOf(key);
    std::size_t const i = scan(h, key);
    return i < slots_.size() && slots_[i].used && slots_[i].hash == h && slots_[i].kv.first == key ? i : npos;
  }
  std::size_t nextUsed(std::size_t i) const {
    while (i < slots_.size() && !slots_[i].used) ++i;
    return i < slots_.size() ? i : npos;
  }
  // The first member at or after (h, key) (strictly after unless inclusive).
  std::size_t successor(std::uint64_t h, K const& key, bool inclusive) const {
    if (size_ == 0) return npos;
    std::size_t i = scan(h, key);
    if (!inclusive && i < slots_.size() && slots_[i].used && slots_[i].hash == h && slots_[i].kv.first == key) ++i;
    return nextUsed(i);
  }

  void moveSlot(std::size_t from, std::size_t to) {
    Slot& f = slots_[from];
    Slot& t = slots_[to];
    t.hash = f.hash;
    t.kv.first = std::move(f.kv.first);
    t.kv.second = std::move(f.kv.second);
    t.used = true;
    f.used = false;
  }

  // Half as many homes again (16 at first), members moved over in order;
  // more if the last run would leave the array.
  void grow() {
    std::size_t homes = homes_ < 16 ? 16 : homes_ + homes_ / 2;
    while (!fits(homes)) homes += homes / 2;
    std::vector<Slot> old;
    old.swap(slots_);
    homes_ = homes;
    slots_.resize(homes_ + kTail);
    std::size_t next = 0;
    for (Slot& s : old) {
      if (!s.used) continue;
      Slot& t = slots_[std::max(homeOf(s.hash), next)];
      t.hash = s.hash;
      t.kv = std::move(s.kv);
      t.used = true;
      next = static_cast<std::size_t>(&t - slots_.data()) + 1;
    }
    ++version_;
  }
  // Whether the members, placed in order at their homes among `homes`, end
  // within the array.
  bool fits(std::size_t homes) const {
    std::size_t next = 0;
    for (Slot const& s : slots_) {
      if (!s.used) continue;
      next = std::max(static_cast<std::size_t>((static_cast<unsigned __int128>(s.hash) * homes) >> 64), next) + 1;
    }
    return next <= homes + kTail;
  }

  std::vector<Slot> slots_;
  std::size_t homes_ = 0;
  std::size_t size_ = 0;
  std::uint64_t version_ = 0;
};

}  // namespace Vex
