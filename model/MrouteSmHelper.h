#pragma once
// FalHelper::MrouteSmHelper: the hooks through which the synchronous state
// machines reach chip-specific code.
//
// Implemented by: a chip agent (real hardware), the reference chip in sim/,
// and recording doubles in tests. The agent hands one instance to
// Fal::MrouteSm (MrouteSmIs) and to every chip's Fal::MrouteSwitch and
// Fal::MrouteSwitchSm. The library calls these hooks and never programs
// hardware itself. Every hook runs on the agent's event-loop thread and
// must not block; a hook's work is done when it returns.
//
// Required hooks (marked "Required" below): the base class stops the agent
// through falAssert with "This function must be implemented by derived
// class" unless the environment variable FAL_NOOP_AGENT is set (read on
// every call), in which case it does nothing and yields 0, false or the
// handle 0, so an agent can run the whole library without hardware.
// Optional hooks have usable defaults. The per-chip switch skips
// doCommitMrouteBatch, verifyZombieUsable and the OIF-set cache hooks once it
// has seen their default run (isDefault()), so an agent that does not
// override them pays nothing for them.
//
// Arguments: switchId is the chip number given to the chip's
// Fal::MrouteSwitch; vrfId the VRF's 16-bit id from the L3 status; key the
// route's (source, group); oifSetIndex an index into the chip's multicast
// replication table, where 0 means "no entry" and 0xFFFFFFFF "none / table
// full". Ownership: every pointer passed in is the library's; the hook may
// keep a counted reference (Vex::Ptr) for as long as it likes, and the
// objects it points at never change what they describe (an OIF set's
// outputs, a route's key).
#include <bitset>
#include <cstdint>

#include "platform/fal/FalBaseHelper.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace Fal {
class MrouteSm;
class MtableOifSet;
class Route;
class Boundary;
}  // namespace Fal

namespace FalHelper {

// The synchronous hook object: a chip agent derives from it and overrides the
// hooks that touch its hardware (see the file's comment).
class FALMROUTE_EXPORT MrouteSmHelper : public Fal::FalBaseHelper {
 public:
  // The (source, group) key of a multicast route.
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  // An OIF set as the route programmer shares it: one object per distinct
  // set of outputs, the same for every route and every chip.
  using OifSetPtr = Vex::Ptr<MrouteLib::OifSet const>;

  // Watches the hook object.
  class Notifiee : public Vex::NotifieeOf<MrouteSmHelper> {
   public:
    // mrouteSm changed.
    virtual void onMrouteSm() {}
  };

  // The optional hooks whose default the per-chip switch skips.
  enum class OptionalHook : std::uint8_t {
    doCommitMrouteBatch,  // end of a batch of route changes
    verifyZombieUsable,   // may a zombie entry be reused
    verifyOifSetCache,    // is a freed set in the hook's own cache
    addOifSetCache,       // a refused zombie's set, for the hook's cache
    deleteOifSetCache,    // a freed set leaves the hook's cache
    count                 // the number of optional hooks
  };

  // An object named `name` (its entity name, for traces and diagnostics).
  explicit MrouteSmHelper(Vex::Name name);
  ~MrouteSmHelper() override;

  // The top-level state machine, set by the agent (never by the library) so
  // that its hook code can reach it (to publish counters, for instance).
  // Defined beside Fal::MrouteSm. Null until set.
  Vex::Ptr<Fal::MrouteSm> mrouteSm() const;
  // Sets mrouteSm and tells the notifiees (onMrouteSm). Set it to null before
  // the agent lets go of the state machine.
  void mrouteSmIs(Vex::Ptr<Fal::MrouteSm> const& sm);

  // This hook object takes part in the entity framework's backup of
  // entities. The library does not read it.
  bool hasBackupSupport() const override { return true; }
  // "FalHelper::MrouteSmHelper".
  Vex::String fwkType() const override { return "FalHelper::MrouteSmHelper"; }

