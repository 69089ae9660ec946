#pragma once
// Fal::DenseIdMap: a map from 32-bit ids that chips hand out (route
// handles, replication-table indexes) to values, laid out for the ids a chip
// really uses: mostly dense, reused from a small range.
//
// Ids are grouped in pages of 256 consecutive ids, each page a plain array
// of values found through a small hash map of the pages in use; a lookup
// hashes the page number (a table that stays in cache) and reads one slot,
// and consecutive ids share cache lines. At one value per id a dense page
// costs the value's size per id, against about twice that plus a control
// byte in a hash table at its usual load. Ids too scattered for pages to
// fill (fewer than one in eight slots used on average) go to a hash map of
// their own instead, so any assignment of ids stays within a bounded size.
//
// The page last looked up is remembered, so a run of lookups of nearby ids
// (a batch of routes just programmed) skips the page table; and the last
// page emptied is kept for the next one needed, so ids that come and go
// around one boundary do not allocate a page each time.
//
// A default-constructed V means "absent": stored values must not be one.
// Removal hands the value back, detached, for the caller to release.
// Iteration is in no particular order and must not change the map.
#include <absl/container/flat_hash_map.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace Fal {

template <class V>
class DenseIdMap {
  struct Page;
  using PageMap = absl::flat_hash_map<std::uint32_t, std::unique_ptr<Page>>;
  using ScatteredMap = absl::flat_hash_map<std::uint32_t, V>;

 public:
  static constexpr unsigned kPageBits = 8;
  static constexpr std::uint32_t kPageSize = 1U << kPageBits;
  // Pages are made only while at least one slot in kMinFill is used on average.
  static constexpr std::size_t kMinFill = 8;

  DenseIdMap() = default;
  DenseIdMap(DenseIdMap const&) = delete;
  DenseIdMap& operator=(DenseIdMap const&) = delete;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // The value under id, or null.
  V const* find(std::uint32_t id) const {
    if (Page const* p = page(id >> kPageBits)) {
      V const& v = p->slot[id & (kPageSize - 1)];
      return v == V{} ? nullptr : &v;
    }
    if (scattered_.empty()) return nullptr;
    auto s = scattered_.find(id);
    return s == scattered_.end() ? nullptr : &s->second;
  }
  bool contains(std::uint32_t id) const { return find(id) != nullptr; }

  // Stores value under id; false, and nothing stored, when id is present.
  bool insert(std::uint32_t id, V value) {
    std::uint32_t const number = id >> kPageBits;
    Page* p = page(number);
    if (!p && (pages_.size() + 1) * kPageSize <= kMinFill * (size_ + kPageSize)) {
      std::unique_ptr<Page>& made = pages_[number];
      made = spare_ ? std::move(spare_) : std::make_unique<Page>();
      p = made.get();
      adoptScattered(number, *p);
      lastNumber_ = number;
      lastPage_ = p;
    }
    if (p) {
      V& slot = p->slot[id & (kPageSize - 1)];
      if (!(slot == V{})) return false;
      slot = std::move(value);
      ++p->used;
    } else if (!scattered_.try_emplace(id, std::move(value)).second) {
      return false;
    }
    ++size_;
    return true;
  }

  // Removes id and hands back its value (V{} when absent), detached: the
  // map is consistent before the caller releases it.
  V extract(std::uint32_t id) {
    V out{};
    if (Page* p = page(id >> kPageBits)) {
      V& slot = p->slot[id & (kPageSize - 1)];
      if (slot == V{}) return out;
      std::swap(out, slot);
      if (--p->used == 0) dropPage(id >> kPageBits);
    } else if (auto s = scattered_.find(id); s != scattered_.end()) {
      out = std::move(s->second);
      scattered_.erase(s);
    } else {
      return out;
    }
    --size_;
    return out;
  }

  // Calls f(id, value) for every value.
  template <class F>
  void forEach(F&& f) const {
    for (auto const& [page, p] : pages_) {
      for (std::uint32_t i = 0; i < kPageSize; ++i) {
        if (!(p->slot[i] == V{})) f((page << kPageBits) | i, p->slot[i]);
      }
    }
    for (auto const& [id, v] : scattered_) f(id, v);
  }

  // Forward iteration over (id, value).
  class Iterator {
   public:
    std::pair<std::uint32_t, V const&> operator*() const {
      if (inPages_) return {(page_->first << kPageBits) | slot_, page_->second->slot[slot_]};
      return {scattered_->first, scattered_->second};
    }
    Iterator& operator++() {
      if (inPages_) {
        ++slot_;
        settle();
      } else {
        ++scattered_;
      }
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) {
      return a.inPages_ == b.inPages_ && (a.inPages_ ? a.page_ == b.page_ && a.slot_ == b.slot_ : a.scattered_ == b.scattered_);
    }

   private:
    friend class DenseIdMap;
    Iterator(DenseIdMap const* m, bool atEnd) : map_(m) {
      if (atEnd) {
        inPages_ = false;
        scattered_ = m->scattered_.end();
        return;
      }
      page_ = m->pages_.begin();
      settle();
    }
    // Moves to the next value at or after the current position.
    void settle() {
      while (page_ != map_->pages_.end()) {
        for (; slot_ < kPageSize; ++slot_) {
          if (!(page_->second->slot[slot_] == V{})) return;
        }
        ++page_;
        slot_ = 0;
      }
      inPages_ = false;
      scattered_ = map_->scattered_.begin();
    }
    DenseIdMap const* map_;
    bool inPages_ = true;
    typename PageMap::const_iterator page_;
    std::uint32_t slot_ = 0;
    typename ScatteredMap::const_iterator scattered_;
  };
  Iterator begin() const { return Iterator(this, false); }
  Iterator end() const { return Iterator(this, true); }

 private:
  struct Page {
    std::array<V, kPageSize> slot{};
    std::uint32_t used = 0;
  };

  // The page of this number, or null; the last one found is remembered.
  Page* page(std::uint32_t number) const {
    if (lastPage_ && lastNumber_ == number) return lastPage_;
    auto p = pages_.find(number);
    if (p == pages_.end()) return nullptr;
    lastNumber_ = number;
    lastPage_ = p->second.get();
    return lastPage_;
  }
  // An emptied page is kept as the spare if there is none.
  void dropPage(std::uint32_t number) {
    auto p = pages_.find(number);
    if (p->second.get() == lastPage_) lastPage_ = nullptr;
    if (!spare_) spare_ = std::move(p->second);
    pages_.erase(p);
  }

  // A new page takes over the scattered values of its ids.
  void adoptScattered(std::uint32_t page, Page& p) {
    if (scattered_.empty()) return;
    for (std::uint32_t i = 0; i < kPageSize; ++i) {
      if (auto s = scattered_.find((page << kPageBits) | i); s != scattered_.end()) {
        p.slot[i] = std::move(s->second);
        ++p.used;
        scattered_.erase(s);
      }
    }
  }

  PageMap pages_;
  ScatteredMap scattered_;
  std::unique_ptr<Page> spare_;  // empty, all slots V{}
  mutable std::uint32_t lastNumber_ = 0;
  mutable Page* lastPage_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace Fal
