#pragma once
// FalSim::ReferenceChip: N simulated switch chips (ReferenceChipTables)
// behind the synchronous hook interface FalHelper::MrouteSmHelper. The
// simulator and the end-to-end tests hand one to Fal::MrouteSm and to every
// chip's Fal::MrouteSwitch (switchId 0..chips-1), then ask it what the chips
// hold and where a packet would go. Chips driven by the asynchronous flavour
// are programmed through an AsyncReferenceChip over these same tables.
//
// How the hooks map onto the tables:
// - doAllocateMtableOifSet / doReallocateMtableOifSet with index 0 or
//   kFreshIndex allocate a fresh replication entry; with the index of a live
//   entry they rewrite it in place (fast reroute), so every route pointing at
//   it follows at once. Outputs that reach no port are never refused: they
//   get the chip's entry kept outside the table (kNowhereIndex,
//   kCpuOnlyIndex). handleFreeMtableOifSet frees the set's entry.
// - doAllocateMroute / doAllocateMrouteNoRpf add a route or a boundary entry,
//   doSetMtableOifSet re-points a route, doDeleteMroute and
//   doDeleteMrouteBoundary remove them.
// - the full queries answer from the capacities (or a forced full table);
//   the hit-bit hooks read and clear the bits traffic set; the counter hooks
//   create, read and clear the route counters traffic counts.
// - verifyMroute / verifyMrouteBoundary / verifyMulticastRouting record every
//   difference between the chip and the library's view as a violation.
//
// Single-threaded, like everything on the event loop.
#include <cstdint>

#include "model/MrouteSmHelper.h"
#include "sim/ReferenceChipTables.h"

namespace FalSim {

class ReferenceChip : public FalHelper::MrouteSmHelper, public ReferenceChipTables {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using RouteHandle = MrouteLib::RouteHandle;

  // chips switch chips, numbered 0..chips-1, all with capacity.
  ReferenceChip(Vex::Name name, std::uint32_t chips, Capacity capacity = Capacity{});
  ~ReferenceChip() override;

  // Agent state set by the start-up hooks.
  bool mrouteInitialized() const { return mrouteInitialized_; }
  std::uint64_t commits() const { return commits_; }
  std::uint64_t hitBitCacheRefreshes() const { return hitBitCacheRefreshes_; }

  // FalHelper::MrouteSmHelper
  void mrouteInit(bool initializing) override;
  void handleMulticastRouting(bool enabled) override;
  void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
  void verifyMulticastRouting(bool enabled) override;
  void mrouteSwitchInit(std::uint32_t switchId, bool initializing) override;
  std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  std::uint32_t doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  void handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) override;
  bool doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) override;
  void doDeleteMrouteCounter(IpGenRouteKey const& key) override;
  bool doClearMrouteCounter(IpGenRouteKey const& key) override;
  std::int64_t doReadMrouteCounter(IpGenRouteKey const& key) override;
  void ageOutHwMcastCounter(IpGenRouteKey const& key) override;
  RouteHandle doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                               Bridging::VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                               bool fastdrop, std::uint16_t rpaId) override;
  RouteHandle doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, bool bridge,
                                    std::uint32_t oifSetIndex, bool fastdrop, std::uint16_t rpaId) override;
  void doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                         Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) override;
  void doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                      Vex::Ptr<Fal::Route const> const& route) override;
  void doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                              Vex::Ptr<Fal::Boundary const> const& boundary) override;
  void doCommitMrouteBatch() override;
  bool mrouteFull(std::uint32_t switchId) override;
  bool mrouteBoundaryFull(std::uint32_t switchId) override;
  bool mtableFull(std::uint32_t switchId) override;
  bool mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                    bool fastdrop) override;
  bool mrouteHitBitCacheRefresh(std::uint32_t switchId) override;
  void mrouteHitBitCacheClear(std::uint32_t switchId) override;
  void verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) override;
  void verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                            Vex::Ptr<Fal::Boundary const> const& boundary) override;
  // A zombie's entry may serve the outputs only if it still holds them. The
  // hook names no chip: true when a chip holds exactly these outputs at the index.
  bool verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) override;

 private:
  // Allocates (index 0 or kFreshIndex) or rewrites in place (a live index).
  std::uint32_t programEntry(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr const& oifSet, char const* op);
  RouteHandle allocateRoute(std::uint32_t switchId, char const* op, RouteEntry entry, bool bridge);
  // The vrfId a hook names must be the one its route or boundary was programmed in.
  void vrfIdCheck(std::uint32_t switchId, char const* op, char const* what, IpGenRouteKey const& key,
                  RouteHandle handle, std::uint16_t programmed, std::uint16_t named);

  std::uint64_t commits_ = 0;
  std::uint64_t hitBitCacheRefreshes_ = 0;
  bool mrouteInitialized_ = false;
};

}  // namespace FalSim
