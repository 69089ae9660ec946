#pragma once
// One VRF as a chip's hardware route status knows it: its name and the
// numeric id under which the chip programs its routes.
#include <utility>

#include "platform/types/VrfId.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Routing::Hardware {

class FALMROUTE_EXPORT VrfStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<VrfStatus> {
   public:
    virtual void onVrfId() {}
  };

  VrfStatus(L3::VrfName name, Fal::VrfId vrfId) : name_(std::move(name)), vrfId_(vrfId) {}

  L3::VrfName const& name() const { return name_; }
  Fal::VrfId vrfId() const { return vrfId_; }
  void vrfIdIs(Fal::VrfId id) {
    if (vrfId_ == id) return;
    vrfId_ = id;
    notify(&Notifiee::onVrfId);
  }

 private:
  L3::VrfName const name_;
  Fal::VrfId vrfId_;
};

}  // namespace Routing::Hardware
