#pragma once
// FalSim::WantedRoutes: the routes a run's owner wants, by (VRF, key), in
// that order.
//
// A route is held by address: the runner's routes live in its scenario (route
// sets and events), which outlives the run, so a million wanted routes cost
// one pointer each here instead of a second copy of every route. A route
// whose description does not outlive the call (an event made on the fly)
// is copied, and the copy is dropped when the route is replaced or removed.
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/types/VrfName.h"

namespace FalSim {

class WantedRoutes {
  using Key = std::pair<L3::VrfName const&, Routing::Multicast::Fib::IpGenRouteKey const&>;
  struct ByVrfAndKey {
    using is_transparent = void;
    static Key key(MrouteLib::DesiredRoute const* r) { return {r->vrfName(), r->key()}; }
    static Key key(Key k) { return k; }
    template <class A, class B>
    bool operator()(A const& a, B const& b) const {
      return key(a) < key(b);
    }
  };
  using Set = absl::btree_set<MrouteLib::DesiredRoute const*, ByVrfAndKey>;

 public:
  // Iterates the routes, in (VRF, key) order.
  class const_iterator {
   public:
    explicit const_iterator(Set::const_iterator it) : it_(it) {}
    MrouteLib::DesiredRoute const& operator*() const { return **it_; }
    MrouteLib::DesiredRoute const* operator->() const { return *it_; }
    const_iterator& operator++() {
      ++it_;
      return *this;
    }
    friend bool operator==(const_iterator const&, const_iterator const&) = default;

   private:
    Set::const_iterator it_;
  };

  WantedRoutes() = default;
  WantedRoutes(WantedRoutes const&) = delete;
  WantedRoutes& operator=(WantedRoutes const&) = delete;

  std::size_t size() const { return routes_.size(); }
  bool empty() const { return routes_.empty(); }
  const_iterator begin() const { return const_iterator(routes_.begin()); }
  const_iterator end() const { return const_iterator(routes_.end()); }

  // The route wanted under (vrf, key), or null.
  MrouteLib::DesiredRoute const* find(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) const {
    auto it = routes_.find(Key{vrf, key});
    return it == routes_.end() ? nullptr : *it;
  }
  bool contains(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) const {
    return routes_.contains(Key{vrf, key});
  }

  // Wants route, which stays where it is, unchanged, while it is wanted.
  void kept(MrouteLib::DesiredRoute const& route) { put(&route, nullptr); }
  // Wants a copy of route.
  void copied(MrouteLib::DesiredRoute const& route) {
    auto copy = std::make_unique<MrouteLib::DesiredRoute>(route);
    MrouteLib::DesiredRoute const* at = copy.get();
    put(at, std::move(copy));
  }
  void erase(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) {
    auto it = routes_.find(Key{vrf, key});
    if (it == routes_.end()) return;
    MrouteLib::DesiredRoute const* gone = *it;
    routes_.erase(it);
    copies_.erase(gone);
  }

 private:
  void put(MrouteLib::DesiredRoute const* route, std::unique_ptr<MrouteLib::DesiredRoute> copy) {
    auto [it, inserted] = routes_.insert(route);
    if (!inserted) {
      // The set's order is by (VRF, key), which the new description shares.
      MrouteLib::DesiredRoute const* old = *it;
      auto hint = routes_.erase(it);
      routes_.insert(hint, route);
      copies_.erase(old);
    }
    if (copy) copies_.emplace(route, std::move(copy));
  }

  Set routes_;
  // The copies among the routes, by address.
  absl::flat_hash_map<MrouteLib::DesiredRoute const*, std::unique_ptr<MrouteLib::DesiredRoute>> copies_;
};

}  // namespace FalSim
