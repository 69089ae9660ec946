#include "async/AsyncMrouteSwitch.h"

#include <sstream>
#include <string>

#include "async/AsyncMrouteTrace.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

namespace Fal::Mroute {

using MrouteLib::RouteHandle;

namespace {

// How the arguments of a call read in its trace line.
template <class T>
void printArg(std::ostream& os, T const& v) {
  os << v;
}
void printArg(std::ostream& os, bool v) { os << (v ? "true" : "false"); }
void printArg(std::ostream& os, Vex::Ptr<MrouteLib::OifSet const> const& s) {
  if (s) {
    os << s->pretty();
  } else {
    os << "null";
  }
}
void printArg(std::ostream& os, Vex::Ptr<Bolt::Xact const> const& x) {
  if (x) {
    os << *x;
  } else {
    os << "null";
  }
}
void printArg(std::ostream& os, AsyncMtableOifSet* s) {
  if (s) {
    os << *s;
  } else {
    os << "null";
  }
}

// "AsyncMrouteSwitch::op( a, b )", the entry trace of every operation.
template <class... A>
std::string callText(char const* op, A const&... args) {
  std::ostringstream os;
  os << "AsyncMrouteSwitch" << "::" << op << "( ";
  char const* sep = "";
  ((os << sep, printArg(os, args), sep = ", "), ...);
  os << " )";
  return os.str();
}

// The "MFGK" ring records of the route operations. A route add, bind and
// delete each write one, so they keep their values and are formatted only
// when the ring is read: printing a route key costs more than the rest of
// the operation.
using VlanValue = decltype(Bridging::VlanIdOrNone().value());
using HandleValue = decltype(RouteHandle().value());

struct RouteAllocatedRecord {
  Routing::Multicast::Fib::IpGenRouteKey key;
  VlanValue acceptingVlan;
  bool bridge;
  Fal::VrfId vrfId;
  HandleValue handle;
};
void formatRouteAllocated(std::string& out, RouteAllocatedRecord const& r) {
  RingTraceText(out) << "MFGK key " << r.key.pretty() << " acceptingVlan " << r.acceptingVlan << " vrf " << r.vrfId
                     << " bridge " << r.bridge << " rh " << r.handle;
}

struct RouteDeletedRecord {
  Routing::Multicast::Fib::IpGenRouteKey key;
  VlanValue acceptingVlan;
  Fal::VrfId vrfId;
  HandleValue handle;
};
void formatRouteDeleted(std::string& out, RouteDeletedRecord const& r) {
  RingTraceText(out) << "MFGK rh " << r.handle << " key " << r.key.pretty() << " acceptingVlan " << r.acceptingVlan
                     << " vrf " << r.vrfId;
}

struct RouteBoundRecord {
  HandleValue handle;
  std::uint32_t multicastId;
};
void formatRouteBound(std::string& out, RouteBoundRecord const& r) {
  RingTraceText(out) << "MFGK rh " << r.handle << " -> mt " << r.multicastId;
}

// Each is made in its ring slot: one built beside the operation's own fields
// and copied in would stall on its own fresh stores.
template <class T, void (*Format)(std::string&, T const&), class Fill>
void ringRecord(std::string_view source, Fill&& fill) {
  if (RingTrace::enabled()) RingTrace::instance().recordValueInPlace<T, Format>(source, std::forward<Fill>(fill));
}

AsyncMtableOifSet* asAsync(MrouteLib::MtableOifSet const* set) {
  return static_cast<AsyncMtableOifSet*>(const_cast<MrouteLib::MtableOifSet*>(set));
}

}  // namespace

AsyncMrouteSwitch::AsyncMrouteSwitch(Vex::Name name, Vex::Ptr<RoutingHwRouteStatus const> routingHwRouteStatus,
                                     Vex::Ptr<FalHelper::AsyncMrouteHelper> mrouteHelper)
    : MrouteLib::AsyncSwitchChip(std::move(name)),
      routingHwRouteStatus_(std::move(routingHwRouteStatus)),
      mrouteHelper_(std::move(mrouteHelper)),
      link_(Vex::make<Vex::BackLink<AsyncMrouteSwitch>>(this)) {
  VEX_ASSERT(mrouteHelper_);
}

// Zombies still waiting (the state machine never cleaned up) are released
// now, their groups deleted; records still held elsewhere lose their switch.
AsyncMrouteSwitch::~AsyncMrouteSwitch() {
  deleted_ = true;
  while (auto const* first = zombieOifSet_.first()) zombieOifSetDel(first->first);
  oifSetResultIs(nullptr);
  link_->targetDel();
}

Vex::Seconds AsyncMrouteSwitch::now() const { return Vex::ActivityManager::current()->now(); }

void AsyncMrouteSwitch::deletedIs(bool v) {
  if (deleted_ == v) return;
  deleted_ = v;
  notify(&Notifiee::onDeleted);
}

void AsyncMrouteSwitch::testKillIs(bool v) {
  if (testKill_ == v) return;
  testKill_ = v;
  notify(&Notifiee::onTestKill);
}

// ---- lookups ----------------------------------------------------------------

AsyncMrouteSwitchRoute const* AsyncMrouteSwitch::route(IpGenRouteKey const& key) const {
  auto it = route_.find(key);
  return it == route_.end() ? nullptr : &it->second.route;
}

RouteHandle AsyncMrouteSwitch::inUseRouteHandle(InUseRouteHandleKey const& key) const {
  return inUseRouteHandle_.find(key);
}

InUseRouteHandleKey AsyncMrouteSwitch::inUseRouteHandleKey(RouteHandle handle) const {
  HandleRecord const* const r = inUseRouteHandleKey_.find(handle.value());
  return r ? r->key : InUseRouteHandleKey();
}

Vex::Ptr<MrouteLib::OifSet const> AsyncMrouteSwitch::mcastIdToOifSet(std::uint32_t mcastId) const {
  auto it = mcastIdToOifSet_.find(mcastId);
  return it == mcastIdToOifSet_.end() ? nullptr : it->second;
}

AsyncMtableOifSet* AsyncMrouteSwitch::inUseOifSet(OifSet const* oifSet) const { return inUseOifSet_.find(oifSet); }

AsyncMrouteSwitch::XactPtr AsyncMrouteSwitch::oifSetXact(OifSet const* oifSet) const {
  auto it = oifSetXact_.find(oifSet);
  return it == oifSetXact_.end() ? nullptr : it->second;
}

// ---- collection mutators -----------------------------------------------------

void AsyncMrouteSwitch::zombieOifSetIs(Vex::Ptr<AsyncMtableOifSet> const& set) {
  ZombieKey const key = set->zombie();
  if (zombieOifSet_.set(key, set)) notify(&Notifiee::onZombieOifSet, key);
}

void AsyncMrouteSwitch::zombieOifSetDel(ZombieKey const& key) {
  ZombieKey const k = key;  // key may belong to the record being released
  // The collection detaches the record before releasing it, so the release
  // (which frees the record) finds it gone.
  if (zombieOifSet_.erase(k)) notify(&Notifiee::onZombieOifSet, k);
}

void AsyncMrouteSwitch::frrMtableOifSetDel(OifSet const* oifSet) {
  if (frrMtableOifSet_.erase(oifSet)) notify(&Notifiee::onFrrMtableOifSet, oifSet);
}

void AsyncMrouteSwitch::frrProcessingOifSetIs(OifSet const* oifSet) {
  if (frrProcessingOifSet_.set(oifSet, Vex::Ptr<OifSet const>(oifSet))) notify(&Notifiee::onFrrProcessingOifSet, oifSet);
}

void AsyncMrouteSwitch::frrProcessingOifSetDel(OifSet const* oifSet) {
  if (frrProcessingOifSet_.erase(oifSet)) notify(&Notifiee::onFrrProcessingOifSet, oifSet);
}

void AsyncMrouteSwitch::oifSetXactChange(OifSet const* oifSet, XactPtr const& xact) {
  if (!xact) {
    if (oifSetXact_.erase(oifSet)) notify(&Notifiee::onOifSetXact, oifSet);
    return;
  }
  auto [it, inserted] = oifSetXact_.try_emplace(oifSet, xact);
  if (!inserted) {
    if (it->second == xact) return;
    it->second = xact;
  }
  notify(&Notifiee::onOifSetXact, oifSet);
}

void AsyncMrouteSwitch::mtableOifSetGone(AsyncMtableOifSet const* set) {
  OifSet const* const oifSet = set->oifSet().get();
  if (!inUseOifSet_.erase(oifSet, set)) return;
  oifSetXactDel(oifSet);
  notify(&Notifiee::onInUseOifSet, oifSet);
}

// ---- routes -----------------------------------------------------------------

void AsyncMrouteSwitch::doAllocateRoute(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone acceptingVlanId,
                                        bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                        L3::VrfName const& vrfName, bool fastdrop) {
  FAL_ASYNC_TRACE(8, callText("doAllocateRoute", routeKey, acceptingVlanId, bridgeAction, rpaIndex, vrfName, fastdrop));
  mrouteFailureReasonIs(kFailureNone);
  // Both route tables are cold reads at a million routes: asked for together
  // (their control bytes and first slots), the misses overlap instead of
  // following one another.
  route_.prefetch(routeKey);
  auto const vrfStatus = routingHwRouteStatus_ ? routingHwRouteStatus_->vrfStatus(vrfName) : nullptr;
  if (!vrfStatus) {
    FAL_ASYNC_TRACE(8, " vrfStatus for vrf: " << vrfName << " is not present");
    RING_TRACE("AsyncMrouteSwitch::doAllocateRoute", " no vrfStatus for vrf: " << vrfName);
    mrouteFailureReasonIs(kFailureNoVrfStatus);
    routeHandleIs(RouteHandle::invalid());
    return;
  }
  Fal::VrfId const vrfId = vrfStatus->vrfId();
  // The handle's record is made here, long before it is copied into its
  // table: a copy right after its fields were stored would wait for them.
  HandleRecord const record{true, inUseRouteHandleKeyOf(routeKey, acceptingVlanId, vrfId)};
  InUseRouteHandleKey const& key = record.key;
  // Hashed from the caller's key, not from the copy just made.
  inUseRouteHandle_.prefetch(recordedRouteKey(routeKey), acceptingVlanId, vrfId);
  RouteHandle const handle =
      mrouteHelper_->doAllocateRoute(routeKey, acceptingVlanId, bridgeAction, rpaIndex, vrfId, fastdrop);
  routeHandleIs(handle);
  if (handle.isNull()) {
    mrouteFailureReasonIs(kFailureRouteRefused);
    return;
  }
  // A handle the hook hands out again without its deletion replaces its old route.
  if (inUseRouteHandleKey_.contains(handle.value())) forgetRouteHandle(handle);

  // Compared and written field by field, for the same reason.
  RouteEntry& entry = route_[routeKey];
  bool const routeChanged =
      entry.handles == 0 || !(entry.route.routeKey == routeKey) || entry.route.rpaId != rpaIndex;
  if (routeChanged) {
    entry.route.routeKey = routeKey;
    entry.route.rpaId = rpaIndex;
  }
  ++entry.handles;
  if (routeChanged) notify(&Notifiee::onRoute, routeKey);

  if (key.routeKey != routeKey) rangeRouteKey_[handle] = routeKey;
  inUseRouteHandle_.set(key, handle);
  notify(&Notifiee::onInUseRouteHandle, key);
  inUseRouteHandleKey_.insert(handle.value(), record);
  notify(&Notifiee::onInUseRouteHandleKey, handle);

  FAL_ASYNC_TRACE(7, "rh " << handle << " -> " << routeKey);
  auto const allocated = [&](RouteAllocatedRecord& r) {
    r.key = routeKey;
    r.acceptingVlan = acceptingVlanId.value();
    r.bridge = bridgeAction;
    r.vrfId = vrfId;
    r.handle = handle.value();
  };
  ringRecord<RouteAllocatedRecord, formatRouteAllocated>("AsyncMrouteSwitch::doAllocateRoute", allocated);
  mrouteHelper_->doScheduleVerify();
}

void AsyncMrouteSwitch::doDeleteRoute(RouteHandle routeHandle) {
  FAL_ASYNC_TRACE(8, callText("doDeleteRoute", routeHandle));
  InUseRouteHandleKey const key = inUseRouteHandleKey(routeHandle);
  FAL_ASYNC_TRACE(7, "rh " << routeHandle << " key " << key);
  ringRecord<RouteDeletedRecord, formatRouteDeleted>("AsyncMrouteSwitch::doDeleteRoute", [&](RouteDeletedRecord& r) {
    r.key = key.routeKey;
    r.acceptingVlan = key.vlan.value();
    r.vrfId = key.vrfId;
    r.handle = routeHandle.value();
  });
  forgetRouteHandle(routeHandle);
  mrouteHelper_->doDeleteRoute(routeHandle);
  mrouteHelper_->doScheduleVerify();
}

void AsyncMrouteSwitch::forgetRouteHandle(RouteHandle handle) {
  HandleRecord const record = inUseRouteHandleKey_.extract(handle.value());
  if (!record.held) return;
  InUseRouteHandleKey const& key = record.key;
  // Only while it still names this handle: the same route programmed again
  // under a newer handle keeps its entry.
  if (inUseRouteHandle_.find(key) == handle) {
    inUseRouteHandle_.erase(key);
    notify(&Notifiee::onInUseRouteHandle, key);
  }
  notify(&Notifiee::onInUseRouteHandleKey, handle);
  IpGenRouteKey routeKey = key.routeKey;
  if (auto r = rangeRouteKey_.find(handle); r != rangeRouteKey_.end()) {
    routeKey = r->second;
    rangeRouteKey_.erase(r);
  }
  auto entry = route_.find(routeKey);
  if (entry == route_.end() || --entry->second.handles > 0) return;
  route_.erase(entry);
  notify(&Notifiee::onRoute, routeKey);
}

void AsyncMrouteSwitch::doSetBridgeAction(RouteHandle routeHandle, bool bridgeAction) {
  FAL_ASYNC_TRACE(8, callText("doSetBridgeAction", routeHandle, bridgeAction));
  RING_TRACE("AsyncMrouteSwitch::doSetBridgeAction", " rh " << routeHandle);
}

void AsyncMrouteSwitch::doActivateRoute(RouteHandle routeHandle) {
  FAL_ASYNC_TRACE(8, callText("doActivateRoute", routeHandle));
  RING_TRACE("AsyncMrouteSwitch::doActivateRoute", " rh " << routeHandle);
}

bool AsyncMrouteSwitch::needIngressProgramming(Routing::Multicast::Fib::RouteKeyType routeType) {
  FAL_ASYNC_TRACE(8, "needIngressProgramming" << ' ' << routeType);
  return mrouteHelper_->needIngressProgramming(routeType);
}

std::uint32_t AsyncMrouteSwitch::doGetOifSetXactFailureReason(XactPtr xact) {
  FAL_ASYNC_TRACE(8, callText("doGetOifSetXactFailureReason", xact));
  return mrouteHelper_->doGetXactFailureReason(xact, FalHelper::MrouteXactType::oifSet);
}

std::uint32_t AsyncMrouteSwitch::doGetIngressXactFailureReason(XactPtr xact) {
  FAL_ASYNC_TRACE(8, callText("doGetIngressXactFailureReason", xact));
  return mrouteHelper_->doGetXactFailureReason(xact, FalHelper::MrouteXactType::ingress);
}

// ---- groups -----------------------------------------------------------------

AsyncMrouteSwitch::OifSetPtr AsyncMrouteSwitch::doGetOifSet(Vex::Ptr<MrouteLib::MtableOifSet const> mtableOifSet) {
  FAL_ASYNC_TRACE(8, callText("doGetOifSet", asAsync(mtableOifSet.get())));
  return mtableOifSet ? asAsync(mtableOifSet.get())->oifSet() : nullptr;
}

std::uint32_t AsyncMrouteSwitch::doGetMulticastId(Vex::Ptr<MrouteLib::MtableOifSet const> mtableOifSet) {
  FAL_ASYNC_TRACE(8, callText("doGetMulticastId", asAsync(mtableOifSet.get())));
  VEX_ASSERT(mtableOifSet);
  return asAsync(mtableOifSet.get())->multicastId();
}

AsyncMrouteSwitch::XactPtr AsyncMrouteSwitch::doAllocateMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                                     OifSetPtr oifSet, XactPtr blockingXact,
                                                                     std::uint32_t presetMulticastId, bool frrRoute) {
  FAL_ASYNC_TRACE(8, callText("doAllocateMtableOifSet", routeKeyInfo, oifSet, blockingXact, presetMulticastId, frrRoute));
  VEX_ASSERT(oifSet);
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  FAL_ASYNC_TRACE(7, " oifset " << pvs.pretty());
  mrouteFailureReasonIs(kFailureNone);
  oifSetResultIs(nullptr);

  auto const routeKeyType = static_cast<Routing::Multicast::Fib::RouteKeyType>(routeKeyInfo.routeKeyType);
  bool const fixed = mrouteHelper_->needFixedOifSet(routeKeyType);
  Vex::Ptr<AsyncMtableOifSet> set = fixed ? nullptr : shareMtableOifSet(oifSet.get());
  if (!set) {
    set = newMtableOifSet(routeKeyInfo, oifSet, blockingXact, presetMulticastId, frrRoute, fixed);
    if (!set) return nullptr;
  }
  mrouteHelper_->doScheduleVerify();
  XactPtr xact = mrouteHelper_->doGetXactForOifSet(set->multicastId());
  oifSetXactIs(oifSet.get(), xact);
  oifSetResultIs(std::move(set));
  return xact;
}

