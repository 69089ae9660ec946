#pragma once
// The hashed table laid out flat under FlatHashColl and FlatEntityColl:
// members sit in one array, in the table's iteration order, so a walk over
// all of them reads memory front to back. Same stable order as HashColl:
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
// What a slot holds is the Slot type's business: a (key, value) pair, or a
// pointer to an entity that holds its own key. A Slot has
//   std::uint64_t hash;                 the member's mixed hash, set by the table
//   bool used() const;
//   K const& key() const;               read only when the hashes are equal or
//                                       an iterator steps onto the member
//   Member const& member() const;       what a walk shows (operator*, peek)
//   Value const& value() const;         what an iterator's value() shows
//   void fill(K const&, Content&&);     a free slot takes a new member
//   void moveTo(Slot& to);              the member moves to a free slot, leaving this one free
//   Content take();                     the value moves out, before the member goes
//   void vacate();                      the slot is free again (after take or moveTo)
// Removal detaches a member before releasing its value.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/vex/HashColl.h"
#include "platform/vex/Prefetch.h"

namespace Vex {

template <class K, class Slot, class Hash = std::hash<K>>
class FlatHashTable {
 public:
  using Member = std::remove_cvref_t<decltype(std::declval<Slot const&>().member())>;
  using Value = std::remove_cvref_t<decltype(std::declval<Slot const&>().value())>;

  FlatHashTable() = default;
  FlatHashTable(FlatHashTable const&) = delete;
  FlatHashTable& operator=(FlatHashTable const&) = delete;
  ~FlatHashTable() { clear(); }

  static constexpr std::size_t npos = ~std::size_t{0};

  // A place in the slot array that runs ahead of a walk, for fetching ahead
  // of it, moved one member at a time: a cursor kept `ahead` members in front
  // of a walk reads about one slot per member walked, where the walk's
  // peek(ahead) at every member reads `ahead` of them. It reads only the slot
  // array and copies nothing, and goes stale (shows nothing) once the table
  // changes.
  class Cursor {
   public:
    Cursor() = default;
    // Whether the table changed since the cursor was made, or it never was.
    bool stale() const { return !table_ || table_->version_ != version_; }
    // The member here; null when stale or past the last member.
    Member const* get() const { return stale() || index_ == npos ? nullptr : &table_->slots_[index_].member(); }
    void next() {
      if (!stale() && index_ != npos) index_ = table_->nextUsed(index_ + 1);
    }

   private:
    friend class FlatHashTable;
    Cursor(FlatHashTable const* t, std::size_t index, std::uint64_t version)
        : table_(t), index_(index), version_(version) {}
    FlatHashTable const* table_ = nullptr;
    std::size_t index_ = npos;
    std::uint64_t version_ = 0;
  };

  class Iterator {
   public:
    Iterator() = default;
    K const& key() const { return sync(), slot().key(); }
    Value const& value() const { return sync(), slot().value(); }
    Member const& operator*() const { return sync(), slot().member(); }
    Member const* operator->() const { return &**this; }
    bool done() const { return sync(), index_ == npos; }
    explicit operator bool() const { return !done(); }
    Iterator& operator++() {
      if (table_->version_ != version_) {
        index_ = table_->successor(hash_, key_, /*inclusive=*/false);
        version_ = table_->version_;
      } else {
        index_ = table_->nextUsed(index_ + 1);
      }
      remember();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) {
      return a.done() && b.done() ? true : a.table_ == b.table_ && a.index_ == b.index_;
    }
    // The member `ahead` members on, or null when there is none or the
    // table changed since the iterator last moved: a hint for fetching
    // ahead of a walk, cheaper than a second iterator (it reads only the slot
    // array and copies nothing). Valid until the table changes.
    Member const* peek(std::size_t ahead) const { return cursor(ahead).get(); }
    // A cursor on the member `ahead` members on (see Cursor); stale when the
    // table changed since the iterator last moved.
    Cursor cursor(std::size_t ahead) const {
      if (!table_ || index_ == npos || table_->version_ != version_) return Cursor();
      std::size_t i = index_;
      for (std::size_t n = 0; n < ahead && i != npos; ++n) i = table_->nextUsed(i + 1);
      return Cursor(table_, i, version_);
    }

   private:
    friend class FlatHashTable;
    Iterator(FlatHashTable const* t, std::size_t index) : table_(t), index_(index), version_(t->version_) { remember(); }
    Slot const& slot() const { return table_->slots_[index_]; }
    void remember() {
      if (index_ != npos) {
        hash_ = slot().hash;
        key_ = slot().key();
      }
    }
    void sync() const {
      if (!table_ || table_->version_ == version_) return;
      auto* self = const_cast<Iterator*>(this);
      if (index_ != npos) self->index_ = table_->successor(hash_, key_, /*inclusive=*/true);
      self->version_ = table_->version_;
      self->remember();
    }
    FlatHashTable const* table_ = nullptr;
    std::size_t index_ = npos;
    std::uint64_t version_ = 0;
    std::uint64_t hash_ = 0;
    K key_{};
  };

  // Range-for support over the members; do not change the table inside such a loop.
  class RangeIter {
   public:
    RangeIter(FlatHashTable const* t, std::size_t i) : t_(t), i_(i) {}
    Member const& operator*() const { return t_->slots_[i_].member(); }
    Member const* operator->() const { return &**this; }
    RangeIter& operator++() {
      i_ = t_->nextUsed(i_ + 1);
      return *this;
    }
    bool operator!=(RangeIter const& o) const { return i_ != o.i_; }
    bool operator==(RangeIter const& o) const { return i_ == o.i_; }

