#pragma once
// The route programmer: takes the multicast routes their owner wants in
// hardware and programs them on every switch chip, through
// MrouteLib::SwitchChip (synchronous chips) or MrouteLib::AsyncSwitchChip
// (chips whose changes are transactions that complete later).
//
// Sharing. Every distinct output set is one OifSet of the registry; the
// programmer holds the OifSet of each of its routes, so all routes with the
// same outputs hand every chip the same object and the chip shares one
// replication entry among them.
//
// Calling order on a synchronous chip, for one route:
//   doAllocateMtableOifSet(oifSet), then oifSetResult() is taken and cleared;
//   doAllocateRoute(key, acceptingVlan, bridge, set, fastdrop, noRpf, rpaId,
//                   vrfName), then handleResult() is read;
//   doSetMtableOifSet(handle, set) binds the route to its set.
// A boundary entry (bridge) takes no OIF set: doAllocateRoute only. A change
// of outputs allocates the new set and re-points the route with
// doSetMtableOifSet; a change of accepting VLAN, kind or flags allocates the
// set, deletes the route (doDeleteRoute) and adds it again. commit() ends a
// batch with doCommitRouteBatch on every chip.
//
// Ownership of a synchronous chip's set. Between its allocation and the bind
// the set is held by a local reference only; once bound, the chip's route is
// its only holder here. So when the last route leaves a set, the chip sees it
// go and can keep it as a zombie or free it; the programmer never keeps one
// alive.
//
// Asynchronous chips. For one route: doAllocateMtableOifSet(info, oifSet,
// null, kInvalidMulticastId, frr) gives the group (oifSetResult, taken and
// cleared) and its transaction; doAllocateRoute(key, acceptingVlan or none
// for noRpf, bridge, rpaId, vrfName, fastdrop) gives the handle at once; once
// the group's transaction has completed, doSetMtableOifSet(handle, group,
// groupXact) binds the route and gives the ingress transaction; once that
// one has completed the route is programmed on the chip. Nothing blocks:
// each step is taken when the transaction it waits for completes, from the
// event loop (at once when it already has). A route has at most one
// transaction outstanding per chip; a change that arrives meanwhile is
// programmed when it completes. The route holds the group its chip's route
// is bound to, and the group being bound, so a group is only given back
// (doDeleteRoute first, then the reference dropped; the chip keeps it as a
// zombie or frees it) once no ingress entry points at it or is being bound
// to it. A re-point keeps the old binding until the new one has completed.
//
// Failures. A route that a chip could not program is parked on that chip
// with a failure code. Synchronous chips: kFailure* (no OIF set (replication
// table), no handle while the chip's route or boundary table is full, or no
// handle for another reason). Asynchronous chips: the chip's own code, from
// mrouteFailureReason() when it allocated no group or no route, or from
// doGetOifSetXactFailureReason / doGetIngressXactFailureReason when a
// transaction failed. A route whose new outputs found no set keeps its old
// set programmed on that chip but is parked until the new one fits, or until
// its outputs change back to those it still replicates through.
//
// Retries. Routes parked on a synchronous chip are retried when the chip's
// matching free flag (mtableFree, mrouteTcamFree, boundaryTcamFree) comes
// back true, and all of them when its mrouteReviewKick moves. A trigger that
// arrives while the programmer is itself calling the chips (inside routeIs,
// routeDel, commit, a retry) is remembered and served at the end of commit(),
// or of the retry in progress. A trigger arriving from outside retries at
// once, from the reactor, in the chip's notification: a chip raises its flags
// and moves its kick only where it can take new calls. Each retry pass visits
// a parked route once and ends with doCommitRouteBatch on that chip; triggers
// raised by a pass run at most kMaxRetryRounds further passes. Routes parked
// on an asynchronous chip (which has no flags) are retried every
// asyncRetryInterval() while any is parked there, and at once when
// retryParked(chip) is called; a parked route keeps its failure until a
// retry has programmed it. The chips never retry on their own.
//
// Order. Whatever the programmer does route by route (programming a chip that
// is added, deleting from one that goes, retrying parked routes, and so which
// of them gets the room that came back) it does in the order the routes were
// first wanted: a defined order, the same in every run.
//
// Status. Each route's hardware route status in its family's
// Hardware::Status (vrfStatusIs(vrfName)->routeIs(key)) records its
// acceptingIntfId, programmed (true only when every chip holds the route as
// desired with no transaction outstanding; false while there is no chip) and
// failureReason (the code of the first chip, in the order chips were added,
// where it is parked). A new route's status exists before any chip is asked
// for it. routeDel removes the route status. A null status leaves that family
// unrecorded.
//
// Not re-entrant: a chip must not call back into the programmer from the
// calls it receives. Destroying the programmer leaves the chips' routes as
// they are.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "absl/container/btree_map.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/fib/hardware/Status.h"
#include "platform/fib/routing/RouteStatus.h"
#include "platform/mroutelib/AsyncSwitchChip.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/mroutelib/RouteKeyMap.h"
#include "platform/mroutelib/SwitchChip.h"
#include "platform/net/IntfId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace MrouteLib {