// Kept apart from the share path above, which most calls take: a group of its
// own is made far less often, and its work (hooks, notifications, the id map)
// would otherwise weigh on every share lookup's registers and stack.
Vex::Ptr<AsyncMtableOifSet> AsyncMrouteSwitch::newMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                               OifSetPtr const& oifSet, XactPtr const& blockingXact,
                                                               std::uint32_t presetMulticastId, bool frrRoute,
                                                               bool fixed) {
  auto const routeKeyType = static_cast<Routing::Multicast::Fib::RouteKeyType>(routeKeyInfo.routeKeyType);
  std::uint32_t const mcastId =
      fixed ? mrouteHelper_->doAllocateFixedMulticastGroup(oifSet, blockingXact, presetMulticastId)
            : mrouteHelper_->doAllocateSharableMulticastGroup(routeKeyInfo, oifSet, blockingXact, frrRoute);
  if (!mrouteHelper_->mcastIdIsValid(mcastId)) {
    FAL_ASYNC_TRACE(2, "No free multicastId found");
    RING_TRACE("AsyncMrouteSwitch::doAllocateMtableOifSet",
               " No free multicastId found. acceptingVlan " << routeKeyInfo.acceptingVlan);
    mrouteFailureReasonIs(kFailureNoMulticastId);
    return nullptr;
  }
  if (fixed) {
    if (auto const previous = mcastIdToOifSet(mcastId)) {
      // The group now belongs to the new record: the older one must leave it in hardware.
      if (AsyncMtableOifSet* const older = inUseOifSet(previous.get())) {
        FAL_ASYNC_TRACE(2, "skip delete mtable oifset " << *older);
        older->skipDeleteIs(true);
      } else {
        FAL_ASYNC_TRACE(2, "Missing mtableOifSet on mcastId " << mcastId << ".  Restart init?");
        RING_TRACE("AsyncMrouteSwitch::doAllocateMtableOifSet", " missing mtableOifSet on mcastId " << mcastId);
      }
    }
  }
  Vex::Ptr<AsyncMtableOifSet> set = asyncMtableOifSetFactory(oifSet, oifSet->portVlanSet().toCpu(), mcastId, this);
  set->routeKeyTypeIs(routeKeyType);
  FAL_ASYNC_TRACE(7, "mtableOifSet " << *set);
  inUseOifSet_.set(oifSet.get(), set.get());
  notify(&Notifiee::onInUseOifSet, oifSet.get());
  if (frrRoute && frrMtableOifSet_.set(oifSet.get(), oifSet)) notify(&Notifiee::onFrrMtableOifSet, oifSet.get());
  if (auto [it, inserted] = mcastIdToOifSet_.try_emplace(mcastId, oifSet); inserted || it->second != oifSet) {
    it->second = oifSet;
    notify(&Notifiee::onMcastIdToOifSet, mcastId);
  }
  // A live record shared as it is came from inUseOifSet itself.
  VEX_ASSERT_MSG(inUseOifSet(oifSet.get()) == set.get(), "mtableOifSetLocal");
  return set;
}

