#pragma once
// The status of one interface: its id and operational status.
//
// Self is the concrete status entity, so that its reactors are
// NotifieeOf<Self> and bind to a Vex::Ptr<Self const>.
#include "platform/intf/IntfOperStatus.h"
#include "platform/net/IntfId.h"
#include "platform/vex/Entity.h"

namespace Interface {

template <class Self>
class IntfStatusT : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Self> {
   public:
    virtual void onOperStatus() {}
  };

  explicit IntfStatusT(Netcore::IntfId intfId) : intfId_(intfId) {}

  Netcore::IntfId intfId() const { return intfId_; }

  IntfOperStatus operStatus() const { return operStatus_; }
  void operStatusIs(IntfOperStatus s) {
    if (s == operStatus_) return;
    operStatus_ = s;
    notify(&Notifiee::onOperStatus);
  }

 private:
  Netcore::IntfId const intfId_;
  // Nothing is known about an interface until its owner publishes a status.
  IntfOperStatus operStatus_ = intfOperUnknown;
};

}  // namespace Interface