class FALMROUTE_EXPORT RouteProgrammer : public Vex::RefCounted {
 public:
  // Failure codes written to RouteStatus::failureReason.
  static constexpr std::uint32_t kFailureNone = 0;
  static constexpr std::uint32_t kFailureReplicationTableFull = 1;
  static constexpr std::uint32_t kFailureRouteTableFull = 2;
  static constexpr std::uint32_t kFailureBoundaryTableFull = 3;
  static constexpr std::uint32_t kFailureOther = 4;
  // Further retry passes one trigger may lead to.
  static constexpr int kMaxRetryRounds = 4;
  // Between retries of the routes parked on an asynchronous chip.
  static constexpr Vex::Seconds kDefaultAsyncRetryInterval = 1.0;

  using HardwareStatus = Routing::Multicast::Fib::Hardware::Status;
  using XactPtr = Vex::Ptr<Bolt::Xact const>;

  RouteProgrammer(Vex::Ptr<OifSetRegistry> registry, Vex::Ptr<HardwareStatus> v4Status,
                  Vex::Ptr<HardwareStatus> v6Status);
  ~RouteProgrammer() override;

  // Adds a chip and programs every route on it (ending with its
  // doCommitRouteBatch); a chip already added changes nothing.
  void switchChipIs(Vex::Ptr<SwitchChip> chip);
  // Adds an asynchronous chip and starts programming every route on it.
  // vrfIds gives the VRF ids the chip's groups are allocated for (the
  // chip's own VRF status; null: 0).
  void switchChipIs(Vex::Ptr<AsyncSwitchChip> chip, Vex::Ptr<Routing::Hardware::RouteStatus const> vrfIds);
  // Deletes every route from the chip, commits it and stops driving it.
  void switchChipDel(Vex::Ptr<SwitchChip> const& chip);
  // Deletes every route from the chip and stops driving it; what it was
  // waiting for there is forgotten.
  void switchChipDel(Vex::Ptr<AsyncSwitchChip> const& chip);
  bool switchChip(Vex::Entity const* chip) const { return slotOf(chip) != kNoSlot; }
  std::size_t switchChipSize() const { return chips_.size(); }

  // Retries now the routes parked on an asynchronous chip (its agent says
  // room came back or failures stopped).
  void retryParked(AsyncSwitchChip const* chip);
  Vex::Seconds asyncRetryInterval() const { return asyncRetryInterval_; }
  void asyncRetryIntervalIs(Vex::Seconds s) { asyncRetryInterval_ = s; }

  // Adds the route, or brings a known one to this description. A route
  // described as it already is makes no call.
  void routeIs(DesiredRoute const& route);
  void routeDel(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key);
  // Ends a batch: doCommitRouteBatch on every chip, then the retries that
  // free flags or kicks asked for during the batch.
  void commit();
  std::size_t routeSize() const { return routes_.size(); }

