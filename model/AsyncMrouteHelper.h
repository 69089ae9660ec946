#pragma once
// FalHelper::AsyncMrouteHelper: the hooks through which the asynchronous
// flavour reaches chip-specific code. Every hardware change is a transaction
// (Bolt::Xact) that the hook starts and hands back; the library later asks
// why one failed.
//
// Implemented by: a chip agent (real hardware), the asynchronous reference
// chip of the simulator, recording doubles in tests. The agent hands one
// instance to every chip's Fal::Mroute::AsyncMrouteSwitch
// (asyncMrouteSwitchFactory) and Fal::Mroute::AsyncMrouteSwitchSm. The
// library calls these hooks and never programs hardware itself. Every hook
// runs on the agent's event-loop thread and must not block: a hook starts
// the hardware work and returns; the work completes later, when the agent
// completes its transaction (succeededIs / failedIs).
//
// Calling order (the asynchronous switch's, driven by the platform's route
// library through MrouteLib::AsyncSwitchChip): a group (OIF set) is
// allocated with doAllocateSharableMulticastGroup, or with
// doAllocateFixedMulticastGroup where needFixedOifSet says so for the
// route's key type; every returned id is checked with mcastIdIsValid, and
// mcastIdReusable is asked before an existing group is shared; the group's
// transaction is then asked for with doGetXactForOifSet. A route is
// allocated with doAllocateRoute and bound to its group with
// doSetMtableOifSet, given the group's transaction to wait for; its
// transaction is asked for with doGetXactForIngress. For a transaction that
// failed, the route library asks doGetXactFailureReason with MrouteXactType
// oifSet or ingress; nothing is retried. Routes and groups go with
// doDeleteRoute and doDeleteOifSet. After every change of hardware state the
// library calls doScheduleVerify.
//
// Slots 6 to 16 must be overridden by an agent with hardware. Their default
// here: with the environment variable FAL_NOOP_AGENT set (read on every
// call) return at once with a neutral result (0, false, a null transaction,
// 0.0, nothing); otherwise stop the agent through falAssert with "This
// function must be implemented by derived class". The other slots have
// usable defaults.
//
// Ownership: sets and transactions passed in are the library's (or the
// route library's); the hook may keep a counted reference (Vex::Ptr) as long
// as it likes. Transactions the hook returns are its own, shared with the
// caller, which may hold them as long as it waits.
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
#include "platform/vex/Export.h"
#include "platform/vex/HashColl.h"
#include "platform/vex/Ptr.h"
#include "platform/vex/Types.h"

namespace FalHelper {

// The asynchronous hook object: a chip agent derives from it and overrides
// the hooks that touch its hardware (see the file's comment).
class FALMROUTE_EXPORT AsyncMrouteHelper : public Fal::FalBaseHelper {
 public:
  // The (source, group) key of a multicast route.
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  // A route counter's key: VRF id and route key.
  using MrouteCounterKey = Fal::Mroute::MrouteCounterKey;
  // A hardware transaction, as the library holds it.
  using XactPtr = Vex::Ptr<Bolt::Xact const>;
  // An OIF set as the route library shares it: one object per distinct set
  // of outputs, the same for every route and every chip.
  using OifSetPtr = Vex::Ptr<MrouteLib::OifSet const>;
  // The type of both counter key sets.
  using KeySet = Vex::HashColl<MrouteCounterKey, bool>;

  // Watches the two counter key sets.
  class Notifiee : public Vex::NotifieeOf<AsyncMrouteHelper> {
   public:
    // deletedMrouteCounterKey changed under the key.
    virtual void onDeletedMrouteCounterKey(MrouteCounterKey const&) {}
    // noHwCounterMrouteKey changed under the key.
    virtual void onNoHwCounterMrouteKey(MrouteCounterKey const&) {}
  };

  // The multicast id that names no group.
  static constexpr std::uint32_t kInvalidMcastId = 0xFFFFFFFF;

  // An object named `name`, keeping counted references to the agent's
  // counter key table and to the route-to-counter key map (either may be
  // null for an agent without counters).
  AsyncMrouteHelper(Vex::Name name, Vex::Ptr<FlexCounters::CounterKeyTable> activeCounterKeyTable,
                    Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> mrouteCounterKeyMapTable);
  ~AsyncMrouteHelper() override;

  // "FalHelper::AsyncMrouteHelper".
  Vex::String fwkType() const override { return "FalHelper::AsyncMrouteHelper"; }

  // The agent's flexible-counter key table, as constructed.
  Vex::Ptr<FlexCounters::CounterKeyTable> const& activeCounterKeyTable() const { return activeCounterKeyTable_; }
  // The route-to-counter key map, as constructed.
  Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> const& mrouteCounterKeyMapTable() const { return mrouteCounterKeyMapTable_; }

