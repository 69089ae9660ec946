#pragma once
// The routes of one VRF in the multicast FIB hardware status.
//
// Routes are kept in a hashed collection that iterates in a stable hash order
// and can be positioned where a key stands even when that key has gone, so an
// activity review can stop and resume at a bookmarked route. It is laid out
// flat, in that order: a review of a million routes reads the collection
// front to back instead of chasing one node per route. A slot holds only the
// route's hash and its status: the key is read from the status itself.
#include <cstddef>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/fib/hardware/RouteStatus.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/FlatEntityColl.h"
#include "platform/vex/Ptr.h"

namespace Routing::Multicast::Fib::Hardware {

class FALMROUTE_EXPORT VrfStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<VrfStatus> {
   public:
    virtual void onRoute(IpGenRouteKey const&) {}
  };
  using RouteColl = Vex::FlatEntityColl<IpGenRouteKey, RouteStatus>;

  explicit VrfStatus(L3::VrfName name) : name_(std::move(name)) {}
  ~VrfStatus() override;

  L3::VrfName const& name() const { return name_; }

  // The route's status, or null.
  Vex::Ptr<RouteStatus> route(IpGenRouteKey const& key) { return route_.find(key); }
  Vex::Ptr<RouteStatus const> route(IpGenRouteKey const& key) const { return const_cast<VrfStatus*>(this)->route(key); }
  // A hint that the route's status will be looked up soon. No effect.
  void routePrefetch(IpGenRouteKey const& key) const { route_.prefetch(key); }
  // Returns the route's status, creating it (and notifying) when absent.
  Vex::Ptr<RouteStatus> routeIs(IpGenRouteKey const& key);
  void routeDel(IpGenRouteKey const& key);
  void routeDelAll();
  std::size_t routeSize() const { return route_.size(); }
  // In stable hash order; survives deletion of any member.
  RouteColl::Iterator routeIterator() const { return route_.iterator(); }
  // Positioned at key, or at the route that follows where key would stand.
  RouteColl::Iterator routeIterator(IpGenRouteKey const& key) const { return route_.iterator(key); }

 private:
  L3::VrfName const name_;
  RouteColl route_;
};

}  // namespace Routing::Multicast::Fib::Hardware
