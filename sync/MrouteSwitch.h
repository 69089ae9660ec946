#pragma once
// Fal::MrouteSwitch: the per-chip book of programmed multicast routes,
// boundary entries and replication-table entries (OIF sets) of the
// synchronous flavour.
//
// The platform's route programmer drives it through MrouteLib::SwitchChip;
// it programs hardware only through the hook object. It shares one
// Fal::MtableOifSet among all routes with the same MrouteLib::OifSet, keeps
// freed sets as zombies for zombieLifetime seconds so a returning route can
// reuse the entry, and records full route, boundary and replication tables in
// the three free flags of SwitchChip.
#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "model/DenseIdMap.h"
#include "model/HugePageAllocator.h"
#include "model/MrouteSmHelper.h"
#include "model/MtableOifSetPtr.h"
#include "model/OifSetShareTable.h"
#include "model/RouteKeyVlanId.h"
#include "model/ZombieKey.h"
#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/IpStatus.h"
#include "platform/mroutelib/SwitchChip.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"
#include "sync/Boundary.h"
#include "sync/MrouteSwitchLink.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace Fal {

class FALMROUTE_EXPORT MrouteSwitch : public MrouteLib::SwitchChip {
 public:
  class Notifiee : public MrouteLib::SwitchChip::Notifiee {
   public:
    // The zombie collection changed under key.
    virtual void onZombieOifSet(ZombieKey const& key) {}
    // A resurrected zombie with fast-reroute outputs entered frrMtableOifSet
    // again under oifSet.
    virtual void onFrrOifSetResurrected(MrouteLib::OifSet const* oifSet) {}
  };

  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  // Ordered so that a review pass can resume at a saved position; in the
  // order the platform sets were made, so that passes visit sets alike in
  // every run.
  using FrrOifSetColl = Vex::OrderedColl<MrouteLib::OifSet const*, MtableOifSetPtr, MrouteLib::OifSet::BySerial>;

  static constexpr Vex::Seconds kDefaultZombieLifetime = 4.0;

  MrouteSwitch(std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
               Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper, Vex::Ptr<Ip::Status const> const& ipStatus,
               Vex::Ptr<HwStatus const> const& mfibHwStatus, Vex::Ptr<HwStatus const> const& mfib6HwStatus);
  ~MrouteSwitch() override;

  std::uint32_t switchId() const { return chipId(); }
  Vex::Ptr<FalCommonSmData> const& acsd() const { return acsd_; }
  Vex::Ptr<L3Status> const& l3Status() const { return l3Status_; }
  Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper() const { return mrouteHelper_; }
  Vex::Ptr<Ip::Status const> const& ipStatus() const { return ipStatus_; }
  Vex::Ptr<HwStatus const> const& mfibHwStatus() const { return mfibHwStatus_; }
  Vex::Ptr<HwStatus const> const& mfib6HwStatus() const { return mfib6HwStatus_; }
  Vex::Ptr<VerifyData> verifyData() const { return acsd_ ? acsd_->verifyData() : nullptr; }
  bool initialized() const { return initialized_; }
  bool deleted() const { return deleted_; }
  void deletedIs(bool v) { deleted_ = v; }
  Vex::Seconds zombieLifetime() const { return zombieLifetime_; }
  void zombieLifetimeIs(Vex::Seconds s) { zombieLifetime_ = s; }

  // Routes by hardware handle, in pages of consecutive handles (chips hand
  // them out from a dense range): 8 bytes per route, and a lookup reads one
  // slot.
  using RouteColl = DenseIdMap<Vex::Ptr<Route>>;
  // The routes as (handle, route) pairs, in no particular order:
  // `for (auto const& [handle, route] : sw.routes())`.
  class RouteView {
   public:
    class Iterator {
     public:
      using value_type = std::pair<MrouteLib::RouteHandle, Vex::Ptr<Route> const&>;
      explicit Iterator(RouteColl::Iterator it) : it_(it) {}
      value_type operator*() const {
        auto [handle, route] = *it_;
        return {MrouteLib::RouteHandle(handle), route};
      }
      Iterator& operator++() {
        ++it_;
        return *this;
      }
      friend bool operator==(Iterator const& a, Iterator const& b) { return a.it_ == b.it_; }

     private:
      RouteColl::Iterator it_;
    };
    explicit RouteView(RouteColl const& routes) : routes_(&routes) {}
    Iterator begin() const { return Iterator(routes_->begin()); }
    Iterator end() const { return Iterator(routes_->end()); }
    std::size_t size() const { return routes_->size(); }
    bool empty() const { return routes_->empty(); }