  // ---- deletedMrouteCounterKey: counters the agent deleted ----
  // The value under key, or nothing when the key is absent.
  std::optional<bool> deletedMrouteCounterKey(MrouteCounterKey const& key) const { return find(deleted_, key); }
  // Sets the value under key; tells the notifiees unless it was already so.
  void deletedMrouteCounterKeyIs(MrouteCounterKey const& key, bool value);
  // Removes key; true (and the notifiees told) when it was there.
  bool deletedMrouteCounterKeyDel(MrouteCounterKey const& key);
  // Removes every key, each removal told.
  void deletedMrouteCounterKeyDelAll();
  // The number of keys.
  std::size_t deletedMrouteCounterKeySize() const { return deleted_.size(); }
  // Walks the keys.
  KeySet::Iterator deletedMrouteCounterKeyIterator() const { return deleted_.iterator(); }

  // ---- noHwCounterMrouteKey: routes with no hardware counter ----
  // The value under key, or nothing when the key is absent.
  std::optional<bool> noHwCounterMrouteKey(MrouteCounterKey const& key) const { return find(noHwCounter_, key); }
  // Sets the value under key; tells the notifiees unless it was already so.
  void noHwCounterMrouteKeyIs(MrouteCounterKey const& key, bool value);
  // Removes key; true (and the notifiees told) when it was there.
  bool noHwCounterMrouteKeyDel(MrouteCounterKey const& key);
  // Removes every key, each removal told.
  void noHwCounterMrouteKeyDelAll();
  // The number of keys.
  std::size_t noHwCounterMrouteKeySize() const { return noHwCounter_.size(); }
  // Walks the keys.
  KeySet::Iterator noHwCounterMrouteKeyIterator() const { return noHwCounter_.iterator(); }

