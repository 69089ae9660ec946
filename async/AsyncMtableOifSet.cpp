#include "async/AsyncMtableOifSet.h"

#include <ostream>

#include "async/AsyncMrouteSwitch.h"
#include "async/AsyncMrouteTrace.h"

namespace Fal::Mroute {

AsyncMtableOifSet::AsyncMtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet, bool toCpu, std::uint32_t multicastId,
                                     AsyncMrouteSwitch* mrouteSwitch)
    : multicastId_(multicastId),
      toCpu_(toCpu),
      oifSet_(std::move(oifSet)),
      link_(mrouteSwitch ? mrouteSwitch->link() : nullptr) {}

// The record was freed when its last reference went; asking again only
// traces. Its switch must not keep naming it once it is gone, nor its OIF
// set once the switch went first.
AsyncMtableOifSet::~AsyncMtableOifSet() {
  doCleanup();
  if (auto* sw = mrouteSwitch()) {
    sw->mtableOifSetGone(this);
  } else if (oifSet_ && link_) {
    oifSet_->entryDel(link_.get(), this);
  }
}

void AsyncMtableOifSet::usedInHwIs(bool v) {
  if (usedInHw_ == v) return;
  usedInHw_ = v;
  notify(&Notifiee::onUsedInHw);
}

void AsyncMtableOifSet::skipDeleteIs(bool v) {
  if (skipDelete_ == v) return;
  skipDelete_ = v;
  notify(&Notifiee::onSkipDelete);
}

void AsyncMtableOifSet::deletedIs(bool v) {
  if (deleted_ == v) return;
  deleted_ = v;
  notify(&Notifiee::onDeleted);
}

void AsyncMtableOifSet::zombieIs(ZombieKey const& k) {
  if (zombie_ == k) return;
  zombie_ = k;
  notify(&Notifiee::onZombie);
}

void AsyncMtableOifSet::zombieLifetimeIs(Vex::Seconds s) {
  if (zombieLifetime_ == s) return;
  zombieLifetime_ = s;
  notify(&Notifiee::onZombieLifetime);
}

void AsyncMtableOifSet::dirtyIs(bool v) {
  if (dirty_ == v) return;
  dirty_ = v;
  notify(&Notifiee::onDirty);
}

void AsyncMtableOifSet::doCleanup() {
  FAL_ASYNC_TRACE(8, "AsyncMtableOifSet" << "::" << "doCleanup" << "( " << *this << " )");
  FAL_ASYNC_TRACE(7, " oifset " << oifSet_->pretty());
  if (auto* sw = mrouteSwitch()) sw->handleFreeMtableOifSet(Vex::Ptr<MrouteLib::MtableOifSet>(this));
}

Vex::Ptr<AsyncMtableOifSet> asyncMtableOifSetFactory(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, bool toCpu,
                                                     std::uint32_t multicastId, AsyncMrouteSwitch* mrouteSwitch) {
  return Vex::make<AsyncMtableOifSet>(oifSet, toCpu, multicastId, mrouteSwitch);
}

std::ostream& operator<<(std::ostream& os, AsyncMtableOifSet const& set) {
  return os << "AsyncMtableOifSet(mcastId " << set.multicastId() << ", usedInHw " << set.usedInHw() << ", dirty "
            << set.dirty() << ", skipDelete " << set.skipDelete() << ", deleted " << set.deleted() << ", zombie "
            << set.zombie() << ")";
}

}  // namespace Fal::Mroute
