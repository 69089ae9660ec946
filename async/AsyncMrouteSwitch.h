#pragma once
// Fal::Mroute::AsyncMrouteSwitch: the per-chip table of the asynchronous
// flavour.
//
// The platform's route programmer drives it through MrouteLib::AsyncSwitchChip
// (see that header for the calling order); it turns each request into calls
// on the hook object, which starts hardware transactions, and hands those
// transactions back for the programmer to wait on. It keeps the bookkeeping
// the hook does not: which handle stands for which route, which OIF set is
// programmed under which multicast id, which groups wait as zombies, and
// which sets take part in fast reroute (FRR).
//
// Groups. One live AsyncMtableOifSet per MrouteLib::OifSet is shared by every
// route with those outputs (a sharable group), unless the hook says the set's
// route type needs a fixed group, which is never shared. When the last
// reference to a record goes, handleFreeMtableOifSet keeps a group that was
// in hardware as a zombie for the record's zombieLifetime (the per-chip state
// machine purges it) and frees any other at once. A zombie asked for again
// comes back with its id. After every change of hardware state the hook's
// doScheduleVerify() is called.
//
// Owned by the agent beside its per-chip state machine
// (Fal::Mroute::AsyncMrouteSwitchSm), which watches the zombie collection and
// runs the FRR review pass over frrProcessingOifSet.
#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "async/AsyncMtableOifSet.h"
#include "async/InUseRouteHandleTable.h"
#include "model/AsyncMrouteHelper.h"
#include "model/DenseIdMap.h"
#include "model/HugePageAllocator.h"
#include "model/OifSetShareTable.h"
#include "model/RouteKeyHash.h"
#include "model/mroute/AsyncMrouteSwitchRoute.h"
#include "model/mroute/InUseRouteHandleKey.h"
#include "model/mroute/ZombieKey.h"
#include "platform/fib/routing/RouteStatus.h"
#include "platform/mroutelib/AsyncSwitchChip.h"
#include "platform/vex/BackLink.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"

namespace Fal::Mroute {

class FALMROUTE_EXPORT AsyncMrouteSwitch : public MrouteLib::AsyncSwitchChip {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using RoutingHwRouteStatus = Routing::Hardware::RouteStatus;
  using OifSet = MrouteLib::OifSet;

  // Every collection tells its notifiees about each change of a member.
  class Notifiee : public Vex::NotifieeOf<AsyncMrouteSwitch> {
   public:
    virtual void onDeleted() {}
    virtual void onTestKill() {}
    virtual void onRoute(IpGenRouteKey const&) {}
    virtual void onMcastIdToOifSet(std::uint32_t) {}
    virtual void onInUseOifSet(OifSet const*) {}
    virtual void onZombieOifSet(ZombieKey const&) {}
    virtual void onFrrMtableOifSet(OifSet const*) {}
    virtual void onFrrProcessingOifSet(OifSet const*) {}
    virtual void onOifSetXact(OifSet const*) {}
    virtual void onInUseRouteHandle(InUseRouteHandleKey const&) {}
    virtual void onInUseRouteHandleKey(MrouteLib::RouteHandle) {}
    // A resurrected zombie whose outputs name a protected interface entered
    // frrMtableOifSet again under oifSet.
    virtual void onFrrOifSetResurrected(OifSet const*) {}
  };

  // Sets with fast-reroute outputs, keyed by their OIF set, in the order the
  // OIF sets were made: a review pass visits them alike in every run. Each
  // member holds its OIF set, so a key never outlives its object.
  using FrrOifSetColl = Vex::OrderedColl<OifSet const*, Vex::Ptr<OifSet const>, OifSet::BySerial>;
  using ZombieColl = Vex::OrderedColl<ZombieKey, Vex::Ptr<AsyncMtableOifSet>>;