  // The route's handle on chip; invalid when the chip does not hold it.
  RouteHandle routeHandle(Vex::Entity const* chip, L3::VrfName const& vrfName,
                          Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  // The shared output set the route is programmed with; null for a boundary
  // entry or an unknown route.
  OifSetPtr oifSet(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  // The route's failure code on chip (kFailureNone when programmed there).
  std::uint32_t failureReason(Vex::Entity const* chip, L3::VrfName const& vrfName,
                              Routing::Multicast::Fib::IpGenRouteKey const& key) const;

  // Routes programmed on every chip, with no transaction outstanding (0
  // while there is no chip).
  std::size_t routesProgrammed() const;
  // Routes parked on at least one chip.
  std::size_t routesParked() const { return routesParked_; }
  // Routes waiting for a transaction on at least one chip.
  std::size_t routesWaiting() const { return routesWaiting_; }
  // The longest a route waited on one asynchronous chip, from the first call
  // of an attempt to program it to the completion that ended the attempt.
  Vex::Seconds longestWait() const { return longestWait_; }
  // Groups an asynchronous chip handed to a route while other routes held
  // them: the sharing the chips' groups saw.
  std::uint64_t groupsShared() const { return groupsShared_; }
  // Retry attempts of one parked route on one chip, since construction.
  std::uint64_t retries() const { return retries_; }
  // Calls made on the chips (every do* operation), since construction.
  std::uint64_t programmingCalls() const { return programmingCalls_; }

 private:
  static constexpr std::size_t kNoSlot = ~std::size_t{0};
  // Retry trigger bits: one per failure code, and the kick (every code,
  // whatever the flags say).
  static constexpr std::uint8_t kRetryKick = 1U << 4;

  // One route on one chip. A valid handle with a failure is a route whose
  // current outputs could not be programmed: it still replicates to its old set.
  struct ChipRoute {
    RouteHandle handle;
    std::uint32_t failure = kFailureNone;
    // The outputs the chip's route is bound to; null while it is bound to none.
    OifSetPtr bound;
  };
  // A route: what is wanted of it, and its ChipRoute on every chip, by chip
  // slot. Every record has one per chip, so the count is the programmer's
  // (chips_.size()) and the record keeps only where they are: the usual
  // agent's one chip inline, more chips all on the heap. A vector with one
  // inline cost 8 bytes more for its size.
  struct RouteRecord {
    RouteRecord() noexcept : firstChip() {}
    ~RouteRecord() { chipsFree(); }
    RouteRecord(RouteRecord const&) = delete;
    RouteRecord& operator=(RouteRecord const&) = delete;

    ChipRoute& chip(std::size_t slot) { return chipsOnHeap ? chips[slot] : firstChip; }
    ChipRoute const& chip(std::size_t slot) const { return chipsOnHeap ? chips[slot] : firstChip; }
    // A new record's routes for count chips.
    void chipsIs(std::size_t count);
    // One more, at the end, for a chip added (count: the chips before it).
    void chipAdd(std::size_t count);
    // Removes the chip's route at slot (count: the chips before).
    void chipDel(std::size_t slot, std::size_t count);

    OifSetPtr oifSet;  // null for a boundary entry
    union {
      ChipRoute firstChip;  // chipsOnHeap false: slot 0 (nothing while there is no chip)
      ChipRoute* chips;     // chipsOnHeap true: every slot
    };
    std::uint64_t wanted = 0;  // when the route was first wanted, counted in routes
    Netcore::IntfId acceptingIntfId;
    Bridging::VlanIdOrNone acceptingVlan;
    std::uint16_t rpaId = DesiredRoute::kRpaIdNone;
    std::uint16_t parkedChips = 0;
    std::uint16_t waitingChips = 0;  // asynchronous chips with a transaction outstanding
    bool bridge = false;
    bool fastdrop = false;
    bool noRpf = false;
    bool chipsOnHeap = false;

   private:
    // Moves the routes of the chips but skip (none: kNoSlot) out of count
    // into the form for what is left (to: its heap block, when there).
    void chipsMove(std::size_t count, std::size_t skip, ChipRoute* to) noexcept;
    // Ends the chips' form; neither member of the union is alive after.
    void chipsFree() noexcept;
  };
  static_assert(sizeof(RouteRecord) <= 48, "a route's record fits in 48 bytes beside its 16-byte IPv4 key");
  // Records in dense slots, found through a set of 4-byte slot numbers, each
  // beside its key in the fewest bytes its family allows (16 for an IPv4
  // key): at a million routes a record and a few bytes per route.
  using RouteMap = RouteKeyMap<RouteRecord>;
  // The VRF by its one copy and the full key, rebuilt on the stack.
  using RouteId = RouteMap::Id;

  class VexSwitchChip;
  struct AsyncChip;
  struct AsyncRoute;
  class XactWait;
  class VexRetryClock;
  using Parked = absl::btree_map<std::uint64_t, RouteId>;  // route ids by when they were wanted
  struct ChipState {
    ChipState();
    ~ChipState();
    Vex::Entity const* entity() const;
    Vex::Name const& name() const;

    // One of the two.
    Vex::Ptr<SwitchChip> chip;
    std::unique_ptr<AsyncChip> async;
    std::unique_ptr<VexSwitchChip> reactor;
    // Synchronous chips: parked route ids, by failure code - 1.
    std::array<Parked, 4> parked;
    std::uint8_t pendingRetry = 0;
  };

  class BusyScope {
   public:
    explicit BusyScope(RouteProgrammer& p) : p_(p), outer_(!p.busy_) { p_.busy_ = true; }
    ~BusyScope() {
      if (outer_) p_.busy_ = false;
    }
    BusyScope(BusyScope const&) = delete;
    BusyScope& operator=(BusyScope const&) = delete;

   private:
    RouteProgrammer& p_;
    bool outer_;
  };

  std::size_t slotOf(Vex::Entity const* chip) const;
  // Every route, in the order they were wanted.
  auto routesInWantedOrder() {
    return routes_.walkBy([](RouteRecord const& rec) { return rec.wanted; });
  }
  RouteRecord const* record(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  void programOnChip(std::size_t slot, RouteId const& id, RouteRecord& rec, bool reAdd);
  void routeDelOnChip(std::size_t slot, RouteId const& id, RouteRecord& rec);
  void chipFailureIs(std::size_t slot, RouteId const& id, RouteRecord& rec, std::uint32_t failure);
  // Counts the route's change of parked or waiting chips (before: unsettled before it).
  void settledCount(RouteRecord const& rec, bool before);
  static bool unsettled(RouteRecord const& rec) { return rec.parkedChips > 0 || rec.waitingChips > 0; }
  Parked& parkedOf(ChipState& cs, std::uint32_t failure);

  // ---- synchronous chips ----
  void programOnSyncChip(std::size_t slot, RouteId const& id, RouteRecord& rec, bool reAdd);
  Vex::Ptr<MtableOifSet> allocateMtableOifSet(SwitchChip& chip, OifSetPtr const& oifSet);
  void writeStatus(RouteId const& id, RouteRecord const& rec);
  HardwareStatus* statusOf(Routing::Multicast::Fib::IpGenRouteKey const& key) const;
  void retryTriggerIs(ChipState& cs, std::uint8_t bits);
  void runRetries(ChipState& cs);
  void retryPass(ChipState& cs, std::uint8_t bits);

  // ---- asynchronous chips ----
  void programOnAsyncChip(std::size_t slot, RouteId const& id, RouteRecord& rec);
  // Takes the next step of an attempt: allocates what is missing and binds,
  // or waits. fresh: a new attempt begins.
  void asyncStep(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar, bool fresh);
  void asyncBind(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar, XactPtr const& groupXact);
  // Whether the chip holds the route in a form (accepting VLAN, RPA, flags)
  // other than the wanted one, so that it must be deleted and added again.
  static bool reAddNeeded(RouteRecord const& rec, ChipRoute const& cr, AsyncRoute const& ar);
  // Deletes the chip's route of a re-add and lets its groups go.
  void deleteAsyncRoute(ChipState& cs, ChipRoute& cr, AsyncRoute& ar);
  void asyncBound(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar, XactPtr const& ingressXact);
  // Ends an attempt with failure (kFailureNone: programmed as wanted), and
  // begins the next when the route changed meanwhile.
  void asyncAttemptEnd(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar, std::uint32_t failure);
  // Waits for xact; then runs then(xact). False when it has completed
  // already: nothing is waited for, the caller goes on.
  bool asyncWait(ChipState& cs, RouteRecord& rec, AsyncRoute& ar, XactPtr const& xact, bool ingress);
  void asyncXactDone(ChipState& cs, std::uint64_t wanted, bool ingress, XactPtr const& xact);
  void asyncWaitEnd(RouteRecord& rec, AsyncRoute& ar);
  RouteKeyInfo routeKeyInfo(ChipState const& cs, RouteId const& id, RouteRecord const& rec) const;
  void asyncRetryArm(ChipState& cs);
  void asyncRetryPass(ChipState& cs);
  Vex::Seconds now() const;

  Vex::Ptr<OifSetRegistry> registry_;
  Vex::Ptr<HardwareStatus> v4Status_;
  Vex::Ptr<HardwareStatus> v6Status_;
  // Declared after the registry: the routes' OifSets go first.
  RouteMap routes_;
  std::vector<std::unique_ptr<ChipState>> chips_;
  std::size_t routesParked_ = 0;
  std::size_t routesWaiting_ = 0;
  std::size_t routesUnsettled_ = 0;  // parked or waiting somewhere
  std::uint64_t routesWanted_ = 0;
  std::uint64_t groupsShared_ = 0;
  Vex::Seconds longestWait_ = 0;
  Vex::Seconds asyncRetryInterval_ = kDefaultAsyncRetryInterval;
  std::uint64_t retries_ = 0;
  std::uint64_t programmingCalls_ = 0;
  bool busy_ = false;
};

}  // namespace MrouteLib
