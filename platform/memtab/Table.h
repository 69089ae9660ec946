#pragma once
// A fixed-capacity hash table laid out in a shared-memory segment: one writer
// (the process that formatted it), lock-free readers in any process.
//
// Rows are values that carry their own key (Traits::key). Open addressing
// with linear probing over a power-of-two number of slots, at most three
// quarters full; a delete closes its gap by moving later rows of the same
// probe run back (no tombstones, so probes stay short under churn).
//
// Concurrency (protocol in Seqtab.h). Each slot has its own sequence count,
// so a reader never copies a torn row. Inserts and in-place replaces touch
// one slot and never move rows. Only deletes that move rows, and delete-all,
// also bump the table's layout count: a reader checks it around a whole
// lookup or snapshot and starts over if rows moved meanwhile, since a row
// moved back past the reader's probe would otherwise be missed. The
// generation is bumped after every committed change; comparing it is the
// cheap "did anything change" test for readers in other processes.
//
// Traits: Key, Value (trivially copyable, equality-comparable), Record (the
// control record kept beside the rows; NoRecord for none), typeName (names
// the row type in the segment; readers refuse a table of another type),
// key(Value) and hash(Key). The hash must be the same in every process: a
// function of the key's bytes, never a per-process seeded one.
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/memtab/Header.h"
#include "platform/memtab/Seqtab.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Export.h"
#include "platform/vex/HashColl.h"

namespace Memtab {

struct FALMROUTE_EXPORT NoRecord {
  friend bool operator==(NoRecord, NoRecord) { return true; }
};

enum class SetResult : std::uint8_t { inserted, replaced, unchanged, full };

template <class Traits>
class Table {
 public:
  using Key = typename Traits::Key;
  using Value = typename Traits::Value;
  using Record = typename Traits::Record;
  static_assert(std::is_trivially_copyable_v<Value> && std::is_trivially_copyable_v<Record>,
                "rows and records are copied byte for byte between processes");

  static constexpr std::uint32_t kMaxCapacity = 1U << 30;

  // Slots for capacity rows: a power of two, at least 4/3 of the capacity.
  static std::uint32_t slotCountFor(std::uint32_t capacity) {
    VEX_ASSERT_MSG(capacity <= kMaxCapacity, "Memtab::Table capacity above 2^30 not allowed");
    std::uint64_t const need = std::uint64_t{capacity} + capacity / 3 + 1;
    std::uint64_t n = 8;
    while (n < need) n *= 2;
    return static_cast<std::uint32_t>(n);
  }
  static Shape shapeFor(std::uint32_t capacity) {
    return Shape{Traits::typeName, sizeof(Value), kRecordBytes, sizeof(Slot), capacity, slotCountFor(capacity)};
  }
  static std::size_t bytesFor(std::uint32_t capacity) { return shapeFor(capacity).totalBytes(); }

  Table() = default;
  // The writer's view of a zero-filled segment of bytesFor(capacity), which it formats.
  static Table format(void* segment, std::uint32_t capacity) {
    Header* h = headerFormat(segment, shapeFor(capacity));
    return Table(h);
  }
  // A reader's view of a segment published by a writer; an empty Table and
  // *error when it is not a table of these rows.
  static Table attach(void const* segment, std::size_t bytes, std::string* error) {
    Header const* h = headerAttach(segment, bytes, shapeFor(0), error);
    return h ? Table(const_cast<Header*>(h)) : Table();
  }

  bool valid() const { return h_ != nullptr; }
  Header const& header() const { return *h_; }
  std::uint32_t capacity() const { return h_->capacity; }
  std::uint32_t size() const { return Seqtab::load(h_->size, std::memory_order_acquire); }
  std::uint64_t generation() const { return headerGeneration(*h_); }

  // ---- reading (any process) ----

  // A reader whose writer died inside a write finds nothing (see retry()).
  std::optional<Value> find(Key const& key) const {
    std::uint64_t const hash = hashOf(key);
    for (std::uint32_t spins = 0;; ) {
      std::uint32_t const layout = Seqtab::readBegin(h_->layoutSeq);
      std::optional<Value> found;
      if (!(layout & 1U) && probe(key, hash, found) && Seqtab::readValid(h_->layoutSeq, layout)) return found;
      if (!retry(spins)) return std::nullopt;
    }
  }

  // Every row, as one consistent picture of the table (what could be read,
  // when the writer died inside a write).
  std::vector<Value> snapshot() const {
    std::vector<Value> rows;
    for (std::uint32_t spins = 0;; ) {
      rows.clear();
      std::uint32_t const layout = Seqtab::readBegin(h_->layoutSeq);
      if (!(layout & 1U)) {
        rows.reserve(size());
        Value v;
        for (std::uint32_t i = 0; i < h_->slotCount; ++i)
          if (readSlot(i, v)) rows.push_back(v);
        if (Seqtab::readValid(h_->layoutSeq, layout)) return rows;
      }
      if (!retry(spins)) return rows;
    }
  }

