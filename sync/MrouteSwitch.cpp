#include "sync/MrouteSwitch.h"

#include <absl/hash/hash.h>

#include <algorithm>
#include <iomanip>
#include <vector>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "sync/FalMrouteTrace.h"

namespace Fal {

using MrouteLib::RouteHandle;
using OptionalHook = FalHelper::MrouteSmHelper::OptionalHook;

namespace {
constexpr std::uint32_t kDirtyPredecessorIndex = 0xFFFFFFFE;
constexpr std::uint16_t kRpaIndexUnset = 0xFFFF;
constexpr std::uint16_t kRpaIndexInvalid = 0xFFFE;

// Route types that fall back to the default VRF when their VRF has no id.
bool defaultsToVrfZero(Routing::Multicast::Fib::RouteKeyType t) {
  auto v = static_cast<int>(t);
  return v >= 1 && v <= 3;
}

struct Hex {
  std::uint32_t v;
};
std::ostream& operator<<(std::ostream& os, Hex h) {
  auto flags = os.flags();
  os << std::hex << h.v;
  os.flags(flags);
  return os;
}
}  // namespace

MrouteSwitch::MrouteSwitch(std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
                           Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper, Vex::Ptr<Ip::Status const> const& ipStatus,
                           Vex::Ptr<HwStatus const> const& mfibHwStatus, Vex::Ptr<HwStatus const> const& mfib6HwStatus)
    : MrouteLib::SwitchChip("MrouteSwitch" + std::to_string(switchId), switchId),
      acsd_(acsd),
      l3Status_(l3Status),
      mrouteHelper_(mrouteHelper),
      ipStatus_(ipStatus),
      mfibHwStatus_(mfibHwStatus),
      mfib6HwStatus_(mfib6HwStatus),
      link_(Vex::make<MrouteSwitchLink>(this)) {
  handleResultIs(RouteHandle::invalid());
  handleInitialized();
}

MrouteSwitch::~MrouteSwitch() {
  doCleanup();
  link_->mrouteSwitchDel();
}

Vex::Seconds MrouteSwitch::now() const { return Vex::ActivityManager::current()->now(); }

// On every change: the data is held only when a request is really made.
void MrouteSwitch::requestVerify() {
  VerifyData* const v = acsd_ ? acsd_->verifyData().get() : nullptr;
  if (v && v->verify()) Vex::Ptr<VerifyData>(v)->doRequestVerify();
}

Vex::Ptr<Route> MrouteSwitch::route(RouteHandle h) const { return findRoute(h); }

std::optional<VrfId> MrouteSwitch::vrfIdOf(L3::VrfName const& vrfName) {
  std::uint64_t const version = l3Status_->vrfMapVersion();
  if (version != lastVrfMapVersion_ || !(vrfName == lastVrfName_)) {
    lastVrfId_ = l3Status_->vrfNameToId(vrfName);
    lastVrfName_ = vrfName;
    lastVrfMapVersion_ = version;
  }
  return lastVrfId_;
}

Vex::Ptr<Boundary> MrouteSwitch::boundary(RouteHandle h) const {
  auto it = boundary_.find(h);
  return it == boundary_.end() ? nullptr : it->second;
}

RouteHandle MrouteSwitch::routeKeyToHandle(RouteKeyVlanId const& k) const {
  Route const* r = routeByKey(k);
  return r ? r->routeHandle() : RouteHandle::invalid();
}

Route* MrouteSwitch::routeByKey(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan) const {
  auto it = routeKeyToHandle_.find(RouteKeyProbe(key, vlan));
  return it == routeKeyToHandle_.end() ? nullptr : *it;
}

MtableOifSetPtr MrouteSwitch::inUseOifSet(MrouteLib::OifSet const* oifSet) const {
  return MtableOifSetPtr(inUseOifSet_.find(oifSet));
}

void MrouteSwitch::mtableOifSetGone(MtableOifSet const* set) { inUseOifSet_.erase(set->oifSet().get(), set); }

void MrouteSwitch::zombieOifSetIs(Vex::Ptr<MtableOifSet> const& set) {
  ZombieKey const key = set->zombie();
  if (zombieOifSet_.set(key, set)) notify(&Notifiee::onZombieOifSet, key);
}

void MrouteSwitch::zombieOifSetDel(ZombieKey const& key) {
  // The collection detaches the set before releasing it, so a release that
  // comes back here to remove it again finds it gone.
  if (zombieOifSet_.erase(key)) notify(&Notifiee::onZombieOifSet, key);
}

void MrouteSwitch::zombieOifSetDelAll() {
  while (auto const* first = zombieOifSet_.first()) zombieOifSetDel(first->first);
}

void MrouteSwitch::handleInitialized() {
  FAL_SYNC_TRACE(2, "handleInitialized" << ", switch # " << switchId());
  if (!initialized_) initialized_ = true;
}

void MrouteSwitch::doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId, bool bridge,
                                   Vex::Ptr<MrouteLib::MtableOifSet> mtableOifSet, bool fastdrop, bool noRpf,
                                   std::uint16_t rpaId, L3::VrfName const& vrfName) {
  auto const* oifSet = static_cast<MtableOifSet const*>(mtableOifSet.get());
  FAL_SYNC_TRACE(2, "doAllocateRoute"
                        << " , Key: " << key << ", AcceptingVlanId: " << acceptingVlanId << ", Bridge: " << bridge
                        << ", fastDrop: " << fastdrop << ", noRpf" << noRpf << ", rpaId: " << rpaId << ", oifSet: "
                        << (oifSet ? oifSet->oifSetIndex() : invalidOifSetIndex()) << ", VRF: " << vrfName);
  if (noRpf) VEX_ASSERT(acceptingVlanId == Bridging::VlanIdOrNone( 0 ));
  handleResultIs(RouteHandle::invalid());
  if (!initialized_) return;

  std::uint16_t vrfId = 0;
  if (auto id = vrfIdOf(vrfName)) {
    vrfId = static_cast<std::uint16_t>(*id);
  } else if (!defaultsToVrfZero(key.kind())) {
    FAL_SYNC_TRACE(2, "No mapping for vrfName in L3Status for programming routeType: " << key.kind());
    return;
  }

  if (bridge) {
    RouteHandle const handle =
        mrouteHelper_->doAllocateMroute(switchId(), vrfId, key, acceptingVlanId, true, 0, false, 0);
    if (handle.isNull()) {
      if (!mrouteHelper_->mrouteBoundaryFull(switchId())) return;
      FAL_SYNC_TRACE(2, "Full boundary table");
      if (boundaryTcamFree()) boundaryTcamFreeIs(false);
      return;
    }
    VEX_ASSERT(!boundary( handle ));
    auto bnd = Vex::make<Boundary>(handle, key, Bridging::VlanId(acceptingVlanId.value()));
    bnd->vrfIdIs(vrfId);
    boundary_.emplace(handle, std::move(bnd));
    handleResultIs(handle);
    return;
  }

  if (key.source().address().isMulticast()) {
    FAL_SYNC_TRACE(2, "Multicast source address for mroute");
    return;
  }
  std::uint32_t const oifSetIndex = oifSet ? oifSet->oifSetIndex() : 0;
  if (rpaId == kRpaIndexInvalid) return;
  if (rpaId == kRpaIndexUnset) rpaId = 0;
  RouteHandle const handle =
      noRpf ? mrouteHelper_->doAllocateMrouteNoRpf(switchId(), vrfId, key, false, oifSetIndex, fastdrop, rpaId)
            : mrouteHelper_->doAllocateMroute(switchId(), vrfId, key, acceptingVlanId, false, oifSetIndex, fastdrop, rpaId);
  if (handle.isNull()) {
    if (!mrouteHelper_->mrouteFull(switchId())) return;
    FAL_SYNC_TRACE(2, "Full mroute table");
    if (mrouteTcamFree()) mrouteTcamFreeIs(false);
    return;
  }
  VEX_ASSERT_MSG(!findRoute(handle), "!route( handle )");
  auto r = routeFactory(handle, key, acceptingVlanId);
  r->fastdropIs(fastdrop);
  r->vrfIdIs(vrfId);
  r->rpaIdIs(rpaId);
  if (auto [it, inserted] = routeKeyToHandle_.insert(r.get()); !inserted) {
    // The same key and VLAN in another VRF: the newest route takes the entry.
    routeKeyToHandle_.erase(it);
    routeKeyToHandle_.insert(r.get());
  }
  route_.insert(handle.value(), std::move(r));
  handleResultIs(handle);
  requestVerify();
}

