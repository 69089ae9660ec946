#include "model/MrouteSmHelper.h"

#include "model/RequiredHook.h"

namespace FalHelper {

using Routing::Multicast::Fib::IpGenRouteKey;

MrouteSmHelper::MrouteSmHelper(Vex::Name name) : Fal::FalBaseHelper(std::move(name)) {}
MrouteSmHelper::~MrouteSmHelper() = default;

void MrouteSmHelper::mrouteInit(bool) { requiredHook(); }
void MrouteSmHelper::handleMulticastRouting(bool) { requiredHook(); }
void MrouteSmHelper::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode) {}
void MrouteSmHelper::verifyMulticastRouting(bool) { requiredHook(); }
void MrouteSmHelper::mrouteSwitchInit(std::uint32_t, bool) { requiredHook(); }

std::uint32_t MrouteSmHelper::doAllocateMtableOifSet(std::uint32_t, std::uint32_t, OifSetPtr) {
  requiredHook();
  return 0;
}

std::uint32_t MrouteSmHelper::doReallocateMtableOifSet(std::uint32_t, std::uint32_t, OifSetPtr) {
  requiredHook();
  return 0;
}

void MrouteSmHelper::handleFreeMtableOifSet(std::uint32_t, Vex::Ptr<Fal::MtableOifSet> const&) { requiredHook(); }

bool MrouteSmHelper::doCreateMrouteCounter(std::uint16_t, IpGenRouteKey const&) { return false; }
void MrouteSmHelper::doDeleteMrouteCounter(IpGenRouteKey const&) {}
bool MrouteSmHelper::doClearMrouteCounter(IpGenRouteKey const&) { return false; }
std::int64_t MrouteSmHelper::doReadMrouteCounter(IpGenRouteKey const&) { return 0; }
void MrouteSmHelper::ageOutHwMcastCounter(IpGenRouteKey const&) {}

MrouteLib::RouteHandle MrouteSmHelper::doAllocateMroute(std::uint32_t, std::uint16_t, IpGenRouteKey const&,
                                                        Bridging::VlanIdOrNone, bool, std::uint32_t, bool, std::uint16_t) {
  requiredHook();
  return MrouteLib::RouteHandle(0);
}

MrouteLib::RouteHandle MrouteSmHelper::doAllocateMrouteNoRpf(std::uint32_t, std::uint16_t, IpGenRouteKey const&, bool,
                                                             std::uint32_t, bool, std::uint16_t) {
  requiredHook();
  return MrouteLib::RouteHandle(0);
}

void MrouteSmHelper::doSetMtableOifSet(std::uint32_t, std::uint16_t, MrouteLib::RouteHandle, Vex::Ptr<Fal::Route const> const&,
                                       std::uint32_t) {
  requiredHook();
}

void MrouteSmHelper::doDeleteMroute(std::uint32_t, std::uint16_t, MrouteLib::RouteHandle, Vex::Ptr<Fal::Route const> const&) {
  requiredHook();
}

void MrouteSmHelper::doDeleteMrouteBoundary(std::uint32_t, std::uint16_t, MrouteLib::RouteHandle,
                                            Vex::Ptr<Fal::Boundary const> const&) {
  requiredHook();
}

void MrouteSmHelper::doCommitMrouteBatch() { markDefault(OptionalHook::doCommitMrouteBatch); }

bool MrouteSmHelper::mrouteFull(std::uint32_t) {
  requiredHook();
  return false;
}

bool MrouteSmHelper::mrouteBoundaryFull(std::uint32_t) {
  requiredHook();
  return false;
}

bool MrouteSmHelper::mtableFull(std::uint32_t) {
  requiredHook();
  return false;
}

bool MrouteSmHelper::mrouteHitBit(std::uint32_t, std::uint16_t, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) {
  requiredHook();
  return false;
}

bool MrouteSmHelper::mrouteHitBitCacheRefresh(std::uint32_t) { return true; }
void MrouteSmHelper::mrouteHitBitCacheClear(std::uint32_t) {}
void MrouteSmHelper::triggerRouteAgingReview() {}

void MrouteSmHelper::verifyMroute(std::uint32_t, std::uint16_t, Vex::Ptr<Fal::Route const> const&) { requiredHook(); }

void MrouteSmHelper::verifyMrouteBoundary(std::uint32_t, std::uint16_t, Vex::Ptr<Fal::Boundary const> const&) {
  requiredHook();
}

bool MrouteSmHelper::verifyZombieUsable(MrouteLib::PortVlanSet const&, std::uint32_t) {
  markDefault(OptionalHook::verifyZombieUsable);
  return true;
}

bool MrouteSmHelper::verifyOifSetCache(OifSetPtr) {
  markDefault(OptionalHook::verifyOifSetCache);
  return false;
}

void MrouteSmHelper::addOifSetCache(OifSetPtr) { markDefault(OptionalHook::addOifSetCache); }
void MrouteSmHelper::deleteOifSetCache(OifSetPtr) { markDefault(OptionalHook::deleteOifSetCache); }

}  // namespace FalHelper
