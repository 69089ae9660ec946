#include "sync/MtableOifSet.h"

#include "sync/FalMrouteTrace.h"
#include "sync/MrouteSwitch.h"

namespace Fal {

MtableOifSet::MtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet, bool toCpu, MrouteSwitch* mrouteSwitch)
    : oifSet_(std::move(oifSet)), toCpu_(toCpu) {
  mrouteSwitchIs(mrouteSwitch);
}

// Destruction always follows zeroReferencesIs, which already ran doCleanup.
MtableOifSet::~MtableOifSet() = default;

void MtableOifSet::mrouteSwitchIs(MrouteSwitch* s) {
  if (s) {
    link_ = s->link();
  } else {
    link_ = nullptr;
  }
}

void MtableOifSet::doCleanup() {
  FAL_SYNC_TRACE(2, "doCleanup" << " (oifset): " << oifSetIndex_);
  if (auto* sw = mrouteSwitch()) sw->handleFreeMtableOifSet(Vex::Ptr<MtableOifSet>(this));
}

Vex::Ptr<MtableOifSet> mtableOifSetFactory(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, bool toCpu,
                                           MrouteSwitch* mrouteSwitch) {
  return Vex::make<MtableOifSet>(oifSet, toCpu, mrouteSwitch);
}

}  // namespace Fal
