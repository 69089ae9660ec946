#pragma once
// Fal::LinearProbeMap: small values by key in one array of (key, value)
// slots, a key found by probing linearly from the slot its hash names.
//
// Made for lookups that a walk announces a few steps ahead: prefetch(key)
// fetches the lines of the key's home slot and the two after it (three lines
// for 48-byte slots, one or two for 16-byte ones), and with linear probing in
// a table at most half full that is where the key is nearly always found, so
// the lookup itself reads from the cache. A table
// that probes a group of control bytes first can fetch only the group and
// its first slot, and its lookup still waits for the slot the group names.
//
// Value's default is its null (isNull()) and marks an empty slot: a null
// value is never stored. At most half the slots are in use; removing a key
// moves the keys probed past it back, so no probe meets a tombstone. Not
// ordered, single-threaded; a stored value's address holds until the map
// next changes.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "model/HugePageAllocator.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Prefetch.h"

namespace Fal {

template <class Key, class Value, class Hash>
class LinearProbeMap {
 public:
  struct Slot {
    Key key{};
    Value value{};
  };

  explicit LinearProbeMap(Hash hash = Hash()) : hash_(std::move(hash)) {}

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  // Slots held, used or not.
  std::size_t capacity() const { return slots_.size(); }

  // The value stored under key; null when there is none.
  Value const* find(Key const& key) const {
    if (slots_.empty()) return nullptr;
    for (std::size_t i = home(key);; i = next(i)) {
      Slot const& s = slots_[i];
      if (s.value.isNull()) return nullptr;
      if (s.key == key) return &s.value;
    }
  }

  // Stores value (not null) under key, replacing the value there was.
  void set(Key const& key, Value value) {
    VEX_ASSERT(!value.isNull());
    if (2 * (size_ + 1) > slots_.size()) grow();
    std::size_t i = home(key);
    for (; !slots_[i].value.isNull(); i = next(i)) {
      if (slots_[i].key == key) {
        slots_[i].value = value;
        return;
      }
    }
    slots_[i] = Slot{key, value};
    ++size_;
  }

  // Removes key's value; false when there was none.
  bool erase(Key const& key) {
    if (slots_.empty()) return false;
    std::size_t hole = home(key);
    for (; !(slots_[hole].key == key); hole = next(hole)) {
      if (slots_[hole].value.isNull()) return false;
    }
    if (slots_[hole].value.isNull()) return false;  // the default key, absent
    // Each key probed past the hole moves into it unless its home lies
    // cyclically after the hole, up to the key's own slot.
    for (std::size_t j = next(hole); !slots_[j].value.isNull(); j = next(j)) {
      std::size_t const h = home(slots_[j].key);
      bool const stays = hole <= j ? (hole < h && h <= j) : (hole < h || h <= j);
      if (stays) continue;
      slots_[hole] = std::move(slots_[j]);
      hole = j;
    }
    slots_[hole] = Slot{};
    --size_;
    return true;
  }

  // Starts fetching what find(key) will read first (a hint; no effect).
  void prefetch(Key const& key) const {
    if (slots_.empty()) return;
    Vex::prefetchBytes<kFetchBytes>(&slots_[home(key)]);
  }

 private:
  static constexpr std::size_t kMinCapacity = 16;
  // The home slot and the two after it.
  static constexpr std::size_t kFetchBytes = 3 * sizeof(Slot);

  // The high bits of the hash times a large odd number: the low bits of a
  // hash alone may follow a key's fields too closely.
  std::size_t home(Key const& key) const {
    return static_cast<std::size_t>((static_cast<std::uint64_t>(hash_(key)) * 0x9E3779B97F4A7C15ULL) >> shift_);
  }
  std::size_t next(std::size_t i) const { return (i + 1) & (slots_.size() - 1); }

  void grow() {
    std::size_t const capacity = slots_.empty() ? kMinCapacity : 2 * slots_.size();
    std::vector<Slot, HugePageAllocator<Slot>> old(capacity);
    old.swap(slots_);
    shift_ = 64 - static_cast<unsigned>(std::countr_zero(capacity));
    for (Slot& s : old) {
      if (s.value.isNull()) continue;
      std::size_t i = home(s.key);
      while (!slots_[i].value.isNull()) i = next(i);
      slots_[i] = std::move(s);
    }
  }

  Hash hash_;
  std::vector<Slot, HugePageAllocator<Slot>> slots_;
  unsigned shift_ = 64;
  std::size_t size_ = 0;
};

}  // namespace Fal
