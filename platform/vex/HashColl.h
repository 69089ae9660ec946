#pragma once
// A hashed collection that iterates in a stable hash order.
//
// Members are kept in order of (mixed hash, key): buckets are indexed by the
// top bits of the hash and each chain is sorted, so growth never reorders
// anything. That lets an iterator be placed where a key would stand even when
// the key is absent (a review bookmark whose route was deleted continues at
// its successor) at the cost of one hash lookup, and lets iterators survive
// deletion of any member, the current one included.
//
// Removal detaches a member before releasing its value.
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vex/Prefetch.h"

namespace Vex {

inline std::uint64_t mixHash(std::uint64_t h) {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ULL;
  h ^= h >> 33;
  return h;
}

template <class K, class V, class Hash = std::hash<K>>
class HashColl {
  struct Node {
    Node* next;
    std::uint64_t hash;
    std::pair<K const, V> kv;
  };

 public:
  HashColl() = default;
  HashColl(HashColl const&) = delete;
  HashColl& operator=(HashColl const&) = delete;
  ~HashColl() { clear(); }

  class Iterator {
   public:
    Iterator() = default;
    K const& key() const { return sync(), node_->kv.first; }
    V const& value() const { return sync(), node_->kv.second; }
    std::pair<K const, V> const& operator*() const { return sync(), node_->kv; }
    std::pair<K const, V> const* operator->() const { return &**this; }
    bool done() const { return sync(), node_ == nullptr; }
    explicit operator bool() const { return !done(); }
    Iterator& operator++() {
      if (coll_->version_ != version_) {
        node_ = coll_->successor(hash_, key_, /*inclusive=*/false);
        version_ = coll_->version_;
      } else {
        node_ = coll_->next(node_);
      }
      remember();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) { return a.done() && b.done() ? true : a.node_ == b.node_; }

   private:
    friend class HashColl;
    Iterator(HashColl const* c, Node* n) : coll_(c), node_(n), version_(c->version_) { remember(); }
    void remember() {
      if (node_) {
        hash_ = node_->hash;
        key_ = node_->kv.first;
      }
    }
    void sync() const {
      if (!coll_ || coll_->version_ == version_) return;
      auto* self = const_cast<Iterator*>(this);
      if (node_) self->node_ = coll_->successor(hash_, key_, /*inclusive=*/true);
      self->version_ = coll_->version_;
      self->remember();
    }
    HashColl const* coll_ = nullptr;
    Node* node_ = nullptr;
    std::uint64_t version_ = 0;
    std::uint64_t hash_ = 0;
    K key_{};
  };

  // Range-for support over (key, value) pairs; do not erase inside such a loop.
  class RangeIter {
   public:
    RangeIter(HashColl const* c, Node* n) : c_(c), n_(n) {}
    std::pair<K const, V> const& operator*() const { return n_->kv; }
    std::pair<K const, V> const* operator->() const { return &n_->kv; }
    RangeIter& operator++() {
      n_ = c_->next(n_);
      return *this;
    }
    bool operator!=(RangeIter const& o) const { return n_ != o.n_; }
    bool operator==(RangeIter const& o) const { return n_ == o.n_; }

   private:
    HashColl const* c_;
    Node* n_;
  };
  RangeIter begin() const { return RangeIter(this, firstNode()); }
  RangeIter end() const { return RangeIter(this, nullptr); }

