#pragma once
// Fal::HugePageAllocator: std::allocator, except that a large block asks the
// kernel to back it with huge pages where it may.
//
// At a million routes the library's route tables are tens of megabytes read
// at random: with 4 KiB pages nearly every probe of an aging review or a
// route add also misses the TLB, and its page walk costs as much as the cache
// miss itself. Marking a block's whole 2 MiB pages MADV_HUGEPAGE lets the
// kernel (transparent huge pages in "madvise" or "always" mode) map them with
// one TLB entry each when they are first touched. Nothing else changes: the
// block comes from operator new and goes back to it, and where the kernel
// declines the advice the pages are ordinary ones.
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Fal {

template <class T>
class HugePageAllocator {
 public:
  using value_type = T;
  // Smaller blocks would gain a huge page or two at most.
  static constexpr std::size_t kMinBytes = std::size_t{8} << 20;
  static constexpr std::size_t kHugePage = std::size_t{2} << 20;

  HugePageAllocator() = default;
  template <class U>
  HugePageAllocator(HugePageAllocator<U> const&) noexcept {}

  T* allocate(std::size_t n) {
    T* const p = std::allocator<T>().allocate(n);
    std::size_t const bytes = n * sizeof(T);
    if (bytes >= kMinBytes) {
      auto const begin = reinterpret_cast<std::uintptr_t>(p);
      std::uintptr_t const first = (begin + kHugePage - 1) & ~(kHugePage - 1);
      std::uintptr_t const last = (begin + bytes) & ~(kHugePage - 1);
      // Advice only: a kernel without transparent huge pages refuses it.
      if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
    return p;
  }
  void deallocate(T* p, std::size_t n) noexcept { std::allocator<T>().deallocate(p, n); }

  template <class U>
  friend bool operator==(HugePageAllocator const&, HugePageAllocator<U> const&) noexcept {
    return true;
  }
};

}  // namespace Fal
