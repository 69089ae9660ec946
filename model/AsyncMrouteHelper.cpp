#include "model/AsyncMrouteHelper.h"

#include "model/RequiredHook.h"

namespace FalHelper {

AsyncMrouteHelper::AsyncMrouteHelper(Vex::Name name, Vex::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
                                     Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable)
    : Fal::FalBaseHelper(std::move(name)),
      activeCounterKeyTable_(std::move(activeCounterKeyTable)),
      mrouteCounterKeyMapTable_(std::move(mrouteCounterKeyMapTable)) {}

AsyncMrouteHelper::~AsyncMrouteHelper() = default;

// ---- key sets ----

std::optional<bool> AsyncMrouteHelper::find(KeySet const& set, MrouteCounterKey const& key) {
  bool const* v = set.find(key);
  return v ? std::optional<bool>(*v) : std::nullopt;
}

void AsyncMrouteHelper::keyIs(KeySet& set, Handler handler, MrouteCounterKey const& key, bool value) {
  if (set.set(key, value)) notify(handler, key);
}

bool AsyncMrouteHelper::keyDel(KeySet& set, Handler handler, MrouteCounterKey const& key) {
  MrouteCounterKey const k = key;  // key may live in the member being removed
  if (!set.erase(k)) return false;
  notify(handler, k);
  return true;
}

void AsyncMrouteHelper::keyDelAll(KeySet& set, Handler handler) {
  for (auto it = set.iterator(); !it.done(); it = set.iterator()) keyDel(set, handler, it.key());
}

void AsyncMrouteHelper::deletedMrouteCounterKeyIs(MrouteCounterKey const& key, bool value) {
  keyIs(deleted_, &Notifiee::onDeletedMrouteCounterKey, key, value);
}
bool AsyncMrouteHelper::deletedMrouteCounterKeyDel(MrouteCounterKey const& key) {
  return keyDel(deleted_, &Notifiee::onDeletedMrouteCounterKey, key);
}
void AsyncMrouteHelper::deletedMrouteCounterKeyDelAll() { keyDelAll(deleted_, &Notifiee::onDeletedMrouteCounterKey); }

void AsyncMrouteHelper::noHwCounterMrouteKeyIs(MrouteCounterKey const& key, bool value) {
  keyIs(noHwCounter_, &Notifiee::onNoHwCounterMrouteKey, key, value);
}
bool AsyncMrouteHelper::noHwCounterMrouteKeyDel(MrouteCounterKey const& key) {
  return keyDel(noHwCounter_, &Notifiee::onNoHwCounterMrouteKey, key);
}
void AsyncMrouteHelper::noHwCounterMrouteKeyDelAll() { keyDelAll(noHwCounter_, &Notifiee::onNoHwCounterMrouteKey); }

// ---- hooks with usable defaults ----

bool AsyncMrouteHelper::hasBackupSupport() const { return false; }
void AsyncMrouteHelper::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode) {}
void AsyncMrouteHelper::handleWildcardCounter(bool) {}
bool AsyncMrouteHelper::doCreateMrouteCounter(Fal::VrfId, IpGenRouteKey const&) { return true; }
bool AsyncMrouteHelper::doDeleteMrouteCounter(Fal::VrfId, IpGenRouteKey const&) { return true; }
bool AsyncMrouteHelper::needFixedOifSet(Routing::Multicast::Fib::RouteKeyType) { return false; }
bool AsyncMrouteHelper::needIngressProgramming(Routing::Multicast::Fib::RouteKeyType) { return true; }
bool AsyncMrouteHelper::mcastIdReusable(std::uint32_t) { return true; }
bool AsyncMrouteHelper::mcastIdIsValid(std::uint32_t mcastId) { return mcastId != kInvalidMcastId; }
Vex::Seconds AsyncMrouteHelper::doGetAdjustedPollingInterval(Vex::Seconds interval, Netcore::AddressFamily) { return interval; }
Vex::Seconds AsyncMrouteHelper::doGetAdjustedActivityPollInterval(Vex::Seconds interval, Netcore::AddressFamily) {
  return interval;
}
void AsyncMrouteHelper::doScheduleVerify() {}

// ---- hooks an agent with hardware must override ----

std::uint32_t AsyncMrouteHelper::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&, OifSetPtr, XactPtr, bool) {
  requiredHook();
  return 0;
}

std::uint32_t AsyncMrouteHelper::doAllocateFixedMulticastGroup(OifSetPtr, XactPtr, std::uint32_t) {
  requiredHook();
  return 0;
}

void AsyncMrouteHelper::doUpdateMulticastGroupInPlace(OifSetPtr, std::uint32_t) { requiredHook(); }

AsyncMrouteHelper::XactPtr AsyncMrouteHelper::doGetXactForOifSet(std::uint32_t) {
  requiredHook();
  return nullptr;
}

std::uint32_t AsyncMrouteHelper::doGetXactFailureReason(XactPtr, MrouteXactType) {
  requiredHook();
  return 0;
}

void AsyncMrouteHelper::doDeleteOifSet(std::uint32_t) { requiredHook(); }

MrouteLib::RouteHandle AsyncMrouteHelper::doAllocateRoute(IpGenRouteKey const&, Bridging::VlanIdOrNone, bool,
                                                          Memtab::Multicast::Fib::RpaIndex, std::uint32_t, bool) {
  requiredHook();
  return MrouteLib::RouteHandle(0);
}

void AsyncMrouteHelper::doSetMtableOifSet(MrouteLib::RouteHandle, std::uint32_t, XactPtr) { requiredHook(); }

AsyncMrouteHelper::XactPtr AsyncMrouteHelper::doGetXactForIngress(MrouteLib::RouteHandle) {
  requiredHook();
  return nullptr;
}

void AsyncMrouteHelper::doDeleteRoute(MrouteLib::RouteHandle) { requiredHook(); }

Vex::Seconds AsyncMrouteHelper::routeLastAccessedTime(MrouteLib::RouteHandle) {
  requiredHook();
  return 0.0;
}

}  // namespace FalHelper