  Record record() const {
    Record r{};
    if constexpr (kRecordBytes > 0) {
      for (std::uint32_t spins = 0;; ) {
        std::uint32_t const seq = Seqtab::readBegin(h_->recordSeq);
        Seqtab::loadWords(r, recordWords());
        if (Seqtab::readValid(h_->recordSeq, seq)) break;
        if (!retry(spins)) return Record{};
      }
    }
    return r;
  }

  // Walks the slots in order, each row read whole. In the writer's process
  // this is the table as it stands; a reader elsewhere may see a row twice or
  // miss one that moved during the walk, and takes snapshot() when it needs
  // one picture.
  class Iterator {
   public:
    Value const& operator*() const { return row_; }
    Value const* operator->() const { return &row_; }
    Iterator& operator++() {
      advance(slot_ + 1);
      return *this;
    }
    bool operator==(Iterator const& o) const { return slot_ == o.slot_; }

   private:
    friend class Table;
    Iterator(Table const* t, std::uint32_t from) : t_(t) { advance(from); }
    void advance(std::uint32_t from) {
      slot_ = from;
      if (!t_->h_) return;
      for (; slot_ < t_->h_->slotCount; ++slot_)
        if (t_->readSlot(slot_, row_)) return;
    }
    Table const* t_;
    std::uint32_t slot_ = 0;
    Value row_{};
  };
  Iterator begin() const { return Iterator(this, 0); }
  Iterator end() const { return Iterator(this, h_ ? h_->slotCount : 0); }

  // ---- writing (the writer only) ----

  SetResult set(Value const& value) {
    Key const key = Traits::key(value);
    std::uint64_t const hash = hashOf(key);
    std::uint32_t const tag = tagOf(hash);
    for (std::uint32_t i = homeOf(hash);; i = next(i)) {
      Slot& s = slot(i);
      std::uint32_t const t = Seqtab::load(s.tag);
      if (t == 0) {
        std::uint32_t const n = Seqtab::load(h_->size);
        if (n >= h_->capacity) return SetResult::full;
        writeSlot(s, tag, value);
        Seqtab::store(h_->size, n + 1, std::memory_order_release);
        headerGenerationInc(*h_);
        return SetResult::inserted;
      }
      if (t == tag) {
        Value old;
        Seqtab::loadWords(old, s.words);
        if (Traits::key(old) == key) {
          if (old == value) return SetResult::unchanged;
          writeSlot(s, tag, value);
          headerGenerationInc(*h_);
          return SetResult::replaced;
        }
      }
    }
  }

  bool erase(Key const& key) {
    std::uint64_t const hash = hashOf(key);
    std::uint32_t const tag = tagOf(hash);
    std::uint32_t i = homeOf(hash);
    for (;; i = next(i)) {
      Slot const& s = slot(i);
      std::uint32_t const t = Seqtab::load(s.tag);
      if (t == 0) return false;
      if (t == tag) {
        Value v;
        Seqtab::loadWords(v, s.words);
        if (Traits::key(v) == key) break;
      }
    }
    closeGap(i);
    Seqtab::store(h_->size, Seqtab::load(h_->size) - 1, std::memory_order_release);
    headerGenerationInc(*h_);
    return true;
  }

  // Removes every row; returns how many there were.
  std::uint32_t clear() {
    std::uint32_t const n = Seqtab::load(h_->size);
    if (n == 0) return 0;
    Seqtab::writeBegin(h_->layoutSeq);
    for (std::uint32_t i = 0; i < h_->slotCount; ++i) {
      Slot& s = slot(i);
      if (Seqtab::load(s.tag) != 0) clearSlot(s);
    }
    Seqtab::store(h_->size, 0U, std::memory_order_release);
    Seqtab::writeEnd(h_->layoutSeq);
    headerGenerationInc(*h_);
    return n;
  }

  void recordIs(Record const& r) {
    if constexpr (kRecordBytes > 0) {
      Seqtab::writeBegin(h_->recordSeq);
      Seqtab::storeWords(recordWords(), r);
      Seqtab::writeEnd(h_->recordSeq);
      headerGenerationInc(*h_);
    }
  }

 private:
  static constexpr std::uint32_t kRecordBytes = std::is_empty_v<Record> ? 0 : sizeof(Record);
  struct Slot {
    std::uint32_t seq;
    std::uint32_t tag;  // 0: empty; else tagOf(the row's hash)
    std::uint64_t words[Seqtab::wordsFor(sizeof(Value))];
  };

  explicit Table(Header* h) : h_(h), slots_(reinterpret_cast<Slot*>(reinterpret_cast<char*>(h) + h->slotsOffset)) {}

