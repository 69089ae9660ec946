#pragma once
// The memory protocol of the shared-memory tables: one writer, any number of
// readers in other processes, and readers that never block the writer.
//
// Every piece of shared state is a plain 32- or 64-bit word of the mapping,
// accessed only through std::atomic_ref, so that a reader racing with the
// writer reads stale or new words but never has a data race. Words that make
// up one value (a table row, the control record) are guarded by a sequence
// count:
//
//   writer                                   reader
//   s = seq + 1 (odd)   store relaxed        b = load seq, acquire
//   fence release                    (A)     if b is odd: retry
//   store the words     relaxed              load the words, relaxed
//   seq = s + 1 (even)  store release (B)    fence acquire            (C)
//                                            e = load seq, relaxed
//                                            use the copy only if e == b
//
// Why each ordering is needed (Boehm, "Can seqlocks get along with
// programming language memory models?"):
//
// (A) The odd count must be visible before any new word is. A reader that
//     loads one new word and then runs fence (C) synchronises with fence (A)
//     (fence-to-fence through that word), so its second load of the count
//     sees at least the odd value and the copy is thrown away. A release
//     store of the odd count would not do: release orders what comes before
//     a store, not what follows it.
// (B) The even count is stored with release, so a reader whose first load
//     (acquire) sees it also sees every word written before it: a copy
//     taken after an even count it read is never older than that count.
// (C) The reader's word loads must not move after its second load of the
//     count; an acquire fence keeps them before it (a relaxed load of the
//     count alone would let the hardware or compiler reorder them).
//
// The writer is one thread of one process (the table's owner); it never
// waits for readers. A reader that keeps meeting a busy count retries; the
// writer's critical sections are a few stores long. On x86 the fences and
// relaxed accesses compile to plain moves: the price of a read is two loads
// of the count.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Seqtab {

// One word of shared memory. Readers map the memory read-only; loading
// through a non-const atomic_ref is a plain load for these sizes.
template <class T>
inline T load(T const& word, std::memory_order order = std::memory_order_relaxed) {
  static_assert(sizeof(T) <= 8 && std::atomic_ref<T>::is_always_lock_free);
  return std::atomic_ref<T>(const_cast<T&>(word)).load(order);
}

template <class T>
inline void store(T& word, T value, std::memory_order order = std::memory_order_relaxed) {
  std::atomic_ref<T>(word).store(value, order);
}

// Spinning while the writer is inside a write: tells the core to back off.
inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

// The writer's side of a sequence count.
inline void writeBegin(std::uint32_t& seq) {
  store(seq, load(seq) + 1);
  std::atomic_thread_fence(std::memory_order_release);  // (A)
}

inline void writeEnd(std::uint32_t& seq) { store(seq, load(seq) + 1, std::memory_order_release); }  // (B)

// The reader's side: begin returns the count to compare; an odd one means a
// write is under way and the caller retries.
inline std::uint32_t readBegin(std::uint32_t const& seq) { return load(seq, std::memory_order_acquire); }

inline bool readValid(std::uint32_t const& seq, std::uint32_t begin) {
  std::atomic_thread_fence(std::memory_order_acquire);  // (C)
  return (begin & 1U) == 0 && load(seq) == begin;
}

// Copies an object into words of the mapping, and back. The words are the
// object's bytes rounded up to whole 64-bit words; padding copies as it is.
constexpr std::size_t wordsFor(std::size_t bytes) { return (bytes + 7) / 8; }

template <class T>
inline void storeWords(std::uint64_t* dst, T const& value) {
  std::uint64_t buf[wordsFor(sizeof(T))] = {};
  std::memcpy(buf, &value, sizeof(T));
  for (std::size_t i = 0; i < wordsFor(sizeof(T)); ++i) store(dst[i], buf[i]);
}

template <class T>
inline void loadWords(T& value, std::uint64_t const* src) {
  std::uint64_t buf[wordsFor(sizeof(T))];
  for (std::size_t i = 0; i < wordsFor(sizeof(T)); ++i) buf[i] = load(src[i]);
  std::memcpy(static_cast<void*>(&value), buf, sizeof(T));
}

}  // namespace Seqtab
