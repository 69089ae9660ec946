#include "sync/OifSetShareTable.h"

namespace Fal {

void OifSetShareTable::set(MrouteLib::OifSet const* oifSet, MtableOifSet* set) {
  if (oifSet->entryOwner() != owner_ && !elsewhere_.empty()) {
    if (auto it = elsewhere_.find(oifSet); it != elsewhere_.end()) {
      it->second = set;
      return;
    }
  }
  if (!find(oifSet)) ++size_;
  if (!oifSet->entryIs(owner_, set)) elsewhere_[oifSet] = set;
}

bool OifSetShareTable::erase(MrouteLib::OifSet const* oifSet, MtableOifSet const* set) {
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

}  // namespace Fal
