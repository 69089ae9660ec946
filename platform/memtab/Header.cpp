#include "platform/memtab/Header.h"

#include <unistd.h>

#include <cstring>

#include "platform/memtab/Segment.h"

namespace Memtab {
namespace {

constexpr std::uint64_t roundUp(std::uint64_t n, std::uint64_t to) { return (n + to - 1) / to * to; }

std::string quoted(std::string_view s) {
  std::string out(1, '\'');
  out.append(s).push_back('\'');
  return out;
}

}  // namespace

std::uint64_t Shape::recordOffset() const { return roundUp(sizeof(Header), 64); }
std::uint64_t Shape::slotsOffset() const { return roundUp(recordOffset() + Seqtab::wordsFor(recordBytes) * 8, 64); }
std::uint64_t Shape::totalBytes() const { return slotsOffset() + std::uint64_t{slotBytes} * slotCount; }

Header* headerFormat(void* segment, Shape const& shape) {
  auto* h = static_cast<Header*>(segment);
  h->layoutVersion = kLayoutVersion;
  h->headerBytes = sizeof(Header);
  std::memset(h->typeName, 0, kTypeNameBytes);
  std::memcpy(h->typeName, shape.typeName.data(), std::min(shape.typeName.size(), kTypeNameBytes - 1));
  h->valueBytes = shape.valueBytes;
  h->recordBytes = shape.recordBytes;
  h->slotBytes = shape.slotBytes;
  h->capacity = shape.capacity;
  h->slotCount = shape.slotCount;
  h->writerPid = ::getpid();
  h->recordOffset = shape.recordOffset();
  h->slotsOffset = shape.slotsOffset();
  h->totalBytes = shape.totalBytes();
  Seqtab::store(h->state, kStateMounted);
  Seqtab::store(h->magic, kMagic, std::memory_order_release);
  return h;
}

Header const* headerAttach(void const* segment, std::size_t bytes, Shape const& expected, std::string* error) {
  auto const* h = static_cast<Header const*>(segment);
  if (bytes < sizeof(Header) || Seqtab::load(h->magic, std::memory_order_acquire) != kMagic) {
    *error = "the segment is not a table yet (its writer is still setting it up)";
    return nullptr;
  }
  if (h->layoutVersion != kLayoutVersion) {
    *error = std::string("the table has layout version ") + std::to_string(h->layoutVersion) + ", this program reads version " +
             std::to_string(kLayoutVersion);
    return nullptr;
  }
  std::string_view const held(h->typeName, strnlen(h->typeName, kTypeNameBytes));
  if (held != expected.typeName) {
    *error = std::string("the table holds ") + quoted(held) + " rows, not " + quoted(expected.typeName);
    return nullptr;
  }
  Shape const shape{held, h->valueBytes, h->recordBytes, h->slotBytes, h->capacity, h->slotCount};
  if (h->valueBytes != expected.valueBytes || h->recordBytes != expected.recordBytes || h->slotBytes != expected.slotBytes) {
    *error = std::string("the table's rows of ") + quoted(held) + " have another size (" + std::to_string(h->valueBytes) +
             " bytes) than this program's (" + std::to_string(expected.valueBytes) + " bytes)";
    return nullptr;
  }
  bool const powerOfTwo = h->slotCount != 0 && (h->slotCount & (h->slotCount - 1)) == 0;
  if (!powerOfTwo || h->capacity >= h->slotCount || h->recordOffset != shape.recordOffset() ||
      h->slotsOffset != shape.slotsOffset() || h->totalBytes != shape.totalBytes() || h->totalBytes > bytes) {
    *error = std::string("the table's header is inconsistent with its size (") + std::to_string(bytes) + " bytes)";
    return nullptr;
  }
  return h;
}

int headerOwnerPid(void const* segment, std::size_t bytes) {
  auto const* h = static_cast<Header const*>(segment);
  if (bytes < sizeof(Header) || Seqtab::load(h->magic, std::memory_order_acquire) != kMagic) return 0;
  return h->writerPid;
}

bool headerWriterAlive(Header const& h) { return processAlive(h.writerPid); }

void headerStateIs(Header& h, std::uint32_t bit, bool on) {
  std::uint32_t const now = Seqtab::load(h.state);
  Seqtab::store(h.state, on ? now | bit : now & ~bit, std::memory_order_release);
  headerGenerationInc(h);
}

}  // namespace Memtab
