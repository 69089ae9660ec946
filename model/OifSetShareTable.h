#pragma once
// Fal::OifSetShareTable: one switch's sharing table, the live record
// (Fal::MtableOifSet, Fal::Mroute::AsyncMtableOifSet) that programs each
// platform OIF set on its chip.
//
// An entry is kept in the platform set's own entry slot when the switch
// holds that slot (the first chip to program a set does), so a share lookup
// reads the set the route programmer hands in and then the entry, with no
// table between them: at a million sets that is one cold read fewer. Sets
// whose slot another chip holds are kept in a hash map of the switch's own.
// An entry stays where it was entered until it is removed. A set that
// outlives its switch frees the slot itself when it goes (the record's
// destructor).
#include <absl/container/flat_hash_map.h>

#include <cstddef>

#include "platform/mroutelib/OifSet.h"

namespace Fal {

template <class Record>
class OifSetShareTable {
 public:
  // owner: the switch's token in the sets' entry slots, an address that stays
  // its own while any set of the switch lives.
  explicit OifSetShareTable(void const* owner) : owner_(owner) {}
  OifSetShareTable(OifSetShareTable const&) = delete;
  OifSetShareTable& operator=(OifSetShareTable const&) = delete;

  // The entry for oifSet, or null.
  Record* find(MrouteLib::OifSet const* oifSet) const {
    if (oifSet->entryOwner() == owner_) return static_cast<Record*>(oifSet->entry(owner_));
    if (elsewhere_.empty()) return nullptr;
    auto it = elsewhere_.find(oifSet);
    return it == elsewhere_.end() ? nullptr : it->second;
  }
  // Enters set for oifSet, replacing the entry there was.
  void set(MrouteLib::OifSet const* oifSet, Record* set) {
    if (oifSet->entryOwner() != owner_ && !elsewhere_.empty()) {
      if (auto it = elsewhere_.find(oifSet); it != elsewhere_.end()) {
        it->second = set;
        return;
      }
    }
    if (!find(oifSet)) ++size_;
    if (!oifSet->entryIs(owner_, set)) elsewhere_[oifSet] = set;
  }
  // Removes oifSet's entry when it is set; false when it is not.
  bool erase(MrouteLib::OifSet const* oifSet, Record const* set) {
    if (oifSet->entryOwner() == owner_) {
      if (oifSet->entry(owner_) != set) return false;
      oifSet->entryDel(owner_, set);
    } else {
      auto it = elsewhere_.find(oifSet);
      if (it == elsewhere_.end() || it->second != set) return false;
      elsewhere_.erase(it);
    }
    --size_;
    return true;
  }
  std::size_t size() const { return size_; }

 private:
  void const* owner_;
  absl::flat_hash_map<MrouteLib::OifSet const*, Record*> elsewhere_;
  std::size_t size_ = 0;
};

}  // namespace Fal
