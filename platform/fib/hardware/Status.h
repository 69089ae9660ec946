#pragma once
// The multicast FIB hardware status of one address family: whether the
// hardware routes multicast, whether multicast routing is enabled for the
// family, the activity polling interval really in use, and the routes per
// VRF.
//
// VRFs are kept in a hashed collection that iterates in a stable hash order
// and can be positioned where a name stands even when that VRF has gone, so
// an activity review can stop and resume at a bookmarked VRF.
#include <cstddef>
#include <cstdint>

#include "platform/fib/hardware/VrfStatus.h"
#include "platform/net/AddressFamily.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/HashColl.h"
#include "platform/vex/Ptr.h"

namespace Routing::Multicast::Fib::Hardware {

class FALMROUTE_EXPORT Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Status> {
   public:
    virtual void onHwRouting() {}
    virtual void onEnabled() {}
    virtual void onPollingInterval() {}
    virtual void onVrfStatus(L3::VrfName const&) {}
  };
  using VrfStatusColl = Vex::HashColl<L3::VrfName, Vex::Ptr<VrfStatus>>;

  explicit Status(Netcore::AddressFamily af) : af_(af) {}

  Netcore::AddressFamily af() const { return af_; }

  // Whether the hardware can route multicast.
  bool hwRouting() const { return hwRouting_; }
  void hwRoutingIs(bool on) {
    if (hwRouting_ == on) return;
    hwRouting_ = on;
    notify(&Notifiee::onHwRouting);
  }
  // Whether multicast routing is enabled for this address family.
  bool enabled() const { return enabled_; }
  void enabledIs(bool on) {
    if (enabled_ == on) return;
    enabled_ = on;
    notify(&Notifiee::onEnabled);
  }
  // The activity polling interval (seconds) that the route programmer really
  // uses, published for the side that ages routes; 0 until published.
  std::uint8_t pollingInterval() const { return pollingInterval_; }
  void pollingIntervalIs(std::uint8_t s) {
    if (pollingInterval_ == s) return;
    pollingInterval_ = s;
    notify(&Notifiee::onPollingInterval);
  }

  // The VRF's status, or null.
  Vex::Ptr<VrfStatus> vrfStatus(L3::VrfName const& name) {
    auto const* v = vrfStatus_.find(name);
    return v ? *v : nullptr;
  }
  Vex::Ptr<VrfStatus const> vrfStatus(L3::VrfName const& name) const { return const_cast<Status*>(this)->vrfStatus(name); }
  // Returns the VRF's status, creating it (and notifying) when absent.
  Vex::Ptr<VrfStatus> vrfStatusIs(L3::VrfName const& name) {
    auto [slot, inserted] = vrfStatus_.findOrInsert(name);
    if (!inserted) return *slot;
    *slot = Vex::make<VrfStatus>(name);
    Vex::Ptr<VrfStatus> v = *slot;
    notify(&Notifiee::onVrfStatus, name);
    return v;
  }
  void vrfStatusDel(L3::VrfName const& name) {
    L3::VrfName const n = name;  // name may belong to the member being erased
    if (vrfStatus_.erase(n)) notify(&Notifiee::onVrfStatus, n);
  }
  void vrfStatusDelAll() {
    for (auto it = vrfStatus_.iterator(); !it.done(); it = vrfStatus_.iterator()) vrfStatusDel(it.key());
  }
  std::size_t vrfStatusSize() const { return vrfStatus_.size(); }
  // In stable hash order; survives deletion of any member.
  VrfStatusColl::Iterator vrfStatusIterator() const { return vrfStatus_.iterator(); }
  // Positioned at name, or at the VRF that follows where name would stand.
  VrfStatusColl::Iterator vrfStatusIterator(L3::VrfName const& name) const { return vrfStatus_.iterator(name); }

  // The number of routes over all VRFs.
  std::size_t routes() const {
    std::size_t n = 0;
    for (auto const& [name, vrf] : vrfStatus_) n += vrf->routeSize();
    return n;
  }

 private:
  VrfStatusColl vrfStatus_;
  Netcore::AddressFamily const af_;
  bool hwRouting_ = false;
  bool enabled_ = false;
  std::uint8_t pollingInterval_ = 0;
};

}  // namespace Routing::Multicast::Fib::Hardware