  static std::uint64_t hashOf(Key const& key) { return Vex::mixHash(static_cast<std::uint64_t>(Traits::hash(key))); }
  // A row's tag is the low half of its hash with the top bit set: never 0
  // (empty), and it holds the row's home slot (slotCount is at most 2^31),
  // so moving rows back never needs to read or hash them.
  static std::uint32_t tagOf(std::uint64_t hash) { return static_cast<std::uint32_t>(hash) | 0x80000000U; }
  std::uint32_t homeOf(std::uint64_t hash) const { return static_cast<std::uint32_t>(hash) & (h_->slotCount - 1); }
  std::uint32_t next(std::uint32_t i) const { return (i + 1) & (h_->slotCount - 1); }
  Slot& slot(std::uint32_t i) const { return slots_[i]; }
  std::uint64_t* recordWords() const {
    return reinterpret_cast<std::uint64_t*>(reinterpret_cast<char*>(h_) + h_->recordOffset);
  }

  // A reader's retry after meeting a write under way. The writer's writes are
  // a few stores long, so a reader that keeps retrying asks now and then
  // whether the writer still lives; one that died inside a write left its
  // count odd for good, and the reader gives up (false) instead of spinning.
  bool retry(std::uint32_t& spins) const {
    Seqtab::relax();
    return (++spins & 0xFFFFU) != 0 || headerWriterAlive(*h_);
  }

  // Reads slot i whole into v; false when it is empty (or cannot be read).
  bool readSlot(std::uint32_t i, Value& v) const {
    Slot const& s = slot(i);
    for (std::uint32_t spins = 0;; ) {
      std::uint32_t const seq = Seqtab::readBegin(s.seq);
      std::uint32_t const tag = Seqtab::load(s.tag);
      if (tag != 0) Seqtab::loadWords(v, s.words);
      if (Seqtab::readValid(s.seq, seq)) return tag != 0;
      if (!retry(spins)) return false;
    }
  }

  // One probe for key; false when a slot was being written (start over).
  bool probe(Key const& key, std::uint64_t hash, std::optional<Value>& found) const {
    std::uint32_t const tag = tagOf(hash);
    std::uint32_t i = homeOf(hash);
    for (std::uint32_t n = 0; n < h_->slotCount; ++n, i = next(i)) {
      Slot const& s = slot(i);
      std::uint32_t const seq = Seqtab::readBegin(s.seq);
      std::uint32_t const t = Seqtab::load(s.tag);
      if (t == 0) return Seqtab::readValid(s.seq, seq);
      if (t != tag) {
        if (!Seqtab::readValid(s.seq, seq)) return false;
        continue;
      }
      Value v;
      Seqtab::loadWords(v, s.words);
      if (!Seqtab::readValid(s.seq, seq)) return false;
      if (Traits::key(v) == key) {
        found = v;
        return true;
      }
    }
    return true;
  }

  void writeSlot(Slot& s, std::uint32_t tag, Value const& value) {
    Seqtab::writeBegin(s.seq);
    Seqtab::storeWords(s.words, value);
    Seqtab::store(s.tag, tag);
    Seqtab::writeEnd(s.seq);
  }

  void moveSlot(Slot& to, Slot const& from) {
    Seqtab::writeBegin(to.seq);
    for (std::size_t i = 0; i < Seqtab::wordsFor(sizeof(Value)); ++i) Seqtab::store(to.words[i], Seqtab::load(from.words[i]));
    Seqtab::store(to.tag, Seqtab::load(from.tag));
    Seqtab::writeEnd(to.seq);
  }

  void clearSlot(Slot& s) {
    Seqtab::writeBegin(s.seq);
    Seqtab::store(s.tag, 0U);
    Seqtab::writeEnd(s.seq);
  }

  // Empties slot hole and moves back the later rows of its probe run that
  // could no longer be found past the gap (the row at j may move into the
  // hole unless its home lies cyclically in (hole, j]).
  void closeGap(std::uint32_t hole) {
    bool moving = false;
    for (std::uint32_t j = next(hole);; j = next(j)) {
      Slot& s = slot(j);
      std::uint32_t const t = Seqtab::load(s.tag);
      if (t == 0) break;
      std::uint32_t const home = homeOf(t);
      bool const stays = hole <= j ? (hole < home && home <= j) : (hole < home || home <= j);
      if (stays) continue;
      if (!moving) {
        Seqtab::writeBegin(h_->layoutSeq);
        moving = true;
      }
      moveSlot(slot(hole), s);
      hole = j;
    }
    clearSlot(slot(hole));
    if (moving) Seqtab::writeEnd(h_->layoutSeq);
  }

  Header* h_ = nullptr;
  Slot* slots_ = nullptr;
};

}  // namespace Memtab
