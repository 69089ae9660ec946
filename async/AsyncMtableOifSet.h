#pragma once
// Fal::Mroute::AsyncMtableOifSet: the library's record of one multicast group
// programmed on a chip in the asynchronous flavour: the OIF set the group
// replicates to, the multicast id the hook gave it, and the flags that decide
// whether it may be shared, must outlive its last route as a zombie, or must
// be left in hardware when the record goes.
//
// Made only by asyncMtableOifSetFactory (from the switch's
// doAllocateMtableOifSet). Reference counted: the route programmer's routes
// hold it, the switch's zombie collection holds it while it is a zombie.
// When the last reference goes it hands itself to its switch's
// handleFreeMtableOifSet, which either keeps it as a zombie (storing a
// reference revives it) or frees its group; the destructor asks once more,
// which a freed record answers with "OifSet is already freed".
//
// States (the switch drives every transition; the record holds the flags):
//   allocated    usedInHw false, zombie empty
//   in hardware  usedInHw true (a route was pointed at the group)
//   zombie       usedInHw false, zombie expiry finite, in the zombie collection
//   freed        deleted true; nothing more is done with it
#include <cstdint>

#include "model/mroute/ZombieKey.h"
#include "platform/fib/RouteKeyType.h"
#include "platform/mroutelib/MtableOifSet.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/vex/BackLink.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

class AsyncMrouteSwitch;

class FALMROUTE_EXPORT AsyncMtableOifSet : public MrouteLib::MtableOifSet {
 public:
  class Notifiee : public Vex::NotifieeOf<AsyncMtableOifSet> {
   public:
    virtual void onUsedInHw() {}
    virtual void onSkipDelete() {}
    virtual void onDeleted() {}
    virtual void onZombie() {}
    virtual void onZombieLifetime() {}
    virtual void onDirty() {}
  };

  static constexpr Vex::Seconds kDefaultZombieLifetime = 3.0;

  AsyncMtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet, bool toCpu, std::uint32_t multicastId,
                    AsyncMrouteSwitch* mrouteSwitch);
  ~AsyncMtableOifSet() override;

  Vex::Ptr<MrouteLib::OifSet const> const& oifSet() const { return oifSet_; }
  bool toCpu() const { return toCpu_; }
  std::uint32_t multicastId() const { return multicastId_; }
  // Not owned: the switch outlives its records in use; a record still held
  // after its switch went away finds null here.
  AsyncMrouteSwitch* mrouteSwitch() const { return link_ ? link_->target() : nullptr; }

  // A route has been pointed at the group since it was made or last became a zombie.
  bool usedInHw() const { return usedInHw_; }
  void usedInHwIs(bool v);
  // When freed, the group stays in hardware: another record took over its fixed id.
  bool skipDelete() const { return skipDelete_; }
  void skipDeleteIs(bool v);
  // Freed; nothing more is done with it.
  bool deleted() const { return deleted_; }
  void deletedIs(bool v);
  // The key under which it waits in the switch's zombie collection; the
  // empty key (expiry +infinity) when it is not a zombie.
  ZombieKey const& zombie() const { return zombie_; }
  void zombieIs(ZombieKey const& k);
  bool isZombie() const { return zombie_.isZombie(); }
  // How long a freed group in hardware stays programmed.
  Vex::Seconds zombieLifetime() const { return zombieLifetime_; }
  void zombieLifetimeIs(Vex::Seconds s);
  // The group's members were rewritten in place (fast reroute): never shared again.
  bool dirty() const { return dirty_; }
  void dirtyIs(bool v);
  // The key type of the route the group was allocated for, which decides
  // whether it is a fixed group (the hook's needFixedOifSet).
  Routing::Multicast::Fib::RouteKeyType routeKeyType() const { return routeKeyType_; }
  void routeKeyTypeIs(Routing::Multicast::Fib::RouteKeyType t) { routeKeyType_ = t; }

  // Hands the record to its switch's handleFreeMtableOifSet.
  void doCleanup();

 protected:
  void zeroReferencesIs() override { doCleanup(); }

 private:
  // What a share lookup reads (id, flags, zombie key) comes first, in the
  // tail of the entity base and just after it: at a million records the
  // lookup's read of the record then mostly stays within one cache line.
  std::uint32_t multicastId_;
  Routing::Multicast::Fib::RouteKeyType routeKeyType_ = Routing::Multicast::Fib::RouteKeyType::invalid;
  bool toCpu_;
  bool usedInHw_ = false;
  bool skipDelete_ = false;
  bool deleted_ = false;
  bool dirty_ = false;
  ZombieKey zombie_;
  Vex::Seconds zombieLifetime_ = kDefaultZombieLifetime;
  Vex::Ptr<MrouteLib::OifSet const> oifSet_;
  Vex::Ptr<Vex::BackLink<AsyncMrouteSwitch>> link_;  // the switch's, shared by all its records
};

// Makes a record with its notifications on.
FALMROUTE_EXPORT Vex::Ptr<AsyncMtableOifSet> asyncMtableOifSetFactory(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, bool toCpu,
                                                     std::uint32_t multicastId, AsyncMrouteSwitch* mrouteSwitch);

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, AsyncMtableOifSet const& set);

}  // namespace Fal::Mroute
