#pragma once
// The VRFs in which multicast routing is enabled.
#include <cstddef>

#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"

namespace Routing::Multicast::Fib {

class FALMROUTE_EXPORT VrfEnabledStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<VrfEnabledStatus> {
   public:
    virtual void onVrf(L3::VrfName const&) {}
  };
  using VrfColl = Vex::OrderedColl<L3::VrfName, bool>;

  VrfEnabledStatus() = default;

  // Whether the VRF is listed with the value true; false when absent.
  bool vrf(L3::VrfName const& name) const {
    auto const* v = vrf_.find(name);
    return v && *v;
  }
  void vrfIs(L3::VrfName const& name, bool enabled = true) {
    if (vrf_.set(name, enabled)) notify(&Notifiee::onVrf, name);
  }
  void vrfDel(L3::VrfName const& name) {
    L3::VrfName const n = name;  // name may belong to the member being erased
    if (vrf_.erase(n)) notify(&Notifiee::onVrf, n);
  }
  void vrfDelAll() {
    while (auto const* first = vrf_.first()) vrfDel(first->first);
  }
  std::size_t vrfSize() const { return vrf_.size(); }
  // In VRF-name order; survives deletion of any member.
  VrfColl::Iterator vrfIterator() const { return vrf_.iterator(); }
  auto begin() const { return vrf_.begin(); }
  auto end() const { return vrf_.end(); }

 private:
  VrfColl vrf_;
};

}  // namespace Routing::Multicast::Fib