  AsyncMrouteSwitch(Vex::Name name, Vex::Ptr<RoutingHwRouteStatus const> routingHwRouteStatus,
                    Vex::Ptr<FalHelper::AsyncMrouteHelper> mrouteHelper);
  ~AsyncMrouteSwitch() override;

  Vex::Ptr<RoutingHwRouteStatus const> const& routingHwRouteStatus() const { return routingHwRouteStatus_; }
  Vex::Ptr<FalHelper::AsyncMrouteHelper> const& mrouteHelper() const { return mrouteHelper_; }

  // Set by the state machine's clean-up: freed records then skip the zombie
  // stage and the bookkeeping, and zombie handling stops.
  bool deleted() const { return deleted_; }
  void deletedIs(bool v);
  bool testKill() const { return testKill_; }
  void testKillIs(bool v);

  // ---- routes ----
  // The route programmed under key (its key and RPA index), or null.
  AsyncMrouteSwitchRoute const* route(IpGenRouteKey const& key) const;
  std::size_t routeSize() const { return route_.size(); }
  // The handle of the route with this key, accepting VLAN and VRF id; the
  // invalid handle when none.
  MrouteLib::RouteHandle inUseRouteHandle(InUseRouteHandleKey const& key) const;
  // The same for a route by its own key, accepting VLAN and VRF id, looked up
  // under the key it is recorded under (inUseRouteHandleKeyOf) without
  // making that key.
  MrouteLib::RouteHandle inUseRouteHandle(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                                          Fal::VrfId vrfId) const {
    return inUseRouteHandle_.find(recordedRouteKey(routeKey), vlan, vrfId);
  }
  // Starts fetching what inUseRouteHandle(routeKey, vlan, vrfId) will read
  // first (a hint; no effect on the result), so that a walk can ask a few
  // routes ahead.
  void inUseRouteHandlePrefetch(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan, Fal::VrfId vrfId) const {
    inUseRouteHandle_.prefetch(recordedRouteKey(routeKey), vlan, vrfId);
  }
  std::size_t inUseRouteHandleSize() const { return inUseRouteHandle_.size(); }
  // What a handle stands for; the default key when the handle is not in use.
  InUseRouteHandleKey inUseRouteHandleKey(MrouteLib::RouteHandle handle) const;
  std::size_t inUseRouteHandleKeySize() const { return inUseRouteHandleKey_.size(); }
  // Calls f(handle, key) for every handle in use, in handle order; f must
  // not change the switch.
  template <class F>
  void forEachInUseRouteHandleKey(F&& f) const {
    std::vector<std::pair<std::uint32_t, InUseRouteHandleKey const*>> held;
    held.reserve(inUseRouteHandleKey_.size());
    inUseRouteHandleKey_.forEach(
        [&held](std::uint32_t handle, HandleRecord const& r) { held.emplace_back(handle, &r.key); });
    std::sort(held.begin(), held.end());
    for (auto const& [handle, key] : held) f(MrouteLib::RouteHandle(handle), *key);
  }
  // The key under which a route is recorded: the route key unchanged, except
  // that an IPv4 key whose group is a range of groups rather than one group
  // stands as the IPv4 wildcard key (0.0.0.0/0, 224.0.0.0/4).
  static InUseRouteHandleKey inUseRouteHandleKeyOf(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                                                   Fal::VrfId vrfId) {
    return InUseRouteHandleKey(recordedRouteKey(routeKey), vlan, vrfId);
  }
  // The route key part of that key.
  static IpGenRouteKey const& recordedRouteKey(IpGenRouteKey const& routeKey) {
    // A route over a range of groups takes the hardware's one group-range
    // entry, which stands for every IPv4 group.
    static IpGenRouteKey const groupRangeKey = IpGenRouteKey::wildcard();
    bool const groupRange = routeKey.af() == Netcore::AddressFamily::ipv4 && !routeKey.group().isHost();
    return groupRange ? groupRangeKey : routeKey;
  }