  // True once the default of optional hook h has run: the hook object did not
  // override it, and since every such default has no effect, callers may skip it.
  bool isDefault(OptionalHook h) const { return defaults_.test(static_cast<std::size_t>(h)); }

  // 1. Start-up and cleanup of the agent's multicast routing. Called by
  // Fal::MrouteSm: with true when it initializes (at its construction, the
  // first call it makes), with false as the last call of its cleanup (its
  // destruction), after handleMulticastRouting(false). Required.
  virtual void mrouteInit(bool initializing);
  // 2. Multicast routing in hardware is to be on (true) or off (false).
  // Called by Fal::MrouteSm when that changes: on when some VRF has multicast
  // routing enabled and the hardware status allows routing, off otherwise,
  // and off once more in its cleanup. After an enable come
  // handleMrouteCounterMode and, with all-route counting on,
  // doCreateMrouteCounter(0, the wildcard key). Required.
  virtual void handleMulticastRouting(bool enabled);
  // 3. The counter mode of the multicast FIB's VRF configuration: when
  // routing is enabled and whenever the mode changes (then followed by
  // doClearMrouteCounter of the wildcard key). Optional; default: nothing.
  virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
  // 4. Verification: the hardware must have multicast routing as `enabled`
  // (the L3 status's multicastRoutingEnabled) says. Called by Fal::MrouteSm
  // on each verification request of the common data's Fal::VerifyData. The
  // hook reports a difference its own way (falAssert stops the agent).
  // Required.
  virtual void verifyMulticastRouting(bool enabled);
  // 5. Start-up (true) and cleanup (false) of chip switchId. Called by its
  // Fal::MrouteSwitchSm: true when it initializes (at its construction if the
  // common data says the agent is initialized, else when it comes to say
  // so), false as the last step of its cleanup (its destruction), after the
  // chip's zombie entries were released. Required.
  virtual void mrouteSwitchInit(std::uint32_t switchId, bool initializing);
  // 6. Programs a replication-table entry replicating to oifSet's outputs and
  // returns its index.
  //
  // Called by Fal::MrouteSwitch when a route needs a set of outputs that no
  // live entry of the chip holds (and no zombie entry that may be reused),
  // always after mtableFull(switchId) answered false; and by the fast-reroute
  // review of Fal::MrouteSwitchSm to rewrite an entry in place. oifSetIndex
  // says which:
  // - 0: a new entry;
  // - 0xFFFFFFFE: a new entry while a rewritten ("dirty") entry with the
  //   same outputs is still in use;
  // - the entry's own index: overwrite that entry with oifSet's outputs
  //   (fast-reroute outputs applied), so that every route through it follows
  //   at once; mtableFull is not asked first.
  //
  // Result: the entry's index: never 0, 0xFFFFFFFE or 0xFFFFFFFF, and not the
  // index of another live entry of the chip (the library stops on
  // "oifSetIndexColl( oifSetIndex ) == false"); 0xFFFFFFFF when the table has
  // no room (a route needing the entry is then parked until mtableFree comes
  // back). For an in-place rewrite, the same index, or 0xFFFFFFFF when it
  // failed (the entry then keeps its old outputs).
  //
  // An empty port-VLAN set (no outputs, no FRR outputs, no NAT VLANs) must
  // always get a valid index: the library asks for it without asking
  // mtableFull first, and stops on "oifSetIndex != invalidOifSetIndex()" when
  // refused. A chip keeps an entry that replicates nowhere for it (one for all
  // such sets, outside the table's capacity and never refused), and leaves it
  // in place when such a set is released (operation 8). Required.
  virtual std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet);
  // 7. Rewrites entry oifSetIndex with oifSet's outputs and returns its index.
  // Not called by the synchronous state machines (their in-place rewrites use
  // operation 6 with the entry's own index); kept for agents' own use.
  // Required.
  virtual std::uint32_t doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet);
  // 8. Releases the hardware entry oifSet->oifSetIndex(): no route of the
  // library points at it any more (each was re-pointed with
  // doSetMtableOifSet or deleted before). Called by Fal::MrouteSwitch once per
  // allocated entry: when its last route let go of it and it is not kept as
  // a zombie (zombies disabled in the L3 status, or the entry never used by
  // a route), when its zombie lifetime (4.0 s by default) ran out, or during
  // the chip's cleanup. Required.
  virtual void handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet);
  // 9. Creates a route counter: for the wildcard key with VRF 0 when
  // all-route counting is switched on (or routing is enabled with it on),
  // and for each counted route key of a VRF's configuration while it is on.
  // Called by Fal::MrouteSm. A created counter is published by the agent
  // through mrouteSm()->updateMfibCounter(key, 0, true). Result: whether it
  // was created; the library does not use it. Optional; default: false.
  virtual bool doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key);
  // 10. Deletes the counter of key: the wildcard key when all-route counting
  // is switched off, a route key that a VRF stopped counting. Called by
  // Fal::MrouteSm. Optional; default: nothing.
  virtual void doDeleteMrouteCounter(IpGenRouteKey const& key);
  // 11. Clears the counter of key: on a clear request of a VRF's
  // configuration, and for the wildcard key when the counter mode changes;
  // the library then publishes the counter as 0. Result: not used. Optional;
  // default: false.
  virtual bool doClearMrouteCounter(IpGenRouteKey const& key);
  // 12. The traffic the counter of key counted since the previous read.
  // Called by Fal::MrouteSm's polling, every 2.0 s by default, for each
  // active published counter; the library adds it to the published value,
  // and 0 leaves the row untouched. Optional; default: 0.
  virtual std::int64_t doReadMrouteCounter(IpGenRouteKey const& key);
  // 13. The counter of key was aged out of the published table (the table was
  // at capacity when a new counter came): the hook may release its hardware
  // counter. Called by Fal::MrouteSm. Optional; default: nothing.
  virtual void ageOutHwMcastCounter(IpGenRouteKey const& key);
  // 14. Programs a route (bridge false) accepting on acceptingVlanId and
  // replicating through entry oifSetIndex, or a boundary entry (bridge true:
  // oifSetIndex 0, fastdrop false, rpaId 0). Called by Fal::MrouteSwitch for
  // each route the route programmer adds, after the route's entry was
  // allocated (operation 6); an RPA index of 0xFFFF arrives as 0. Result: the
  // route's handle, unique on the chip among routes and boundary entries
  // together; the invalid handle when nothing was programmed, after which the
  // library asks mrouteFull (mrouteBoundaryFull for a boundary entry): true
  // records the table as full and the route waits, false counts as another
  // failure. doSetMtableOifSet follows for a route. Required.
  virtual MrouteLib::RouteHandle doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                  Bridging::VlanIdOrNone acceptingVlanId, bool bridge,
                                                  std::uint32_t oifSetIndex, bool fastdrop, std::uint16_t rpaId);
  // 15. Programs a route without RPF check (accepting on any interface), as
  // operation 14 does otherwise. Required.
  virtual MrouteLib::RouteHandle doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                       bool bridge, std::uint32_t oifSetIndex, bool fastdrop,
                                                       std::uint16_t rpaId);
  // 16. Points the programmed route `handle` at entry oifSetIndex. Called by
  // Fal::MrouteSwitch right after a route was programmed and whenever it
  // moves to another set of outputs; never when the entry would not change.
  // Its previous entry may be released (operation 8) right after. Required.
  virtual void doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                 Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex);
  // 17. Deletes the route `handle`. Called by Fal::MrouteSwitch when the route
  // programmer removes the route (or deletes it to add it again changed);
  // its entry may be released right after. Required.
  virtual void doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                              Vex::Ptr<Fal::Route const> const& route);
  // 18. Deletes the boundary entry `handle`; mrouteBoundaryFull is asked next
  // when the boundary table was full. Required.
  virtual void doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                      Vex::Ptr<Fal::Boundary const> const& boundary);
  // 19. The end of a batch of route changes (the route programmer's commit,
  // the end of an aging review): the hook may flush what it buffered.
  // Optional; default: nothing, and skipped at the end of a route batch.
  virtual void doCommitMrouteBatch();
  // 20. Whether the route table is full. Asked after doAllocateMroute /
  // doAllocateMrouteNoRpf returned the invalid handle, and on each route
  // review request while the switch has the table recorded as full, to find
  // room come back (mrouteTcamFree true again, and the waiting routes are
  // retried). Required.
  virtual bool mrouteFull(std::uint32_t switchId);
  // 21. Whether the boundary table is full: after a boundary entry could not
  // be programmed, and after one was deleted while the table was recorded
  // as full. Required.
  virtual bool mrouteBoundaryFull(std::uint32_t switchId);
  // 22. Whether the replication table is full: asked before every new entry
  // (operation 6 with index 0 or 0xFFFFFFFE); true records it as full
  // (mtableFree false) until an entry is released. Required.
  virtual bool mtableFull(std::uint32_t switchId);
  // 23. Whether the route `key` (fastdrop false), or its fast-drop entry on
  // `vlan` (fastdrop true), was hit since the hit bits were last cleared.
  // Called by the aging review of Fal::MrouteSwitchSm, every activity polling
  // interval, in slices of 0.05 s, for the routes of the multicast FIB's
  // hardware status (held by the switch or not); a hit stamps the route's
  // activity. Required.
  virtual bool mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                            Bridging::VlanIdOrNone vlan, bool fastdrop);
  // 24. Refreshes the chip's hit-bit cache before an aging review reads it
  // (with hit bits read directly, not through Fal::MrouteHitConfig). Result:
  // not used. Optional; default: true.
  virtual bool mrouteHitBitCacheRefresh(std::uint32_t switchId);
  // 25. Clears the chip's hit bits once an aging review has read them all.
  // Optional; default: nothing.
  virtual void mrouteHitBitCacheClear(std::uint32_t switchId);
  // 26. Not called by the library: an agent's own way to ask for an aging
  // review. Optional; default: nothing.
  virtual void triggerRouteAgingReview();
  // 27. Verification of one route: the hardware must hold `route` as the
  // library does (its key, VRF, accepting VLAN, entry). Called by
  // Fal::MrouteSwitch on each verification request, for every route in
  // handle order, after the boundary entries. Required.
  virtual void verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route);
  // 28. Verification of one boundary entry, as operation 27. Required.
  virtual void verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Boundary const> const& boundary);
  // 29. Whether the zombie entry oifSetIndex may serve a new route with the
  // outputs portVlanSet. Asked before the library brings a zombie back; false
  // makes it program a new entry instead (addOifSetCache follows) and leave
  // the zombie to expire. Optional; default: true, skipped.
  virtual bool verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex);
  // 30. Whether the hook's own OIF-set cache holds oifSet. Asked when an
  // entry is freed; true makes the library call deleteOifSetCache and leave
  // the set in its sharing table. Optional; default: false, skipped.
  virtual bool verifyOifSetCache(OifSetPtr oifSet);
  // 31. oifSet's zombie was refused by verifyZombieUsable: the hook may cache
  // the set. Optional; default: nothing, skipped.
  virtual void addOifSetCache(OifSetPtr oifSet);
  // 32. A freed set that verifyOifSetCache found in the hook's cache: the hook
  // drops it. Optional; default: nothing, skipped.
  virtual void deleteOifSetCache(OifSetPtr oifSet);

 protected:
  // What the default of optional hook h does: note that it ran.
  void markDefault(OptionalHook h) { defaults_.set(static_cast<std::size_t>(h)); }

 private:
  Vex::Ptr<Vex::Entity> mrouteSm_;
  std::bitset<static_cast<std::size_t>(OptionalHook::count)> defaults_;
};

}  // namespace FalHelper
