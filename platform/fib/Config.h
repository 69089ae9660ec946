#pragma once
// One VRF's multicast counter configuration: which routes are to be counted
// and the clear requests made for them.
//
// A clear request is a per-route request count: the configuring side bumps
// it to ask for one more clear, so that two clears in a row are two changes.
#include <cstddef>
#include <cstdint>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"

namespace Routing::Multicast::Fib {

class FALMROUTE_EXPORT Config : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Config> {
   public:
    virtual void onCounterRoute(IpGenRouteKey const&) {}
    virtual void onClearCounterRoute(IpGenRouteKey const&) {}
  };
  using CounterRouteColl = Vex::OrderedColl<IpGenRouteKey, bool>;
  using ClearCounterRouteColl = Vex::OrderedColl<IpGenRouteKey, std::uint32_t>;

  explicit Config(L3::VrfName name) : name_(std::move(name)) {}

  L3::VrfName const& name() const { return name_; }

  // Whether the route is to be counted; false when absent.
  bool counterRoute(IpGenRouteKey const& key) const {
    auto const* v = counterRoute_.find(key);
    return v && *v;
  }
  void counterRouteIs(IpGenRouteKey const& key, bool count) {
    if (counterRoute_.set(key, count)) notify(&Notifiee::onCounterRoute, key);
  }
  void counterRouteDel(IpGenRouteKey const& key) {
    IpGenRouteKey const k = key;  // key may live in the member being erased
    if (counterRoute_.erase(k)) notify(&Notifiee::onCounterRoute, k);
  }
  void counterRouteDelAll() {
    while (auto const* first = counterRoute_.first()) counterRouteDel(first->first);
  }
  std::size_t counterRouteSize() const { return counterRoute_.size(); }
  CounterRouteColl::Iterator counterRouteIterator() const { return counterRoute_.iterator(); }

  // The number of clear requests made for the route; 0 when absent.
  std::uint32_t clearCounterRoute(IpGenRouteKey const& key) const {
    auto const* v = clearCounterRoute_.find(key);
    return v ? *v : 0;
  }
  void clearCounterRouteIs(IpGenRouteKey const& key, std::uint32_t requests) {
    if (clearCounterRoute_.set(key, requests)) notify(&Notifiee::onClearCounterRoute, key);
  }
  void clearCounterRouteDel(IpGenRouteKey const& key) {
    IpGenRouteKey const k = key;  // key may live in the member being erased
    if (clearCounterRoute_.erase(k)) notify(&Notifiee::onClearCounterRoute, k);
  }
  void clearCounterRouteDelAll() {
    while (auto const* first = clearCounterRoute_.first()) clearCounterRouteDel(first->first);
  }
  std::size_t clearCounterRouteSize() const { return clearCounterRoute_.size(); }
  ClearCounterRouteColl::Iterator clearCounterRouteIterator() const { return clearCounterRoute_.iterator(); }

 private:
  L3::VrfName const name_;
  CounterRouteColl counterRoute_;
  ClearCounterRouteColl clearCounterRoute_;
};

}  // namespace Routing::Multicast::Fib
