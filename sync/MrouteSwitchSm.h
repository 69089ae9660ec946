#pragma once
// Fal::MrouteSwitchSm: the per-chip state machine of the synchronous flavour.
//
// Made by the agent through MrouteSwitchSmIs, one per chip beside its
// Fal::MrouteSwitch. It reacts to the chip's inputs (FIB configuration, L3
// status, common data, Ethernet interface status, verification and
// route-review requests), runs the zombie clock that reclaims expired zombie
// OIF sets, the time-bounded fast-reroute review pass (handleClock) that
// rewrites OIF sets in place after an interface failure, and the
// time-bounded route aging review that stamps route activity into the
// hardware status. Everything runs on the agent's single event loop.
#include <cstdint>
#include <map>
#include <memory>

#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3MulticastRequest.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Export.h"
#include "sync/MrouteHitConfig.h"
#include "sync/MrouteHitStatus.h"
#include "sync/MrouteSwitch.h"

namespace Fal {

class FALMROUTE_EXPORT MrouteSwitchSm : public Vex::Entity {
 public:
  using VrfConfig = Routing::Multicast::Fib::VrfConfig;
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;

  MrouteSwitchSm(std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
                 Vex::Ptr<MrouteSwitch> const& mrouteSwitch, Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                 Vex::Ptr<VrfConfig const> const& mfibConfig, Vex::Ptr<VrfConfig const> const& mfib6Config,
                 Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<HwStatus> const& mfib6HwStatus,
                 Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper, Vex::Ptr<Vex::Clock> const& clock,
                 Vex::Ptr<Vex::Clock> const& zombieClock, Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir,
                 Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                 Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir, bool usingAsyncMrouteHit,
                 Vex::Ptr<MrouteHitConfig> const& mrouteHitConfig, Vex::Ptr<MrouteHitStatus const> const& mrouteHitStatus);
  ~MrouteSwitchSm() override;

  // The agent's creator.
  static Vex::Ptr<MrouteSwitchSm> MrouteSwitchSmIs(
      std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
      Vex::Ptr<MrouteSwitch> const& mrouteSwitch, Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
      Vex::Ptr<VrfConfig const> const& mfibConfig, Vex::Ptr<VrfConfig const> const& mfib6Config,
      Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<HwStatus> const& mfib6HwStatus,
      Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper, Vex::Ptr<Vex::Clock> const& clock,
      Vex::Ptr<Vex::Clock> const& zombieClock, Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir,
      Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
      Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir, bool usingAsyncMrouteHit,
      Vex::Ptr<MrouteHitConfig> const& mrouteHitConfig, Vex::Ptr<MrouteHitStatus const> const& mrouteHitStatus);

  std::uint32_t switchId() const { return switchId_; }
  bool initialized() const { return initialized_; }
  Vex::Ptr<MrouteSwitch> const& mrouteSwitch() const { return mrouteSwitch_; }
  Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper() const { return mrouteHelper_; }
  Vex::Ptr<VerifyData const> const& verifyData() const { return verifyData_; }
  Vex::Ptr<Vex::Clock> const& clock() const { return clock_; }
  void clockIs(Vex::Ptr<Vex::Clock> const& clock);
  Vex::Ptr<Vex::Clock> const& zombieClock() const { return zombieClock_; }
  Vex::Ptr<Vex::Clock> const& agingClock() const { return agingClock_; }
  void agingClockIs(Vex::Ptr<Vex::Clock> const& clock);
  Vex::Ptr<L3MulticastRequest const> const& vex_L3MulticastRequestIn() const { return l3MulticastRequestIn_; }
  void vex_L3MulticastRequestInIs(Vex::Ptr<L3MulticastRequest const> const& request);
  bool notificationActive() const { return notificationActive_; }

  // One reactor per Ethernet interface of the directory.
  void ethIntfStatusIs(Vex::Ptr<Interface::EthIntfStatus const> const& status);
  void ethIntfStatusDel(Netcore::IntfId const& intfId);
  void ethIntfStatusDelAll();
  std::size_t ethIntfStatusSize() const { return ethIntfStatus_.size(); }

  void handleInitialized();
  void handlePollingInterval();
  void handlePolling6Interval();
  void handleVerify();
  // The fast-reroute review pass over the switch's frrProcessingOifSet.
  void handleClock();
  void handleOperStatus(Netcore::IntfId const& intfId, Interface::IntfOperStatus operStatus);
  void maybeScheduleRoutesReview();
  void hasNotificationActiveIs(bool active);
  void doCleanup();

  // Zombies and fast reroute.
  void handleZombie();
  void handleZombieClock();
  void updateFrrMtableOif(Netcore::IntfId const& intf);
  // A resurrected zombie watched for fast reroute again; queued at once when
  // its interface is down.
  void handleFrrOifSetResurrected(MrouteLib::OifSet const* oifSet);

