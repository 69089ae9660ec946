// Fal::Mroute::AsyncMrouteSwitchSm: fast reroute. An Ethernet interface going
// down queues the switch's FRR sets that arrive on it (their groups marked
// dirty, so no new route shares them), and the review pass rewrites each
// queued group in place, under its own multicast id, with the backup outputs
// in place of those on the protected interface.
#include "async/AsyncMrouteSwitchSm.h"
#include "async/AsyncMrouteTrace.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

namespace Fal::Mroute {

namespace {

constexpr char kUpdateFrr[] = "void Fal::Mroute::AsyncMrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId)";

// Where the last review pass ran out of time. One position for the whole
// process, not one per chip: every chip's pass starts from it, and the single
// event loop guarantees that passes never interleave. Held by reference so
// that the set cannot be reused for another while it is remembered; never
// destroyed, so no OIF set is released during process exit.
Vex::Ptr<MrouteLib::OifSet const>& frrReviewResumePoint() {
  static auto* point = new Vex::Ptr<MrouteLib::OifSet const>();
  return *point;
}

// Operational statuses after which fast-reroute outputs take over.
bool isFrrTrigger(Interface::IntfOperStatus s) {
  return s == Interface::intfOperDown || s == Interface::intfOperLowerLayerDown;
}

}  // namespace

void AsyncMrouteSwitchSm::handleOperStatus(Netcore::IntfId const& intfId, Interface::IntfOperStatus operStatus) {
  if (!initialized_) {
    FAL_ASYNC_TRACE(2, "SM uninitialized, ignore event");
    return;
  }
  FAL_ASYNC_TRACE(8, "Intf: " << intfId << ", operStatus: " << operStatus);
  RING_TRACE("AsyncMrouteSwitchSm::handleOperStatus", "Intf: " << intfId << ", operStatus: " << operStatus);
  if (isFrrTrigger(operStatus)) updateFrrMtableOif(intfId);
}

void AsyncMrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId const& intfId) {
  auto const& frr = mrouteSwitch_->frrMtableOifSet();
  FAL_ASYNC_TRACE(8, kUpdateFrr << " FrrSwitch from " << intfId << ", frrOifs " << frr.size());
  RING_TRACE("AsyncMrouteSwitchSm::updateFrrMtableOif", " FrrSwitch from " << intfId << ", frrOifs " << frr.size());
  for (auto it = frr.iterator(); !it.done();) {
    MrouteLib::OifSet const* const oifSet = it.key();
    ++it;  // before the member may leave the collection
    updateFrrMtableOif(intfId, oifSet);
  }
  handleClock();
}

void AsyncMrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId const& intfId, MrouteLib::OifSet const* oifSet) {
  // Held: leaving frrMtableOifSet may drop the last other reference.
  Vex::Ptr<MrouteLib::OifSet const> const held(oifSet);
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  Netcore::IntfId const currentIif = pvs.currentIif();
  if (currentIif != intfId) {
    FAL_ASYNC_TRACE(8, kUpdateFrr << " skip frrMtableOif " << pvs);
    RING_TRACE("AsyncMrouteSwitchSm::updateFrrMtableOif", " skip Frr, currentIif " << currentIif);
    return;
  }
  if (pvs.portVlanFrrSize() == 0) {
    FAL_ASYNC_TRACE(8, "portVlanFrrs() == 0");
    return;
  }
  AsyncMtableOifSet* const set = mrouteSwitch_->inUseOifSet(oifSet);
  if (!set) {
    FAL_ASYNC_TRACE(8, "key != oif");
    mrouteSwitch_->frrMtableOifSetDel(oifSet);
    return;
  }
  if (set->isZombie()) {
    FAL_ASYNC_TRACE(8, "zombie");
    mrouteSwitch_->frrMtableOifSetDel(oifSet);
    return;
  }
  // Routes with these outputs must not share the group while it is rewritten.
  set->dirtyIs(true);
  mrouteSwitch_->frrMtableOifSetDel(oifSet);
  mrouteSwitch_->frrProcessingOifSetIs(oifSet);
}

