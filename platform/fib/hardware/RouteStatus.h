#pragma once
// What the hardware side knows of one multicast route: where its traffic is
// accepted, when it (and each of its fast-drop entries) was last seen active,
// and whether the route programmer managed to program it.
//
// There is one per route in the table, so it is kept small: the VRF name is
// read from the owning VrfStatus rather than copied, and the fast-drop
// collection is allocated only for routes that have fast-drop entries.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/net/IntfId.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"
#include "platform/vex/Types.h"

namespace Routing::Multicast::Fib::Hardware {

class VrfStatus;

class FALMROUTE_EXPORT RouteStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<RouteStatus> {
   public:
    virtual void onAcceptingIntfId() {}
    virtual void onFlags() {}
    virtual void onPollWithoutVlan() {}
    virtual void onLastPollTime() {}
    virtual void onFastdrop(Netcore::IntfId const&) {}
    virtual void onProgrammed() {}
    virtual void onFailureReason() {}
  };
  // Fast-drop interface -> the last time its entry was seen active.
  using FastdropColl = Vex::OrderedColl<Netcore::IntfId, Vex::Seconds>;

  // The two bits of flags(); a route with either bit set is not polled for activity.
  static constexpr std::uint8_t kFlagsMask = 0x3;

  explicit RouteStatus(IpGenRouteKey key) : key_(std::move(key)) {}
  ~RouteStatus() override;
  // One per route: from the pool of per-route objects, without the general
  // allocator's header and rounding (104 bytes, not 112).
  static void* operator new(std::size_t n);
  static void operator delete(void* p, std::size_t n) noexcept;

  IpGenRouteKey const& key() const { return key_; }
  // The name of the VrfStatus that holds this route; empty once it was removed from it.
  L3::VrfName const& vrfName() const;

  Netcore::IntfId acceptingIntfId() const { return acceptingIntfId_; }
  void acceptingIntfIdIs(Netcore::IntfId intf) {
    if (acceptingIntfId_ == intf) return;
    acceptingIntfId_ = intf;
    notify(&Notifiee::onAcceptingIntfId);
  }

  std::uint8_t flags() const { return flags_; }
  // Only the two low bits are meaningful; others are refused.
  void flagsIs(std::uint8_t flags);
  bool activityPollingSuppressed() const { return flags_ != 0; }

  // Whether the route is polled even when it has no accepting VLAN.
  bool pollWithoutVlan() const { return pollWithoutVlan_; }
  void pollWithoutVlanIs(bool on) {
    if (pollWithoutVlan_ == on) return;
    pollWithoutVlan_ = on;
    notify(&Notifiee::onPollWithoutVlan);
  }

  // When the route was last seen active; 0 when never.
  Vex::Seconds lastPollTime() const { return lastPollTime_; }
  void lastPollTimeIs(Vex::Seconds t) {
    if (lastPollTime_ == t) return;
    lastPollTime_ = t;
    notify(&Notifiee::onLastPollTime);
  }

  bool fastdrop(Netcore::IntfId intf) const { return fastdrop_ && fastdrop_->contains(intf); }
  // Adds a fast-drop entry (last poll time 0); an existing entry keeps its time.
  void fastdropIs(Netcore::IntfId intf);
  void fastdropDel(Netcore::IntfId intf);
  void fastdropDelAll();
  // The entry's last poll time; 0 when absent.
  Vex::Seconds fastdropLastPollTime(Netcore::IntfId intf) const;
  // Stamps the entry, adding it when absent.
  void fastdropLastPollTimeIs(Netcore::IntfId intf, Vex::Seconds t);
  std::size_t fastdropSize() const { return fastdrop_ ? fastdrop_->size() : 0; }
  // In interface order; survives deletion of any entry. Entries added after an
  // iterator over a route with none were taken are not seen by it.
  FastdropColl::Iterator fastdropIterator() const;

  // Outcome of the last programming attempt, written by the route programmer.
  bool programmed() const { return programmed_; }
  void programmedIs(bool on) {
    if (programmed_ == on) return;
    programmed_ = on;
    notify(&Notifiee::onProgrammed);
  }
  // Failure bits of the last attempt; 0 when none.
  std::uint32_t failureReason() const { return failureReason_; }
  void failureReasonIs(std::uint32_t reason) {
    if (failureReason_ == reason) return;
    failureReason_ = reason;
    notify(&Notifiee::onFailureReason);
  }

 private:
  friend class VrfStatus;
  IpGenRouteKey const key_;
  Netcore::IntfId acceptingIntfId_;
  std::uint32_t failureReason_ = 0;
  Vex::Seconds lastPollTime_ = 0;
  VrfStatus const* vrf_ = nullptr;  // not owned: the VRF status detaches its routes before it goes
  std::unique_ptr<FastdropColl> fastdrop_;
  std::uint8_t flags_ = 0;
  bool pollWithoutVlan_ = false;
  bool programmed_ = false;
};

}  // namespace Routing::Multicast::Fib::Hardware