  // ---- route aging review ----
  static constexpr Vex::Seconds kAgingReviewInterval = 0.01;
  static constexpr Vex::Seconds kAgingReviewQuota = 0.05;
  Vex::Seconds agingReviewInterval() const { return agingReviewInterval_; }
  void agingReviewIntervalIs(Vex::Seconds s) { agingReviewInterval_ = s; }
  Vex::Seconds agingReviewQuota() const { return agingReviewQuota_; }
  void agingReviewQuotaIs(Vex::Seconds s) { agingReviewQuota_ = s; }
  bool routeAgingReviewInProgress() const { return routeAgingReviewInProgress_; }
  bool routeHitCacheRefreshInProgress() const { return routeHitCacheRefreshInProgress_; }
  bool usingAsyncMrouteHit() const { return usingAsyncMrouteHit_; }
  std::uint32_t mrouteHitRequestId() const { return mrouteHitRequestId_; }
  Vex::Ptr<MrouteHitConfig> const& mrouteHitConfig() const { return mrouteHitConfig_; }
  Vex::Ptr<MrouteHitStatus const> const& mrouteHitStatus() const { return mrouteHitStatus_; }

  void maybeScheduleAgingReview();
  void doRouteHitCacheRefresh();
  void doRouteAgingReview();
  // One slice over one address family; true when that family's walk is complete.
  bool doRouteAgingReviewAfImpl(HwStatus& status);
  void handleMrouteHitResponse();
  void handleMrouteHitResponse(std::uint32_t id);

 private:
  class VexAcsd;
  class VexL3Status;
  class VexMrouteSwitch;
  class VexMfibConfig;
  class VexMfib6Config;
  class VexZombieClock;
  class VexAgingClock;
  class VexClock;
  class VexEthIntfStatusDir;
  class VexEthIntfStatus;
  class VexMrouteHitStatus;
  class VexVerifyData;
  class VexVex_L3MulticastRequestIn;

  Vex::Seconds now() const;
  // Queues one watched set for its rewrite when it arrives on intf.
  void updateFrrMtableOif(Netcore::IntfId const& intf, MrouteLib::OifSet const* oifSet);
  // Runs a review pass at the next turn of the loop, making the clock if needed.
  void reviewClockIsNow();
  void requestVerify();
  void verifyDataIs(Vex::Ptr<VerifyData const> const& v);
  void pollingIntervalIs(VrfConfig const* config, HwStatus* status);
  // The VRF configuration whose activity polling interval drives aging.
  std::uint8_t activityPollingInterval() const;

  std::uint32_t switchId_;
  Vex::Ptr<FalCommonSmData> acsd_;
  Vex::Ptr<L3Status> l3Status_;
  Vex::Ptr<MrouteSwitch> mrouteSwitch_;
  Vex::Ptr<IntfVlanId::Table const> intfVlanIdTable_;
  Vex::Ptr<VrfConfig const> mfibConfig_;
  Vex::Ptr<VrfConfig const> mfib6Config_;
  Vex::Ptr<HwStatus> mfibHwStatus_;
  Vex::Ptr<HwStatus> mfib6HwStatus_;
  Vex::Ptr<FalHelper::MrouteSmHelper> mrouteHelper_;
  Vex::Ptr<Vex::Clock> clock_;
  Vex::Ptr<Vex::Clock> zombieClock_;
  Vex::Ptr<Vex::Clock> agingClock_;
  Vex::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir_;
  Vex::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir_;
  Vex::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir_;
  Vex::Ptr<VerifyData const> verifyData_;
  Vex::Ptr<L3MulticastRequest const> l3MulticastRequestIn_;
  Vex::Ptr<MrouteHitConfig> mrouteHitConfig_;
  Vex::Ptr<MrouteHitStatus const> mrouteHitStatus_;
  bool initialized_ = false;
  bool notificationActive_ = true;
  bool cleanupInProgress_ = false;
  // Set while a fast-reroute review pass runs, and while the review clock is
  // made for a later pass, so that binding it does not start a pass at once.
  bool clockReviewRunning_ = false;

  Vex::Seconds agingReviewInterval_ = kAgingReviewInterval;
  Vex::Seconds agingReviewQuota_ = kAgingReviewQuota;
  std::uint32_t mrouteHitRequestId_ = 0;
  bool usingAsyncMrouteHit_;
  bool routeAgingReviewInProgress_ = false;
  bool routeHitCacheRefreshInProgress_ = false;

  std::unique_ptr<VexAcsd> vexAcsd_;
  std::unique_ptr<VexL3Status> vexL3Status_;
  std::unique_ptr<VexMrouteSwitch> vexMrouteSwitch_;
  std::unique_ptr<VexMfibConfig> vexMfibConfig_;
  std::unique_ptr<VexMfib6Config> vexMfib6Config_;
  std::unique_ptr<VexZombieClock> vexZombieClock_;
  std::unique_ptr<VexAgingClock> vexAgingClock_;
  std::unique_ptr<VexClock> vexClock_;
  std::unique_ptr<VexEthIntfStatusDir> vexEthIntfStatusDir_;
  std::map<Netcore::IntfId, std::unique_ptr<VexEthIntfStatus>> ethIntfStatus_;
  std::unique_ptr<VexMrouteHitStatus> vexMrouteHitStatus_;
  std::unique_ptr<VexVerifyData> vexVerifyData_;
  std::unique_ptr<VexVex_L3MulticastRequestIn> vexL3MulticastRequestIn_;
};

}  // namespace Fal
