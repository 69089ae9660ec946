#pragma once
// An ordered collection (by the key's ordering) whose iterators survive the
// deletion of any member, the current one included: an iterator whose member
// was removed moves on to the member's successor.
//
// Removal detaches a member before releasing its value, so a release that calls
// back into the same collection finds it already gone.
#include <cstdint>
#include <map>
#include <utility>

namespace Vex {

template <class K, class V, class Compare = std::less<K>>
class OrderedColl {
  using Map = std::map<K, V, Compare>;

 public:
  class Iterator {
   public:
    Iterator() = default;
    K const& key() const { return sync(), it_->first; }
    V const& value() const { return sync(), it_->second; }
    std::pair<K const, V> const& operator*() const { return sync(), *it_; }
    std::pair<K const, V> const* operator->() const { return &**this; }
    bool done() const { return sync(), !coll_ || it_ == coll_->map_.end(); }
    explicit operator bool() const { return !done(); }
    Iterator& operator++() {
      if (coll_->erasures_ != erasures_) {
        it_ = coll_->map_.upper_bound(key_);
        erasures_ = coll_->erasures_;
      } else {
        ++it_;
      }
      remember();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) {
      if (a.done() || b.done()) return a.done() == b.done();
      return a.it_ == b.it_;
    }

   private:
    friend class OrderedColl;
    Iterator(OrderedColl const* c, typename Map::const_iterator it) : coll_(c), it_(it), erasures_(c->erasures_) { remember(); }
    void remember() {
      atEnd_ = it_ == coll_->map_.end();
      if (!atEnd_) key_ = it_->first;
    }
    // After an erasure, find our place again: our member, or its successor.
    // An iterator that has run off the end stays there.
    void sync() const {
      if (!coll_ || coll_->erasures_ == erasures_) return;
      auto* self = const_cast<Iterator*>(this);
      self->it_ = atEnd_ ? coll_->map_.end() : coll_->map_.lower_bound(key_);
      self->erasures_ = coll_->erasures_;
      self->remember();
    }
    OrderedColl const* coll_ = nullptr;
    typename Map::const_iterator it_;
    std::uint64_t erasures_ = 0;
    K key_{};
    bool atEnd_ = true;
  };
  // Range-for support: `for (auto& [k, v] : coll)` (do not erase inside such a loop; use Iterator).
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  Iterator iterator() const { return Iterator(this, map_.begin()); }
  // Positioned at key, or at its successor when absent.
  Iterator iterator(K const& key) const { return Iterator(this, map_.lower_bound(key)); }

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  V const* find(K const& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  V* find(K const& key) {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  bool contains(K const& key) const { return map_.find(key) != map_.end(); }
  std::pair<K const, V> const* first() const { return map_.empty() ? nullptr : &*map_.begin(); }

  // Inserts or replaces; returns true when something changed.
  bool set(K const& key, V value) {
    auto [it, inserted] = map_.try_emplace(key, std::move(value));
    if (inserted) return true;
    if (it->second == value) return false;
    std::swap(it->second, value);  // the old value is released after the map is consistent
    return true;
  }
  // Removes key; the value is released after the member is detached.
  bool erase(K const& key) {
    auto it = map_.find(key);
    if (it == map_.end()) return false;
    auto node = map_.extract(it);
    ++erasures_;
    return true;
  }
  void clear() {
    Map old;
    old.swap(map_);
    ++erasures_;
  }

 private:
  Map map_;
  std::uint64_t erasures_ = 0;
};

}  // namespace Vex
