#include "sync/MrouteSm.h"

#include <vector>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "sync/FalMrouteTrace.h"

namespace Fal {

using Routing::Multicast::Fib::IpGenRouteKey;

// ---- reactors -------------------------------------------------------------

class MrouteSm::VexAcsd : public FalCommonSmData::Notifiee {
 public:
  VexAcsd(Vex::Ptr<FalCommonSmData const> const& acsd, MrouteSm* sm) : sm_(sm) { notifierIs(acsd); }
  void onVerifyData() override { sm_->verifyDataIs(notifier()->verifyData()); }

 private:
  MrouteSm* sm_;  // not owned: the state machine owns this reactor
};

class MrouteSm::VexMfibVrfConfig : public VrfConfig::Notifiee {
 public:
  VexMfibVrfConfig(Vex::Ptr<VrfConfig const> const& config, MrouteSm* sm) : sm_(sm) { notifierIs(config); }
  void onNotifier() override {
    sm_->handleMulticastCounterMode();
    sm_->handleWildcardCounter();
  }
  void onConfig(L3::VrfName const& name) override {
    if (auto c = notifier()->config(name)) {
      sm_->mfibConfigVrfIs(c);
    } else {
      sm_->mfibConfigVrfDel(name);
    }
  }
  void onCounterMode() override { sm_->handleMulticastCounterMode(); }
  void onAllCounter() override { sm_->handleWildcardCounter(); }

 private:
  MrouteSm* sm_;
};

class MrouteSm::VexMfibConfigVrf : public Config::Notifiee {
 public:
  VexMfibConfigVrf(Vex::Ptr<Config const> const& config, MrouteSm* sm) : sm_(sm) { notifierIs(config); }
  void onCounterRoute(IpGenRouteKey const& key) override { handleCounterRoute(key); }
  void onClearCounterRoute(IpGenRouteKey const& key) override { sm_->handleClearRouteCounter(key); }

  // Creates or deletes the hardware counter of one route of this VRF; only
  // while all-route counting is on.
  void handleCounterRoute(IpGenRouteKey const& key) {
    FAL_SYNC_TRACE(6, "handleCounterRoute" << " Key: " << key);
    auto const& vrfConfig = sm_->mfibVrfConfig();
    if (!vrfConfig || !vrfConfig->allCounter()) {
      FAL_SYNC_TRACE(6, " wildcard mode not enabled ");
      return;
    }
    if (notifier()->counterRoute(key)) {
      FAL_SYNC_TRACE(6, " add counter ");
      L3::VrfName const name(notifier()->name());
      auto vrfId = sm_->l3Status()->vrfNameToId(name).value_or(0);
      sm_->mrouteHelper()->doCreateMrouteCounter(static_cast<std::uint16_t>(vrfId), key);
    } else {
      FAL_SYNC_TRACE(6, " delete counter ");
      sm_->mrouteHelper()->doDeleteMrouteCounter(key);
    }
  }

 private:
  MrouteSm* sm_;
};

class MrouteSm::VexMfibHwStatus : public HwStatus::Notifiee {
 public:
  VexMfibHwStatus(Vex::Ptr<HwStatus const> const& status, MrouteSm* sm) : sm_(sm) { notifierIs(status); }
  void onHwRouting() override { sm_->handleMulticastRouting(); }

 private:
  MrouteSm* sm_;
};

class MrouteSm::VexMcastEnabledStatus : public VrfEnabledStatus::Notifiee {
 public:
  VexMcastEnabledStatus(Vex::Ptr<VrfEnabledStatus const> const& status, MrouteSm* sm) : sm_(sm) { notifierIs(status); }
  void onVrf(L3::VrfName const&) override { sm_->handleMulticastRouting(); }

 private:
  MrouteSm* sm_;
};

class MrouteSm::VexVerifyData : public VerifyData::Notifiee {
 public:
  VexVerifyData(Vex::Ptr<VerifyData const> const& v, MrouteSm* sm) : sm_(sm) { notifierIs(v); }
  void onVerify() override { sm_->handleVerify(); }

 private:
  MrouteSm* sm_;
};

class MrouteSm::VexCounterPollingClock : public Vex::Clock::Notifiee {
 public:
  VexCounterPollingClock(Vex::Ptr<Vex::Clock> const& clock, MrouteSm* sm) : clock_(clock), sm_(sm) { notifierIs(clock); }
  void onTime() override { sm_->doCounterPolling(); }
  Vex::Ptr<Vex::Clock> const& clock() const { return clock_; }

