#pragma once
// FalSim::HandleTable: a reference chip's entries (routes, boundaries) by
// handle, laid out for the handles the chip hands out: consecutive numbers
// from a counter that only moves up.
//
// Handles are grouped in pages of 256 consecutive handles, each page a plain
// array of entries, found by page number in a vector of pages; a lookup
// reads the page's pointer and then one slot. At a million routes this is one entry's size per route
// where an ordered map of entries (a few entries per node, fifteen levels
// deep) cost more memory and one cache miss per level on every lookup.
// A page goes when its last entry does, so a table that churns holds pages
// only where live handles are; the worst case, one live handle per page, is
// bounded by the live entries times the page size. The vector of pages grows
// with the highest handle: a pointer per 256 handles ever handed out.
//
// An entry's own `handle` says whether its slot is used (the invalid handle:
// free). Iteration is in handle order, like the ordered map it replaces, and
// yields (handle, entry) pairs. Adding or removing entries invalidates
// iterators and pointers into the page of the change only when that page
// goes; a pointer to an entry stays valid while the entry is in the table.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/mroutelib/RouteHandle.h"
#include "platform/vex/Prefetch.h"

namespace FalSim {

template <class Entry>
class HandleTable {
  static constexpr unsigned kPageBits = 8;
  static constexpr std::uint32_t kPageSize = 1U << kPageBits;
  struct Page {
    std::array<Entry, kPageSize> slot{};
    std::uint32_t used = 0;
  };
  using PageMap = std::vector<std::unique_ptr<Page>>;

 public:
  using RouteHandle = MrouteLib::RouteHandle;
  using value_type = std::pair<RouteHandle, Entry const&>;

  class const_iterator {
   public:
    const_iterator(PageMap const* pages, std::size_t page, std::uint32_t slot) : pages_(pages), page_(page), slot_(slot) {
      skipFree();
    }
    value_type operator*() const {
      Entry const& e = (*pages_)[page_]->slot[slot_];
      return {e.handle, e};
    }
    // it->first, it->second, as with a map's iterator.
    struct Arrow {
      value_type pair;
      value_type const* operator->() const { return &pair; }
    };
    Arrow operator->() const { return Arrow{**this}; }
    const_iterator& operator++() {
      ++slot_;
      skipFree();
      return *this;
    }
    friend bool operator==(const_iterator const& a, const_iterator const& b) {
      return a.page_ == b.page_ && a.slot_ == b.slot_;
    }

   private:
    void skipFree() {
      while (page_ < pages_->size()) {
        if (Page const* p = (*pages_)[page_].get()) {
          while (slot_ < kPageSize && p->slot[slot_].handle.isNull()) ++slot_;
          if (slot_ < kPageSize) return;
        }
        ++page_;
        slot_ = 0;
      }
    }
    PageMap const* pages_;
    std::size_t page_;
    std::uint32_t slot_;
  };

  HandleTable() = default;
  HandleTable(HandleTable&&) noexcept = default;
  HandleTable& operator=(HandleTable&&) noexcept = default;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const_iterator begin() const { return const_iterator(&pages_, 0, 0); }
  const_iterator end() const { return const_iterator(&pages_, pages_.size(), 0); }

  // The entry of handle, or null.
  Entry const* find(RouteHandle handle) const { return const_cast<HandleTable*>(this)->find(handle); }
  Entry* find(RouteHandle handle) {
    if (handle.isNull()) return nullptr;
    Page* p = page(handle.value() >> kPageBits);
    if (!p) return nullptr;
    Entry& e = p->slot[handle.value() & (kPageSize - 1)];
    return e.handle.isNull() ? nullptr : &e;
  }
  bool contains(RouteHandle handle) const { return find(handle) != nullptr; }
  // Starts fetching the entry of handle, if its page exists, without reading
  // the entry (a hint; no effect).
  void prefetch(RouteHandle handle) const {
    if (Page const* p = page(handle.value() >> kPageBits))
      Vex::prefetchBytes<sizeof(Entry)>(&p->slot[handle.value() & (kPageSize - 1)]);
  }

  // Stores entry under its own handle, which must be valid and free.
  Entry& insert(Entry entry) {
    std::uint32_t const number = entry.handle.value() >> kPageBits;
    if (number >= pages_.size()) pages_.resize(number + 1);
    auto& p = pages_[number];
    if (!p) p = std::make_unique<Page>();
    Entry& slot = p->slot[entry.handle.value() & (kPageSize - 1)];
    slot = std::move(entry);
    ++p->used;
    ++size_;
    return slot;
  }

  // Removes the entry of handle, if any.
  void erase(RouteHandle handle) {
    if (handle.isNull()) return;
    std::uint32_t const number = handle.value() >> kPageBits;
    Page* p = page(number);
    if (!p) return;
    Entry& e = p->slot[handle.value() & (kPageSize - 1)];
    if (e.handle.isNull()) return;
    e = Entry{};
    --size_;
    if (--p->used == 0) pages_[number].reset();
  }

  // Calls f(entry) for every entry, in handle order, letting it change them.
  template <class F>
  void forEach(F&& f) {
    for (auto& p : pages_) {
      if (!p) continue;
      for (Entry& e : p->slot) {
        if (!e.handle.isNull()) f(e);
      }
    }
  }

 private:
  Page* page(std::uint32_t number) const { return number < pages_.size() ? pages_[number].get() : nullptr; }

  PageMap pages_;
  std::size_t size_ = 0;
};

}  // namespace FalSim
