#pragma once
// Routing::Hardware::RouteStatus: the VRFs a chip's hardware can route in,
// each with the numeric id the chip knows it by. The asynchronous flavour
// reads it to turn a route's VRF name into the id its hooks take; a VRF
// without a status here cannot be programmed on the chip.
//
// Written by the agent that owns the chip's routing state (the simulator's
// wiring in a stand-alone run); read by the library.
#include <cstddef>

#include "platform/fib/routing/VrfStatus.h"
#include "platform/types/VrfId.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"
#include "platform/vex/Ptr.h"

namespace Routing::Hardware {

class FALMROUTE_EXPORT RouteStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<RouteStatus> {
   public:
    virtual void onVrfStatus(L3::VrfName const&) {}
  };
  using VrfStatusColl = Vex::OrderedColl<L3::VrfName, Vex::Ptr<VrfStatus>>;

  // The VRF's status, or null.
  Vex::Ptr<VrfStatus const> vrfStatus(L3::VrfName const& name) const {
    auto const* v = vrfStatus_.find(name);
    return v ? Vex::Ptr<VrfStatus const>(*v) : nullptr;
  }
  // The VRF's status with this id: made (and told) when absent, its id
  // changed when present.
  Vex::Ptr<VrfStatus> vrfStatusIs(L3::VrfName const& name, Fal::VrfId vrfId) {
    if (auto const* v = vrfStatus_.find(name)) {
      (*v)->vrfIdIs(vrfId);
      return *v;
    }
    auto v = Vex::make<VrfStatus>(name, vrfId);
    vrfStatus_.set(name, v);
    notify(&Notifiee::onVrfStatus, name);
    return v;
  }
  void vrfStatusDel(L3::VrfName const& name) {
    L3::VrfName const n = name;  // name may belong to the member being erased
    if (vrfStatus_.erase(n)) notify(&Notifiee::onVrfStatus, n);
  }
  std::size_t vrfStatusSize() const { return vrfStatus_.size(); }
  // In name order; survives deletion of any member.
  VrfStatusColl::Iterator vrfStatusIterator() const { return vrfStatus_.iterator(); }

 private:
  VrfStatusColl vrfStatus_;
};

}  // namespace Routing::Hardware
