#include "sync/MtableOifSet.h"

#include "platform/vex/Assert.h"
#include "sync/FalMrouteTrace.h"
#include "sync/MrouteSwitch.h"

namespace Fal {

MtableOifSet::MtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet, bool toCpu, MrouteSwitch* mrouteSwitch)
    : toCpu_(toCpu), oifSet_(std::move(oifSet)) {
  mrouteSwitchIs(mrouteSwitch);
}

void MtableOifSet::zombieIs(ZombieKey const& k) {
  VEX_ASSERT(!k.isZombie() || k.groupId == oifSetIndex_);
  zombieExpiry_ = k.expiryTime;
}

// Destruction always follows zeroReferencesIs, which already ran doCleanup.
// A set its switch left in the sharing table (the hook's OIF-set cache still
// serves its content) must not be found there once it is gone; nor may a set
// that outlived its switch stay in its platform set's entry slot.
MtableOifSet::~MtableOifSet() {
  if (auto* sw = mrouteSwitch()) {
    sw->mtableOifSetGone(this);
  } else if (oifSet_ && link_) {
    oifSet_->entryDel(link_.get(), this);
  }
}

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
