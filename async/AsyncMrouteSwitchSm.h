#pragma once
// Fal::Mroute::AsyncMrouteSwitchSm: the per-chip state machine of the
// asynchronous flavour.
//
// The agent makes one per chip, beside the chip's AsyncMrouteSwitch, and
// hands it the entities it watches. It
// - forwards the FIB's counter configuration (counter mode, all-route
//   counting) to the hook object; this flavour programs no counters itself;
// - makes one route aging reviewer per address family
//   (AsyncMrouteSwitchRouteAgingSm; IPv6 only with an IPv6 configuration);
// - runs the zombie timer: the clock follows the earliest zombie of the
//   switch, and a purge pass frees the zombies whose time has come;
// - reacts to an Ethernet interface going down by queueing the switch's
//   fast-reroute sets that arrive on it, and rewrites each queued group in
//   place (the hook's doUpdateMulticastGroupInPlace) in a review pass bounded
//   to kFrrReviewBudget of the loop's time, continued on the next turn.
//
// The review pass remembers where it stopped in one position for the whole
// process, shared by every chip's state machine: whichever chip's pass runs
// next starts its own walk there. A pass that ends with sets of its own chip
// still queued (those before another chip's position) runs again on the next
// turn, so every chip's sets are rewritten.
//
// Nothing runs before initialization (the end of construction) but the
// counter forwarding; interface events then are only traced. Tear-down (the
// destructor) flags the switch deleted and frees every zombie at once.
#include <cstdint>
#include <map>
#include <memory>

#include "async/AsyncMrouteSwitch.h"
#include "async/AsyncMrouteSwitchRouteAgingSm.h"
#include "model/AsyncMrouteHelper.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Export.h"

namespace Fal::Mroute {

class FALMROUTE_EXPORT AsyncMrouteSwitchSm : public Vex::Entity {
 public:
  using VrfConfig = Routing::Multicast::Fib::VrfConfig;
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;

  // How long one fast-reroute review pass may hold the event loop.
  static constexpr Vex::Seconds kFrrReviewBudget = 0.1;
  // One zombie purge pass frees at least kZombiesPerPass due zombies, then
  // stops once kZombiePassBudget has passed since it began.
  static constexpr std::uint32_t kZombiesPerPass = 5;
  static constexpr Vex::Seconds kZombiePassBudget = 3.0;

  // Clocks left null are made from the current activity manager.
  AsyncMrouteSwitchSm(Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch,
                      Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                      Vex::Ptr<VrfConfig const> const& mfibConfig, Vex::Ptr<VrfConfig const> const& mfibConfig6,
                      Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<HwStatus> const& mfibHwStatus6,
                      Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper, Vex::Ptr<Vex::Clock> const& zombieClock,
                      Vex::Ptr<Vex::Clock> const& agingClock, Vex::Ptr<Vex::Clock> const& agingClock6,
                      Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir,
                      Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                      Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir);
  ~AsyncMrouteSwitchSm() override;

  Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch() const { return mrouteSwitch_; }
  Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable() const { return intfVlanIdTable_; }
  Vex::Ptr<VrfConfig const> const& mfibConfig() const { return mfibConfig_; }
  Vex::Ptr<VrfConfig const> const& mfibConfig6() const { return mfibConfig6_; }
  Vex::Ptr<HwStatus> const& mfibHwStatus() const { return mfibHwStatus_; }
  Vex::Ptr<HwStatus> const& mfibHwStatus6() const { return mfibHwStatus6_; }
  Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper() const { return helper_; }
  Vex::Ptr<Vex::Clock> const& zombieClock() const { return zombieClock_; }
  Vex::Ptr<Vex::Clock> const& agingClock() const { return agingClock_; }
  Vex::Ptr<Vex::Clock> const& agingClock6() const { return agingClock6_; }
  Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir() const { return ethIntfStatusDir_; }
  Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir() const { return allIntfStatusDir_; }
  Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir() const { return allIntfStatusLocalDir_; }
  Vex::Ptr<AsyncMrouteSwitchRouteAgingSm> const& routeAgingSm() const { return routeAgingSm_; }
  Vex::Ptr<AsyncMrouteSwitchRouteAgingSm> const& routeAgingSm6() const { return routeAgingSm6_; }
  void routeAgingSmDel();
  // The fast-reroute review clock; made by the first pass that runs out of time.
  Vex::Ptr<Vex::Clock> const& clock() const { return clock_; }
  void clockIs(Vex::Ptr<Vex::Clock> const& clock);
  bool initialized() const { return initialized_; }