  // ---- the hooks, in slot order ----
  // 1. Whether this hook object takes part in the entity framework's backup
  // of entities. The library does not read it. Default: false.
  bool hasBackupSupport() const override;
  // 2. The counter mode of the multicast FIB's IPv4 VRF configuration:
  // called by Fal::Mroute::AsyncMrouteSwitchSm at its construction and
  // whenever the mode changes. This flavour programs no counters itself.
  // Default: nothing.
  virtual void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode);
  // 3. All-route (wildcard) counting of that configuration, at construction
  // of Fal::Mroute::AsyncMrouteSwitchSm and whenever it is switched.
  // Default: nothing.
  virtual void handleWildcardCounter(bool allCounter);
  // 4. Creates the counter of a route of VRF vrfId. Not called by the
  // library's state machines: for the agent's counter code. Default: true.
  virtual bool doCreateMrouteCounter(Fal::VrfId vrfId, IpGenRouteKey const& key);
  // 5. Deletes the counter of a route, as operation 4. Default: true.
  virtual bool doDeleteMrouteCounter(Fal::VrfId vrfId, IpGenRouteKey const& key);
  // 6. Allocates a group replicating to oifSet's outputs that routes with the
  // same outputs may share, and starts the transaction that programs it
  // (handed out by doGetXactForOifSet, asked right after). The programming
  // waits for blockingXact when it is not null. excludeEmptyMcid: the switch
  // passes whether the route has fast-reroute outputs; such a group is
  // rewritten in place later, so it must not be the id a chip may keep for
  // sets without outputs. Called by Fal::Mroute::AsyncMrouteSwitch when no
  // live or zombie group of the chip holds oifSet, or the one that does may
  // not be shared (mcastIdReusable false, or rewritten by fast reroute).
  // Result: the group's multicast id, unique among the chip's groups;
  // kInvalidMcastId (any id mcastIdIsValid refuses) when there is none free:
  // the route then fails with "no multicast id" (failure bit 0x8) and nothing
  // is recorded. Required.
  virtual std::uint32_t doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet,
                                                         XactPtr blockingXact, bool excludeEmptyMcid);
  // 7. Allocates a group under the id mcastId that the route library handed
  // down, for a route key type that needFixedOifSet says needs one; never
  // shared. When the id already holds an older group, the new outputs
  // replace it under that id and the older record will not delete it. Result
  // as operation 6 (normally mcastId). Required.
  virtual std::uint32_t doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact, std::uint32_t mcastId);
  // 8. Rewrites group mcastId's outputs in place with oifSet's (fast-reroute
  // outputs applied), under the same id. Called by the fast-reroute review of
  // Fal::Mroute::AsyncMrouteSwitchSm after an interface the group's routes
  // arrive on went down. The hook starts a transaction for it and hands it
  // out as the group's (doGetXactForOifSet); the library never asks how it
  // ended. Required.
  virtual void doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId);
  // 9. The transaction routes bound to group mcastId must wait for: the
  // group's outstanding (or last) one, null when there is nothing to wait
  // for. Asked after every allocation or sharing of a group; the route
  // library waits for it before it binds routes. Required.
  virtual XactPtr doGetXactForOifSet(std::uint32_t mcastId);
  // 10. Why xact failed: a route-status failure code of the agent's platform,
  // which the route library records in the route's hardware status. type
  // says whether xact was a group's (oifSet) or a route's bind (ingress).
  // Called only for a transaction that failed. Required.
  virtual std::uint32_t doGetXactFailureReason(XactPtr xact, MrouteXactType type);
  // 11. Releases group mcastId: no route of the library is bound to it. Called
  // by Fal::Mroute::AsyncMrouteSwitch once per group: when it was freed
  // before any route was bound to it, when its zombie lifetime (3.0 s by
  // default) ran out, or during the chip's cleanup; never for a fixed group
  // that a newer record took over. The id may be handed out again after.
  // Required.
  virtual void doDeleteOifSet(std::uint32_t mcastId);
  // 12. Programs a route (bridgeAction false) or a boundary entry (true) of
  // VRF vrfId accepting on acceptingVlanId (none: no RPF check). Called by
  // Fal::Mroute::AsyncMrouteSwitch for each route the route library adds,
  // when the VRF has a status on the chip; doScheduleVerify follows, and the
  // bind (operation 13) comes next. Result: the route's handle, unique on the
  // chip; the invalid handle (all ones) when none was allocated: the route
  // then fails with "route refused" (failure bit 0x400) and nothing is
  // recorded. Required.
  virtual MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                                                 bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                                 std::uint32_t vrfId, bool fastdrop);
  // 13. Points the route's ingress entry at group mcastId once xact (the
  // group's transaction from doGetXactForOifSet; may be null) has completed,
  // and starts the transaction of that bind (handed out by
  // doGetXactForIngress, asked right after). A bind whose group's transaction
  // failed fails too. Called for every bind the route library asks of the
  // switch. Required.
  virtual void doSetMtableOifSet(MrouteLib::RouteHandle routeHandle, std::uint32_t mcastId, XactPtr xact);
  // 14. The outstanding (or last) transaction of the route's bind, null when
  // there is nothing to wait for. Asked after every bind. Required.
  virtual XactPtr doGetXactForIngress(MrouteLib::RouteHandle routeHandle);
  // 15. Removes the route. Called by Fal::Mroute::AsyncMrouteSwitch when the
  // route library deletes it; its group may be released (as a zombie) right
  // after. Required.
  virtual void doDeleteRoute(MrouteLib::RouteHandle routeHandle);
  // 16. When the route's hardware entry was last hit, on the agent's clock
  // (0 for never). Called by the aging review of
  // Fal::Mroute::AsyncMrouteSwitchRouteAgingSm, per route and fast-drop
  // entry of the multicast FIB's hardware status, 256 routes per slice; a
  // time newer than the one recorded stamps the route's activity. Required.
  virtual Vex::Seconds routeLastAccessedTime(MrouteLib::RouteHandle routeHandle);
  // 17. Whether routes of this key type need a fixed group (operation 7)
  // rather than a sharable one. Asked at every group allocation. Default:
  // false.
  virtual bool needFixedOifSet(Routing::Multicast::Fib::RouteKeyType type);
  // 18. Whether routes of this key type need an ingress entry of their own;
  // the route library asks it through the switch. Default: true.
  virtual bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType type);
  // 19. Whether group mcastId may be shared by one more route; asked before a
  // live or zombie group is shared. false makes the switch allocate a new
  // group. Default: true.
  virtual bool mcastIdReusable(std::uint32_t mcastId);
  // 20. Whether mcastId names a group; asked for every id operations 6 and 7
  // return. Default: all but kInvalidMcastId.
  virtual bool mcastIdIsValid(std::uint32_t mcastId);
  // 21. The interval between two aging reviews for the configured activity
  // polling interval (seconds) of family af. Asked by
  // Fal::Mroute::AsyncMrouteSwitchRouteAgingSm whenever it arms its clock.
  // Default: interval unchanged.
  virtual Vex::Seconds doGetAdjustedPollingInterval(Vex::Seconds interval, Netcore::AddressFamily af);
  // 22. The activity polling interval the platform supports for the
  // configured one; published in the hardware status's pollingInterval, and
  // logged as MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED when it
  // differs. Asked at start-up and whenever the configured one changes.
  // Default: interval unchanged.
  virtual Vex::Seconds doGetAdjustedActivityPollInterval(Vex::Seconds interval, Netcore::AddressFamily af);
  // 23. Hardware state changed (a route or group allocated, bound, freed or
  // kept as a zombie): the agent may schedule a check of its hardware.
  // Default: nothing.
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
