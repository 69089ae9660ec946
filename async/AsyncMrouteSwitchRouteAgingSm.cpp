#include "async/AsyncMrouteSwitchRouteAgingSm.h"

#include <algorithm>

#include "async/AsyncMrouteTrace.h"
#include "model/AgingReviewPrefetch.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

// "AsyncMrouteSwitchRouteAgingSm::<method>() AddressFamily : <af>" and the message.
#define AGING_TRACE(level, method, expr)                                                                   \
  FAL_ASYNC_TRACE(level, "AsyncMrouteSwitchRouteAgingSm" << "::" << method << "()" << " AddressFamily : " \
                                                         << af_ << expr)

namespace Fal::Mroute {

using Routing::Multicast::Fib::Hardware::RouteStatus;
using Routing::Multicast::Fib::Hardware::VrfStatus;

namespace {
// Defined when the library is loaded, like the flavour's other registrations.
[[maybe_unused]] Log::Message const& kPollingIntervalNotSupportedDefined =
    AsyncMrouteSwitchRouteAgingSm::pollingIntervalNotSupported();
}  // namespace

Log::Message const& AsyncMrouteSwitchRouteAgingSm::pollingIntervalNotSupported() {
  static Log::Message const& message = Log::Message::messageIs({
      .name = "MROUTE_ACTIVITY_POLLING_INTERVAL_NOT_SUPPORTED",
      .severity = Log::Severity::warning,
      .format = "The value is set to the minimum supported value of %ds instead of the configured %ds",
      .explanation = "The configured value is less than minimum supported activity polling interval, activity "
                     "polling interval is set to the minimum supported value.",
      .recommendedAction = Log::kNoActionRequired,
      .throttle = {0, 1.0},
      .flags = 0,
  });
  return message;
}

// ---- reactors ---------------------------------------------------------------
// Each is told it is being torn down before it goes, and then ignores what
// its notifier still tells it.

class AsyncMrouteSwitchRouteAgingSm::VexMrouteSwitch : public AsyncMrouteSwitch::Notifiee {
 public:
  VexMrouteSwitch(Vex::Ptr<AsyncMrouteSwitch const> const& sw, AsyncMrouteSwitchRouteAgingSm* sm) : sm_(sm) {
    notifierIs(sw);
  }
  void onInUseRouteHandleKey(MrouteLib::RouteHandle handle) override {
    if (!tearingDown_) sm_->handleRoute(handle);
  }
  void tearingDownIs() { tearingDown_ = true; }

 private:
  AsyncMrouteSwitchRouteAgingSm* sm_;  // not owned: the state machine owns its reactors
  bool tearingDown_ = false;
};

class AsyncMrouteSwitchRouteAgingSm::VexMfibConfig : public VrfConfig::Notifiee {
 public:
  VexMfibConfig(Vex::Ptr<VrfConfig const> const& config, AsyncMrouteSwitchRouteAgingSm* sm) : sm_(sm) {
    notifierIs(config);
  }
  // A configuration attached after initialization is taken up at once; at
  // construction initialization itself does it.
  void onNotifier() override {
    if (!tearingDown_ && sm_->initialized()) sm_->handlePollingInterval();
  }
  void onActivityPollingInterval() override {
    if (!tearingDown_) sm_->handlePollingInterval();
  }
  void tearingDownIs() { tearingDown_ = true; }

 private:
  AsyncMrouteSwitchRouteAgingSm* sm_;
  bool tearingDown_ = false;
};

class AsyncMrouteSwitchRouteAgingSm::VexAgingClock : public Vex::Clock::Notifiee {
 public:
  VexAgingClock(Vex::Ptr<Vex::Clock const> const& clock, AsyncMrouteSwitchRouteAgingSm* sm) : sm_(sm) {
    notifierIs(clock);
  }
  void onNotifier() override {
    if (!tearingDown_) sm_->doRouteAgingReview();
  }
  void onTime() override {
    if (!tearingDown_) sm_->doRouteAgingReview();
  }
  void tearingDownIs() { tearingDown_ = true; }

