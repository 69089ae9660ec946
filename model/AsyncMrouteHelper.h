#pragma once
// FalHelper::AsyncMrouteHelper: the hooks through which the asynchronous
// flavour reaches chip-specific code. Every hardware change is a transaction
// (Bolt::Xact) that the hook starts and hands back; the library later asks
// why one failed.
//
// Implemented by: a chip agent (real hardware), the asynchronous reference
// chip of the simulator, recording doubles in tests. The library calls these
// hooks and never programs hardware itself.
//
// Calling order (the asynchronous switch's): a route is allocated with
// doAllocateRoute, then doScheduleVerify is called. A group (OIF set) is
// allocated with doAllocateSharableMulticastGroup, or with
// doAllocateFixedMulticastGroup where needFixedOifSet says so for the set's
// port-VLAN-set type; every returned id is checked with mcastIdIsValid, and
// mcastIdReusable is asked before an existing group is shared. A route is
// bound to its group with doSetMtableOifSet, given the group's transaction to
// wait for. The library then asks doGetXactForOifSet / doGetXactForIngress
// for the outstanding transactions and, for one that failed,
// doGetXactFailureReason with MrouteXactType oifSet or ingress. Groups and
// routes go with doDeleteOifSet and doDeleteRoute. After every change of
// hardware state the library calls doScheduleVerify.
//
// Slots 6 to 16 must be overridden by an agent with hardware. Their default
// here: with the environment variable FAL_NOOP_AGENT set (read on every
// call) return at once with a neutral result (0, false, a null transaction,
// 0.0, nothing); otherwise stop the agent through falAssert with "This
// function must be implemented by derived class". The other slots have
// usable defaults.
//
// Pointers passed in (sets, transactions) are borrowed for the call unless
// the hook keeps a reference of its own; transactions returned are the
// hook's, shared with the caller.
//
// Two key sets tell the counter code and the agent about counters:
// deletedMrouteCounterKey (counters the agent deleted) and
// noHwCounterMrouteKey (routes with no hardware counter). Setting a key to
// the value it has changes nothing and tells no one; any real change (new
// key, other value, removal) tells every notifiee through
// onDeletedMrouteCounterKey / onNoHwCounterMrouteKey with the key. DelAll
// removes the keys one by one, each removal told.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "async/MrouteCounterKey.h"
#include "async/MrouteCounterKeyMapTable.h"
#include "model/MrouteXactType.h"
#include "platform/bolt/CounterKeyTable.h"
#include "platform/bolt/Xact.h"
#include "platform/fal/FalBaseHelper.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/fib/RouteKeyType.h"
#include "platform/memtab/RpaIndex.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/mroutelib/RouteKeyInfo.h"
#include "platform/net/AddressFamily.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfId.h"
#include "platform/vex/HashColl.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace FalHelper {

class AsyncMrouteHelper : public Fal::FalBaseHelper {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using MrouteCounterKey = Fal::Mroute::MrouteCounterKey;
  using XactPtr = Vex::Ptr<Bolt::Xact const>;
  using OifSetPtr = Vex::Ptr<MrouteLib::OifSet const>;
  using KeySet = Vex::HashColl<MrouteCounterKey, bool>;

  class Notifiee : public Vex::NotifieeOf<AsyncMrouteHelper> {
   public:
    virtual void onDeletedMrouteCounterKey(MrouteCounterKey const&) {}
    virtual void onNoHwCounterMrouteKey(MrouteCounterKey const&) {}
  };

  static constexpr std::uint32_t kInvalidMcastId = 0xFFFFFFFF;

  // Keeps counted references to both tables.
  AsyncMrouteHelper(Vex::Name name, Vex::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
                    Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable);
  ~AsyncMrouteHelper() override;

  Vex::String fwkType() const override { return "FalHelper::AsyncMrouteHelper"; }

  Vex::Ptr<FlexCounters::CounterKeyTable> const& activeCounterKeyTable() const { return activeCounterKeyTable_; }
  Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> const& mrouteCounterKeyMapTable() const { return mrouteCounterKeyMapTable_; }

  // ---- deletedMrouteCounterKey: counters the agent deleted ----
  std::optional<bool> deletedMrouteCounterKey(MrouteCounterKey const& key) const { return find(deleted_, key); }
  void deletedMrouteCounterKeyIs(MrouteCounterKey const& key, bool value);
  bool deletedMrouteCounterKeyDel(MrouteCounterKey const& key);
  void deletedMrouteCounterKeyDelAll();
  std::size_t deletedMrouteCounterKeySize() const { return deleted_.size(); }
  KeySet::Iterator deletedMrouteCounterKeyIterator() const { return deleted_.iterator(); }