  // One reactor per Ethernet interface of the directory; null is refused.
  void ethIntfStatusIs(Vex::Ptr<Interface::EthIntfStatus const> const& status);
  void ethIntfStatusDel(Netcore::IntfId const& intfId);
  std::size_t ethIntfStatusSize() const { return ethIntfStatus_.size(); }
  // One reactor per VRF of the IPv4 configuration; null is refused.
  void mfibConfigVrfIs(Vex::Ptr<Routing::Multicast::Fib::Config const> const& config);
  void mfibConfigVrfDel(L3::VrfName const& name);
  std::size_t mfibConfigVrfSize() const { return mfibConfigVrf_.size(); }

  void handleInitialized();
  void handleMulticastCounterMode();
  void handleWildcardCounter();
  void handleCounterRoute();
  void handleOperStatus(Netcore::IntfId const& intfId, Interface::IntfOperStatus operStatus);
  // Queues the switch's fast-reroute sets that arrive on intfId, then reviews.
  void updateFrrMtableOif(Netcore::IntfId const& intfId);
  // The fast-reroute review pass over the switch's frrProcessingOifSet.
  void handleClock();
  // A resurrected zombie is watched again; queued at once when its interface is down.
  void handleFrrOifSetResurrected(MrouteLib::OifSet const* oifSet);

  // ---- zombies ----
  // Re-arms the zombie clock for the earliest zombie, or cancels it.
  void handleZombie();
  void handleZombie(ZombieKey const& key);
  // The purge pass: frees the zombies whose time has come.
  void handleZombieClock();
  // Frees the earliest zombie now, whatever its expiry (for operators and tests).
  void doForcePurgeOneZombie();
  // Flags the switch deleted and frees every zombie.
  void doCleanup();

 private:
  class VexMrouteSwitch;
  class VexMfibConfig;
  class VexMfibConfigVrf;
  class VexZombieClock;
  class VexClock;
  class VexEthIntfStatusDir;
  class VexEthIntfStatus;

  // Queues one watched set for its rewrite when it arrives on intfId.
  void updateFrrMtableOif(Netcore::IntfId const& intfId, MrouteLib::OifSet const* oifSet);
  // Runs a review pass at the next turn of the loop, making the clock if needed.
  void reviewClockIsNow();
  // Rewrites one queued set's group in place.
  void rewriteFrrGroup(AsyncMtableOifSet& set);
  Vex::Seconds now() const;

  Vex::Ptr<AsyncMrouteSwitch> mrouteSwitch_;
  Vex::Ptr<IntfVlanId::Table const> intfVlanIdTable_;
  Vex::Ptr<VrfConfig const> mfibConfig_;
  Vex::Ptr<VrfConfig const> mfibConfig6_;
  Vex::Ptr<HwStatus> mfibHwStatus_;
  Vex::Ptr<HwStatus> mfibHwStatus6_;
  Vex::Ptr<FalHelper::AsyncMrouteHelper> helper_;
  Vex::Ptr<Vex::Clock> zombieClock_;
  Vex::Ptr<Vex::Clock> agingClock_;
  Vex::Ptr<Vex::Clock> agingClock6_;
  Vex::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir_;
  Vex::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir_;
  Vex::Ptr<Interface::AllIntfStatusLocalDir const> allIntfStatusLocalDir_;
  Vex::Ptr<AsyncMrouteSwitchRouteAgingSm> routeAgingSm_;
  Vex::Ptr<AsyncMrouteSwitchRouteAgingSm> routeAgingSm6_;
  Vex::Ptr<Vex::Clock> clock_;
  bool initialized_ = false;

  std::unique_ptr<VexMrouteSwitch> vexMrouteSwitch_;
  std::unique_ptr<VexMfibConfig> vexMfibConfig_;
  std::unique_ptr<VexZombieClock> vexZombieClock_;
  std::unique_ptr<VexClock> vexClock_;
  std::unique_ptr<VexEthIntfStatusDir> vexEthIntfStatusDir_;
  std::map<Netcore::IntfId, std::unique_ptr<VexEthIntfStatus>> ethIntfStatus_;
  std::map<L3::VrfName, std::unique_ptr<VexMfibConfigVrf>> mfibConfigVrf_;
};

}  // namespace Fal::Mroute