 private:
  Vex::Ptr<Vex::Clock> clock_;
  MrouteSm* sm_;
};

// ---- construction and routing state ----------------------------------------

MrouteSm::MrouteSm(Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
                   Vex::Ptr<VrfConfig const> const& mfibVrfConfig, Vex::Ptr<HwStatus const> const& mfibHwStatus,
                   Vex::Ptr<Ip::Status const> const& ipStatus, Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper,
                   Vex::Ptr<VrfEnabledStatus const> const& mcastEnabledStatus)
    : acsd_(acsd),
      l3Status_(l3Status),
      mfibVrfConfig_(mfibVrfConfig),
      mfibHwStatus_(mfibHwStatus),
      ipStatus_(ipStatus),
      mrouteHelper_(mrouteHelper),
      mcastEnabledStatus_(mcastEnabledStatus) {
  if (acsd_) vexAcsd_ = std::make_unique<VexAcsd>(acsd_, this);
  // Binding runs the counter-mode and wildcard handlers, which wait for initialization.
  if (mfibVrfConfig_) vexMfibVrfConfig_ = std::make_unique<VexMfibVrfConfig>(mfibVrfConfig_, this);
  if (mfibHwStatus_) vexMfibHwStatus_ = std::make_unique<VexMfibHwStatus>(mfibHwStatus_, this);
  if (mcastEnabledStatus_) vexMcastEnabledStatus_ = std::make_unique<VexMcastEnabledStatus>(mcastEnabledStatus_, this);
  if (mfibVrfConfig_) {
    for (auto it = mfibVrfConfig_->configIterator(); it; ++it) mfibConfigVrfIs(it.value());
  }
  if (acsd_) verifyDataIs(acsd_->verifyData());
  handleInitialized();
}

MrouteSm::~MrouteSm() {
  doCleanup();
  mfibConfigVrf_.clear();
  vexCounterPollingClock_.reset();
  vexVerifyData_.reset();
  vexMcastEnabledStatus_.reset();
  vexMfibHwStatus_.reset();
  vexMfibVrfConfig_.reset();
  vexAcsd_.reset();
}

void MrouteSm::mfibConfigVrfIs(Vex::Ptr<Config const> const& config) {
  if (!config) {
    throw Vex::NullPointerException("null _mfibConfigVrf parameter to mutator for Fal::MrouteSm::mfibConfigVrf not allowed\"");
  }
  auto& slot = mfibConfigVrf_[config->name()];
  if (slot && slot->notifier() == config) return;
  slot = std::make_unique<VexMfibConfigVrf>(config, this);
}

void MrouteSm::mfibConfigVrfDel(L3::VrfName const& name) { mfibConfigVrf_.erase(name); }

void MrouteSm::verifyDataIs(Vex::Ptr<VerifyData const> const& v) {
  verifyData_ = v;
  if (!v) {
    vexVerifyData_.reset();
  } else if (vexVerifyData_) {
    vexVerifyData_->notifierIs(v);
  } else {
    vexVerifyData_ = std::make_unique<VexVerifyData>(v, this);
  }
}

void MrouteSm::requestVerify() {
  if (acsd_ && acsd_->verifyData() && acsd_->verifyData()->verify()) acsd_->verifyData()->doRequestVerify();
}

void MrouteSm::handleInitialized() {
  if (initialized_) return;
  FAL_SYNC_TRACE(4, "handleInitialized");
  mrouteHelper_->mrouteInit(true);
  doEnableMulticastRouting(isMulticastEnabled());
  initialized_ = true;
  handleWildcardCounter();
  handleMulticastCounterMode();
}

bool MrouteSm::isMulticastEnabled() const {
  bool enabled = mcastEnabledStatus_ && mcastEnabledStatus_->vrfSize() != 0 && mfibHwStatus_ && mfibHwStatus_->hwRouting();
  FAL_SYNC_TRACE(7, "isMulticastEnabled" << " Multicast routing is " << (enabled ? "enabled" : "disabled"));
  return enabled;
}

void MrouteSm::handleMulticastRouting() {
  if (!initialized_) return;
  bool const wanted = isMulticastEnabled();
  VEX_ASSERT(l3Status());
  if (wanted == l3Status_->multicastRoutingEnabled()) {
    FAL_SYNC_TRACE(5, "Nothing to do, multicast status unchanged");
    return;
  }
  doEnableMulticastRouting(wanted);
}

void MrouteSm::doEnableMulticastRouting(bool enable) {
  FAL_SYNC_TRACE(8, "doEnableMulticastRouting");
  // Also reached from handleInitialized, before any change is evaluated.
  VEX_ASSERT(l3Status());
  if (enable) {
    FAL_SYNC_TRACE(2, "Enabling Multicast Routing\n\n");
    mrouteHelper_->handleMulticastRouting(true);
    l3Status_->multicastRoutingEnabledIs(true);
    l3Status_->numTimesMcastRoutingEnabledInc(1);
    if (mfibVrfConfig_) {
      mrouteHelper_->handleMrouteCounterMode(mfibVrfConfig_->counterMode());
      if (mfibVrfConfig_->allCounter()) mrouteHelper_->doCreateMrouteCounter(0, IpGenRouteKey::wildcard());
    }
  } else {
    FAL_SYNC_TRACE(2, "Disabling Multicast Routing\n\n");
    mrouteHelper_->handleMulticastRouting(false);
    l3Status_->multicastRoutingEnabledIs(false);
  }
  requestVerify();
}

void MrouteSm::handleVerify() {
  FAL_SYNC_TRACE(8, "handleVerify");
  if (!initialized_) return;
  VEX_ASSERT(l3Status()->multicastRoutingEnabled() == isMulticastEnabled());
  mrouteHelper_->verifyMulticastRouting(l3Status()->multicastRoutingEnabled());
}

void MrouteSm::doCleanup() {
  if (!initialized_) return;
  FAL_SYNC_TRACE(4, "doCleanup");
  mrouteHelper_->handleMulticastRouting(false);
  l3Status_->multicastRoutingEnabledIs(false);
  mrouteHelper_->mrouteInit(false);
  initialized_ = false;
}

// ---- counters ----------------------------------------------------------------

Vex::Ptr<Vex::Clock const> MrouteSm::counterPollingClock() const {
  return vexCounterPollingClock_ ? Vex::Ptr<Vex::Clock const>(vexCounterPollingClock_->clock()) : nullptr;
}

void MrouteSm::counterPollingClockArm(Vex::Seconds when) {
  if (!vexCounterPollingClock_) {
    auto* am = Vex::ActivityManager::current();
    VEX_ASSERT_MSG(am, "counter polling needs an activity manager");
    vexCounterPollingClock_ = std::make_unique<VexCounterPollingClock>(am->clockNew(), this);
  }
  vexCounterPollingClock_->clock()->timeMinIs(when);
}

void MrouteSm::handleMulticastCounterMode() {
  if (!initialized_) return;
  auto mode = mfibVrfConfig_ ? mfibVrfConfig_->counterMode() : Routing::Multicast::Fib::CounterMode{};
  FAL_SYNC_TRACE(5, "handleMulticastCounterMode" << " - Multicast Counter Mode " << mode);
  if (mfibVrfConfig_) mrouteHelper_->handleMrouteCounterMode(mode);
  handleClearRouteCounter(IpGenRouteKey::wildcard());
}

void MrouteSm::handleWildcardCounter() {
  if (!initialized_) return;
  bool const allCounter = mfibVrfConfig_ && mfibVrfConfig_->allCounter();
  FAL_SYNC_TRACE(5, "handleWildcardCounter" << " - Wildcard counter enable " << allCounter);
  if (allCounter) {
    mrouteHelper_->doCreateMrouteCounter(0, IpGenRouteKey::wildcard());
    return;
  }
  mrouteHelper_->doDeleteMrouteCounter(IpGenRouteKey::wildcard());
  std::vector<IpGenRouteKey> keys;
  keys.reserve(counterShadow_.size());
  for (auto const& [row, unused] : counterShadow_) keys.push_back(row.routeKey());
  for (auto const& key : keys) removeMfibCounter(key);
}

std::optional<MrouteSm::Counter> MrouteSm::publishedCounter(IpGenRouteKey const& key) const {
  if (!mfibCounterStatus_) return std::nullopt;
  Counter row = mfibCounterStatus_->counter(key);
  if (row.updateTime() == 0) return std::nullopt;
  return row;
}

void MrouteSm::handleClearRouteCounter(IpGenRouteKey const& key) {
  FAL_SYNC_TRACE(6, "handleClearRouteCounter" << key);
  mrouteHelper_->doClearMrouteCounter(key);
  if (key == IpGenRouteKey::wildcard()) {
    std::vector<Counter> rows;
    rows.reserve(counterShadow_.size());
    for (auto const& [row, unused] : counterShadow_) rows.push_back(row);
    for (auto const& row : rows) updateMfibCounter(row.routeKey(), 0, row.active());
    return;
  }
  if (auto row = publishedCounter(key)) updateMfibCounter(key, 0, row->active());
}

void MrouteSm::doCounterPolling() {
  FAL_SYNC_TRACE(7, "doCounterPolling" << "  Polling " << counterShadow_.size() << " counters");
  if (!mfibCounterStatusCtl_ || mfibCounterStatusCtl_->currActive() == 0) return;
  std::size_t remaining = counterShadow_.size();
  auto it = counterShadow_.iterator();
  while (remaining-- > 0 && !it.done()) {
    Counter const row = it.key();
    if (row.active()) {
      std::int64_t amount = mrouteHelper_->doReadMrouteCounter(row.routeKey());
      if (amount != 0) {
        updateMfibCounter(row.routeKey(), row.value() + amount, true);
        // The row was re-inserted with a new update time: continue after its key.
        it = counterShadow_.iterator(Counter(row.routeKey(), INT64_MAX, Vex::kNever, true));
        continue;
      }
    }
    ++it;
  }
  counterPollingClockArm(Vex::ActivityManager::current()->now() + counterPollingInterval_);
}

void MrouteSm::updateMfibCounter(IpGenRouteKey const& key, std::int64_t value, bool active) {
  FAL_SYNC_TRACE(7, "updateMfibCounter" << " , Key: " << key << ", value: " << value << ", active: " << active);
  if (!mfibCounterStatus_ || !mfibCounterStatusCtl_) return;
  if (auto existing = publishedCounter(key)) {
    if (value == -1) value = existing->value();
    removeMfibCounter(key);
  } else {
    if (mfibCounterStatusCtl_->capacity() <= mfibCounterStatusCtl_->currSize()) {
      if (auto const* lowest = counterShadow_.first()) {
        IpGenRouteKey const victim = lowest->first.routeKey();
        FAL_SYNC_TRACE(5, " Aging out counter " << victim);
        mrouteHelper_->ageOutHwMcastCounter(victim);
        removeMfibCounter(victim);
      }
    }
    if (value == -1) value = 0;
  }
  Counter const row(key, value, Vex::ActivityManager::current()->now(), active);
  mfibCounterStatus_->counterIs(row);
  counterShadowIs(row);
  mfibCounterStatusCtl_->currSizeInc(1);
  if (active) mfibCounterStatusCtl_->currActiveInc(1);
  FAL_SYNC_TRACE(7, " counterStatus size=" << mfibCounterStatusCtl_->currSize()
                                           << " currActive=" << mfibCounterStatusCtl_->currActive());
  // Polling stops when no counter is active; one active counter brings the
  // next run to 0.1 s from now, so that it resumes soon after such a stop.
  // A polling run's own updates do this too, and the run then re-arms at its
  // interval, which keeps the cadence of runs.
  if (mfibCounterStatusCtl_->currActive() == 1) counterPollingClockArm(row.updateTime() + 0.1);
}

void MrouteSm::setMfibCounterActive(IpGenRouteKey const& key, bool active) {
  FAL_SYNC_TRACE(7, "setMfibCounterActive" << " , Key: " << key << ", active: " << active);
  if (!publishedCounter(key)) return;
  updateMfibCounter(key, -1, active);
}

void MrouteSm::removeMfibCounter(IpGenRouteKey const& key) {
  FAL_SYNC_TRACE(7, "removeMfibCounter" << key);
  auto row = publishedCounter(key);
  if (!row || !mfibCounterStatusCtl_) return;
  mfibCounterStatus_->counterDel(key);
  counterShadowDel(*row);
  mfibCounterStatusCtl_->currSizeInc(-1);
  if (row->active()) mfibCounterStatusCtl_->currActiveInc(-1);
}

Vex::Ptr<MrouteSm> MrouteSmIs(Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
                              Vex::Ptr<Routing::Multicast::Fib::VrfConfig const> const& mfibVrfConfig,
                              Vex::Ptr<Routing::Multicast::Fib::Hardware::Status const> const& mfibHwStatus,
                              Vex::Ptr<Ip::Status const> const& ipStatus,
                              Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper,
                              Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> const& mcastEnabledStatus) {
  return Vex::make<MrouteSm>(acsd, l3Status, mfibVrfConfig, mfibHwStatus, ipStatus, mrouteHelper, mcastEnabledStatus);
}

}  // namespace Fal

// The hook object only forward-declares the state machine, so its attribute
// accessors live here, where the type is complete.
namespace FalHelper {
Vex::Ptr<Fal::MrouteSm> MrouteSmHelper::mrouteSm() const { return Vex::ptrCast<Fal::MrouteSm>(mrouteSm_); }
void MrouteSmHelper::mrouteSmIs(Vex::Ptr<Fal::MrouteSm> const& sm) {
  if (mrouteSm_.get() == sm.get()) return;
  mrouteSm_ = sm;
  notify(&Notifiee::onMrouteSm);
}
}  // namespace FalHelper