   private:
    FlatHashTable const* t_;
    std::size_t i_;
  };
  RangeIter begin() const { return RangeIter(this, nextUsed(0)); }
  RangeIter end() const { return RangeIter(this, npos); }

  Iterator iterator() const { return Iterator(this, nextUsed(0)); }
  // Positioned at key, or where it would stand (its successor) when absent.
  Iterator iterator(K const& key) const { return Iterator(this, successor(hashOf(key), key, true)); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  bool contains(K const& key) const { return indexOf(key) != npos; }
  // A hint that key will be looked up soon: fetches its home slot. No effect.
  void prefetch(K const& key) const {
    if (!slots_.empty()) Vex::prefetch(&slots_[homeOf(hashOf(key))]);
  }

  bool erase(K const& key) {
    std::size_t const at = indexOf(key);
    if (at == npos) return false;
    [[maybe_unused]] auto dead = slots_[at].take();
    std::size_t hole = at;
    for (std::size_t i = at + 1; i < slots_.size() && slots_[i].used() && homeOf(slots_[i].hash) <= hole; ++i) {
      slots_[i].moveTo(slots_[hole]);
      hole = i;
    }
    slots_[hole].vacate();
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

 protected:
  // The slot holding key, or null. Valid until the next insertion or removal.
  Slot* slotOf(K const& key) const {
    std::size_t const i = indexOf(key);
    return i == npos ? nullptr : const_cast<Slot*>(&slots_[i]);
  }
  // The slot holding key, and false; or, when key is absent, the slot that
  // took make()'s content as key's member, and true. make() runs once the
  // key is known to be absent and before the array changes. Valid until the
  // next insertion or removal.
  template <class Make>
  std::pair<Slot*, bool> findOrInsertWith(K const& key, Make&& make) {
    std::uint64_t const h = hashOf(key);
    if ((size_ + 1) * kMaxLoadDen > homes_ * kMaxLoadNum) grow();
    std::size_t at = scan(h, key);
    if (holds(at, h, key)) return {&slots_[at], false};
    auto content = make();
    std::size_t free;
    for (;;) {
      free = at;
      while (free < slots_.size() && slots_[free].used()) ++free;
      if (free < slots_.size()) break;
      grow();  // the run would leave the array: more room, then again
      at = scan(h, key);
    }
    for (std::size_t i = free; i > at; --i) slots_[i - 1].moveTo(slots_[i]);
    Slot& s = slots_[at];
    s.hash = h;
    s.fill(key, std::move(content));
    ++size_;
    ++version_;
    return {&s, true};
  }

 private:
  // Grown before the members exceed 4/5 of the homes.
  static constexpr std::size_t kMaxLoadNum = 4;
  static constexpr std::size_t kMaxLoadDen = 5;
  // Free slots past the last home, for runs that start near the end.
  static constexpr std::size_t kTail = 32;

  // Whether the member of slot s comes before (h, key); its key is read only
  // when the hashes are equal.
  static bool before(Slot const& s, std::uint64_t h, K const& key) {
    return s.hash != h ? s.hash < h : s.key() < key;
  }
  static std::uint64_t hashOf(K const& key) { return mixHash(static_cast<std::uint64_t>(Hash()(key))); }
  // The hash scaled to [0, homes_): rises with the hash, so members sorted by
  // hash are sorted by home.
  std::size_t homeOf(std::uint64_t h) const {
    return static_cast<std::size_t>((static_cast<unsigned __int128>(h) * homes_) >> 64);
  }

  // Whether slot i holds (h, key); the key is read only when the hashes match.
  bool holds(std::size_t i, std::uint64_t h, K const& key) const {
    return i < slots_.size() && slots_[i].used() && slots_[i].hash == h && slots_[i].key() == key;
  }
  // The first slot at or after the home of (h, key) that is free or holds a
  // member not before it.
  std::size_t scan(std::uint64_t h, K const& key) const {
    std::size_t i = homeOf(h);
    while (i < slots_.size() && slots_[i].used() && before(slots_[i], h, key)) ++i;
    return i;
  }
  std::size_t indexOf(K const& key) const {
    if (size_ == 0) return npos;
    std::uint64_t const h = hashOf(key);
    std::size_t const i = scan(h, key);
    return holds(i, h, key) ? i : npos;
  }
  std::size_t nextUsed(std::size_t i) const {
    while (i < slots_.size() && !slots_[i].used()) ++i;
    return i < slots_.size() ? i : npos;
  }
  // The first member at or after (h, key) (strictly after unless inclusive).
  std::size_t successor(std::uint64_t h, K const& key, bool inclusive) const {
    if (size_ == 0) return npos;
    std::size_t i = scan(h, key);
    if (!inclusive && holds(i, h, key)) ++i;
    return nextUsed(i);
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
      if (!s.used()) continue;
      std::size_t const to = std::max(homeOf(s.hash), next);
      s.moveTo(slots_[to]);
      next = to + 1;
    }
    ++version_;
  }
  // Whether the members, placed in order at their homes among `homes`, end
  // within the array.
  bool fits(std::size_t homes) const {
    std::size_t next = 0;
    for (Slot const& s : slots_) {
      if (!s.used()) continue;
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
