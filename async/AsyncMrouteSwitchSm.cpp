// Fal::Mroute::AsyncMrouteSwitchSm: reactors, construction and tear-down,
// counter forwarding. Interface events and the fast-reroute review are in
// AsyncMrouteSwitchSmFrr.cpp, the zombie timer in AsyncMrouteSwitchSmZombie.cpp.
#include "async/AsyncMrouteSwitchSm.h"

#include "async/AsyncMrouteTrace.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

namespace Fal::Mroute {

// ---- reactors -------------------------------------------------------------
// Each forwards to the state machine, which owns it.

class AsyncMrouteSwitchSm::VexMrouteSwitch : public AsyncMrouteSwitch::Notifiee {
 public:
  VexMrouteSwitch(Vex::Ptr<AsyncMrouteSwitch const> const& sw, AsyncMrouteSwitchSm* sm) : sm_(sm) { notifierIs(sw); }
  void onZombieOifSet(ZombieKey const& key) override { sm_->handleZombie(key); }
  void onFrrOifSetResurrected(MrouteLib::OifSet const* oifSet) override { sm_->handleFrrOifSetResurrected(oifSet); }

 private:
  AsyncMrouteSwitchSm* sm_;  // not owned
};

class AsyncMrouteSwitchSm::VexMfibConfig : public VrfConfig::Notifiee {
 public:
  VexMfibConfig(Vex::Ptr<VrfConfig const> const& config, AsyncMrouteSwitchSm* sm) : sm_(sm) { notifierIs(config); }
  void onCounterMode() override { sm_->handleMulticastCounterMode(); }
  void onAllCounter() override { sm_->handleWildcardCounter(); }
  void onConfig(L3::VrfName const& name) override {
    if (auto config = notifier()->config(name)) {
      sm_->mfibConfigVrfIs(config);
    } else {
      sm_->mfibConfigVrfDel(name);
    }
  }

 private:
  AsyncMrouteSwitchSm* sm_;
};

class AsyncMrouteSwitchSm::VexMfibConfigVrf : public Routing::Multicast::Fib::Config::Notifiee {
 public:
  VexMfibConfigVrf(Vex::Ptr<Routing::Multicast::Fib::Config const> const& config, AsyncMrouteSwitchSm* sm) : sm_(sm) {
    notifierIs(config);
  }
  void onCounterRoute(Routing::Multicast::Fib::IpGenRouteKey const&) override { sm_->handleCounterRoute(); }

 private:
  AsyncMrouteSwitchSm* sm_;
};

class AsyncMrouteSwitchSm::VexZombieClock : public Vex::Clock::Notifiee {
 public:
  VexZombieClock(Vex::Ptr<Vex::Clock const> const& clock, AsyncMrouteSwitchSm* sm) : sm_(sm) { notifierIs(clock); }
  void onNotifier() override { sm_->handleZombieClock(); }
  void onTime() override { sm_->handleZombieClock(); }

 private:
  AsyncMrouteSwitchSm* sm_;
};

class AsyncMrouteSwitchSm::VexClock : public Vex::Clock::Notifiee {
 public:
  explicit VexClock(AsyncMrouteSwitchSm* sm) : sm_(sm) {}
  void onTime() override { sm_->handleClock(); }

 private:
  AsyncMrouteSwitchSm* sm_;
};

class AsyncMrouteSwitchSm::VexEthIntfStatusDir : public Interface::EthIntfStatusDir::Notifiee {
 public:
  VexEthIntfStatusDir(Vex::Ptr<Interface::EthIntfStatusDir const> const& dir, AsyncMrouteSwitchSm* sm) : sm_(sm) {
    notifierIs(dir);
  }
  void onIntfStatus(Netcore::IntfId const& intfId) override {
    if (auto status = notifier()->intfStatus(intfId)) {
      sm_->ethIntfStatusIs(status);
    } else {
      sm_->ethIntfStatusDel(intfId);
    }
  }

 private:
  AsyncMrouteSwitchSm* sm_;
};

class AsyncMrouteSwitchSm::VexEthIntfStatus : public Interface::EthIntfStatus::Notifiee {
 public:
  VexEthIntfStatus(Vex::Ptr<Interface::EthIntfStatus const> const& status, AsyncMrouteSwitchSm* sm) : sm_(sm) {
    notifierIs(status);
  }
  void onOperStatus() override { sm_->handleOperStatus(notifier()->intfId(), notifier()->operStatus()); }