Vex::Ptr<AsyncMtableOifSet> AsyncMrouteSwitch::shareMtableOifSet(OifSet const* oifSet) {
  // Held from here on: bringing a zombie back drops the zombie collection's reference.
  Vex::Ptr<AsyncMtableOifSet> const found(inUseOifSet(oifSet));
  if (!found) return nullptr;
  FAL_ASYNC_TRACE(2, "Found existing " << " mtableOifSet " << *found);
  if (!mrouteHelper_->mcastIdReusable(found->multicastId()) || found->dirty()) return nullptr;
  FAL_ASYNC_TRACE(2, "Found an existing oif set");
  RING_TRACE_TEXT("AsyncMrouteSwitch::doAllocateMtableOifSet", "Foung an existing oif set");
  if (found->isZombie()) {
    // Its reactors run: the record must still be the one shared.
    resurrect(*found);
    VEX_ASSERT_MSG(inUseOifSet(oifSet) == found.get(), "mtableOifSetLocal");
  }
  return found;
}

void AsyncMrouteSwitch::resurrect(AsyncMtableOifSet& set) {
  FAL_ASYNC_TRACE(2, "Resurrecting zombie mtableOifSet " << set);
  zombieOifSetDel(set.zombie());
  set.zombieIs(ZombieKey());
  // An interface failure while it was a zombie took it off the watch; a
  // route that comes back must not lose its protection.
  OifSet const* const oifSet = set.oifSet().get();
  if (oifSet->portVlanSet().intfId().isEmpty() || frrMtableOifSet_.contains(oifSet)) return;
  FAL_ASYNC_TRACE(2, " Adding Frr oifSetIndex: " << set.multicastId());
  frrMtableOifSet_.set(oifSet, set.oifSet());
  notify(&Notifiee::onFrrMtableOifSet, oifSet);
  notify(&Notifiee::onFrrOifSetResurrected, oifSet);
}