  // ---- noHwCounterMrouteKey: routes with no hardware counter ----
  std::optional<bool> noHwCounterMrouteKey(MrouteCounterKey const& key) const { return find(noHwCounter_, key); }
  void noHwCounterMrouteKeyIs(MrouteCounterKey const& key, bool value);
  bool noHwCounterMrouteKeyDel(MrouteCounterKey const& key);
  void noHwCounterMrouteKeyDelAll();
  std::size_t noHwCounterMrouteKeySize() const { return noHwCounter_.size(); }
  KeySet::Iterator noHwCounterMrouteKeyIterator() const { return noHwCounter_.iterator(); }

  // ---- the hooks, in slot order ----
  // 1. Whether the chip programs backup (fast-reroute) outputs. Default false.
  bool hasBackupSupport() const override;
  // 2. The VRF configuration's counter mode changed. Default: nothing.
  virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
  // 3. All-route (wildcard) counting was switched. Default: nothing.
  virtual void handleWildcardCounter(bool allCounter);
  // 4-5. Create / delete a route's counter. Default: true.
  virtual bool doCreateMrouteCounter(Fal::VrfId vrfId, IpGenRouteKey const& key);
  virtual bool doDeleteMrouteCounter(Fal::VrfId vrfId, IpGenRouteKey const& key);
  // 6. A group for oifSet that routes with the same outputs may share,
  // programmed once blockingXact (may be null) completed; excludeEmptyMcid
  // keeps it off the id reserved for the empty set. Returns its multicast id.
  virtual std::uint32_t doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet,
                                                         XactPtr blockingXact, bool excludeEmptyMcid);
  // 7. A group under the preset id the route programmer handed down.
  virtual std::uint32_t doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact, std::uint32_t mcastId);
  // 8. Rewrites group mcastId's outputs in place.
  virtual void doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId);
  // 9. The outstanding transaction of group mcastId (null when none).
  virtual XactPtr doGetXactForOifSet(std::uint32_t mcastId);
  // 10. Why xact failed: a route-status failure code.
  virtual std::uint32_t doGetXactFailureReason(XactPtr xact, MrouteXactType type);
  // 11. Releases group mcastId.
  virtual void doDeleteOifSet(std::uint32_t mcastId);
  // 12. Programs a route (bridge action false) or a boundary entry; returns
  // its handle, the invalid handle (all ones) when none was allocated.
  virtual MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                                                 bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                                 std::uint32_t vrfId, bool fastdrop);
  // 13. Points the route's ingress entry at group mcastId once xact completed.
  virtual void doSetMtableOifSet(MrouteLib::RouteHandle routeHandle, std::uint32_t mcastId, XactPtr xact);
  // 14. The outstanding ingress transaction of the route (null when none).
  virtual XactPtr doGetXactForIngress(MrouteLib::RouteHandle routeHandle);
  // 15. Removes the route.
  virtual void doDeleteRoute(MrouteLib::RouteHandle routeHandle);
  // 16. When the route's hardware entry was last hit (the agent's clock).
  virtual Vex::Seconds routeLastAccessedTime(MrouteLib::RouteHandle routeHandle);
  // 17. Whether sets of this port-VLAN-set type need a fixed group. Default false.
  virtual bool needFixedOifSet(Routing::Multicast::Fib::RouteKeyType type);
  // 18. Whether routes of this key type need an ingress entry. Default true.
  virtual bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type);
  // 19. Whether group mcastId may be shared by another route. Default true.
  virtual bool mcastIdReusable(std::uint32_t mcastId);
  // 20. Whether mcastId names a group. Default: all but 0xFFFFFFFF.
  virtual bool mcastIdIsValid(std::uint32_t mcastId);
  // 21-22. The aging review's polling interval and the activity polling
  // interval the platform supports. Default: interval unchanged.
  virtual Vex::Seconds doGetAdjustedPollingInterval(Vex::Seconds interval, Netcore::AddressFamily af);
  virtual Vex::Seconds doGetAdjustedActivityPollInterval(Vex::Seconds interval, Netcore::AddressFamily af);
  // 23. Hardware state changed; the agent may verify it. Default: nothing.
  virtual void doScheduleVerify();

 private:
  using Handler = void (Notifiee::*)(MrouteCounterKey const&);
  static std::optional<bool> find(KeySet const& set, MrouteCounterKey const& key);
  void keyIs(KeySet& set, Handler handler, MrouteCounterKey const& key, bool value);
  bool keyDel(KeySet& set, Handler handler, MrouteCounterKey const& key);
  void keyDelAll(KeySet& set, Handler handler);

  Vex::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable_;
  Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable_;
  KeySet deleted_;
  KeySet noHwCounter_;
};

}  // namespace FalHelper
