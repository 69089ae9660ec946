#pragma once
// Memtab::Collection: a shared-memory table as an entity's collection sees it,
// through the control that says how it is open.
//
// The entity that owns a Collection names its operations and turns what
// happens into its own notifications: the writer's mutators notify at once;
// a reader in another process learns of changes by refresh(), which compares
// the table's generation with the last one it saw (one load when nothing
// changed) and reports what changed: the mount status, the writer's
// quiescence flag, the collection as a whole, and for a keyshadow reader
// each key whose row appeared, changed or went.
//
// Writing through a control that is not a writer is a fault: it stops the
// process through the framework's fatal handler with
// "Memtab: <operation> on table '<name>' opened as <mode> not allowed".
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>

#include "platform/memtab/CollectionControl.h"
#include "platform/memtab/Header.h"
#include "platform/memtab/Table.h"
#include "platform/vex/Assert.h"

namespace Memtab {

template <class Traits>
class Collection {
 public:
  using Key = typename Traits::Key;
  using Value = typename Traits::Value;
  using Record = typename Traits::Record;
  using Rows = Table<Traits>;

  struct Changes {
    bool mountStatus = false;
    bool quiesced = false;
    bool collection = false;
    std::vector<Key> keys;  // keyshadow readers only
  };

  Collection() = default;
  Collection(Collection const&) = delete;
  Collection& operator=(Collection const&) = delete;

  // Opens the table through control in its mode: a writer formats a table of
  // capacity rows, a reader attaches to the writer's (whose capacity counts).
  void controlIs(Vex::Ptr<CollectionControl> const& control, std::uint32_t capacity) {
    if (control == control_) return;
    if (control_) control_->mappingDel();
    table_ = Rows();
    shadow_.clear();
    seenGeneration_ = 0;
    seenQuiesced_ = false;
    control_ = control;
    capacity_ = capacity;
    if (!control_) return;
    control_->collectionAttach(Traits::typeName.data());
    if (control_->writable()) {
      if (void* m = control_->mappingIs(Rows::bytesFor(capacity))) table_ = Rows::format(m, capacity);
    } else {
      attach();
    }
  }
  Vex::Ptr<CollectionControl> const& control() const { return control_; }
  bool writable() const { return control_ && control_->writable(); }
  bool mounted() const { return table_.valid(); }

  // ---- reading ----
  std::optional<Value> find(Key const& key) const { return mounted() ? table_.find(key) : std::nullopt; }
  std::uint32_t size() const { return mounted() ? table_.size() : 0; }
  std::uint32_t capacity() const { return mounted() ? table_.capacity() : capacity_; }
  std::uint64_t generation() const { return mounted() ? table_.generation() : 0; }
  bool quiesced() const { return mounted() && (headerState(table_.header()) & kStateQuiesced) != 0; }
  Record record() const { return mounted() ? table_.record() : Record{}; }
  std::vector<Value> snapshot() const { return mounted() ? table_.snapshot() : std::vector<Value>(); }
  typename Rows::Iterator begin() const { return table_.begin(); }
  typename Rows::Iterator end() const { return table_.end(); }

  // ---- writing (writer only) ----
  SetResult set(Value const& value) {
    writerCheck("insert");
    return mounted() ? table_.set(value) : SetResult::full;
  }
  bool erase(Key const& key) {
    writerCheck("delete");
    return mounted() && table_.erase(key);
  }
  std::uint32_t clear() {
    writerCheck("delete-all");
    return mounted() ? table_.clear() : 0;
  }
  void recordIs(Record const& r) {
    writerCheck("control record update");
    if (mounted()) table_.recordIs(r);
  }
  void quiescedIs(bool q) {
    writerCheck("quiescence update");
    if (mounted() && quiesced() != q) headerStateIs(const_cast<Header&>(table_.header()), kStateQuiesced, q);
  }

  // ---- readers: what changed since the last refresh ----
  Changes refresh() {
    Changes c;
    if (!control_ || writable()) return c;
    bool const was = mounted();
    bool dropped = false;
    if (was && control_->stale()) {
      table_ = Rows();
      control_->mappingDel();
      dropped = true;
    }
    if (!mounted()) attach();
    c.mountStatus = dropped || was != mounted();
    std::uint64_t const gen = generation();
    if (!c.mountStatus && gen == seenGeneration_) return c;
    seenGeneration_ = gen;
    c.collection = true;
    if (quiesced() != seenQuiesced_) {
      seenQuiesced_ = !seenQuiesced_;
      c.quiesced = true;
    }
    if (control_->mode() == Mode::keyshadow) shadowRefresh(c.keys);
    return c;
  }

 private:
  struct ShadowHash {
    std::size_t operator()(Key const& k) const { return static_cast<std::size_t>(Traits::hash(k)); }
  };

  void attach() {
    void const* m = control_->mappingIs(0);
    if (!m) return;
    std::string why;
    table_ = Rows::attach(m, control_->segment().bytes(), &why);
    if (!table_.valid()) {
      control_->mappingDel();
      control_->errorIs(why);
    }
  }

  void writerCheck(char const* operation) const {
    if (writable()) return;
    Vex::fatal(std::string("Memtab: ") + operation + " on table '" + (control_ ? control_->name() : std::string()) +
               "' opened as " + (control_ ? Vex::enumName(control_->mode()) : std::string("nothing")) + " not allowed");
  }

  void shadowRefresh(std::vector<Key>& keys) {
    absl::flat_hash_map<Key, Value, ShadowHash> now;
    for (Value const& v : snapshot()) now.emplace(Traits::key(v), v);
    for (auto const& [k, v] : now) {
      auto it = shadow_.find(k);
      if (it == shadow_.end() || !(it->second == v)) keys.push_back(k);
    }
    for (auto const& [k, v] : shadow_)
      if (!now.contains(k)) keys.push_back(k);
    shadow_ = std::move(now);
  }

  Vex::Ptr<CollectionControl> control_;
  Rows table_;
  absl::flat_hash_map<Key, Value, ShadowHash> shadow_;
  std::uint64_t seenGeneration_ = 0;
  std::uint32_t capacity_ = 0;
  bool seenQuiesced_ = false;
};

}  // namespace Memtab