AsyncMrouteSwitch::XactPtr AsyncMrouteSwitch::doSetMtableOifSet(RouteHandle routeHandle,
                                                                Vex::Ptr<MrouteLib::MtableOifSet> mtableOifSet,
                                                                XactPtr xact) {
  AsyncMtableOifSet* const set = asAsync(mtableOifSet.get());
  FAL_ASYNC_TRACE(8, callText("doSetMtableOifSet", routeHandle, set, xact));
  VEX_ASSERT(mtableOifSet);
  FAL_ASYNC_TRACE(7, "rh " << routeHandle << " -> mt " << set->multicastId());
  ringRecord<RouteBoundRecord, formatRouteBound>("AsyncMrouteSwitch::doSetMtableOifSet", [&](RouteBoundRecord& r) {
    r.handle = routeHandle.value();
    r.multicastId = set->multicastId();
  });
  mrouteHelper_->doSetMtableOifSet(routeHandle, set->multicastId(), xact);
  set->usedInHwIs(true);
  mrouteHelper_->doScheduleVerify();
  return mrouteHelper_->doGetXactForIngress(routeHandle);
}

void AsyncMrouteSwitch::handleFreeMtableOifSet(Vex::Ptr<MrouteLib::MtableOifSet> const& mtableOifSet) {
  AsyncMtableOifSet* const set = asAsync(mtableOifSet.get());
  FAL_ASYNC_TRACE(8, callText("handleFreeMtableOifSet", set));
  if (set->deleted()) {
    FAL_ASYNC_TRACE(2, "OifSet is already freed");
    return;
  }
  if (deleted_) {
    FAL_ASYNC_TRACE(2, "MrouteSwitch deletion, skipping delayed deletion");
  } else if (!set->isZombie()) {
    if (set->usedInHw()) {
      FAL_ASYNC_TRACE(2, "Adding zombie " << *set << " with mcastId: " << set->multicastId());
      Vex::Seconds const expiry = now() + set->zombieLifetime();
      set->usedInHwIs(false);
      set->zombieIs(ZombieKey(set->multicastId(), expiry));
      // The collection's reference keeps the record, and its group, alive.
      zombieOifSetIs(Vex::Ptr<AsyncMtableOifSet>(set));
      mrouteHelper_->doScheduleVerify();
      return;
    }
    FAL_ASYNC_TRACE(2, "OifSet " << *set << " not used in hw, skipping delayed deletion");
  } else {
    FAL_ASYNC_TRACE(2, "Freeing zombie oifSet");
  }
  freeMtableOifSet(*set);
}