void MrouteSwitch::doSetMtableOifSet(RouteHandle handle, Vex::Ptr<MrouteLib::MtableOifSet> mtableOifSet) {
  auto oifSet = Vex::ptrCast<MtableOifSet>(mtableOifSet);
  Vex::Ptr<Route> const mroute = findRoute(handle);  // held across the hook
  VEX_ASSERT(mroute);
  std::uint32_t const oifSetIndex = oifSet ? oifSet->oifSetIndex() : invalidOifSetIndex();
  FAL_SYNC_TRACE(2, "doSetMtableOifSet"
                        << ", vrfId: " << mroute->vrfId() << ", key: " << mroute->key() << ", handle: " << handle
                        << ", oifSetIndex: " << oifSetIndex << ", fastdrop: " << mroute->fastdrop()
                        << ", vlan: " << mroute->acceptingVlanId());
  if (mroute->mtableOifSet() == oifSet) {
    FAL_SYNC_TRACE(2, "Mroute unchanged, nothing to do");
    return;
  }
  mrouteHelper_->doSetMtableOifSet(switchId(), mroute->vrfId(), handle, mroute, oifSetIndex);
  mroute->mtableOifSetIs(std::move(oifSet));
  requestVerify();
}

void MrouteSwitch::doDeleteRoute(RouteHandle handle) {
  FAL_SYNC_TRACE(2, "doDeleteRoute" << ", handle: " << handle);
  if (Vex::Ptr<Route> const mroute = findRoute(handle)) {
    mrouteHelper_->doDeleteMroute(switchId(), mroute->vrfId(), handle, mroute);
    // By key and VLAN: whichever route holds the entry, it goes.
    routeKeyToHandle_.erase(mroute.get());
    // Detach first: dropping the route may free its set, which calls back here.
    Vex::Ptr<Route> const detached = route_.extract(handle.value());
  } else {
    auto bnd = boundary(handle);
    VEX_ASSERT(bnd);
    mrouteHelper_->doDeleteMrouteBoundary(switchId(), bnd->vrfId(), handle, bnd);
    boundary_.erase(handle);
    if (!boundaryTcamFree() && !mrouteHelper_->mrouteBoundaryFull(switchId())) {
      FAL_SYNC_TRACE(2, "Boundary entries now available - set boundaryTcamFree true");
      boundaryTcamFreeIs(true);
    }
  }
  requestVerify();
}

