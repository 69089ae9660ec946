#pragma once
// The platform base of a per-chip switch whose hardware work is
// asynchronous: what the route programmer calls to program one chip when
// every change is a transaction (Bolt::Xact) that completes later.
//
// Implemented by the asynchronous flavour's per-chip switch
// (Fal::Mroute::AsyncMrouteSwitch), which turns each call into hook calls
// that start transactions; by reference chips and recording doubles.
//
// Calling order, for one route:
//  1. doAllocateMtableOifSet(info, oifSet, blockingXact, presetMcastId, frr):
//     finds (shares, or brings a zombie back) or allocates the chip's group
//     for oifSet, leaves it in oifSetResult() (null when none could be had,
//     and then mrouteFailureReason() says why), and returns the transaction
//     to wait for before routes are bound to the group: the group's own
//     transaction, or null when nothing was allocated. blockingXact, when
//     not null, is a transaction the new group's programming must wait for.
//  2. doAllocateRoute(key, acceptingVlan, bridge, rpaIndex, vrfName,
//     fastdrop): programs the route's entry; leaves its handle in
//     routeHandle() (invalidRouteHandle on failure) and the failure bits in
//     mrouteFailureReason() (0 when it succeeded).
//  3. doSetMtableOifSet(handle, set, xact): binds the route to the group once
//     xact (the group's transaction from step 1) has completed; returns the
//     route's ingress transaction.
//  4. The programmer waits for the transactions. For one that failed it asks
//     doGetOifSetXactFailureReason or doGetIngressXactFailureReason and
//     records the reason in the hardware route status; nothing is retried.
//  A route leaves with doDeleteRoute(handle); a group that no route uses any
//  more is given back with handleFreeMtableOifSet(set), which may keep it as
//  a zombie for a while. doSetBridgeAction and doActivateRoute change a
//  programmed route.
//
// Pointers: transactions and sets passed in are borrowed for the call unless
// the chip keeps a reference of its own; those returned are shared (the
// caller may hold them as long as it needs).
//
// Results are left in the result attributes (routeHandle,
// mrouteFailureReason, oifSetResult) because the route programmer reads
// them right after each call; they are written on every call and not
// notified.
#include <cstdint>
#include <utility>

#include "platform/bolt/Xact.h"
#include "platform/fib/RouteKeyType.h"
#include "platform/memtab/RpaIndex.h"
#include "platform/mroutelib/MtableOifSet.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/mroutelib/RouteKeyInfo.h"
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

class FALMROUTE_EXPORT AsyncSwitchChip : public Vex::Entity {
 public:
  using XactPtr = Vex::Ptr<Bolt::Xact const>;
  using OifSetPtr = Vex::Ptr<OifSet const>;

  // Failure bits of mrouteFailureReason, as the hardware route status
  // records them.
  static constexpr std::uint32_t kFailureNone = 0;
  static constexpr std::uint32_t kFailureNoMulticastId = 0x8;    // no group could be allocated
  static constexpr std::uint32_t kFailureRouteRefused = 0x400;   // the chip allocated no route
  static constexpr std::uint32_t kFailureNoVrfStatus = 0x1000;   // the VRF has no status on the chip
  // The invalid multicast (group) id.
  static constexpr std::uint32_t kInvalidMulticastId = 0xFFFFFFFF;

  Vex::Name const& name() const { return name_; }

  RouteHandle routeHandle() const { return routeHandle_; }
  void routeHandleIs(RouteHandle h) { routeHandle_ = h; }
  std::uint32_t mrouteFailureReason() const { return mrouteFailureReason_; }
  void mrouteFailureReasonIs(std::uint32_t r) { mrouteFailureReason_ = r; }
  Vex::Ptr<MtableOifSet> const& oifSetResult() const { return oifSetResult_; }
  void oifSetResultIs(Vex::Ptr<MtableOifSet> s) { oifSetResult_ = std::move(s); }

  // Programs a route (bridge false) or a boundary entry (true) of vrfName,
  // accepting on acceptingVlanId (none: no RPF check). Results in
  // routeHandle and mrouteFailureReason.
  virtual void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone acceptingVlanId,
                               bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex, L3::VrfName const& vrfName,
                               bool fastdrop) = 0;
  // The chip's group for oifSet (step 1 above). presetMulticastId is a group
  // id the programmer asks for (kInvalidMulticastId: the chip chooses); frr
  // says the route has fast-reroute outputs.
  virtual XactPtr doAllocateMtableOifSet(RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet, XactPtr blockingXact,
                                         std::uint32_t presetMulticastId, bool frrRoute) = 0;
  // Binds the route to mtableOifSet once xact completed; returns the route's
  // ingress transaction.
  virtual XactPtr doSetMtableOifSet(RouteHandle routeHandle, Vex::Ptr<MtableOifSet> mtableOifSet, XactPtr xact) = 0;
  virtual void doDeleteRoute(RouteHandle routeHandle) = 0;
  virtual void doSetBridgeAction(RouteHandle routeHandle, bool bridgeAction) = 0;
  virtual void doActivateRoute(RouteHandle routeHandle) = 0;
  // What a set of this chip replicates to, and its group id.
  virtual OifSetPtr doGetOifSet(Vex::Ptr<MtableOifSet const> mtableOifSet) = 0;
  virtual std::uint32_t doGetMulticastId(Vex::Ptr<MtableOifSet const> mtableOifSet) = 0;
  // Whether routes of this key type need an ingress entry of their own.
  virtual bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType routeType) = 0;
  // Why a transaction failed (a route-status failure code), for the group's
  // transaction and for a route's ingress transaction.
  virtual std::uint32_t doGetOifSetXactFailureReason(XactPtr xact) = 0;
  virtual std::uint32_t doGetIngressXactFailureReason(XactPtr xact) = 0;
  // Whether the chip programs backup (fast-reroute) outputs itself.
  virtual bool hasBackupSupport() const = 0;
  // The programmer no longer needs mtableOifSet.
  virtual void handleFreeMtableOifSet(Vex::Ptr<MtableOifSet> const& mtableOifSet) = 0;

 protected:
  explicit AsyncSwitchChip(Vex::Name name) : name_(std::move(name)) {}
  ~AsyncSwitchChip() override;

 private:
  Vex::Name name_;
  Vex::Ptr<MtableOifSet> oifSetResult_;
  RouteHandle routeHandle_;
  std::uint32_t mrouteFailureReason_ = kFailureNone;
};

}  // namespace MrouteLib
