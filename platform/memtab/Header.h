#pragma once
// The first bytes of every table segment: what the table holds, how big it
// is, and the state that readers poll.
//
// Layout of a segment: this header, then the control record (one value under
// its own sequence count, or nothing), then the slots. Offsets are in the
// header so a reader never guesses. The writer fills the header and stores
// magic last (release); a reader that does not see magic treats the segment
// as not yet published.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/memtab/Seqtab.h"
#include "platform/vex/Export.h"

namespace Memtab {

inline constexpr std::uint64_t kMagic = 0x31544d454d4c4146ULL;  // "FALMEMT1"
inline constexpr std::uint32_t kLayoutVersion = 1;
inline constexpr std::size_t kTypeNameBytes = 96;

// Bits of Header::state.
inline constexpr std::uint32_t kStateMounted = 1;   // the writer has the table open
inline constexpr std::uint32_t kStateQuiesced = 2;  // the writer says its content is complete

struct FALMROUTE_EXPORT alignas(64) Header {
  std::uint64_t magic;
  std::uint32_t layoutVersion;
  std::uint32_t headerBytes;
  char typeName[kTypeNameBytes];  // the row type, NUL-terminated
  std::uint32_t valueBytes;
  std::uint32_t recordBytes;
  std::uint32_t slotBytes;
  std::uint32_t capacity;   // rows the writer accepts
  std::uint32_t slotCount;  // a power of two above capacity
  std::int32_t writerPid;
  std::uint64_t recordOffset;
  std::uint64_t slotsOffset;
  std::uint64_t totalBytes;

  // Written while the table is live; every access goes through Seqtab.
  alignas(64) std::uint32_t state;
  std::uint32_t size;
  std::uint64_t generation;  // bumped after every committed change
  std::uint32_t layoutSeq;   // odd while rows move between slots
  std::uint32_t recordSeq;   // guards the control record
};

// What a writer formats: everything but the live fields.
struct FALMROUTE_EXPORT Shape {
  std::string_view typeName;
  std::uint32_t valueBytes = 0;
  std::uint32_t recordBytes = 0;
  std::uint32_t slotBytes = 0;
  std::uint32_t capacity = 0;
  std::uint32_t slotCount = 0;

  std::uint64_t recordOffset() const;
  std::uint64_t slotsOffset() const;
  std::uint64_t totalBytes() const;
};

// Fills a zeroed segment's header for shape and publishes it (magic last).
FALMROUTE_EXPORT Header* headerFormat(void* segment, Shape const& shape);
// The header of a segment a reader mapped, checked against what the reader
// expects; null with *error naming the mismatch.
FALMROUTE_EXPORT Header const* headerAttach(void const* segment, std::size_t bytes, Shape const& expected, std::string* error);
// The writer's pid recorded in a segment, 0 when it has no valid header.
FALMROUTE_EXPORT int headerOwnerPid(void const* segment, std::size_t bytes);
// Whether the process that wrote the header still runs.
FALMROUTE_EXPORT bool headerWriterAlive(Header const& h);

inline std::uint32_t headerState(Header const& h) { return Seqtab::load(h.state, std::memory_order_acquire); }
FALMROUTE_EXPORT void headerStateIs(Header& h, std::uint32_t bit, bool on);
inline std::uint64_t headerGeneration(Header const& h) { return Seqtab::load(h.generation, std::memory_order_acquire); }
inline void headerGenerationInc(Header& h) {
  Seqtab::store(h.generation, Seqtab::load(h.generation) + 1, std::memory_order_release);
}

}  // namespace Memtab