  Iterator iterator() const { return Iterator(this, firstNode()); }
  // Positioned at key, or where it would stand (its successor) when absent.
  Iterator iterator(K const& key) const { return Iterator(this, successor(hashOf(key), key, true)); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V const* find(K const& key) const {
    Node* n = findNode(key);
    return n ? &n->kv.second : nullptr;
  }
  V* find(K const& key) {
    Node* n = findNode(key);
    return n ? &n->kv.second : nullptr;
  }
  bool contains(K const& key) const { return findNode(key) != nullptr; }

  // Inserts or replaces; returns true when something changed.
  bool set(K const& key, V value) {
    auto [n, inserted] = emplace(key);
    if (inserted) {
      n->kv.second = std::move(value);
      return true;
    }
    if (n->kv.second == value) return false;
    std::swap(n->kv.second, value);
    return true;
  }
  // Returns the value under key, inserting a default one when absent.
  std::pair<V*, bool> findOrInsert(K const& key) {
    auto [n, inserted] = emplace(key);
    return {&n->kv.second, inserted};
  }

  bool erase(K const& key) {
    if (buckets_.empty()) return false;
    std::uint64_t h = hashOf(key);
    Node** link = &buckets_[bucketOf(h)];
    while (*link && !((*link)->hash == h && (*link)->kv.first == key)) link = &(*link)->next;
    if (!*link) return false;
    std::unique_ptr<Node> dead(*link);
    *link = dead->next;
    --size_;
    ++version_;
    return true;  // dead's value is released here, after the member is gone
  }

  void clear() {
    std::vector<Node*> old;
    old.swap(buckets_);
    size_ = 0;
    shift_ = 64;
    ++version_;
    for (Node* n : old) {
      while (n) {
        std::unique_ptr<Node> dead(n);
        n = n->next;
      }
    }
  }

  std::size_t bucketCount() const { return buckets_.size(); }

 private:
  static bool before(std::uint64_t h1, K const& k1, std::uint64_t h2, K const& k2) {
    return h1 != h2 ? h1 < h2 : k1 < k2;
  }
  static std::uint64_t hashOf(K const& key) { return mixHash(static_cast<std::uint64_t>(Hash()(key))); }
  std::size_t bucketOf(std::uint64_t h) const { return shift_ >= 64 ? 0 : static_cast<std::size_t>(h >> shift_); }

  Node* findNode(K const& key) const {
    if (buckets_.empty()) return nullptr;
    std::uint64_t h = hashOf(key);
    for (Node* n = buckets_[bucketOf(h)]; n; n = n->next) {
      if (n->hash == h && n->kv.first == key) return n;
      if (n->hash > h) break;
    }
    return nullptr;
  }

  Node* firstNode() const {
    for (Node* b : buckets_)
      if (b) return b;
    return nullptr;
  }

  // How many buckets ahead of a walk its members are fetched.
  static constexpr std::size_t kWalkPrefetch = 8;

  Node* next(Node* n) const {
    if (n->next) return n->next;
    for (std::size_t b = bucketOf(n->hash) + 1; b < buckets_.size(); ++b) {
      if (buckets_[b]) {
        // Members sit wherever they were allocated, so a walk in hash order
        // would otherwise wait for each one in turn. The bucket array gives
        // the members a few buckets on without reading them: start fetching
        // one now, so it has arrived when the walk gets there.
        if (b + kWalkPrefetch < buckets_.size()) {
          if (Node const* ahead = buckets_[b + kWalkPrefetch]) Vex::prefetch(ahead);
        }
        return buckets_[b];
      }
    }
    return nullptr;
  }

  // The first member at or after (h, key) (strictly after unless inclusive).
  Node* successor(std::uint64_t h, K const& key, bool inclusive) const {
    if (buckets_.empty()) return nullptr;
    std::size_t b = bucketOf(h);
    for (Node* n = buckets_[b]; n; n = n->next) {
      if (inclusive ? !before(n->hash, n->kv.first, h, key) : before(h, key, n->hash, n->kv.first)) return n;
    }
    for (++b; b < buckets_.size(); ++b)
      if (buckets_[b]) return buckets_[b];
    return nullptr;
  }

  std::pair<Node*, bool> emplace(K const& key) {
    if (size_ + 1 > buckets_.size()) grow();
    std::uint64_t h = hashOf(key);
    Node** link = &buckets_[bucketOf(h)];
    while (*link && before((*link)->hash, (*link)->kv.first, h, key)) link = &(*link)->next;
    if (*link && (*link)->hash == h && (*link)->kv.first == key) return {*link, false};
    Node* n = new Node{*link, h, {key, V{}}};
    *link = n;
    ++size_;
    return {n, true};
  }

  // Doubles the buckets. Chains are walked in order and appended in order, so
  // every chain stays sorted.
  void grow() {
    std::size_t count = buckets_.empty() ? 8 : buckets_.size() * 2;
    unsigned bits = 0;
    while ((std::size_t{1} << bits) < count) ++bits;
    std::vector<Node*> fresh(count, nullptr);
    std::vector<Node**> tails(count);
    for (std::size_t i = 0; i < count; ++i) tails[i] = &fresh[i];
    unsigned newShift = 64 - bits;
    for (Node* b : buckets_) {
      while (b) {
        Node* nxt = b->next;
        std::size_t idx = static_cast<std::size_t>(b->hash >> newShift);
        b->next = nullptr;
        *tails[idx] = b;
        tails[idx] = &b->next;
        b = nxt;
      }
    }
    buckets_.swap(fresh);
    shift_ = newShift;
    ++version_;
  }

  std::vector<Node*> buckets_;
  std::size_t size_ = 0;
  unsigned shift_ = 64;
  std::uint64_t version_ = 0;
};

}  // namespace Vex