 private:
  AsyncMrouteSwitchRouteAgingSm* sm_;
  bool tearingDown_ = false;
};

// ---- construction -------------------------------------------------------------

AsyncMrouteSwitchRouteAgingSm::AsyncMrouteSwitchRouteAgingSm(
    Netcore::AddressFamily af, Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch,
    Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable, Vex::Ptr<VrfConfig const> const& mfibConfig,
    Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper,
    Vex::Ptr<Vex::Clock> const& agingClock)
    : af_(af), intfVlanIdTable_(intfVlanIdTable), mfibHwStatus_(mfibHwStatus), helper_(helper) {
  VEX_ASSERT(helper_);
  mrouteSwitchIs(mrouteSwitch);
  mfibConfigIs(mfibConfig);
  agingClockIs(agingClock);
  handleInitialized();
}

AsyncMrouteSwitchRouteAgingSm::~AsyncMrouteSwitchRouteAgingSm() {
  if (vexAgingClock_) vexAgingClock_->tearingDownIs();
  if (vexMfibConfig_) vexMfibConfig_->tearingDownIs();
  if (vexMrouteSwitch_) vexMrouteSwitch_->tearingDownIs();
  vexAgingClock_.reset();
  vexMfibConfig_.reset();
  vexMrouteSwitch_.reset();
}

Vex::Ptr<AsyncMrouteSwitchRouteAgingSm> AsyncMrouteSwitchRouteAgingSm::AsyncMrouteSwitchRouteAgingSmIs(
    Netcore::AddressFamily af, Vex::Ptr<AsyncMrouteSwitch> const& mrouteSwitch,
    Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable, Vex::Ptr<VrfConfig const> const& mfibConfig,
    Vex::Ptr<HwStatus> const& mfibHwStatus, Vex::Ptr<FalHelper::AsyncMrouteHelper> const& helper,
    Vex::Ptr<Vex::Clock> const& agingClock) {
  return Vex::make<AsyncMrouteSwitchRouteAgingSm>(af, mrouteSwitch, intfVlanIdTable, mfibConfig, mfibHwStatus, helper,
                                                  agingClock);
}

void AsyncMrouteSwitchRouteAgingSm::mrouteSwitchIs(Vex::Ptr<AsyncMrouteSwitch> const& sw) {
  if (sw == mrouteSwitch_) return;
  mrouteSwitch_ = sw;
  vexMrouteSwitch_.reset();
  if (sw) vexMrouteSwitch_ = std::make_unique<VexMrouteSwitch>(sw, this);
}

void AsyncMrouteSwitchRouteAgingSm::mfibConfigIs(Vex::Ptr<VrfConfig const> const& config) {
  if (config == mfibConfig_) return;
  mfibConfig_ = config;
  vexMfibConfig_.reset();
  if (config) vexMfibConfig_ = std::make_unique<VexMfibConfig>(config, this);
}

void AsyncMrouteSwitchRouteAgingSm::agingClockIs(Vex::Ptr<Vex::Clock> const& clock) {
  if (clock == agingClock_) return;
  agingClock_ = clock;
  vexAgingClock_.reset();
  if (clock) vexAgingClock_ = std::make_unique<VexAgingClock>(clock, this);
}

// ---- small helpers ------------------------------------------------------------

Vex::Seconds AsyncMrouteSwitchRouteAgingSm::now() const { return Vex::ActivityManager::current()->now(); }

bool AsyncMrouteSwitchRouteAgingSm::clockArmed() const { return agingClock_ && Vex::isFinite(agingClock_->timeMin()); }

void AsyncMrouteSwitchRouteAgingSm::clockIs(Vex::Seconds t) {
  if (agingClock_) agingClock_->timeMinIs(t);
}

Vex::Seconds AsyncMrouteSwitchRouteAgingSm::configuredInterval() const {
  return mfibConfig_ ? static_cast<Vex::Seconds>(mfibConfig_->activityPollingInterval())
                     : static_cast<Vex::Seconds>(VrfConfig::kDefaultActivityPollingInterval);
}

Bridging::VlanIdOrNone AsyncMrouteSwitchRouteAgingSm::vlanOf(Netcore::IntfId intf) const {
  return intfVlanIdTable_ ? intfVlanIdTable_->intfIdToVlanId(intf) : Bridging::VlanIdOrNone();
}

Vex::Seconds AsyncMrouteSwitchRouteAgingSm::lastRoutePollTime(FalHelper::AsyncMrouteHelper& helper,
                                                              AsyncMrouteSwitch const& mrouteSwitch,
                                                              IpGenRouteKey const& routeKey, Bridging::VlanIdOrNone vlan,
                                                              Fal::VrfId vrfId) {
  FAL_ASYNC_TRACE(3, "AsyncMrouteSwitchRouteAgingSm" << "::" << "lastRoutePollTime" << "()");
  MrouteLib::RouteHandle const handle = mrouteSwitch.inUseRouteHandle(routeKey, vlan, vrfId);
  if (handle.isNull()) {
    FAL_ASYNC_TRACE(3, "RouteHandle not found for the route: " << routeKey << ", vlan: " << vlan);
    return 0;
  }
  Vex::Seconds const t = helper.routeLastAccessedTime(handle);
  FAL_ASYNC_TRACE(3, "last accessed time for routeHandle " << handle << " is " << t);
  return t;
}

// ---- handlers -------------------------------------------------------------------

void AsyncMrouteSwitchRouteAgingSm::handleInitialized() {
  AGING_TRACE(2, "handleInitialized", "");
  if (initialized_) return;
  clockIs(Vex::kNever);
  handlePollingInterval();
  initialized_ = true;
}

void AsyncMrouteSwitchRouteAgingSm::handlePollingInterval() {
  AGING_TRACE(2, "handlePollingInterval", "");
  Vex::Seconds const configured = configuredInterval();
  Vex::Seconds const polling = helper_->doGetAdjustedPollingInterval(configured, af_);
  if (clockArmed()) {
    AGING_TRACE(2, "handlePollingInterval", " Setting polling interval to: " << polling);
    clockIs(now() + polling);
  }
  Vex::Seconds const activity = helper_->doGetAdjustedActivityPollInterval(configured, af_);
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchRouteAgingSm" << "::" << "handlePollingInterval" << "( " << configured << ", "
                                                     << polling << ", " << activity << " )");
  if (activity != configured) pollingIntervalNotSupported().log(activity, configured);
  // The protocol side ages routes on the interval that is really polled.
  if (mfibHwStatus_) {
    mfibHwStatus_->pollingIntervalIs(static_cast<std::uint8_t>(std::clamp(activity, 0.0, 255.0)));
  }
}

void AsyncMrouteSwitchRouteAgingSm::handleRoute(MrouteLib::RouteHandle handle) {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchRouteAgingSm" << "::" << "handleRoute" << "( " << handle << " )"
                                                     << " AddressFamily : " << af_);
  // A removed handle never disarms the clock: the review that finds no routes does.
  if (!mrouteSwitch_ || mrouteSwitch_->inUseRouteHandleKey(handle) == InUseRouteHandleKey()) return;
  doMaybeScheduleRouteAgingReview();
}

