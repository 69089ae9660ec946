#pragma once
// Fal::Route: one multicast route programmed on a chip, keyed by its hardware
// handle in the switch's route collection.
//
// There is one per programmed route, so it is kept to 56 bytes: the key is
// packed (10 bytes for an IPv4 key) into the tail of the entity base, the
// flags share a byte; and it comes from the pool of per-route objects, in
// 56 bytes where the general allocator would take 64 with its header.
#include <cstdint>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "sync/MtableOifSet.h"
#include "sync/PackedRouteKey.h"

namespace Fal {

class FALMROUTE_EXPORT Route : public Vex::Entity {
 public:
  Route(MrouteLib::RouteHandle handle, Routing::Multicast::Fib::IpGenRouteKey const& key,
        Bridging::VlanIdOrNone acceptingVlanId)
      : key_(key), acceptingVlanId_(acceptingVlanId), routeHandle_(handle) {}
  static void* operator new(std::size_t n);
  static void operator delete(void* p, std::size_t n) noexcept;

  MrouteLib::RouteHandle routeHandle() const { return routeHandle_; }
  Routing::Multicast::Fib::IpGenRouteKey key() const { return key_.key(); }
  PackedRouteKey const& packedKey() const { return key_; }
  Bridging::VlanIdOrNone acceptingVlanId() const { return acceptingVlanId_; }
  // The OIF set the route replicates to; the route holds one reference to it.
  Vex::Ptr<MtableOifSet> const& mtableOifSet() const { return mtableOifSet_; }
  void mtableOifSetIs(Vex::Ptr<MtableOifSet> s) { mtableOifSet_.swap(s); }  // the old set is released last
  bool fastdrop() const { return fastdrop_; }
  void fastdropIs(bool v) { fastdrop_ = v; }
  std::uint16_t vrfId() const { return vrfId_; }
  void vrfIdIs(std::uint16_t v) { vrfId_ = v; }
  std::uint16_t rpaId() const { return rpaId_; }
  void rpaIdIs(std::uint16_t v) { rpaId_ = v; }
  // A noAge route is stamped as active at every aging review without asking the chip.
  bool noAge() const { return noAge_; }
  void noAgeIs(bool v) { noAge_ = v; }
  bool vxlan() const { return vxlan_; }
  void vxlanIs(bool v) { vxlan_ = v; }

 private:
  PackedRouteKey key_;
  bool fastdrop_ : 1 = false;
  bool noAge_ : 1 = false;
  bool vxlan_ : 1 = false;
  Bridging::VlanIdOrNone acceptingVlanId_;
  std::uint16_t vrfId_ = 0;
  std::uint16_t rpaId_ = 0;
  MrouteLib::RouteHandle routeHandle_;
  Vex::Ptr<MtableOifSet> mtableOifSet_;
};

FALMROUTE_EXPORT Vex::Ptr<Route> routeFactory(MrouteLib::RouteHandle handle, Routing::Multicast::Fib::IpGenRouteKey const& key,
                             Bridging::VlanIdOrNone acceptingVlanId);

}  // namespace Fal
