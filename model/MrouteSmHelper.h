#pragma once
// FalHelper::MrouteSmHelper: the hooks through which the synchronous state
// machines reach chip-specific code.
//
// Implemented by: a chip agent (real hardware), the reference chip in sim/,
// and recording doubles in tests. The library calls these hooks and never
// programs hardware itself.
//
// Required hooks (marked "required" below): the base class stops the agent
// with "This function must be implemented by derived class" unless the
// environment variable FAL_NOOP_AGENT is set (read on every call), in which
// case it does nothing and yields zero or false, so an agent can run the whole
// library without hardware. Optional hooks have usable defaults; the per-chip
// switch skips the optional cache and commit hooks when they still hold the
// default (see isDefault()).
//
// Arguments: switchId is the chip number; vrfId the VRF's 16-bit id; key the
// route's (source, group); oifSetIndex an index into the chip's multicast
// replication table, 0xFFFFFFFF meaning "none / table full". Pointers passed in
// are borrowed for the call unless the hook keeps a reference of its own.
#include <bitset>
#include <cstdint>

#include "platform/fal/FalBaseHelper.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Ptr.h"

namespace Fal {
class MrouteSm;
class MtableOifSet;
class Route;
class Boundary;
}  // namespace Fal

namespace FalHelper {

class MrouteSmHelper : public Fal::FalBaseHelper {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using OifSetPtr = Vex::Ptr<MrouteLib::OifSet const>;

  class Notifiee : public Vex::NotifieeOf<MrouteSmHelper> {
   public:
    virtual void onMrouteSm() {}
  };

  // The optional hooks whose default the per-chip switch skips.
  enum class OptionalHook : std::uint8_t {
    doCommitMrouteBatch,
    verifyZombieUsable,
    verifyOifSetCache,
    addOifSetCache,
    deleteOifSetCache,
    count
  };

  explicit MrouteSmHelper(Vex::Name name);
  ~MrouteSmHelper() override;

  // The top-level state machine, set by the agent (never by the library) so
  // that its hook code can reach it. Defined beside Fal::MrouteSm.
  Vex::Ptr<Fal::MrouteSm> mrouteSm() const;
  void mrouteSmIs(Vex::Ptr<Fal::MrouteSm> const& sm);

  bool hasBackupSupport() const override { return true; }
  Vex::String fwkType() const override { return "FalHelper::MrouteSmHelper"; }

  // True once the default of an optional hook has run: the hook object did not
  // override it, and since every such default has no effect, callers may skip it.
  bool isDefault(OptionalHook h) const { return defaults_.test(static_cast<std::size_t>(h)); }

  // 1. Start-up (true, from Fal::MrouteSm::handleInitialized) and cleanup (false). Required.
  virtual void mrouteInit(bool initializing);
  // 2. Multicast routing became enabled (true) or disabled / cleanup (false). Required.
  virtual void handleMulticastRouting(bool enabled);
  // 3. The VRF configuration's counter mode, when routing is enabled and when it changes.
  virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
  // 4. Verification: the hardware must have multicast routing as `enabled` says. Required.
  virtual void verifyMulticastRouting(bool enabled);
  // 5. Per-chip start-up (true) and cleanup (false). Required.
  virtual void mrouteSwitchInit(std::uint32_t switchId, bool initializing);
  // 6. Programs a replication-table entry for oifSet. oifSetIndex is 0 for a new entry,
  // 0xFFFFFFFE for a new entry while a dirty one of the same content is still programmed,
  // or the set's own index to overwrite its entry in place (fast reroute). Returns the
  // entry's index, 0xFFFFFFFF when the table is full. Required.
  // An empty port-VLAN set (no outputs, no FRR outputs, no NAT VLANs) must always get a
  // valid index: the library asks for it without asking mtableFull first, and stops on
  // "oifSetIndex != invalidOifSetIndex()" when refused. A chip keeps an entry that
  // replicates nowhere for it (one for all such sets, outside the table's capacity and
  // never refused), and leaves it in place when such a set is released (operation 8).
  virtual std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet);
  // 7. Not called by the synchronous state machines. Required.
  virtual std::uint32_t doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet);
  // 8. Releases the hardware entry of a freed OIF set (its oifSetIndex). Required.
  virtual void handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet);
  // 9-13. Route counters. Create: at enable time with VRF 0 and the wildcard key when
  // all-route counting is on. Read: the traffic counted since the previous read.
  virtual bool doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key);
  virtual void doDeleteMrouteCounter(IpGenRouteKey const& key);
  virtual bool doClearMrouteCounter(IpGenRouteKey const& key);
  virtual std::int64_t doReadMrouteCounter(IpGenRouteKey const& key);
  virtual void ageOutHwMcastCounter(IpGenRouteKey const& key);
  // 14. Programs a route (bridge false) or a boundary entry (bridge true) with an accepting
  // VLAN. Returns its handle, the invalid handle on failure. Required.
  virtual MrouteLib::RouteHandle doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                  Bridging::VlanIdOrNone acceptingVlanId, bool bridge,
                                                  std::uint32_t oifSetIndex, bool fastdrop, std::uint16_t rpaId);
  // 15. Programs a route without RPF check. Returns its handle, invalid on failure. Required.
  virtual MrouteLib::RouteHandle doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                       bool bridge, std::uint32_t oifSetIndex, bool fastdrop,
                                                       std::uint16_t rpaId);
  // 16. Re-points a programmed route at another OIF set. Required.
  virtual void doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                 Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex);
  // 17-18. Deletes a route / a boundary entry. Required.
  virtual void doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                              Vex::Ptr<Fal::Route const> const& route);
  virtual void doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                      Vex::Ptr<Fal::Boundary const> const& boundary);
  // 19. End of a batch of route changes. Optional.
  virtual void doCommitMrouteBatch();
  // 20-22. Whether the route, boundary and replication tables are full. Required.
  virtual bool mrouteFull(std::uint32_t switchId);
  virtual bool mrouteBoundaryFull(std::uint32_t switchId);
  virtual bool mtableFull(std::uint32_t switchId);
  // 23. Whether the route (or its fast-drop entry on vlan) was hit since the last clear. Required.
  virtual bool mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                            Bridging::VlanIdOrNone vlan, bool fastdrop);
  // 24-26. The hit-bit cache around one aging review: refresh before, clear after.
  virtual bool mrouteHitBitCacheRefresh(std::uint32_t switchId);
  virtual void mrouteHitBitCacheClear(std::uint32_t switchId);
  virtual void triggerRouteAgingReview();
  // 27-28. Verification of one route / boundary against the hardware. Required.
  virtual void verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route);
  virtual void verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Boundary const> const& boundary);
  // 29. Before a zombie OIF set is reused for a new route: may its entry serve these outputs?
  virtual bool verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex);
  // 30-32. The hook's own OIF-set cache.
  virtual bool verifyOifSetCache(OifSetPtr oifSet);
  virtual void addOifSetCache(OifSetPtr oifSet);
  virtual void deleteOifSetCache(OifSetPtr oifSet);

 protected:
  void markDefault(OptionalHook h) { defaults_.set(static_cast<std::size_t>(h)); }

 private:
  Vex::Ptr<Vex::Entity> mrouteSm_;
  std::bitset<static_cast<std::size_t>(OptionalHook::count)> defaults_;
};

}  // namespace FalHelper