  // ---- groups ----
  // The OIF set programmed under a multicast id, or null.
  Vex::Ptr<OifSet const> mcastIdToOifSet(std::uint32_t mcastId) const;
  std::size_t mcastIdToOifSetSize() const { return mcastIdToOifSet_.size(); }
  // The live record of an OIF set (the one a new route would share), or null.
  AsyncMtableOifSet* inUseOifSet(OifSet const* oifSet) const;
  std::size_t inUseOifSetSize() const { return inUseOifSet_.size(); }
  // The outstanding transaction of an OIF set's group, or null.
  XactPtr oifSetXact(OifSet const* oifSet) const;
  std::size_t oifSetXactSize() const { return oifSetXact_.size(); }

  // Zombies, ordered by expiry then multicast id: the first expires next.
  ZombieColl const& zombieOifSet() const { return zombieOifSet_; }
  // Enters set under its own zombie key.
  void zombieOifSetIs(Vex::Ptr<AsyncMtableOifSet> const& set);
  // Removing a zombie drops the collection's reference: a record nothing else
  // holds is freed at once (its group is deleted).
  void zombieOifSetDel(ZombieKey const& key);

  // FRR sets watched for an interface failure, and those whose rewrite is under way.
  FrrOifSetColl const& frrMtableOifSet() const { return frrMtableOifSet_; }
  void frrMtableOifSetDel(OifSet const* oifSet);
  FrrOifSetColl const& frrProcessingOifSet() const { return frrProcessingOifSet_; }
  void frrProcessingOifSetIs(OifSet const* oifSet);
  void frrProcessingOifSetDel(OifSet const* oifSet);

