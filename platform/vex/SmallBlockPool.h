#pragma once
// Vex::SmallBlockPool: small blocks for the objects a table holds a million
// of, without the general allocator's per-block cost.
//
// The general allocator puts an 8-byte header before each block and rounds
// the whole to 16 bytes: a 104-byte object takes 112 bytes there, a 56-byte
// one 64. Here a block takes its size, a multiple of 8 up to kMaxBlock.
// Blocks of every size are carved in the order asked for from the same
// 64 KiB chunks, so the objects made for one route lie side by side as the
// general allocator would place them (a review that reads one of them finds
// the next on the same page, often on the next line); a freed block goes on
// its size's free list and is the next one of that size handed out.
//
// Single-threaded, as the entities that use it. Chunks are never given back:
// a table that once held a million routes keeps their blocks for the next
// ones. The pool is trivially destructible, so an object deleted during
// static destruction still finds it, and each chunk links to the one before
// it, so a leak checker sees every chunk reachable.
//
// A class uses it through its own operator new and delete, which pass the
// size they are given, and must be aligned to 8 at most. A size it does not
// pool goes to the general allocator. Address-sanitizer builds always do, so
// that a use after free or a leak of a pooled object is still caught there.
#include <cstddef>
#include <new>

#include "platform/vex/Export.h"

namespace Vex {

class FALMROUTE_EXPORT SmallBlockPool {
 public:
  static constexpr std::size_t kChunkBytes = std::size_t{64} << 10;
  static constexpr std::size_t kGrain = 8;
  static constexpr std::size_t kMaxBlock = 256;
#if defined(__SANITIZE_ADDRESS__)
  static constexpr bool kPooling = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  static constexpr bool kPooling = false;
#else
  static constexpr bool kPooling = true;
#endif
#else
  static constexpr bool kPooling = true;
#endif

  constexpr SmallBlockPool() noexcept = default;
  SmallBlockPool(SmallBlockPool const&) = delete;
  SmallBlockPool& operator=(SmallBlockPool const&) = delete;

  // Whether blocks of n bytes come from the chunks.
  static constexpr bool pools(std::size_t n) noexcept {
    return kPooling && n != 0 && n <= kMaxBlock && n % kGrain == 0;
  }

  void* allocate(std::size_t n) {
    if (!pools(n)) return ::operator new(n);
    Link*& head = free_[n / kGrain];
    blockBytes_ += n;
    if (head) {
      Link* const b = head;
      head = b->next;
      return b;
    }
    if (static_cast<std::size_t>(end_ - next_) < n) newChunk();
    void* const b = next_;
    next_ += n;
    return b;
  }

  // n is the size the block was asked for with.
  void deallocate(void* p, std::size_t n) noexcept {
    if (!p) return;
    if (!pools(n)) {
      ::operator delete(p);
      return;
    }
    blockBytes_ -= n;
    Link*& head = free_[n / kGrain];
    head = new (p) Link{head};
  }

  // Chunks taken from the general allocator so far (none in sanitizer builds).
  std::size_t chunks() const noexcept { return chunkCount_; }
  std::size_t chunkBytes() const noexcept { return chunkCount_ * kChunkBytes; }
  // Bytes of the blocks handed out and not freed since.
  std::size_t blockBytes() const noexcept { return blockBytes_; }

 private:
  struct Link {
    Link* next;
  };
  // Takes a chunk whose first 8 bytes link to the chunk before it; what was
  // left of the last one (less than a block) is not used.
  void newChunk();

  Link* free_[kMaxBlock / kGrain + 1] = {};
  char* next_ = nullptr;
  char* end_ = nullptr;
  Link* lastChunk_ = nullptr;
  std::size_t chunkCount_ = 0;
  std::size_t blockBytes_ = 0;
};

// The pool the per-route objects of the library and of the platform share,
// so that those made for one route stay side by side.
FALMROUTE_EXPORT SmallBlockPool& routeObjectPool();

}  // namespace Vex