void AsyncMrouteSwitchRouteAgingSm::doMaybeScheduleRouteAgingReview() {
  AGING_TRACE(2, "doMaybeScheduleRouteAgingReview", "");
  VEX_ASSERT(mfibHwStatus());
  std::size_t const routes = mfibHwStatus_->routes();
  bool const armed = clockArmed();
  if (routes > 0 && !armed) {
    Vex::Seconds const interval = helper_->doGetAdjustedPollingInterval(configuredInterval(), af_);
    AGING_TRACE(2, "doMaybeScheduleRouteAgingReview", " Enabling aging review in: " << interval << " s");
    clockIs(now() + interval);
  } else if (routes == 0 && armed) {
    AGING_TRACE(2, "doMaybeScheduleRouteAgingReview", " Disabling aging review");
    clockIs(Vex::kNever);
  }
}

void AsyncMrouteSwitchRouteAgingSm::doRouteAgingReview() {
  AGING_TRACE(2, "doRouteAgingReview", "");
  if (!initialized_ || !mfibHwStatus_ || !mrouteSwitch_) return;
  HwStatus const& status = *mfibHwStatus_;
  if (status.routes() == 0) {
    AGING_TRACE(2, "doRouteAgingReview", ": No routes present in mfibHwStatus. Nothing to review");
    doMaybeScheduleRouteAgingReview();
    return;
  }

  HwStatus::VrfStatusColl::Iterator vrfIt = status.vrfStatusIterator();
  if (!vrfBookmark_.stringValue().empty()) {
    AGING_TRACE(8, "doRouteAgingReview", ": using vrfBookMark: " << vrfBookmark_);
    if (auto at = status.vrfStatusIterator(vrfBookmark_); !at.done() && at.key() == vrfBookmark_) {
      vrfIt = at;
    } else {
      AGING_TRACE(0, "doRouteAgingReview", ": vrf not present in mfibHwStatus: " << vrfBookmark_);
    }
    if (vrfIt.done() || vrfIt.key() != vrfBookmark_) {
      AGING_TRACE(8, "doRouteAgingReview", ": Resetting routeBookmark");
      bookmark_ = IpGenRouteKey();
    }
  } else {
    AGING_TRACE(8, "doRouteAgingReview", ": vrfBookMark not set. Start at beginning.");
  }

  std::uint32_t visited = 0;
  for (; !vrfIt.done(); ++vrfIt) {
    L3::VrfName const name = vrfIt.key();
    Vex::Ptr<VrfStatus const> const vrf = vrfIt.value();  // held while its routes are stamped
    AGING_TRACE(8, "doRouteAgingReview", ": Reviewing vrf: " << name);
    auto const routingStatus = mrouteSwitch_->routingHwRouteStatus();
    auto const vrfStatus = routingStatus ? routingStatus->vrfStatus(name) : nullptr;
    if (!vrfStatus) {
      AGING_TRACE(8, "doRouteAgingReview", " vrfStatus for vrf: " << name << " not present");
      bookmark_ = IpGenRouteKey();
      continue;
    }
    Fal::VrfId const vrfId = vrfStatus->vrfId();
    VrfStatus::RouteColl::Iterator routeIt;
    if (!bookmark_.isNull()) {
      AGING_TRACE(8, "doRouteAgingReview", " Using routeBookmark " << bookmark_);
      routeIt = vrf->routeIterator(bookmark_);
    } else {
      AGING_TRACE(8, "doRouteAgingReview", ": routeBookMark not set. Start from the beginning.");
      routeIt = vrf->routeIterator();
    }
    // Only for the routes whose handle the review will look up.
    AgingReviewPrefetch prefetch([this, vrfId](IpGenRouteKey const& key, RouteStatus const& rs) {
      if (rs.flags() & RouteStatus::kFlagsMask) return;
      Bridging::VlanIdOrNone const vlan = vlanOf(rs.acceptingIntfId());
      if (vlan.isNone() && !rs.pollWithoutVlan()) return;
      mrouteSwitch_->inUseRouteHandlePrefetch(key, vlan, vrfId);
    });
    prefetch.prime(routeIt);
    for (; !routeIt.done(); ++routeIt) {
      if (visited == kRoutesPerSlice) {
        bookmark_ = routeIt.key();
        vrfBookmark_ = name;
        clockIs(now() + kSlicePause);
        AGING_TRACE(8, "doRouteAgingReview", ": " << kRoutesPerSlice << " routes reviewed. routeBookMark = " << bookmark_
                                                   << "; vrfBookmark = " << vrfBookmark_);
        return;
      }
      ++visited;
      prefetch.step(routeIt);
      Vex::Ptr<RouteStatus> const route = routeIt.value();  // held: a stamp's reactor may delete it
      reviewRoute(*route, vrfId);
    }
    bookmark_ = IpGenRouteKey();
  }

  AGING_TRACE(2, "doRouteAgingReview", ": Review completed");
  AGING_TRACE(2, "doRouteAgingReview", " hitCount: " << hitCount_);
  hitCount_ = 0;
  vrfBookmark_ = L3::VrfName();
  clockIs(now() + helper_->doGetAdjustedPollingInterval(configuredInterval(), af_));
}