void MrouteSwitch::doAllocateMtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet) {
  auto const& pvs = oifSet->portVlanSet();
  FAL_SYNC_TRACE(2, "doAllocateMtableOifSet" << ", PortVlanSet: " << pvs.pretty());
  oifSetResultIs(nullptr);
  if (oifSet->reachesNoPort()) {
    std::uint32_t const oifSetIndex = mrouteHelper_->doAllocateMtableOifSet(switchId(), 0, oifSet);
    VEX_ASSERT(oifSetIndex != invalidOifSetIndex());
    FAL_SYNC_TRACE(2, "Empty port vlan set. OifSetIndex: " << oifSetIndex);
    auto set = mtableOifSetFactory(oifSet, pvs.toCpu(), this);
    set->oifSetIndexIs(oifSetIndex);
    oifSetResultIs(std::move(set));
    return;
  }
  FAL_SYNC_TRACE(2, "Non-empty port vlan set");
  MtableOifSetPtr const found = inUseOifSet(oifSet.get());
  if (found && !found->dirty()) {
    FAL_SYNC_TRACE(2, "Found an existing oif set");
    RING_TRACE_TEXT("doAllocateMtableOifSet", "Foung an existing oif set");
    Vex::Ptr<MtableOifSet> set(found.get());  // holds it while it leaves the zombie collection
    if (set->isZombie()) {
      bool const usable = mrouteHelper_->isDefault(OptionalHook::verifyZombieUsable) ||
                          mrouteHelper_->verifyZombieUsable(pvs, set->oifSetIndex());
      if (!usable) {
        if (!mrouteHelper_->isDefault(OptionalHook::addOifSetCache)) mrouteHelper_->addOifSetCache(oifSet);
        FAL_SYNC_TRACE(2, "Skip resurrecting zombie oifSetIndex: 0x " << Hex{set->oifSetIndex()});
        allocateNewMtableOifSet(oifSet, 0);
        return;
      }
      FAL_SYNC_TRACE(2, "Resurrecting zombie oifSetIndex: 0x " << Hex{set->oifSetIndex()});
      zombieOifSetDel(set->zombie());
      set->zombieIs(ZombieKey());
      // A failure of its interface while it was a zombie took it off the
      // watch; a route that comes back must not lose its protection.
      if (!pvs.intfId().isEmpty() && !frrMtableOifSet_.contains(oifSet.get())) {
        FAL_SYNC_TRACE(2, " Adding Frr oifSetIndex: " << set->oifSetIndex());
        frrMtableOifSet_.set(oifSet.get(), found);
        notify(&Notifiee::onFrrOifSetResurrected, oifSet.get());
      }
    }
    FAL_SYNC_TRACE(2, "Sharing existing oifSetIndex: " << set->oifSetIndex());
    oifSetResultIs(std::move(set));
    requestVerify();
    return;
  }
  std::uint32_t indexArgument = 0;
  if (found) {
    FAL_SYNC_TRACE(2, "Existing dirty oifSetIndex: " << found->oifSetIndex());
    indexArgument = kDirtyPredecessorIndex;
  }
  allocateNewMtableOifSet(oifSet, indexArgument);
}