void AsyncMrouteSwitch::freeMtableOifSet(AsyncMtableOifSet& set) {
  FAL_ASYNC_TRACE(2, "Freeing oifSet resources");
  std::uint32_t const mcastId = set.multicastId();
  if (set.skipDelete()) {
    // Only a fixed group is taken over by a newer record under the same id.
    VEX_ASSERT_MSG(mrouteHelper_->needFixedOifSet(set.routeKeyType()),
                   "mrouteHelper()->needFixedOifSet( oifSet->portVlanSet().type() )");
  } else {
    mrouteHelper_->doDeleteOifSet(mcastId);
  }
  if (!deleted_) {
    OifSet const* const oifSet = set.oifSet().get();
    // Only while the entry still names this record: a successor under the
    // same OIF set (after a dirty or unreusable predecessor) keeps sharing.
    if (inUseOifSet_.erase(oifSet, &set)) {
      FAL_ASYNC_TRACE(2, "Delete oifset " << oifSet->pretty());
      notify(&Notifiee::onInUseOifSet, oifSet);
      frrMtableOifSetDel(oifSet);
      frrProcessingOifSetDel(oifSet);
      oifSetXactDel(oifSet);
    }
    // The id leaves the table with its group; a group kept for a newer
    // record stays recorded.
    if (auto it = mcastIdToOifSet_.find(mcastId);
        !set.skipDelete() && it != mcastIdToOifSet_.end() && it->second.get() == oifSet) {
      mcastIdToOifSet_.erase(it);
      notify(&Notifiee::onMcastIdToOifSet, mcastId);
    }
  }
  set.deletedIs(true);
  mrouteHelper_->doScheduleVerify();
}

Vex::Ptr<AsyncMrouteSwitch> asyncMrouteSwitchFactory(
    Vex::Name name, Vex::Ptr<AsyncMrouteSwitch::RoutingHwRouteStatus const> const& routingHwRouteStatus,
    Vex::Ptr<FalHelper::AsyncMrouteHelper> const& mrouteHelper) {
  return Vex::make<AsyncMrouteSwitch>(std::move(name), routingHwRouteStatus, mrouteHelper);
}

}  // namespace Fal::Mroute
