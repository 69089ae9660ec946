#include "ToySyncAgent.h"

#include <iostream>

#include "ChipText.h"

#include "sync/Boundary.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace ToyChip {

namespace {

bool reachesNothing(MrouteLib::PortVlanSet const& pvs) {
  return pvs.portVlanSize() == 0 && pvs.portVlanFrrSize() == 0 && pvs.natVlan().empty();
}

}  // namespace

ToySyncAgent::ToySyncAgent(std::size_t routeCapacity, std::size_t entryCapacity)
    : FalHelper::MrouteSmHelper("ToyChip::ToySyncAgent"), table_(routeCapacity, entryCapacity) {}

void ToySyncAgent::mrouteInit(bool initializing) { initialized_ = initializing; }

void ToySyncAgent::handleMulticastRouting(bool enabled) {
  // A real agent switches multicast routing on or off in the chip here.
  routingEnabled_ = enabled;
}

void ToySyncAgent::verifyMulticastRouting(bool enabled) {
  if (enabled != routingEnabled_) table_.problemIs("multicast routing differs from the library's view");
}

void ToySyncAgent::mrouteSwitchInit(std::uint32_t switchId, bool initializing) {
  std::cout << "  [hook] mrouteSwitchInit(" << switchId << ", " << (initializing ? "true" : "false") << ")\n";
}

std::uint32_t ToySyncAgent::doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  if (reachesNothing(pvs)) return kNowhereEntry;
  // 0: a new entry; 0xFFFFFFFE: a new entry while a rewritten ("dirty") one
  // with the same outputs is still in use; any other index: that entry,
  // rewritten in place (fast reroute after an interface went down).
  if (oifSetIndex == 0 || oifSetIndex == 0xFFFFFFFE) return table_.entryAdd(outputsText(pvs));
  table_.entryWrite(oifSetIndex, outputsText(pvs));
  return oifSetIndex;
}

std::uint32_t ToySyncAgent::doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex,
                                                     OifSetPtr oifSet) {
  return doAllocateMtableOifSet(switchId, oifSetIndex, std::move(oifSet));
}

void ToySyncAgent::handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) {
  if (oifSet->oifSetIndex() == kNowhereEntry) return;  // shared by every such set, kept for good
  table_.entryDel(oifSet->oifSetIndex());
}

MrouteLib::RouteHandle ToySyncAgent::routeAdd(ToyTable::Route route) {
  std::uint32_t const handle = table_.routeAdd(std::move(route));
  // The invalid handle tells the library nothing was programmed; it then
  // asks mrouteFull (or mrouteBoundaryFull) whether the table is the reason.
  return handle == ToyTable::kNone ? MrouteLib::invalidRouteHandle : MrouteLib::RouteHandle(handle);
}

MrouteLib::RouteHandle ToySyncAgent::doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId,
                                                      IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                                                      bool bridge, std::uint32_t oifSetIndex, bool fastdrop,
                                                      std::uint16_t rpaId) {
  return routeAdd({vrfId, keyText(key), acceptingVlanId.value(), bridge ? 0 : oifSetIndex, bridge});
}

MrouteLib::RouteHandle ToySyncAgent::doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId,
                                                           IpGenRouteKey const& key, bool bridge,
                                                           std::uint32_t oifSetIndex, bool fastdrop,
                                                           std::uint16_t rpaId) {
  return routeAdd({vrfId, keyText(key), 0, bridge ? 0 : oifSetIndex, bridge});
}

void ToySyncAgent::doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                     Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) {
  table_.routeEntryIs(handle.value(), oifSetIndex);
}

void ToySyncAgent::doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                  Vex::Ptr<Fal::Route const> const& route) {
  table_.routeDel(handle.value());
}

void ToySyncAgent::doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                          Vex::Ptr<Fal::Boundary const> const& boundary) {
  table_.routeDel(handle.value());
}

void ToySyncAgent::verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) {
  auto const it = table_.routes().find(route->routeHandle().value());
  if (it == table_.routes().end()) {
    table_.problemIs("the library holds route " + keyText(route->key()) + ", the chip does not");
    return;
  }
  std::uint32_t const entry = route->mtableOifSet() ? route->mtableOifSet()->oifSetIndex() : 0;
  if (it->second.key != keyText(route->key()) || it->second.entry != entry || it->second.vrfId != vrfId) {
    table_.problemIs("route " + keyText(route->key()) + " differs between the library and the chip");
  }
}

void ToySyncAgent::verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                                        Vex::Ptr<Fal::Boundary const> const& boundary) {
  auto const it = table_.routes().find(boundary->routeHandle().value());
  if (it == table_.routes().end() || !it->second.boundary) {
    table_.problemIs("the library holds boundary " + keyText(boundary->key()) + ", the chip does not");
  }
}

}  // namespace ToyChip