void MrouteSwitch::allocateNewMtableOifSet(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, std::uint32_t indexArgument) {
  if (mrouteHelper_->mtableFull(switchId())) {
    FAL_SYNC_TRACE(2, "No multicast group available. Skipping oif allocation");
    if (mtableFree()) mtableFreeIs(false);
    return;
  }
  std::uint32_t const oifSetIndex = mrouteHelper_->doAllocateMtableOifSet(switchId(), indexArgument, oifSet);
  if (oifSetIndex == invalidOifSetIndex()) {
    // Deliberately leaves mtableFree alone: the full-table query said there was room.
    FAL_SYNC_TRACE(2, "Full multicast replication table. Skipping oif allocation");
    return;
  }
  VEX_ASSERT(oifSetIndexColl( oifSetIndex ) == false);
  oifSetIndexColl_.insert(oifSetIndex, true);
  auto const& pvs = oifSet->portVlanSet();
  auto set = mtableOifSetFactory(oifSet, pvs.toCpu(), this);
  set->oifSetIndexIs(oifSetIndex);
  inUseOifSet_.set(oifSet.get(), set.get());
  FAL_SYNC_TRACE(2, "Allocated oifSetIndex: " << oifSetIndex);
  if (!pvs.intfId().isEmpty()) {
    FAL_SYNC_TRACE(2, " Adding Frr oifSetIndex: " << oifSetIndex);
    frrMtableOifSet_.set(oifSet.get(), MtableOifSetPtr(set.get()));
  }
  oifSetResultIs(std::move(set));
  requestVerify();
}

void MrouteSwitch::doCommitRouteBatch() {
  if (!mrouteHelper_->isDefault(OptionalHook::doCommitMrouteBatch)) mrouteHelper_->doCommitMrouteBatch();
}

void MrouteSwitch::handleFreeMtableOifSet(Vex::Ptr<MtableOifSet> const& set) {
  auto const& pvs = set->oifSet()->portVlanSet();
  FAL_SYNC_TRACE(2, "handleFreeMtableOifSet" << ", OifSet: " << pvs.pretty() << ", OifSetIndex: " << set->oifSetIndex());
  if (set->deleted()) {
    FAL_SYNC_TRACE(3, "OifSet resources already freed ");
    return;
  }
  if (deleted_) {
    FAL_SYNC_TRACE(3, "MrouteSwitch deletion - skipping delayed deletion of oifSet");
  } else if (set->isZombie()) {
    FAL_SYNC_TRACE(3, "Now freeing zombie oifSet");
    zombieOifSetDel(set->zombie());
  } else if (!pvs.usedInHw()) {
    FAL_SYNC_TRACE(3, "OifSet not used in hw - skipping delayed deletion");
  } else if (!l3Status_->mrouteZombieEnabled()) {
    FAL_SYNC_TRACE(3, "Zombies are not enabled");
  } else {
    FAL_SYNC_TRACE(2, "Adding zombie");
    set->zombieIs(ZombieKey(set->oifSetIndex(), now() + zombieLifetime_));
    zombieOifSetIs(set);
    requestVerify();
    return;
  }
  freeMtableOifSet(set);
}

