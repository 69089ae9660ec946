// Fal::MrouteSwitchSm: reactors, initialization, zombie timer, fast-reroute
// review pass and teardown. The route aging review is in
// MrouteSwitchSmAging.cpp.
#include "sync/MrouteSwitchSm.h"

#include <utility>

#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "sync/FalMrouteTrace.h"

namespace Fal {

namespace {

// How long one fast-reroute review pass may hold the event loop.
constexpr Vex::Seconds kFrrReviewBudget = 0.1;

// Where the last fast-reroute review pass ran out of time. One position for
// the whole process, not one per chip: every chip's pass starts from it, and
// the single event loop guarantees that passes never interleave. Held by
// reference so that the address cannot be reused for another set while it is
// remembered; never destroyed, so no OIF set is released during process exit.
Vex::Ptr<MrouteLib::OifSet const>& frrReviewResumePoint() {
  static auto* point = new Vex::Ptr<MrouteLib::OifSet const>();
  return *point;
}

// Operational statuses after which fast-reroute outputs take over.
bool isFrrTrigger(Interface::IntfOperStatus s) {
  return s == Interface::intfOperDown || s == Interface::intfOperLowerLayerDown;
}

}  // namespace

// ---- reactors -------------------------------------------------------------

class MrouteSwitchSm::VexAcsd : public FalCommonSmData::Notifiee {
 public:
  VexAcsd(Vex::Ptr<FalCommonSmData const> const& acsd, MrouteSwitchSm* sm) : sm_(sm) { notifierIs(acsd); }
  void onVerifyData() override { sm_->verifyDataIs(notifier()->verifyData()); }
  void onInitialized() override {
    if (notifier()->initialized()) sm_->handleInitialized();
  }

