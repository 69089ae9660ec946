#pragma once
// One multicast route as its owner wants it in hardware: what the route
// programmer is given to program on every chip.
//
// A plain value. The route is named by (vrfName, key); the rest says how it
// forwards:
// - acceptingVlan: the VLAN traffic must arrive on (none for a noRpf route,
//   which accepts on any interface);
// - acceptingIntfId: the interface of that VLAN, recorded in the route's
//   hardware status; it plays no part in programming;
// - outputs: the OIF set's content, FRR backup members and protected
//   interface included;
// - bridge: a boundary entry instead of a route; it takes no OIF set, so its
//   outputs are ignored;
// - fastdrop, noRpf: programmed as they are;
// - rpaId: the RPA index, kRpaIdNone (0xFFFF) when the route has none.
//
// The outputs are held by a shared pointer and copied on the first change
// through a copy that shares them: a generated set of a million routes over a
// few thousand distinct output sets holds those few thousand (a 128-byte
// PortVlanSet each) instead of one per route. A reference from the mutable
// outputs() is the route's own until the route is next copied.
#include <cstdint>
#include <memory>
#include <ostream>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/net/IntfId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Export.h"

namespace MrouteLib {

class FALMROUTE_EXPORT DesiredRoute {
 public:
  static constexpr std::uint16_t kRpaIdNone = 0xFFFF;

  DesiredRoute() = default;
  DesiredRoute(L3::VrfName vrfName, Routing::Multicast::Fib::IpGenRouteKey key)
      : vrfName_(std::move(vrfName)), key_(std::move(key)) {}

  L3::VrfName const& vrfName() const { return vrfName_; }
  void vrfNameIs(L3::VrfName v) { vrfName_ = std::move(v); }
  Routing::Multicast::Fib::IpGenRouteKey const& key() const { return key_; }
  void keyIs(Routing::Multicast::Fib::IpGenRouteKey k) { key_ = std::move(k); }

  Bridging::VlanIdOrNone acceptingVlan() const { return acceptingVlan_; }
  void acceptingVlanIs(Bridging::VlanIdOrNone v) { acceptingVlan_ = v; }
  Netcore::IntfId acceptingIntfId() const { return acceptingIntfId_; }
  void acceptingIntfIdIs(Netcore::IntfId i) { acceptingIntfId_ = i; }

  PortVlanSet const& outputs() const { return outputs_ ? *outputs_ : noOutputs(); }
  PortVlanSet& outputs() {
    if (!outputs_ || outputs_.use_count() > 1) outputs_ = std::make_shared<PortVlanSet>(std::as_const(*this).outputs());
    return *outputs_;
  }
  void outputsIs(PortVlanSet s) { outputs_ = std::make_shared<PortVlanSet>(std::move(s)); }
  // The outputs of other, shared rather than copied.
  void outputsShare(DesiredRoute const& other) { outputs_ = other.outputs_; }

  bool bridge() const { return bridge_; }
  void bridgeIs(bool b) { bridge_ = b; }
  bool fastdrop() const { return fastdrop_; }
  void fastdropIs(bool b) { fastdrop_ = b; }
  bool noRpf() const { return noRpf_; }
  void noRpfIs(bool b) { noRpf_ = b; }
  std::uint16_t rpaId() const { return rpaId_; }
  void rpaIdIs(std::uint16_t id) { rpaId_ = id; }

  friend bool operator==(DesiredRoute const& a, DesiredRoute const& b) {
    return a.acceptingVlan_ == b.acceptingVlan_ && a.acceptingIntfId_ == b.acceptingIntfId_ && a.rpaId_ == b.rpaId_ &&
           a.bridge_ == b.bridge_ && a.fastdrop_ == b.fastdrop_ && a.noRpf_ == b.noRpf_ && a.key_ == b.key_ &&
           a.vrfName_ == b.vrfName_ && (a.outputs_ == b.outputs_ || a.outputs() == b.outputs());
  }

 private:
  static PortVlanSet const& noOutputs() {
    static PortVlanSet const none;
    return none;
  }

  // Ordered so that no padding is left but the end's: a generated set holds
  // a million of these, and 96 bytes instead of 104 is 8 MB.
  L3::VrfName vrfName_;
  Routing::Multicast::Fib::IpGenRouteKey key_;
  Netcore::IntfId acceptingIntfId_;  // fills the 4 bytes the key leaves before outputs_
  std::shared_ptr<PortVlanSet> outputs_;  // null: none
  Bridging::VlanIdOrNone acceptingVlan_;
  std::uint16_t rpaId_ = kRpaIdNone;
  bool bridge_ = false;
  bool fastdrop_ = false;
  bool noRpf_ = false;
};

// "[vrf] (10.0.0.1, 239.1.1.1) vlan 100 Vlan100 bridge 0 fastdrop 0 noRpf 0
// rpaId 65535 outputs {...}", for traces and test failures.
inline std::ostream& operator<<(std::ostream& os, DesiredRoute const& r) {
  return os << '[' << r.vrfName() << "] " << r.key() << " vlan " << r.acceptingVlan() << ' ' << r.acceptingIntfId()
            << " bridge " << r.bridge() << " fastdrop " << r.fastdrop() << " noRpf " << r.noRpf() << " rpaId "
            << r.rpaId() << " outputs " << r.outputs().pretty();
}

}  // namespace MrouteLib
