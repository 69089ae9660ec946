// Replacement global operator new/delete that can count heap bytes (see
// HeapMeter.h). Single-threaded benches only: the count is a plain integer.
#include "bench/HeapMeter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

#include "platform/vex/SmallBlockPool.h"

namespace HeapMeter {
namespace {
bool countingNow = false;
std::int64_t live = 0;
}  // namespace

std::int64_t liveBytes() {
  Vex::SmallBlockPool const& pool = Vex::routeObjectPool();
  return live + static_cast<std::int64_t>(pool.blockBytes()) - static_cast<std::int64_t>(pool.chunkBytes());
}
bool counting() { return countingNow; }
void countingIs(bool on) { countingNow = on; }

}  // namespace HeapMeter

namespace {

void* allocate(std::size_t n) {
  void* p = std::malloc(n == 0 ? 1 : n);
  if (!p) throw std::bad_alloc();
  if (HeapMeter::countingNow) HeapMeter::live += static_cast<std::int64_t>(malloc_usable_size(p));
  return p;
}

void release(void* p) noexcept {
  if (!p) return;
  if (HeapMeter::countingNow) HeapMeter::live -= static_cast<std::int64_t>(malloc_usable_size(p));
  std::free(p);
}

}  // namespace

void* operator new(std::size_t n) { return allocate(n); }
void* operator new[](std::size_t n) { return allocate(n); }
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
  try {
    return allocate(n);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept {
  try {
    return allocate(n);
  } catch (...) {
    return nullptr;
  }
}
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { release(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { release(p); }
