#pragma once
// Fal::MrouteSm: the agent-wide state machine of the synchronous flavour.
//
// Decides whether multicast routing is enabled in hardware (some VRF has it
// enabled and the hardware status allows routing), tells the hook object when
// that changes, keeps the L3 status's multicast-routing flag in step, and owns
// the route counters: creating, clearing, deleting and polling them and
// publishing the results in the FIB's counter status. Created once per agent
// through MrouteSmIs; the per-chip objects are made elsewhere.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "model/MrouteSmHelper.h"
#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/Config.h"
#include "platform/fib/Counter.h"
#include "platform/fib/CounterStatus.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/fib/hardware/Status.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "platform/intf/IpStatus.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"

namespace Fal {

class FALMROUTE_EXPORT MrouteSm : public Vex::Entity {
 public:
  using VrfConfig = Routing::Multicast::Fib::VrfConfig;
  using Config = Routing::Multicast::Fib::Config;
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  using VrfEnabledStatus = Routing::Multicast::Fib::VrfEnabledStatus;
  using CounterStatus = Routing::Multicast::Fib::CounterStatus;
  using CounterStatusCtl = Routing::Multicast::Fib::CounterStatusCtl;
  using Counter = Routing::Multicast::Fib::Counter;
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

  MrouteSm(Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
           Vex::Ptr<VrfConfig const> const& mfibVrfConfig, Vex::Ptr<HwStatus const> const& mfibHwStatus,
           Vex::Ptr<Ip::Status const> const& ipStatus, Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper,
           Vex::Ptr<VrfEnabledStatus const> const& mcastEnabledStatus);
  ~MrouteSm() override;

  Vex::Ptr<FalCommonSmData> const& acsd() const { return acsd_; }
  Vex::Ptr<L3Status> const& l3Status() const { return l3Status_; }
  Vex::Ptr<VrfConfig const> const& mfibVrfConfig() const { return mfibVrfConfig_; }
  Vex::Ptr<HwStatus const> const& mfibHwStatus() const { return mfibHwStatus_; }
  Vex::Ptr<Ip::Status const> const& ipStatus() const { return ipStatus_; }
  Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper() const { return mrouteHelper_; }
  Vex::Ptr<VrfEnabledStatus const> const& mcastEnabledStatus() const { return mcastEnabledStatus_; }
  Vex::Ptr<VerifyData const> const& verifyData() const { return verifyData_; }
  bool initialized() const { return initialized_; }

  // One reactor per VRF configuration; a null configuration is refused.
  void mfibConfigVrfIs(Vex::Ptr<Config const> const& config);
  void mfibConfigVrfDel(L3::VrfName const& name);
  bool mfibConfigVrf(L3::VrfName const& name) const { return mfibConfigVrf_.count(name) != 0; }
  std::size_t mfibConfigVrfSize() const { return mfibConfigVrf_.size(); }

  void handleInitialized();
  void handleMulticastRouting();
  void doEnableMulticastRouting(bool enable);
  bool isMulticastEnabled() const;
  void handleVerify();
  void doCleanup();

  // Route counters. The published table and its control record are given by
  // the agent; without them nothing is published.
  Vex::Ptr<CounterStatus> const& mfibCounterStatus() const { return mfibCounterStatus_; }
  void mfibCounterStatusIs(Vex::Ptr<CounterStatus> const& s) { mfibCounterStatus_ = s; }
  Vex::Ptr<CounterStatusCtl> const& mfibCounterStatusCtl() const { return mfibCounterStatusCtl_; }
  void mfibCounterStatusCtlIs(Vex::Ptr<CounterStatusCtl> const& c) { mfibCounterStatusCtl_ = c; }
  Vex::Seconds counterPollingInterval() const { return counterPollingInterval_; }
  void counterPollingIntervalIs(Vex::Seconds s) { counterPollingInterval_ = s; }
  Vex::Ptr<Vex::Clock const> counterPollingClock() const;
  // A copy of every published row, in counter order; the lowest is aged out first.
  Vex::OrderedColl<Counter, bool> const& counterShadow() const { return counterShadow_; }

  void handleMulticastCounterMode();
  void handleWildcardCounter();
  void handleClearRouteCounter(IpGenRouteKey const& key);
  void doCounterPolling();
  void updateMfibCounter(IpGenRouteKey const& key, std::int64_t value, bool active);
  void setMfibCounterActive(IpGenRouteKey const& key, bool active);
  void removeMfibCounter(IpGenRouteKey const& key);

 private:
  class VexAcsd;
  class VexMfibVrfConfig;
  class VexMfibConfigVrf;
  class VexMfibHwStatus;
  class VexMcastEnabledStatus;
  class VexVerifyData;
  class VexCounterPollingClock;

  void counterShadowIs(Counter const& row) { counterShadow_.set(row, true); }
  void counterShadowDel(Counter const& row) { counterShadow_.erase(row); }
  void counterShadowDelAll() { counterShadow_.clear(); }
  void verifyDataIs(Vex::Ptr<VerifyData const> const& v);
  void requestVerify();
  void counterPollingClockArm(Vex::Seconds when);
  // The published row for key, or null when there is none (update time 0).
  std::optional<Counter> publishedCounter(IpGenRouteKey const& key) const;

  Vex::Ptr<FalCommonSmData> acsd_;
  Vex::Ptr<L3Status> l3Status_;
  Vex::Ptr<VrfConfig const> mfibVrfConfig_;
  Vex::Ptr<HwStatus const> mfibHwStatus_;
  Vex::Ptr<Ip::Status const> ipStatus_;
  Vex::Ptr<FalHelper::MrouteSmHelper> mrouteHelper_;
  Vex::Ptr<VrfEnabledStatus const> mcastEnabledStatus_;
  Vex::Ptr<VerifyData const> verifyData_;
  bool initialized_ = false;

  Vex::Ptr<CounterStatus> mfibCounterStatus_;
  Vex::Ptr<CounterStatusCtl> mfibCounterStatusCtl_;
  Vex::Seconds counterPollingInterval_ = 2.0;
  Vex::OrderedColl<Counter, bool> counterShadow_;

  std::unique_ptr<VexAcsd> vexAcsd_;
  std::unique_ptr<VexMfibVrfConfig> vexMfibVrfConfig_;
  std::unique_ptr<VexMfibHwStatus> vexMfibHwStatus_;
  std::unique_ptr<VexMcastEnabledStatus> vexMcastEnabledStatus_;
  std::unique_ptr<VexVerifyData> vexVerifyData_;
  std::unique_ptr<VexCounterPollingClock> vexCounterPollingClock_;
  std::map<L3::VrfName, std::unique_ptr<VexMfibConfigVrf>> mfibConfigVrf_;
};

// The agent's creator of the top-level state machine.
FALMROUTE_EXPORT Vex::Ptr<MrouteSm> MrouteSmIs(Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
                              Vex::Ptr<Routing::Multicast::Fib::VrfConfig const> const& mfibVrfConfig,
                              Vex::Ptr<Routing::Multicast::Fib::Hardware::Status const> const& mfibHwStatus,
                              Vex::Ptr<Ip::Status const> const& ipStatus,
                              Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper,
                              Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> const& mcastEnabledStatus);

}  // namespace Fal
