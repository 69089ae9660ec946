#pragma once
// Fal::Mroute::AsyncMrouteSwitchRouteAgingSm: the route aging reviewer of the
// asynchronous flavour, one per switch and address family (made by the
// per-chip state machine).
//
// It walks the routes of the family's multicast FIB hardware status in slices
// of at most kRoutesPerSlice routes, kSlicePause apart, asks the hook when
// each route's hardware entry (and each fast-drop entry) was last hit, and
// stamps that time into the route status when it is newer than the one on
// record. Reviews follow each other at the polling interval the hook adjusts
// from the configured activity polling interval; the activity interval the
// platform really supports is published in the hardware status, with a
// structured log message when it differs from the configured one.
//
// The place where a slice stopped is kept in its own attributes (vrfBookmark,
// bookmark) by name and key, so the next slice finds it again with one hash
// positioning, at the successor when the bookmarked route was deleted
// meanwhile; a bookmarked VRF that went away restarts the walk at the first
// VRF.
#include <cstdint>
#include <memory>

#include "async/AsyncMrouteSwitch.h"
#include "model/AsyncMrouteHelper.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/log/LogMessage.h"
#include "platform/net/AddressFamily.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Export.h"

namespace Fal::Mroute {

class FALMROUTE_EXPORT AsyncMrouteSwitchRouteAgingSm : public Vex::Entity {
 public:
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  using VrfConfig = Routing::Multicast::Fib::VrfConfig;
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

  // Routes visited per slice (stamped or not, across VRFs), and the pause
  // between two slices of one review.
  static constexpr std::uint32_t kRoutesPerSlice = 256;
  static constexpr Vex::Seconds kSlicePause = 0.2;

  AsyncMrouteSwitchRouteAgingSm(Netcore::AddressFamily af, Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch,
                                Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                                Vex::Ptr<VrfConfig const> const& mfibConfig, Vex::Ptr<HwStatus> const& mfibHwStatus,
                                Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper,
                                Vex::Ptr<Vex::Clock> const& agingClock);
  ~AsyncMrouteSwitchRouteAgingSm() override;

  static Vex::Ptr<AsyncMrouteSwitchRouteAgingSm> AsyncMrouteSwitchRouteAgingSmIs(
      Netcore::AddressFamily af, Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch,
      Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable, Vex::Ptr<VrfConfig const> const& mfibConfig,
      Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper,
      Vex::Ptr<Vex::Clock> const& agingClock);

  Netcore::AddressFamily af() const { return af_; }
  // Setting an entity replaces its reactor; null removes it.
  Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch() const { return mrouteSwitch_; }
  void mrouteSwitchIs(Vex::Ptr<AsyncMrouteSwitch> const& sw);
  Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable() const { return intfVlanIdTable_; }
  Vex::Ptr<VrfConfig const> const& mfibConfig() const { return mfibConfig_; }
  void mfibConfigIs(Vex::Ptr<VrfConfig const> const& config);
  Vex::Ptr<HwStatus> const& mfibHwStatus() const { return mfibHwStatus_; }
  Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper() const { return helper_; }
  Vex::Ptr<Vex::Clock> const& agingClock() const { return agingClock_; }
  void agingClockIs(Vex::Ptr<Vex::Clock> const& clock);

  // Where the next slice resumes: the VRF (empty: at the beginning) and the
  // route within it (the null key: at its first route).
  L3::VrfName const& vrfBookmark() const { return vrfBookmark_; }
  void vrfBookmarkIs(L3::VrfName const& name) { vrfBookmark_ = name; }
  IpGenRouteKey const& bookmark() const { return bookmark_; }
  void bookmarkIs(IpGenRouteKey const& key) { bookmark_ = key; }
  // Routes stamped during the current review.
  std::uint32_t hitCount() const { return hitCount_; }
  bool initialized() const { return initialized_; }

  void handleInitialized();
  void handlePollingInterval();
  // A handle of the switch changed: the first route arms the review.
  void handleRoute(MrouteLib::RouteHandle handle);
  void doMaybeScheduleRouteAgingReview();
  // One slice of the review, on the clock.
  void doRouteAgingReview();

  // When the route programmed under (routeKey, vlan, vrfId) was last hit, as
  // the hook says; 0 when the switch holds no such route.
  static Vex::Seconds lastRoutePollTime(FalHelper::AsyncMrouteHelper& helper, AsyncMrouteSwitch const& mrouteSwitch,
                                        IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan, Fal::VrfId vrfId);
  // "MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED", defined once per process.
  static Log::Message const& pollingIntervalNotSupported();

 private:
  class VexMrouteSwitch;
  class VexMfibConfig;
  class VexAgingClock;

  void reviewRoute(Routing::Multicast::Fib::Hardware::RouteStatus& route, Fal::VrfId vrfId);
  Bridging::VlanIdOrNone vlanOf(Netcore::IntfId intf) const;
  bool clockArmed() const;
  void clockIs(Vex::Seconds t);
  // The configured activity polling interval, seconds.
  Vex::Seconds configuredInterval() const;
  Vex::Seconds now() const;

  Netcore::AddressFamily const af_;
  Vex::Ptr<AsyncMrouteSwitch> mrouteSwitch_;
  Vex::Ptr<IntfVlanId::Table const> intfVlanIdTable_;
  Vex::Ptr<VrfConfig const> mfibConfig_;
  Vex::Ptr<HwStatus> mfibHwStatus_;
  Vex::Ptr<FalHelper::AsyncMrouteHelper> helper_;
  Vex::Ptr<Vex::Clock> agingClock_;
  L3::VrfName vrfBookmark_;
  IpGenRouteKey bookmark_;
  std::uint32_t hitCount_ = 0;
  bool initialized_ = false;
  std::unique_ptr<VexMrouteSwitch> vexMrouteSwitch_;
  std::unique_ptr<VexMfibConfig> vexMfibConfig_;
  std::unique_ptr<VexAgingClock> vexAgingClock_;
};

}  // namespace Fal::Mroute