void MrouteSwitch::freeMtableOifSet(Vex::Ptr<MtableOifSet> const& oifSet) {
  FAL_SYNC_TRACE(2, "Freeing OifSetIndex: " << oifSet->oifSetIndex());
  VEX_ASSERT(oifSet->oifSetIndex() != invalidOifSetIndex());
  auto const& platformSet = oifSet->oifSet();
  if (!mrouteHelper_->isDefault(OptionalHook::verifyOifSetCache) && mrouteHelper_->verifyOifSetCache(platformSet)) {
    // Deliberately left in inUseOifSet: the hook's cache still serves this content.
    if (!mrouteHelper_->isDefault(OptionalHook::deleteOifSetCache)) mrouteHelper_->deleteOifSetCache(platformSet);
  } else {
    // Only while it still names this set: a dirty or refused predecessor must
    // not unshare its successor.
    inUseOifSet_.erase(platformSet.get(), oifSet.get());
  }
  for (auto* coll : {&frrMtableOifSet_, &frrProcessingOifSet_}) {
    if (auto const* v = coll->find(platformSet.get()); v && v->get() == oifSet.get()) coll->erase(platformSet.get());
  }
  oifSet->deletedIs(true);
  oifSetIndexColl_.extract(oifSet->oifSetIndex());
  mrouteHelper_->handleFreeMtableOifSet(switchId(), oifSet);
  if (!mtableFree()) {
    FAL_SYNC_TRACE(2, "Free space now available in multicast group table");
    mtableFreeIs(true);
  }
  requestVerify();
}

std::vector<RouteHandle> MrouteSwitch::handlesInOrder() const {
  std::vector<RouteHandle> handles;
  handles.reserve(route_.size() + boundary_.size());
  for (auto const& [h, b] : boundary_) handles.push_back(h);
  auto const boundaries = static_cast<std::ptrdiff_t>(handles.size());
  route_.forEach([&](std::uint32_t h, Vex::Ptr<Route> const&) { handles.push_back(RouteHandle(h)); });
  std::sort(handles.begin(), handles.begin() + boundaries);
  std::sort(handles.begin() + boundaries, handles.end());
  return handles;
}

void MrouteSwitch::handleVerify() {
  if (!initialized_) return;
  std::vector<RouteHandle> const handles = handlesInOrder();
  std::size_t const boundaries = boundary_.size();
  for (std::size_t i = 0; i < handles.size(); ++i) {
    if (i < boundaries) {
      auto const bnd = boundary(handles[i]);
      FAL_SYNC_TRACE(2, "Verifying boundary " << bnd->key() << ", switch # " << switchId());
      mrouteHelper_->verifyMrouteBoundary(switchId(), bnd->vrfId(), bnd);
    } else {
      auto const r = route(handles[i]);
      FAL_SYNC_TRACE(2, "Verifying route " << r->key() << ", switch # " << switchId());
      mrouteHelper_->verifyMroute(switchId(), r->vrfId(), r);
    }
  }
}

void MrouteSwitch::doCleanup() {
  if (deleted_ && route_.empty() && boundary_.empty() && zombieOifSet_.empty()) return;
  FAL_SYNC_TRACE(4, "doCleanup" << ", switch # " << switchId());
  deleted_ = true;
  for (RouteHandle h : handlesInOrder()) doDeleteRoute(h);
  oifSetResultIs(nullptr);
  zombieOifSetDelAll();
}

Vex::Ptr<MrouteSwitch> mrouteSwitchFactory(std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd,
                                           Vex::Ptr<L3Status> const& l3Status,
                                           Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper,
                                           Vex::Ptr<Ip::Status const> const& ipStatus,
                                           Vex::Ptr<MrouteSwitch::HwStatus const> const& mfibHwStatus,
                                           Vex::Ptr<MrouteSwitch::HwStatus const> const& mfib6HwStatus) {
  return Vex::make<MrouteSwitch>(switchId, acsd, l3Status, mrouteHelper, ipStatus, mfibHwStatus, mfib6HwStatus);
}

}  // namespace Fal
