#pragma once
// FalKernel::FibSink: where the kernel FIB source writes what it learns, in
// the platform's terms: the desired multicast routes and the operational
// status of the ports they use. The agent implements it over the multicast
// FIB and the route programmer; tests implement it to record.
#include "platform/fib/IpGenRouteKey.h"
#include "platform/intf/IntfOperStatus.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/net/IntfId.h"
#include "platform/types/VrfName.h"

namespace FalKernel {

class FibSink {
 public:
  virtual ~FibSink() = default;
  // A route to have, added or brought to this description.
  virtual void routeIs(MrouteLib::DesiredRoute const& route) = 0;
  virtual void routeDel(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key) = 0;
  virtual void portOperStatusIs(Netcore::IntfId port, Interface::IntfOperStatus status) = 0;
  // Ends a batch of the calls above.
  virtual void commit() = 0;
};

}  // namespace FalKernel