// A set that was a zombie when its interface failed missed that failure. It
// is watched again from its resurrection on; if the interface is down now, it
// is queued at once, and the next turn's pass rewrites it.
void AsyncMrouteSwitchSm::handleFrrOifSetResurrected(MrouteLib::OifSet const* oifSet) {
  if (!initialized_ || !mrouteSwitch_->frrMtableOifSet().contains(oifSet)) return;
  Netcore::IntfId const currentIif = oifSet->portVlanSet().currentIif();
  auto const status = ethIntfStatusDir_ && !currentIif.isEmpty() ? ethIntfStatusDir_->intfStatus(currentIif) : nullptr;
  if (!status || !isFrrTrigger(status->operStatus())) return;
  updateFrrMtableOif(currentIif, oifSet);
  if (mrouteSwitch_->frrProcessingOifSet().contains(oifSet)) reviewClockIsNow();
}

void AsyncMrouteSwitchSm::reviewClockIsNow() {
  if (!clock_) clockIs(Vex::ActivityManager::current()->clockNew());
  clock_->timeMinIs(now());
}

void AsyncMrouteSwitchSm::handleClock() {
  auto& resumePoint = frrReviewResumePoint();
  auto const& processing = mrouteSwitch_->frrProcessingOifSet();
  FAL_ASYNC_TRACE(8, "review FrrProcessingOifSets: " << " frrProcessingOifSets: " << processing.size());
  auto it = resumePoint ? processing.iterator(resumePoint.get()) : processing.iterator();
  Vex::Seconds const deadline = now() + kFrrReviewBudget;
  for (;;) {
    if (it.done()) {
      resumePoint = nullptr;
      break;
    }
    MrouteLib::OifSet const* const key = it.key();
    if (now() >= deadline) {
      resumePoint = Vex::Ptr<MrouteLib::OifSet const>(key);
      reviewClockIsNow();
      return;
    }
    ++it;  // before the entry leaves the collection
    AsyncMtableOifSet* const set = mrouteSwitch_->inUseOifSet(key);
    if (!set) {
      FAL_ASYNC_TRACE(8, "oif not in inUseOifSet:" << " frrOifSet not in use ");
      mrouteSwitch_->frrProcessingOifSetDel(key);
      continue;
    }
    if (set->isZombie()) {
      FAL_ASYNC_TRACE(8, "zombie" << " frrOifSet becomes zombie, mcastId: " << set->multicastId());
      mrouteSwitch_->frrProcessingOifSetDel(key);
      continue;
    }
    rewriteFrrGroup(*set);
  }
  // A pass that began at another chip's position skipped the sets before it;
  // they wait for this chip's next pass.
  if (!processing.empty()) reviewClockIsNow();
}

void AsyncMrouteSwitchSm::rewriteFrrGroup(AsyncMtableOifSet& set) {
  Vex::Ptr<MrouteLib::OifSet const> const current = set.oifSet();
  MrouteLib::PortVlanSet const& original = current->portVlanSet();
  MrouteLib::PortVlanSet newPvSet = original.withFrrApplied();
  for (MrouteLib::PortVlan const& pv : newPvSet.portVlan()) FAL_ASYNC_TRACE(8, "add port " << pv);
  FAL_ASYNC_TRACE(8, "original pvSet" << ' ' << original);
  if (newPvSet.portVlans() == 0) FAL_ASYNC_TRACE(8, "pvSet.portVlans() is 0");
  std::uint32_t const mcastId = set.multicastId();
  FAL_ASYNC_TRACE(8, ": Overwrite with new pvSet " << newPvSet << " to mcastId: " << mcastId);
  RING_TRACE("AsyncMrouteSwitchSm::handleClock", " Overwrite with pvSet " << newPvSet << " to mcastId: " << mcastId);
  VEX_ASSERT_MSG(mrouteSwitch_->mcastIdToOifSet(mcastId), "mgroup");

  Vex::Ptr<MrouteLib::OifSet const> newOifSet;
  if (auto* registry = current->owner()) {
    newOifSet = registry->oifSetIs(std::move(newPvSet));
  } else {
    // The route programmer's registry has gone (shutdown): a set of our own
    // is enough to carry the content to the hook.
    MrouteLib::OifSetRegistry detached;
    newOifSet = detached.oifSetIs(std::move(newPvSet));
  }
  set.dirtyIs(true);
  helper_->doUpdateMulticastGroupInPlace(newOifSet, mcastId);
  mrouteSwitch_->frrProcessingOifSetDel(current.get());
}

}  // namespace Fal::Mroute