 private:
  MrouteSwitchSm* sm_;  // not owned: the state machine owns its reactors
};

// Watched so that notification can be switched off with the others; the
// zombie setting is read when a set is freed.
class MrouteSwitchSm::VexL3Status : public L3Status::Notifiee {
 public:
  explicit VexL3Status(Vex::Ptr<L3Status const> const& l3Status) { notifierIs(l3Status); }
};

class MrouteSwitchSm::VexMrouteSwitch : public MrouteSwitch::Notifiee {
 public:
  VexMrouteSwitch(Vex::Ptr<MrouteSwitch const> const& sw, MrouteSwitchSm* sm) : sm_(sm) { notifierIs(sw); }
  void onZombieOifSet(ZombieKey const&) override { sm_->handleZombie(); }
  void onFrrOifSetResurrected(MrouteLib::OifSet const* oifSet) override { sm_->handleFrrOifSetResurrected(oifSet); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexMfibConfig : public VrfConfig::Notifiee {
 public:
  VexMfibConfig(Vex::Ptr<VrfConfig const> const& config, MrouteSwitchSm* sm) : sm_(sm) { notifierIs(config); }
  void onActivityPollingInterval() override { sm_->handlePollingInterval(); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexMfib6Config : public VrfConfig::Notifiee {
 public:
  VexMfib6Config(Vex::Ptr<VrfConfig const> const& config, MrouteSwitchSm* sm) : sm_(sm) { notifierIs(config); }
  void onActivityPollingInterval() override { sm_->handlePolling6Interval(); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexZombieClock : public Vex::Clock::Notifiee {
 public:
  VexZombieClock(Vex::Ptr<Vex::Clock const> const& clock, MrouteSwitchSm* sm) : sm_(sm) { notifierIs(clock); }
  void onTime() override { sm_->handleZombieClock(); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexAgingClock : public Vex::Clock::Notifiee {
 public:
  explicit VexAgingClock(MrouteSwitchSm* sm) : sm_(sm) {}
  // A new clock starts (or continues) a review at once.
  void onNotifier() override {
    if (notifier() && !tearingDown_) sm_->doRouteHitCacheRefresh();
  }
  void onTime() override {
    if (!tearingDown_) sm_->doRouteHitCacheRefresh();
  }
  void tearingDownIs() { tearingDown_ = true; }

 private:
  MrouteSwitchSm* sm_;
  bool tearingDown_ = false;
};

class MrouteSwitchSm::VexClock : public Vex::Clock::Notifiee {
 public:
  explicit VexClock(MrouteSwitchSm* sm) : sm_(sm) {}
  void onNotifier() override {
    if (notifier()) sm_->handleClock();
  }
  void onTime() override { sm_->handleClock(); }

 private:
  MrouteSwitchSm* sm_;
};

// Immediate, so that an interface's reactor exists before its first status change.
class MrouteSwitchSm::VexEthIntfStatusDir : public Interface::EthIntfStatusDir::Notifiee {
 public:
  VexEthIntfStatusDir(Vex::Ptr<Interface::EthIntfStatusDir const> const& dir, MrouteSwitchSm* sm) : sm_(sm) {
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
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexEthIntfStatus : public Interface::EthIntfStatus::Notifiee {
 public:
  VexEthIntfStatus(Vex::Ptr<Interface::EthIntfStatus const> const& status, MrouteSwitchSm* sm) : sm_(sm) {
    notifierIs(status);
  }
  void onOperStatus() override { sm_->handleOperStatus(notifier()->intfId(), notifier()->operStatus()); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexMrouteHitStatus : public MrouteHitStatus::Notifiee {
 public:
  VexMrouteHitStatus(Vex::Ptr<MrouteHitStatus const> const& status, MrouteSwitchSm* sm) : sm_(sm) {
    notifierIs(status);
  }
  void onResponse(std::uint32_t id) override { sm_->handleMrouteHitResponse(id); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexVerifyData : public VerifyData::Notifiee {
 public:
  explicit VexVerifyData(MrouteSwitchSm* sm) : sm_(sm) {}
  void onVerify() override { sm_->handleVerify(); }

 private:
  MrouteSwitchSm* sm_;
};

class MrouteSwitchSm::VexVex_L3MulticastRequestIn : public L3MulticastRequest::Notifiee {
 public:
  explicit VexVex_L3MulticastRequestIn(MrouteSwitchSm* sm) : sm_(sm) {}
  void onMulticastReviewPending() override { sm_->maybeScheduleRoutesReview(); }

 private:
  MrouteSwitchSm* sm_;
};

// ---- construction and teardown ---------------------------------------------

MrouteSwitchSm::MrouteSwitchSm(std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd,
                               Vex::Ptr<L3Status> const& l3Status, Vex::Ptr<MrouteSwitch> const& mrouteSwitch,
                               Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                               Vex::Ptr<VrfConfig const> const& mfibConfig, Vex::Ptr<VrfConfig const> const& mfib6Config,
                               Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<HwStatus> const& mfib6HwStatus,
                               Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper, Vex::Ptr<Vex::Clock> const& clock,
                               Vex::Ptr<Vex::Clock> const& zombieClock,
                               Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir,
                               Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                               Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir,
                               bool usingAsyncMrouteHit, Vex::Ptr<MrouteHitConfig> const& mrouteHitConfig,
                               Vex::Ptr<MrouteHitStatus const> const& mrouteHitStatus)
    : switchId_(switchId),
      acsd_(acsd),
      l3Status_(l3Status),
      mrouteSwitch_(mrouteSwitch),
      intfVlanIdTable_(intfVlanIdTable),
      mfibConfig_(mfibConfig),
      mfib6Config_(mfib6Config),
      mfibHwStatus_(mfibHwStatus),
      mfib6HwStatus_(mfib6HwStatus),
      mrouteHelper_(mrouteHelper),
      clock_(clock),
      zombieClock_(zombieClock),
      ethIntfStatusDir_(ethIntfStatusDir),
      allIntfStatusDir_(allIntfStatusDir),
      allIntfStatusLocalDir_(allIntfStatusLocalDir),
      mrouteHitConfig_(mrouteHitConfig),
      mrouteHitStatus_(mrouteHitStatus),
      usingAsyncMrouteHit_(usingAsyncMrouteHit) {
  VEX_ASSERT(mrouteSwitch);
  auto* manager = Vex::ActivityManager::current();
  if (!zombieClock_) zombieClock_ = manager->clockNew();

  vexAcsd_ = std::make_unique<VexAcsd>(acsd_, this);
  vexL3Status_ = std::make_unique<VexL3Status>(l3Status_);
  vexMrouteSwitch_ = std::make_unique<VexMrouteSwitch>(mrouteSwitch_, this);
  vexMfibConfig_ = std::make_unique<VexMfibConfig>(mfibConfig_, this);
  vexMfib6Config_ = std::make_unique<VexMfib6Config>(mfib6Config_, this);
  vexZombieClock_ = std::make_unique<VexZombieClock>(zombieClock_, this);
  vexAgingClock_ = std::make_unique<VexAgingClock>(this);
  agingClockIs(manager->clockNew());
  vexClock_ = std::make_unique<VexClock>(this);
  vexClock_->notifierIs(clock_);
  vexEthIntfStatusDir_ = std::make_unique<VexEthIntfStatusDir>(ethIntfStatusDir_, this);
  if (ethIntfStatusDir_) {
    for (auto const& [intfId, status] : ethIntfStatusDir_->intfStatusColl()) ethIntfStatusIs(status);
  }
  vexMrouteHitStatus_ = std::make_unique<VexMrouteHitStatus>(mrouteHitStatus_, this);
  vexVerifyData_ = std::make_unique<VexVerifyData>(this);
  vexL3MulticastRequestIn_ = std::make_unique<VexVex_L3MulticastRequestIn>(this);

  handleClock();
  handleMrouteHitResponse();
  if (acsd_) verifyDataIs(acsd_->verifyData());
  if (acsd_ && acsd_->initialized()) handleInitialized();
  vex_L3MulticastRequestInIs(l3MulticastRequestIn_);
}

MrouteSwitchSm::~MrouteSwitchSm() {
  doCleanup();
  vexAgingClock_->tearingDownIs();
  vexL3MulticastRequestIn_.reset();
  vexVerifyData_.reset();
  vexMrouteHitStatus_.reset();
  ethIntfStatus_.clear();
  vexEthIntfStatusDir_.reset();
  vexClock_.reset();
  vexAgingClock_.reset();
  vexZombieClock_.reset();
  vexMfib6Config_.reset();
  vexMfibConfig_.reset();
  vexMrouteSwitch_.reset();
  vexL3Status_.reset();
  vexAcsd_.reset();
}

Vex::Ptr<MrouteSwitchSm> MrouteSwitchSm::MrouteSwitchSmIs(
    std::uint32_t switchId, Vex::Ptr<FalCommonSmData> const& acsd, Vex::Ptr<L3Status> const& l3Status,
    Vex::Ptr<MrouteSwitch> const& mrouteSwitch, Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
    Vex::Ptr<VrfConfig const> const& mfibConfig, Vex::Ptr<VrfConfig const> const& mfib6Config,
    Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<HwStatus> const& mfib6HwStatus,
    Vex::Ptr<FalHelper::MrouteSmHelper> const& mrouteHelper, Vex::Ptr<Vex::Clock> const& clock,
    Vex::Ptr<Vex::Clock> const& zombieClock, Vex::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir,
    Vex::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
    Vex::Ptr<Interface::AllIntfStatusLocalDir const> const& allIntfStatusLocalDir, bool usingAsyncMrouteHit,
    Vex::Ptr<MrouteHitConfig> const& mrouteHitConfig, Vex::Ptr<MrouteHitStatus const> const& mrouteHitStatus) {
  return Vex::make<MrouteSwitchSm>(switchId, acsd, l3Status, mrouteSwitch, intfVlanIdTable, mfibConfig, mfib6Config,
                                   mfibHwStatus, mfib6HwStatus, mrouteHelper, clock, zombieClock, ethIntfStatusDir,
                                   allIntfStatusDir, allIntfStatusLocalDir, usingAsyncMrouteHit, mrouteHitConfig,
                                   mrouteHitStatus);
}

void MrouteSwitchSm::doCleanup() {
  FAL_SYNC_TRACE(4, "doCleanup" << ", state machine # " << switchId_);
  if (!initialized_) return;
  cleanupInProgress_ = true;
  mrouteSwitch_->deletedIs(true);
  // Each removal drops the collection's reference, and with the switch
  // deleted the set's hardware entry is released at once.
  std::size_t iter = 0;
  while (auto const* first = mrouteSwitch_->zombieOifSet().first()) {
    ZombieKey const key = first->first;
    FAL_SYNC_TRACE(4, "Deleting zombie oifSetIndex: " << first->second->oifSetIndex() << ", iter " << iter++);
    mrouteSwitch_->zombieOifSetDel(key);
  }
  if (mrouteHitConfig_) mrouteHitConfig_->requestDelAll();
  mrouteHelper_->mrouteSwitchInit(switchId_, false);
}

// ---- attributes -------------------------------------------------------------

Vex::Seconds MrouteSwitchSm::now() const { return Vex::ActivityManager::current()->now(); }

void MrouteSwitchSm::requestVerify() {
  if (!acsd_) return;
  if (auto const& v = acsd_->verifyData(); v && v->verify()) v->doRequestVerify();
}

void MrouteSwitchSm::verifyDataIs(Vex::Ptr<VerifyData const> const& v) {
  verifyData_ = v;
  vexVerifyData_->notifierIs(v);
}

void MrouteSwitchSm::clockIs(Vex::Ptr<Vex::Clock> const& clock) {
  if (clock == clock_) return;
  clock_ = clock;
  vexClock_->notifierIs(clock_);
}

void MrouteSwitchSm::agingClockIs(Vex::Ptr<Vex::Clock> const& clock) {
  if (clock == agingClock_) return;
  agingClock_ = clock;
  vexAgingClock_->notifierIs(agingClock_);
}

void MrouteSwitchSm::vex_L3MulticastRequestInIs(Vex::Ptr<L3MulticastRequest const> const& request) {
  l3MulticastRequestIn_ = request;
  vexL3MulticastRequestIn_->notifierIs(request);
}

void MrouteSwitchSm::ethIntfStatusIs(Vex::Ptr<Interface::EthIntfStatus const> const& status) {
  if (!status) {
    throw Vex::NullPointerException(
        "null _ethIntfStatus parameter to mutator for Fal::MrouteSwitchSm::ethIntfStatus not allowed");
  }
  auto& slot = ethIntfStatus_[status->intfId()];
  if (slot && slot->notifier() == status) return;
  slot = std::make_unique<VexEthIntfStatus>(status, this);
  slot->hasNotificationActiveIs(notificationActive_);
}

void MrouteSwitchSm::ethIntfStatusDel(Netcore::IntfId const& intfId) { ethIntfStatus_.erase(intfId); }

void MrouteSwitchSm::ethIntfStatusDelAll() { ethIntfStatus_.clear(); }

void MrouteSwitchSm::hasNotificationActiveIs(bool active) {
  if (active == notificationActive_) return;
  notificationActive_ = active;
  Vex::NotifieeBase* const reactors[] = {vexAcsd_.get(),        vexL3Status_.get(),   vexMrouteSwitch_.get(),
                                         vexMfibConfig_.get(),  vexMfib6Config_.get(), vexZombieClock_.get(),
                                         vexAgingClock_.get(),  vexClock_.get(),       vexMrouteHitStatus_.get()};
  for (auto* r : reactors) r->hasNotificationActiveIs(active);
  for (auto& [intfId, reactor] : ethIntfStatus_) reactor->hasNotificationActiveIs(active);
}

// ---- handlers ---------------------------------------------------------------

void MrouteSwitchSm::handleInitialized() {
  FAL_SYNC_TRACE(4, "handleInitialized" << ", state machine # " << switchId_);
  if (initialized_) return;
  initialized_ = true;
  mrouteHelper_->mrouteSwitchInit(switchId_, true);
  if (clock_) clock_->timeMinIs(Vex::kNever);
  if (agingClock_) agingClock_->timeMinIs(Vex::kNever);
  handlePollingInterval();
  if (usingAsyncMrouteHit_) {
    VEX_ASSERT(!!mrouteHitConfig() && !!mrouteHitStatus() && "MrouteHit Config/Status must not be NULL");
  }
}

void MrouteSwitchSm::handlePollingInterval() {
  if (!mfibConfig_) return;
  FAL_SYNC_TRACE(6, "handlePollingInterval" << ' ' << unsigned(mfibConfig_->activityPollingInterval()) << "s");
  pollingIntervalIs(mfibConfig_.get(), mfibHwStatus_.get());
}

void MrouteSwitchSm::handlePolling6Interval() {
  if (!mfib6Config_) return;
  FAL_SYNC_TRACE(6, "handlePolling6Interval" << ' ' << unsigned(mfib6Config_->activityPollingInterval()) << "s");
  pollingIntervalIs(mfib6Config_.get(), mfib6HwStatus_.get());
}

void MrouteSwitchSm::pollingIntervalIs(VrfConfig const* config, HwStatus* status) {
  if (!initialized_) return;
  // A review already scheduled runs now, and then keeps the new cadence.
  if (agingClock_ && Vex::isFinite(agingClock_->timeMin())) agingClock_->timeMinIs(now());
  if (status) status->pollingIntervalIs(config->activityPollingInterval());
}

void MrouteSwitchSm::handleVerify() {
  if (!initialized_ || cleanupInProgress_) return;
  FAL_SYNC_TRACE(8, "handleVerify" << ", state machine # " << switchId_);
  mrouteSwitch_->handleVerify();
}

void MrouteSwitchSm::handleOperStatus(Netcore::IntfId const& intfId, Interface::IntfOperStatus operStatus) {
  if (!initialized_) {
    FAL_SYNC_TRACE(6, "SM uninitialized, ignore event");
    return;
  }
  FAL_SYNC_TRACE(8, "handleOperStatus" << ' ' << "Intf: " << intfId << ", operStatus: " << operStatus);
  if (isFrrTrigger(operStatus)) updateFrrMtableOif(intfId);
}

void MrouteSwitchSm::maybeScheduleRoutesReview() {
  if (!mrouteSwitch_->mrouteTcamFree() && !mrouteHelper_->mrouteFull(mrouteSwitch_->switchId())) {
    FAL_SYNC_TRACE(5, "Free space now available in the mroute table");
    mrouteSwitch_->mrouteTcamFreeIs(true);
  }
  maybeScheduleAgingReview();
}

// ---- fast reroute -----------------------------------------------------------

void MrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId const& intf) {
  auto const& frr = mrouteSwitch_->frrMtableOifSet();
  FAL_SYNC_TRACE(8, "void Fal::MrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId)"
                        << " FrrSwitch from " << intf << ", frrOifs " << frr.size());
  RING_TRACE("MrouteSwitchSm::" "updateFrrMtableOif", " FrrSwitch from " << intf << ", frrOifs " << frr.size());
  for (auto it = frr.iterator(); !it.done();) {
    MrouteLib::OifSet const* const oifSet = it.key();
    ++it;  // before the member may leave the collection
    updateFrrMtableOif(intf, oifSet);
  }
  handleClock();
}

void MrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId const& intf, MrouteLib::OifSet const* oifSet) {
  // The platform set outlives this call: its programmed set holds it, and the
  // FRR collections hold that one without a reference.
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  Netcore::IntfId const currentIif = pvs.currentIif();
  if (currentIif != intf) {
    FAL_SYNC_TRACE(8, "void Fal::MrouteSwitchSm::updateFrrMtableOif(Netcore::IntfId)"
                          << " skip frrMtableOif " << pvs);
    RING_TRACE("MrouteSwitchSm::" "updateFrrMtableOif", " skip Frr, currentIif " << currentIif);
    return;
  }
  if (currentIif.isEmpty() || pvs.portVlanFrrSize() == 0) {
    RING_TRACE("MrouteSwitchSm::" "updateFrrMtableOif", " No need for inplace update "
                                                            << ", invalid currentIif: " << currentIif
                                                            << ", or portVlanFrrs: " << pvs.portVlanFrrSize());
    return;
  }
  MtableOifSetPtr const inUse = mrouteSwitch_->inUseOifSet(oifSet);
  mrouteSwitch_->frrMtableOifSetDel(oifSet);
  if (inUse && !inUse->isZombie()) {
    // Routes with these outputs must not share the set while its entry is rewritten.
    inUse->dirtyIs(true);
    mrouteSwitch_->frrProcessingOifSetIs(oifSet, inUse);
  }
}

// A set that was a zombie when its interface failed missed that failure. It
// is watched again from its resurrection on; if the interface is down now, it
// is queued at once, and the next turn's pass rewrites it.
void MrouteSwitchSm::handleFrrOifSetResurrected(MrouteLib::OifSet const* oifSet) {
  if (!initialized_ || !mrouteSwitch_->frrMtableOifSet().contains(oifSet)) return;
  Netcore::IntfId const currentIif = oifSet->portVlanSet().currentIif();
  auto const status = ethIntfStatusDir_ && !currentIif.isEmpty() ? ethIntfStatusDir_->intfStatus(currentIif) : nullptr;
  if (!status || !isFrrTrigger(status->operStatus())) return;
  updateFrrMtableOif(currentIif, oifSet);
  if (mrouteSwitch_->frrProcessingOifSet().contains(oifSet)) reviewClockIsNow();
}

void MrouteSwitchSm::reviewClockIsNow() {
  if (!clock_) {
    // Binding a clock runs a pass at once; this one is for the next turn.
    bool const running = std::exchange(clockReviewRunning_, true);
    clockIs(Vex::ActivityManager::current()->clockNew());
    clockReviewRunning_ = running;
  }
  clock_->timeMinIs(now());
}

void MrouteSwitchSm::handleClock() {
  if (!initialized_ || clockReviewRunning_) return;
  // Binding a newly made review clock below calls back here.
  clockReviewRunning_ = true;
  struct Running {
    bool& flag;
    ~Running() { flag = false; }
  } running{clockReviewRunning_};

  auto& resumePoint = frrReviewResumePoint();
  FAL_SYNC_TRACE(8, "void Fal::MrouteSwitchSm::handleClock()" << "review FrrProcessingOifSet: "
                                                             << (resumePoint ? resumePoint->pretty() : "none"));
  auto const& processing = mrouteSwitch_->frrProcessingOifSet();
  auto it = resumePoint ? processing.iterator(resumePoint.get()) : processing.iterator();
  Vex::Seconds const deadline = now() + kFrrReviewBudget;
  std::uint32_t const switchId = mrouteSwitch_->switchId();

  while (!it.done()) {
    MrouteLib::OifSet const* const key = it.key();
    MtableOifSetPtr const falMtableOifSet = it.value();
    if (now() >= deadline) {
      resumePoint = Vex::Ptr<MrouteLib::OifSet const>(key);
      reviewClockIsNow();
      return;
    }
    ++it;  // before the entry leaves the collection
    if (!falMtableOifSet || falMtableOifSet->isZombie()) {
      mrouteSwitch_->frrProcessingOifSetDel(key);
      continue;
    }
    VEX_ASSERT(falMtableOifSet->dirty());
    std::uint32_t const oifSetIndex = falMtableOifSet->oifSetIndex();
    Vex::Ptr<MrouteLib::OifSet const> const current = falMtableOifSet->oifSet();
    MrouteLib::PortVlanSet const& original = current->portVlanSet();
    MrouteLib::PortVlanSet newPvSet = original.withFrrApplied();
    for (MrouteLib::PortVlan const& pv : newPvSet.portVlan()) FAL_SYNC_TRACE(8, "add port " << pv);
    mrouteSwitch_->frrProcessingOifSetDel(key);
    FAL_SYNC_TRACE(8, "original pvSet" << ' ' << original << ": Overwrite with new pvSet " << newPvSet
                                       << " to oifSetIndex: " << oifSetIndex);

    Vex::Ptr<MrouteLib::OifSet const> newOifSet;
    if (auto* registry = current->owner()) {
      newOifSet = registry->oifSetIs(std::move(newPvSet));
    } else {
      // The route programmer's registry has gone (shutdown): a set of our own
      // is enough to carry the content to the hook.
      MrouteLib::OifSetRegistry detached;
      newOifSet = detached.oifSetIs(std::move(newPvSet));
    }
    if (mrouteHelper_->doAllocateMtableOifSet(switchId, oifSetIndex, newOifSet) == invalidOifSetIndex()) {
      FAL_SYNC_TRACE(8, ": HW resource full ");
    }
  }
  resumePoint = nullptr;
  // A pass that began at another chip's position skipped the sets before it;
  // they wait for this chip's next pass.
  if (!processing.empty()) reviewClockIsNow();
}

// ---- zombies ----------------------------------------------------------------

void MrouteSwitchSm::handleZombie() {
  FAL_SYNC_TRACE(6, "handleZombie");
  if (!initialized_) return;
  if (mrouteSwitch_->deleted()) {
    FAL_SYNC_TRACE(6, "MrouteSwitch marked for deletion - skipping zombie handling");
    return;
  }
  if (auto const* first = mrouteSwitch_->zombieOifSet().first()) {
    std::uint32_t const oifSetIndex = first->second->oifSetIndex();
    FAL_SYNC_TRACE(5, "Setting timer for oifSetIndex: " << oifSetIndex);
    RING_TRACE("handleZombie", ", Set timer for zombie oifSetIndex: " << oifSetIndex);
    zombieClock_->timeMinIs(first->first.expiryTime);
  } else {
    zombieClock_->timeMinIs(Vex::kNever);
    FAL_SYNC_TRACE(5, "Resetting zombie timer");
  }
  requestVerify();
}

void MrouteSwitchSm::handleZombieClock() {
  FAL_SYNC_TRACE(6, "handleZombieClock");
  if (!initialized_) return;
  while (auto const* first = mrouteSwitch_->zombieOifSet().first()) {
    ZombieKey const key = first->first;
    if (key.expiryTime > now()) break;
    std::uint32_t const oifSetIndex = first->second->oifSetIndex();
    FAL_SYNC_TRACE(5, "Removing zombie OifSetIndex: " << oifSetIndex);
    RING_TRACE("handleZombieClock", ", removing zombie oifSetIndex: " << oifSetIndex);
    // Drops the last reference: the set's hardware entry is released.
    mrouteSwitch_->zombieOifSetDel(key);
  }
  handleZombie();
}

}  // namespace Fal
