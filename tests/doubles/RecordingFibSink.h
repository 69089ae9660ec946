#pragma once
// RecordingFibSink: a FibSink that keeps what it was told: the routes it
// holds now, every route ever given (to show that something never appeared),
// the port statuses, and the calls in a batch not yet committed.
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "kernel/netlink/FibSink.h"

namespace FalTest {

class RecordingFibSink : public FalKernel::FibSink {
 public:
  using RouteId = std::pair<std::string, std::string>;  // (VRF, key in its pretty form)

  void routeIs(MrouteLib::DesiredRoute const& route) override {
    RouteId id{route.vrfName().stringValue(), route.key().pretty()};
    routes[id] = route;
    everGiven.insert(id);
    ++uncommitted;
  }
  void routeDel(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) override {
    routes.erase({vrf.stringValue(), key.pretty()});
    ++uncommitted;
  }
  void portOperStatusIs(Netcore::IntfId port, Interface::IntfOperStatus status) override {
    ports[port] = status;
    ++uncommitted;
  }
  void commit() override {
    ++commits;
    uncommitted = 0;
  }

  MrouteLib::DesiredRoute const* route(std::string const& vrf, std::string const& key) const {
    auto it = routes.find({vrf, key});
    return it == routes.end() ? nullptr : &it->second;
  }

  std::map<RouteId, MrouteLib::DesiredRoute> routes;
  std::set<RouteId> everGiven;
  std::map<Netcore::IntfId, Interface::IntfOperStatus> ports;
  std::size_t commits = 0;
  std::size_t uncommitted = 0;
};

}  // namespace FalTest
