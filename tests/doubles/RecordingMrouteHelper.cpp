#include "tests/doubles/RecordingMrouteHelper.h"

#include "platform/vex/ActivityManager.h"
#include "sync/Boundary.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"
#include "tests/doubles/CallLine.h"

namespace FalTest {

std::vector<std::string> RecordingMrouteHelper::callsTo(std::string const& prefix) const {
  std::vector<std::string> out;
  for (auto const& c : calls)
    if (c.rfind(prefix, 0) == 0) out.push_back(c);
  return out;
}

void RecordingMrouteHelper::record(std::string l) {
  calls.push_back(std::move(l));
  if (costPerCall > 0) {
    if (auto* am = Vex::ActivityManager::current()) am->advanceBy(costPerCall);
  }
}

void RecordingMrouteHelper::mrouteInit(bool i) { record(callLine("mrouteInit", b(i))); }
void RecordingMrouteHelper::handleMulticastRouting(bool e) { record(callLine("handleMulticastRouting", b(e))); }
void RecordingMrouteHelper::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode m) {
  record(callLine("handleMrouteCounterMode", m));
}
void RecordingMrouteHelper::verifyMulticastRouting(bool e) { record(callLine("verifyMulticastRouting", b(e))); }
void RecordingMrouteHelper::mrouteSwitchInit(std::uint32_t s, bool i) { record(callLine("mrouteSwitchInit", s, b(i))); }

std::uint32_t RecordingMrouteHelper::doAllocateMtableOifSet(std::uint32_t s, std::uint32_t index, OifSetPtr oifSet) {
  record(callLine("doAllocateMtableOifSet", s, index));
  allocatedContents.push_back(oifSet ? oifSet->portVlanSet() : MrouteLib::PortVlanSet());
  bool const inPlace = index != 0 && index != 0xFFFFFFFE;
  if (inPlace) return inPlaceAllocFails ? 0xFFFFFFFF : index;
  if (mtableAllocFails) return 0xFFFFFFFF;
  return nextOifSetIndex++;
}

void RecordingMrouteHelper::handleFreeMtableOifSet(std::uint32_t s, Vex::Ptr<Fal::MtableOifSet> const& set) {
  record(callLine("handleFreeMtableOifSet", s, set ? set->oifSetIndex() : 0xFFFFFFFF));
}

bool RecordingMrouteHelper::doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) {
  record(callLine("doCreateMrouteCounter", vrfId, key));
  return true;
}
void RecordingMrouteHelper::doDeleteMrouteCounter(IpGenRouteKey const& key) { record(callLine("doDeleteMrouteCounter", key)); }
bool RecordingMrouteHelper::doClearMrouteCounter(IpGenRouteKey const& key) {
  record(callLine("doClearMrouteCounter", key));
  return true;
}
std::int64_t RecordingMrouteHelper::doReadMrouteCounter(IpGenRouteKey const& key) {
  record(callLine("doReadMrouteCounter", key));
  auto it = counterReads.find(key.pretty());
  return it == counterReads.end() ? 0 : it->second;
}
void RecordingMrouteHelper::ageOutHwMcastCounter(IpGenRouteKey const& key) { record(callLine("ageOutHwMcastCounter", key)); }

MrouteLib::RouteHandle RecordingMrouteHelper::doAllocateMroute(std::uint32_t s, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                               Bridging::VlanIdOrNone vlan, bool bridge, std::uint32_t index,
                                                               bool fastdrop, std::uint16_t rpaId) {
  record(callLine("doAllocateMroute", s, vrfId, key, vlan, b(bridge), index, b(fastdrop), rpaId));
  if (routeAllocFails || (bridge ? boundaryTableFull : routeTableFull)) return MrouteLib::RouteHandle::invalid();
  return MrouteLib::RouteHandle(nextRouteHandle++);
}

MrouteLib::RouteHandle RecordingMrouteHelper::doAllocateMrouteNoRpf(std::uint32_t s, std::uint16_t vrfId,
                                                                    IpGenRouteKey const& key, bool bridge, std::uint32_t index,
                                                                    bool fastdrop, std::uint16_t rpaId) {
  record(callLine("doAllocateMrouteNoRpf", s, vrfId, key, b(bridge), index, b(fastdrop), rpaId));
  if (routeAllocFails || routeTableFull) return MrouteLib::RouteHandle::invalid();
  return MrouteLib::RouteHandle(nextRouteHandle++);
}

void RecordingMrouteHelper::doSetMtableOifSet(std::uint32_t s, std::uint16_t vrfId, MrouteLib::RouteHandle h,
                                              Vex::Ptr<Fal::Route const> const&, std::uint32_t index) {
  record(callLine("doSetMtableOifSet", s, vrfId, h, index));
}

void RecordingMrouteHelper::doDeleteMroute(std::uint32_t s, std::uint16_t vrfId, MrouteLib::RouteHandle h,
                                           Vex::Ptr<Fal::Route const> const&) {
  record(callLine("doDeleteMroute", s, vrfId, h));
}

void RecordingMrouteHelper::doDeleteMrouteBoundary(std::uint32_t s, std::uint16_t vrfId, MrouteLib::RouteHandle h,
                                                   Vex::Ptr<Fal::Boundary const> const&) {
  record(callLine("doDeleteMrouteBoundary", s, vrfId, h));
}

void RecordingMrouteHelper::doCommitMrouteBatch() { record("doCommitMrouteBatch()"); }
bool RecordingMrouteHelper::mrouteFull(std::uint32_t s) {
  record(callLine("mrouteFull", s));
  return routeTableFull;
}
bool RecordingMrouteHelper::mrouteBoundaryFull(std::uint32_t s) {
  record(callLine("mrouteBoundaryFull", s));
  return boundaryTableFull;
}
bool RecordingMrouteHelper::mtableFull(std::uint32_t s) {
  record(callLine("mtableFull", s));
  return mtableFullAnswer;
}

bool RecordingMrouteHelper::mrouteHitBit(std::uint32_t s, std::uint16_t vrfId, IpGenRouteKey const& key,
                                         Bridging::VlanIdOrNone vlan, bool fastdrop) {
  record(callLine("mrouteHitBit", s, vrfId, key, vlan, b(fastdrop)));
  return hitRoutes.count(key.pretty()) != 0;
}

bool RecordingMrouteHelper::mrouteHitBitCacheRefresh(std::uint32_t s) {
  record(callLine("mrouteHitBitCacheRefresh", s));
  return true;
}
void RecordingMrouteHelper::mrouteHitBitCacheClear(std::uint32_t s) { record(callLine("mrouteHitBitCacheClear", s)); }

void RecordingMrouteHelper::verifyMroute(std::uint32_t s, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& r) {
  record(callLine("verifyMroute", s, vrfId, r ? r->routeHandle() : MrouteLib::RouteHandle::invalid()));
}

void RecordingMrouteHelper::verifyMrouteBoundary(std::uint32_t s, std::uint16_t vrfId,
                                                 Vex::Ptr<Fal::Boundary const> const& bnd) {
  record(callLine("verifyMrouteBoundary", s, vrfId, bnd ? bnd->routeHandle() : MrouteLib::RouteHandle::invalid()));
}

bool RecordingMrouteHelper::verifyZombieUsable(MrouteLib::PortVlanSet const&, std::uint32_t index) {
  record(callLine("verifyZombieUsable", index));
  return zombieUsable;
}

}  // namespace FalTest
