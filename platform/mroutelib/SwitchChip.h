#pragma once
// The platform base of a per-chip switch entity: what the route programmer
// calls to program one chip, and the flags through which the chip tells it
// that a table is full or has room again.
//
// Implemented by each chip's library (the synchronous flavour's per-chip
// switch, the reference chip of the simulator, recording doubles in tests).
//
// Calling order. For a route the programmer calls doAllocateMtableOifSet for
// its outputs and reads oifSetResult() at once; then doAllocateRoute with that
// set and reads handleResult() at once; a route whose outputs change is
// re-pointed with doSetMtableOifSet; doDeleteRoute removes it. A batch of
// changes ends with doCommitRouteBatch. Results are left in the two result
// attributes because the calls are virtual operations without a return value;
// they are written on every call (also to "nothing": a null set, the invalid
// handle) and are not notified.
//
// The free flags (mtableFree, mrouteTcamFree, boundaryTcamFree) go false when
// an allocation failed for a full table, and true when room returns; the
// programmer parks what failed and retries when a flag comes back or when
// mrouteReviewKick moves. Their mutators notify only on a change.
//
// SwitchChip's mutators notify through SwitchChip::Notifiee, so a derived
// entity's reactors must derive from SwitchChip::Notifiee.
#include <cstdint>
#include <utility>

#include "platform/mroutelib/MtableOifSet.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace Routing::Multicast::Fib {
class IpGenRouteKey;
}  // namespace Routing::Multicast::Fib

namespace MrouteLib {

class FALMROUTE_EXPORT SwitchChip : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<SwitchChip> {
   public:
    virtual void onMtableFree() {}
    virtual void onMrouteTcamFree() {}
    virtual void onBoundaryTcamFree() {}
    virtual void onMrouteReviewKick() {}
  };

  Vex::Name const& name() const { return name_; }
  std::uint32_t chipId() const { return chipId_; }

  // Room in the multicast replication table.
  bool mtableFree() const { return mtableFree_; }
  void mtableFreeIs(bool v);
  // Room in the route table.
  bool mrouteTcamFree() const { return mrouteTcamFree_; }
  void mrouteTcamFreeIs(bool v);
  // Room in the boundary table.
  bool boundaryTcamFree() const { return boundaryTcamFree_; }
  void boundaryTcamFreeIs(bool v);
  // Bumped to ask the route programmer to review the routes it could not
  // program.
  std::uint32_t mrouteReviewKick() const { return mrouteReviewKick_; }
  void mrouteReviewKickIs(std::uint32_t v);
  void mrouteReviewKickInc() { mrouteReviewKickIs(mrouteReviewKick_ + 1); }

  // The handle of the last doAllocateRoute; invalidRouteHandle when it
  // programmed nothing.
  RouteHandle handleResult() const { return handleResult_; }
  void handleResultIs(RouteHandle h) { handleResult_ = h; }
  // The set of the last doAllocateMtableOifSet; null when none was allocated.
  Vex::Ptr<MtableOifSet> const& oifSetResult() const { return oifSetResult_; }
  void oifSetResultIs(Vex::Ptr<MtableOifSet> s) { oifSetResult_ = std::move(s); }

  // Programs a route (or, with bridge, a boundary entry) for key, accepting
  // on acceptingVlanId, replicating through oifSet; noRpf routes accept on
  // any interface. Leaves the handle, or invalidRouteHandle, in handleResult.
  virtual void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                               bool bridge, Vex::Ptr<MtableOifSet> oifSet, bool fastdrop, bool noRpf,
                               std::uint16_t rpaId, L3::VrfName const& vrfName) = 0;
  // Re-points the route of handle to oifSet.
  virtual void doSetMtableOifSet(RouteHandle handle, Vex::Ptr<MtableOifSet> oifSet) = 0;
  virtual void doDeleteRoute(RouteHandle handle) = 0;
  // Finds or allocates the chip's programmed set for oifSet; leaves it, or
  // null, in oifSetResult.
  virtual void doAllocateMtableOifSet(Vex::Ptr<OifSet const> oifSet) = 0;
  virtual void doCommitRouteBatch() = 0;

 protected:
  SwitchChip(Vex::Name name, std::uint32_t chipId) : name_(std::move(name)), chipId_(chipId) {}
  ~SwitchChip() override;

 private:
  Vex::Name name_;
  Vex::Ptr<MtableOifSet> oifSetResult_;
  std::uint32_t chipId_;
  std::uint32_t mrouteReviewKick_ = 0;
  RouteHandle handleResult_;
  bool mtableFree_ = true;
  bool mrouteTcamFree_ = true;
  bool boundaryTcamFree_ = true;
};

}  // namespace MrouteLib
