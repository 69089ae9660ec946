#include "sync/MtableOifSet.h"

#include "sync/FalMrouteTrace.h"
#include "sync/MrouteSwitch.h"

namespace Fal {

MtableOifSet::MtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet, bool toCpu, MrouteSwitch* mrouteSwitch)
    : oifSet_(std::move(oifSet)), mrouteSwitch_(mrouteSwitch), toCpu_(toCpu) {
  if (mrouteSwitch_) mrouteSwitch_->mtableOifSetLiveIs(this, true);
}

// Destruction always follows zeroReferencesIs, which already ran doCleanup.
MtableOifSet::~MtableOifSet() {
  if (mrouteSwitch_) mrouteSwitch_->mtableOifSetLiveIs(this, false);
}

void MtableOifSet::doCleanup() {
  FAL_SYNC_TRACE(2, "doCleanup" << " (oifset): " << oifSetIndex_);
  if (mrouteSwitch_) mrouteSwitch_->handleFreeMtableOifSet(Vex::Ptr<MtableOifSet>(this));
}

Vex::Ptr<MtableOifSet> mtableOifSetFactory(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, bool toCpu,
                                           MrouteSwitch* mrouteSwitch) {
  return Vex::make<MtableOifSet>(oifSet, toCpu, mrouteSwitch);
}

}  // namespace Fal