   private:
    RouteColl const* routes_;
  };

  // Routes and boundary entries by hardware handle.
  Vex::Ptr<Route> route(MrouteLib::RouteHandle h) const;
  std::size_t routeSize() const { return route_.size(); }
  RouteView routes() const { return RouteView(route_); }
  Vex::Ptr<Boundary> boundary(MrouteLib::RouteHandle h) const;
  std::size_t boundarySize() const { return boundary_.size(); }
  absl::flat_hash_map<MrouteLib::RouteHandle, Vex::Ptr<Boundary>> const& boundaries() const { return boundary_; }
  // The handle of the route with this key and accepting VLAN, or the invalid handle.
  MrouteLib::RouteHandle routeKeyToHandle(RouteKeyVlanId const& k) const;
  std::size_t routeKeyToHandleSize() const { return routeKeyToHandle_.size(); }
  // The route routeKeyToHandle names, found with one lookup; null when none.
  // Valid until the route is deleted.
  Route* routeByKey(RouteKeyVlanId const& k) const { return routeByKey(k.route, k.vlan); }
  Route* routeByKey(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan) const;
  // Starts fetching what routeByKey(key, vlan) will read first (a hint; no
  // effect on the result), so that a walk can ask a few routes ahead.
  void routeByKeyPrefetch(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan) const {
    routeKeyToHandle_.prefetch(RouteKeyProbe(key, vlan));
  }

  // The sharing table: the live set that programs each platform OIF set.
  MtableOifSetPtr inUseOifSet(MrouteLib::OifSet const* oifSet) const;
  // Called by a set being destroyed: drops its sharing-table entry if it still has one.
  void mtableOifSetGone(MtableOifSet const* set);
  std::size_t inUseOifSetSize() const { return inUseOifSet_.size(); }
  bool oifSetIndexColl(std::uint32_t index) const { return oifSetIndexColl_.contains(index); }
  std::size_t oifSetIndexCollSize() const { return oifSetIndexColl_.size(); }

  // Zombies, ordered by expiry then index; the first expires next.
  Vex::OrderedColl<ZombieKey, Vex::Ptr<MtableOifSet>> const& zombieOifSet() const { return zombieOifSet_; }
  void zombieOifSetIs(Vex::Ptr<MtableOifSet> const& set);
  void zombieOifSetDel(ZombieKey const& key);
  void zombieOifSetDelAll();

  // Sets with fast-reroute outputs, and those waiting to be rewritten.
  FrrOifSetColl const& frrMtableOifSet() const { return frrMtableOifSet_; }
  void frrMtableOifSetDel(MrouteLib::OifSet const* oifSet) { frrMtableOifSet_.erase(oifSet); }
  FrrOifSetColl const& frrProcessingOifSet() const { return frrProcessingOifSet_; }
  void frrProcessingOifSetIs(MrouteLib::OifSet const* oifSet, MtableOifSetPtr set) { frrProcessingOifSet_.set(oifSet, set); }
  void frrProcessingOifSetDel(MrouteLib::OifSet const* oifSet) { frrProcessingOifSet_.erase(oifSet); }