void AsyncMrouteSwitchRouteAgingSm::reviewRoute(RouteStatus& route, Fal::VrfId vrfId) {
  IpGenRouteKey const& key = route.key();
  AGING_TRACE(3, "doRouteAgingReview", " Reviewing " << key);
  if (route.flags() & RouteStatus::kFlagsMask) return;
  Bridging::VlanIdOrNone const vlan = vlanOf(route.acceptingIntfId());
  // Without an accepting VLAN the route's own entry is polled only where it
  // says so or where it was programmed with a rendezvous point; the switch's
  // record is looked up only then (a cold read per route at scale).
  auto const programmedWithRp = [&] {
    AsyncMrouteSwitchRoute const* const programmed = mrouteSwitch_->route(key);
    return programmed && programmed->rpaId != 0;
  };
  if (!vlan.isNone() || route.pollWithoutVlan() || programmedWithRp()) {
    Vex::Seconds const t = lastRoutePollTime(*helper_, *mrouteSwitch_, key, vlan, vrfId);
    if (t > route.lastPollTime()) {
      AGING_TRACE(3, "doRouteAgingReview", " Updating activity bits for route: " << key);
      route.lastPollTimeIs(t);
      ++hitCount_;
    }
  } else {
    AGING_TRACE(2, "doRouteAgingReview", " No accepting vlan for the route - still check for fastdrops");
  }
  // Most routes have no fast-drop entries: no iterator is made for them.
  if (route.fastdropSize() == 0) return;
  for (auto fd = route.fastdropIterator(); !fd.done(); ++fd) {
    Netcore::IntfId const intf = fd.key();
    AGING_TRACE(3, "doRouteAgingReview", " Reviewing fastdrop " << intf);
    Bridging::VlanIdOrNone const fdVlan = vlanOf(intf);
    Vex::Seconds const t = lastRoutePollTime(*helper_, *mrouteSwitch_, key, fdVlan, vrfId);
    if (t > fd.value()) {
      AGING_TRACE(3, "doRouteAgingReview",
                  " Updating activity bits for fastdrop route: " << key << ", vlan: " << fdVlan);
      route.fastdropLastPollTimeIs(intf, t);
    }
  }
}

}  // namespace Fal::Mroute
