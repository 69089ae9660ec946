#pragma once
// The agent's IP status. This library only holds it and hands it on.
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Ip {

class FALMROUTE_EXPORT Status final : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Status> {
   public:
    virtual void onIpv4RoutingEnabled() {}
    virtual void onIpv6RoutingEnabled() {}
  };

  bool ipv4RoutingEnabled() const { return ipv4RoutingEnabled_; }
  void ipv4RoutingEnabledIs(bool v) {
    if (v == ipv4RoutingEnabled_) return;
    ipv4RoutingEnabled_ = v;
    notify(&Notifiee::onIpv4RoutingEnabled);
  }
  bool ipv6RoutingEnabled() const { return ipv6RoutingEnabled_; }
  void ipv6RoutingEnabledIs(bool v) {
    if (v == ipv6RoutingEnabled_) return;
    ipv6RoutingEnabled_ = v;
    notify(&Notifiee::onIpv6RoutingEnabled);
  }

 private:
  bool ipv4RoutingEnabled_ = false;
  bool ipv6RoutingEnabled_ = false;
};

}  // namespace Ip