  // MrouteLib::SwitchChip
  void doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId, bool bridge,
                       Vex::Ptr<MrouteLib::MtableOifSet> oifSet, bool fastdrop, bool noRpf, std::uint16_t rpaId,
                       L3::VrfName const& vrfName) override;
  void doSetMtableOifSet(MrouteLib::RouteHandle handle, Vex::Ptr<MrouteLib::MtableOifSet> oifSet) override;
  void doDeleteRoute(MrouteLib::RouteHandle handle) override;
  void doAllocateMtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet) override;
  void doCommitRouteBatch() override;

  // Called by a set's doCleanup when its last reference goes.
  void handleFreeMtableOifSet(Vex::Ptr<MtableOifSet> const& set);
  void handleVerify();
  void handleInitialized();
  // Releases every route, boundary and set (the switch is going away).
  void doCleanup();

  // What the switch's sets hold to reach it; cleared when the switch goes away.
  Vex::Ptr<MrouteSwitchLink> const& link() const { return link_; }

 private:
  void requestVerify();
  // The route with this handle, or null; no reference taken.
  Route* findRoute(MrouteLib::RouteHandle h) const {
    auto const* r = route_.find(h.value());
    return r ? r->get() : nullptr;
  }
  // l3Status's id for vrfName, remembered while its VRF map does not move:
  // the routes of a batch are mostly in one VRF, and a lookup hashes the
  // whole name.
  std::optional<VrfId> vrfIdOf(L3::VrfName const& vrfName);
  // The handles of the boundary entries (the first boundarySize()), then of
  // the routes, each sorted: walks that call hooks do so in the same order in
  // every run.
  std::vector<MrouteLib::RouteHandle> handlesInOrder() const;
  // Allocates a fresh replication entry; indexArgument is 0 or 0xFFFFFFFE.
  void allocateNewMtableOifSet(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, std::uint32_t indexArgument);
  void freeMtableOifSet(Vex::Ptr<MtableOifSet> const& set);
  Vex::Seconds now() const;

  Vex::Ptr<FalCommonSmData> acsd_;
  Vex::Ptr<L3Status> l3Status_;
  Vex::Ptr<FalHelper::MrouteSmHelper> mrouteHelper_;
  Vex::Ptr<Ip::Status const> ipStatus_;
  Vex::Ptr<HwStatus const> mfibHwStatus_;
  Vex::Ptr<HwStatus const> mfib6HwStatus_;
  RouteColl route_;
  absl::flat_hash_map<MrouteLib::RouteHandle, Vex::Ptr<Boundary>> boundary_;
  // Routes by key and accepting VLAN. Holds the routes, not copies of their
  // keys and handles: an 8-byte slot instead of a 44-byte one, and a lookup
  // lands on the route itself. The last route programmed with a key and VLAN
  // (in any VRF) replaces an earlier one, and deleting any route with that key
  // and VLAN removes the entry.
  // A lookup by key and VLAN: the key packed once for all the candidates.
  struct RouteKeyProbe {
    RouteKeyProbe(IpGenRouteKey const& k, Bridging::VlanIdOrNone v) : key(PackedRouteKey::probe(k)), vlan(v.value()) {}
    PackedRouteKey key;  // points at k when it does not pack: k outlives the probe
    std::uint16_t vlan;
  };
  struct RouteByKeyHash {
    using is_transparent = void;
    std::size_t operator()(RouteKeyProbe const& p) const { return p.key.hash(p.vlan); }
    std::size_t operator()(Route const* r) const { return r->packedKey().hash(r->acceptingVlanId().value()); }
  };
  struct RouteByKeyEq {
    using is_transparent = void;
    bool operator()(Route const* a, Route const* b) const {
      return a->acceptingVlanId() == b->acceptingVlanId() && a->packedKey() == b->packedKey();
    }
    bool operator()(Route const* a, RouteKeyProbe const& p) const {
      return a->acceptingVlanId().value() == p.vlan && a->packedKey() == p.key;
    }
    bool operator()(RouteKeyProbe const& p, Route const* a) const { return (*this)(a, p); }
  };
  absl::flat_hash_set<Route*, RouteByKeyHash, RouteByKeyEq, HugePageAllocator<Route*>> routeKeyToHandle_;
  // Replication indexes are as dense as route handles.
  DenseIdMap<bool> oifSetIndexColl_;
  Vex::OrderedColl<ZombieKey, Vex::Ptr<MtableOifSet>> zombieOifSet_;
  FrrOifSetColl frrMtableOifSet_;
  FrrOifSetColl frrProcessingOifSet_;
  Vex::Ptr<MrouteSwitchLink> link_;
  // Keyed by the identity of the platform OIF set; the link is the switch's
  // token in the sets' entry slots.
  OifSetShareTable<MtableOifSet> inUseOifSet_{link_.get()};
  L3::VrfName lastVrfName_;
  std::optional<VrfId> lastVrfId_;
  std::uint64_t lastVrfMapVersion_ = ~std::uint64_t{0};
  Vex::Seconds zombieLifetime_ = kDefaultZombieLifetime;
  bool initialized_ = false;
  bool deleted_ = false;
};

FALMROUTE_EXPORT Vex::Ptr<MrouteSwitch> mrouteSwitchFactory(std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd,
                                           Vex::Ptr<L3Status> const& l3Status,
                                           Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper,
                                           Vex::Ptr<Ip::Status const> const& ipStatus,
                                           Vex::Ptr<MrouteSwitch::HwStatus const> const& mfibHwStatus,
                                           Vex::Ptr<MrouteSwitch::HwStatus const> const& mfib6HwStatus);

}  // namespace Fal
