#pragma once
// Fal::Mroute::MrouteCounterKeyMapTable: which hardware counter key counts
// which multicast route, published in a shared-memory table so that the
// process that reads counters finds each route's counter without asking the
// agent.
//
// The agent that programs counters opens it as writer and fills it through
// its counter hooks; readers (another process, or a reader in the agent)
// open it as reader or keyshadow. How it is open is the collection control
// attached with mrouteCounterKeyMapEntryControlIs: attaching maps the table
// (a writer creates it with MrouteCounterConstants::maxCounterTableSize
// rows). Writing through a reader's control stops the process with the
// shared-memory library's fault ("Memtab: delete on table ... opened as
// reader not allowed").
//
// Notifications. The writer's mrouteCounterKeyMapEntryIs/Del/DelAll notify
// at once, per key; Commit writes without notifying, and the Notify
// operations tell the notifiees later (one key, or the whole collection). A
// reader takes in the writer's changes with mrouteCounterKeyMapEntryRefresh,
// which notifies the collection (and, for a keyshadow, each key), the mount
// status and quiescence. Nothing is notified until notifications are turned
// on, which the factory does.
//
// Lifetime. When the last reference to the table goes, its zero-references
// notifiee hands that reference to the collection control, which releases
// the shared-memory mapping (a writer also removes the table's name) before
// the table is deleted.
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "async/MrouteCounterConstants.h"
#include "async/MrouteCounterKey.h"
#include "async/MrouteCounterKeyMapEntry.h"
#include "platform/memtab/Collection.h"
#include "platform/memtab/CollectionControl.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

class MrouteCounterKeyMapTable;

// Told when the last reference to a table goes; hands it to its control.
class FALMROUTE_EXPORT MrouteCounterKeyMapTableZeroReferencesNotifiee {
 public:
  void onZeroReferences(MrouteCounterKeyMapTable const& table) const;
};

class FALMROUTE_EXPORT MrouteCounterKeyMapTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<MrouteCounterKeyMapTable> {
   public:
    // One key's row appeared, changed or went.
    virtual void onMrouteCounterKeyMapEntry(MrouteCounterKey const&) {}
    // The collection as a whole changed.
    virtual void onMrouteCounterKeyMapEntry() {}
    // A control was attached (the table was opened again).
    virtual void onMrouteCounterKeyMapEntryControl() {}
    // The same, told inside the attaching call even to a deferred reactor.
    virtual void onMrouteCounterKeyMapEntryControlImmediate() {}
    // Readers: the table was mounted, or its writer went away.
    virtual void onMrouteCounterKeyMapEntryMountStatus() {}
    // Readers: the writer said its content is complete, or no longer is.
    virtual void onMrouteCounterKeyMapEntryQuiesced() {}
  };

  struct Rows {
    using Key = MrouteCounterKey;
    using Value = MrouteCounterKeyMapEntry;
    using Record = Memtab::NoRecord;
    static constexpr std::string_view typeName = "Fal::Mroute::MrouteCounterKeyMapEntry";
    static MrouteCounterKey const& key(MrouteCounterKeyMapEntry const& e) { return e.key; }
    static std::uint64_t hash(MrouteCounterKey const& k) { return k.hash(); }
  };
  using Collection = Memtab::Collection<Rows>;

  explicit MrouteCounterKeyMapTable(Vex::Name name);

  Vex::Name const& name() const { return name_; }
  bool notificationsActive() const { return notificationsActive_; }
  void notificationsActiveIs(bool on) { notificationsActive_ = on; }

  // ---- the collection ----
  std::optional<MrouteCounterKeyMapEntry> mrouteCounterKeyMapEntry(MrouteCounterKey const& key) const {
    return rows_.find(key);
  }
  std::uint32_t mrouteCounterKeyMapEntrySize() const { return rows_.size(); }
  std::uint32_t mrouteCounterKeyMapEntryCapacity() const { return rows_.capacity(); }
  // Every row at one moment (a reader in another process needs this; in the
  // writer's process, iteration sees the same).
  std::vector<MrouteCounterKeyMapEntry> mrouteCounterKeyMapEntries() const { return rows_.snapshot(); }
  auto begin() const { return rows_.begin(); }
  auto end() const { return rows_.end(); }

  // Writer: inserts or replaces the row under entry.key and notifies;
  // false when the table is full and the key is new.
  bool mrouteCounterKeyMapEntryIs(MrouteCounterKeyMapEntry const& entry);
  // Writer: the same without notifying.
  bool mrouteCounterKeyMapEntryCommit(MrouteCounterKeyMapEntry const& entry);
  // Writer: removes the row; false when there was none.
  bool mrouteCounterKeyMapEntryDel(MrouteCounterKey const& key);
  // Writer: removes every row, notifying each key; returns how many.
  std::uint32_t mrouteCounterKeyMapEntryDelAll();
  // Writer: whether its content is complete (readers are told).
  bool mrouteCounterKeyMapEntryQuiesced() const { return rows_.quiesced(); }
  void mrouteCounterKeyMapEntryQuiescedIs(bool quiesced) { rows_.quiescedIs(quiesced); }

  void mrouteCounterKeyMapEntryNotify(MrouteCounterKey const& key) const;
  void mrouteCounterKeyMapEntryNotifyCollection() const;
  void mrouteCounterKeyMapEntryNotifyMountStatus() const;
  void mrouteCounterKeyMapEntryNotifyQuiesced() const;

  // Readers: takes in the writer's changes since the last refresh and
  // notifies them.
  void mrouteCounterKeyMapEntryRefresh();

  // ---- how the table is open ----
  Vex::Ptr<Memtab::CollectionControl> const& mrouteCounterKeyMapEntryControl() const { return rows_.control(); }
  void mrouteCounterKeyMapEntryControlIs(Vex::Ptr<Memtab::CollectionControl> const& control);
  bool mounted() const { return rows_.mounted(); }

 protected:
  void zeroReferencesIs() override;

 private:
  Vex::Name name_;
  Collection rows_;
  MrouteCounterKeyMapTableZeroReferencesNotifiee zeroReferencesNotifiee_;
  bool notificationsActive_ = false;
};

// Creates the table (not yet open: attach a control) with notifications on.
FALMROUTE_EXPORT Vex::Ptr<MrouteCounterKeyMapTable> mrouteCounterKeyMapTableFactory(Vex::Name name);

}  // namespace Fal::Mroute