 private:
  AsyncMrouteSwitchSm* sm_;
};

// ---- construction and tear-down ----------------------------------------------

AsyncMrouteSwitchSm::AsyncMrouteSwitchSm(Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch,
                                         Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                                         Vex::Ptr<VrfConfig const> const& mfibConfig,
                                         Vex::Ptr<VrfConfig const> const& mfibConfig6,
                                         Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<HwStatus> const& mfibHwStatus6,
                                         Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper,
                                         Vex::Ptr<Vex::Clock> const& zombieClock, Vex::Ptr<Vex::Clock> const& agingClock,
                                         Vex::Ptr<Vex::Clock> const& agingClock6,
                                         Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir,
                                         Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                                         Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir)
    : mrouteSwitch_(mrouteSwitch),
      intfVlanIdTable_(intfVlanIdTable),
      mfibConfig_(mfibConfig),
      mfibConfig6_(mfibConfig6),
      mfibHwStatus_(mfibHwStatus),
      mfibHwStatus6_(mfibHwStatus6),
      helper_(helper),
      zombieClock_(zombieClock),
      agingClock_(agingClock),
      agingClock6_(agingClock6),
      ethIntfStatusDir_(ethIntfStatusDir),
      allIntfStatusDir_(allIntfStatusDir),
      allIntfStatusLocalDir_(allIntfStatusLocalDir) {
  VEX_ASSERT(mrouteSwitch);
  VEX_ASSERT(helper);
  VEX_ASSERT(mfibConfig);
  auto* manager = Vex::ActivityManager::current();
  if (!zombieClock_) zombieClock_ = manager->clockNew();
  if (!agingClock_) agingClock_ = manager->clockNew();
  if (mfibConfig6_ && !agingClock6_) agingClock6_ = manager->clockNew();

  vexMrouteSwitch_ = std::make_unique<VexMrouteSwitch>(mrouteSwitch_, this);
  vexMfibConfig_ = std::make_unique<VexMfibConfig>(mfibConfig_, this);
  vexZombieClock_ = std::make_unique<VexZombieClock>(zombieClock_, this);
  handleMulticastCounterMode();
  handleWildcardCounter();
  if (ethIntfStatusDir_) {
    vexEthIntfStatusDir_ = std::make_unique<VexEthIntfStatusDir>(ethIntfStatusDir_, this);
    for (auto const& [intfId, status] : ethIntfStatusDir_->intfStatusColl()) ethIntfStatusIs(status);
  }
  vexClock_ = std::make_unique<VexClock>(this);
  handleClock();
  for (auto const& [name, config] : *mfibConfig_) mfibConfigVrfIs(config);
  handleInitialized();
}

AsyncMrouteSwitchSm::~AsyncMrouteSwitchSm() {
  doCleanup();
  routeAgingSmDel();
  ethIntfStatus_.clear();
  mfibConfigVrf_.clear();
  vexEthIntfStatusDir_.reset();
  vexClock_.reset();
  vexZombieClock_.reset();
  vexMfibConfig_.reset();
  vexMrouteSwitch_.reset();
}

Vex::Seconds AsyncMrouteSwitchSm::now() const { return Vex::ActivityManager::current()->now(); }

void AsyncMrouteSwitchSm::routeAgingSmDel() {
  routeAgingSm_ = nullptr;
  routeAgingSm6_ = nullptr;
}

void AsyncMrouteSwitchSm::clockIs(Vex::Ptr<Vex::Clock> const& clock) {
  if (clock == clock_) return;
  clock_ = clock;
  vexClock_->notifierIs(clock_);
}

void AsyncMrouteSwitchSm::ethIntfStatusIs(Vex::Ptr<Interface::EthIntfStatus const> const& status) {
  if (!status) {
    throw Vex::NullPointerException(
        "null _ethIntfStatus parameter to mutator for Fal::Mroute::AsyncMrouteSwitchSm::ethIntfStatus not allowed\"");
  }
  auto& slot = ethIntfStatus_[status->intfId()];
  if (slot && slot->notifier() == status) return;
  slot = std::make_unique<VexEthIntfStatus>(status, this);
}

void AsyncMrouteSwitchSm::ethIntfStatusDel(Netcore::IntfId const& intfId) { ethIntfStatus_.erase(intfId); }

void AsyncMrouteSwitchSm::mfibConfigVrfIs(Vex::Ptr<Routing::Multicast::Fib::Config const> const& config) {
  if (!config) {
    throw Vex::NullPointerException(
        "null _mfibConfigVrf parameter to mutator for Fal::Mroute::AsyncMrouteSwitchSm::mfibConfigVrf not allowed\"");
  }
  auto& slot = mfibConfigVrf_[config->name()];
  if (slot && slot->notifier() == config) return;
  slot = std::make_unique<VexMfibConfigVrf>(config, this);
}

void AsyncMrouteSwitchSm::mfibConfigVrfDel(L3::VrfName const& name) { mfibConfigVrf_.erase(name); }

// ---- initialization and counters ------------------------------------------------

void AsyncMrouteSwitchSm::handleInitialized() {
  FAL_ASYNC_TRACE(4, "AsyncMrouteSwitchSm" << "::" << "handleInitialized" << "()");
  if (initialized_) return;
  zombieClock_->timeMinIs(Vex::kNever);
  routeAgingSm_ = AsyncMrouteSwitchRouteAgingSm::AsyncMrouteSwitchRouteAgingSmIs(
      Netcore::AddressFamily::ipv4, mrouteSwitch_, intfVlanIdTable_, mfibConfig_, mfibHwStatus_, helper_, agingClock_);
  if (mfibConfig6_) {
    routeAgingSm6_ = AsyncMrouteSwitchRouteAgingSm::AsyncMrouteSwitchRouteAgingSmIs(
        Netcore::AddressFamily::ipv6, mrouteSwitch_, intfVlanIdTable_, mfibConfig6_, mfibHwStatus6_, helper_,
        agingClock6_);
  }
  initialized_ = true;
}

void AsyncMrouteSwitchSm::handleMulticastCounterMode() {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::" << "handleMulticastCounterMode");
  helper_->handleMrouteCounterMode(mfibConfig_->counterMode());
}

void AsyncMrouteSwitchSm::handleWildcardCounter() {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::" << "handleWildcardCounter");
  helper_->handleWildcardCounter(mfibConfig_->allCounter());
}

// Route counters are the hook's business in this flavour.
void AsyncMrouteSwitchSm::handleCounterRoute() { FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::" << "handleCounterRoute"); }

}  // namespace Fal::Mroute