  // ---- MrouteLib::AsyncSwitchChip ----
  void doAllocateRoute(IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone acceptingVlanId, bool bridgeAction,
                       Memtab::Multicast::Fib::RpaIndex rpaIndex, L3::VrfName const& vrfName, bool fastdrop) override;
  XactPtr doAllocateMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet, XactPtr blockingXact,
                                 std::uint32_t presetMulticastId, bool frrRoute) override;
  XactPtr doSetMtableOifSet(MrouteLib::RouteHandle routeHandle, Vex::Ptr<MrouteLib::MtableOifSet> mtableOifSet,
                            XactPtr xact) override;
  void doDeleteRoute(MrouteLib::RouteHandle routeHandle) override;
  void doSetBridgeAction(MrouteLib::RouteHandle routeHandle, bool bridgeAction) override;
  void doActivateRoute(MrouteLib::RouteHandle routeHandle) override;
  OifSetPtr doGetOifSet(Vex::Ptr<MrouteLib::MtableOifSet const> mtableOifSet) override;
  std::uint32_t doGetMulticastId(Vex::Ptr<MrouteLib::MtableOifSet const> mtableOifSet) override;
  bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType routeType) override;
  std::uint32_t doGetOifSetXactFailureReason(XactPtr xact) override;
  std::uint32_t doGetIngressXactFailureReason(XactPtr xact) override;
  bool hasBackupSupport() const override { return false; }
  // The route programmer (through the record's clean-up) no longer needs the set.
  void handleFreeMtableOifSet(Vex::Ptr<MrouteLib::MtableOifSet> const& mtableOifSet) override;

  // What the switch's records hold to reach it; cleared when the switch goes.
  Vex::Ptr<Vex::BackLink<AsyncMrouteSwitch>> const& link() const { return link_; }
  // Called by a record being destroyed: drops the entries that still name it.
  void mtableOifSetGone(AsyncMtableOifSet const* set);

 private:
  // What a handle in use stands for. Held comes first and marks the record
  // (the handle table's empty slots are default records), so that the
  // default key, which names no route, can still be recorded.
  struct HandleRecord {
    bool held = false;
    InUseRouteHandleKey key;
    friend bool operator==(HandleRecord const&, HandleRecord const&) = default;
  };
  struct RouteEntry {
    AsyncMrouteSwitchRoute route;
    std::uint32_t handles = 0;  // in-use handles programmed with this key
  };
  // The route tables hash their keys by folding the address words directly:
  // a route add hashes a key twice and an aging review once per route.
  struct RouteKeyHasher {
    std::size_t operator()(IpGenRouteKey const& k) const { return routeKeyHash(k, 0); }
  };

  // Shares the live record of oifSet, or brings it back from the zombies;
  // null when it may not be shared (fixed, dirty, or the id not reusable).
  Vex::Ptr<AsyncMtableOifSet> shareMtableOifSet(OifSet const* oifSet);
  // A record with a group of its own (fixed, or sharable and new); null, with
  // the failure reason set, when no group id is free.
  Vex::Ptr<AsyncMtableOifSet> newMtableOifSet(MrouteLib::RouteKeyInfo const& routeKeyInfo, OifSetPtr const& oifSet,
                                               XactPtr const& blockingXact, std::uint32_t presetMulticastId,
                                               bool frrRoute, bool fixed);
  void resurrect(AsyncMtableOifSet& set);
  void freeMtableOifSet(AsyncMtableOifSet& set);
  // Drops a handle's two entries; its route key's entry in route goes with
  // the key's last handle.
  void forgetRouteHandle(MrouteLib::RouteHandle handle);
  // The transaction that writes oifSet's group; a null one forgets it. Every
  // share lookup without a transaction comes here: while no set has one, this
  // is a test, not a call and a hash.
  void oifSetXactIs(OifSet const* oifSet, XactPtr const& xact) {
    if (xact || !oifSetXact_.empty()) oifSetXactChange(oifSet, xact);
  }
  void oifSetXactDel(OifSet const* oifSet) { oifSetXactIs(oifSet, nullptr); }
  void oifSetXactChange(OifSet const* oifSet, XactPtr const& xact);
  Vex::Seconds now() const;

  Vex::Ptr<RoutingHwRouteStatus const> routingHwRouteStatus_;
  Vex::Ptr<FalHelper::AsyncMrouteHelper> mrouteHelper_;
  absl::flat_hash_map<IpGenRouteKey, RouteEntry, RouteKeyHasher, std::equal_to<IpGenRouteKey>,
                      HugePageAllocator<std::pair<IpGenRouteKey const, RouteEntry>>>
      route_;
  absl::btree_map<std::uint32_t, Vex::Ptr<OifSet const>> mcastIdToOifSet_;
  Vex::Ptr<Vex::BackLink<AsyncMrouteSwitch>> link_;
  // Not counted: a record leaves when it is freed or destroyed. Keyed by the
  // switch's link, whose address stays its own while any record holds it.
  OifSetShareTable<AsyncMtableOifSet> inUseOifSet_{link_.get()};
  absl::flat_hash_map<OifSet const*, XactPtr> oifSetXact_;
  ZombieColl zombieOifSet_;
  FrrOifSetColl frrMtableOifSet_;
  FrrOifSetColl frrProcessingOifSet_;
  // The aging review asks for each route's handle a few routes ahead: the
  // table's fetch reaches the slot the lookup reads, one line for most keys.
  InUseRouteHandleTable inUseRouteHandle_;
  // By handle; chips hand handles out mostly dense, so in pages of them.
  DenseIdMap<HandleRecord> inUseRouteHandleKey_;
  // The route key of each handle recorded under another key (group ranges).
  absl::flat_hash_map<MrouteLib::RouteHandle, IpGenRouteKey> rangeRouteKey_;
  bool deleted_ = false;
  bool testKill_ = false;
};

FALMROUTE_EXPORT Vex::Ptr<AsyncMrouteSwitch> asyncMrouteSwitchFactory(
    Vex::Name name, Vex::Ptr<AsyncMrouteSwitch::RoutingHwRouteStatus const> const& routingHwRouteStatus,
    Vex::Ptr<FalHelper::AsyncMrouteHelper> const& mrouteHelper);

}  // namespace Fal::Mroute
