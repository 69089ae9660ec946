// Route aging review of Fal::MrouteSwitchSm: the periodic walk over the
// multicast FIB hardware status that reads each route's hit bits and stamps
// the routes that carried traffic, so the routing protocol can age out the
// idle ones.
//
// A review is cut into slices of at most agingReviewQuota seconds, the next
// slice starting agingReviewInterval seconds after the previous one stopped,
// so that a large table never holds the event loop for long. Hit bits are read
// either through direct cache hooks (refresh, read, clear) or, with
// usingAsyncMrouteHit, through request/response entities exchanged with the
// process that owns the hit-bit cache.
#include "model/AgingReviewPrefetch.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Prefetch.h"
#include "sync/FalMrouteTrace.h"
#include "sync/MrouteSwitchSm.h"

namespace Fal {

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::Hardware::RouteStatus;
using Routing::Multicast::Fib::Hardware::VrfStatus;

// Where the walk stopped, kept by name and key rather than by iterator so the
// next slice finds its place again with one hash positioning even when the VRF
// or route was deleted in between (it then continues at the successor).
//
// There is one bookmark for the whole process: every chip's state machine and
// both address families share it, and slices never interleave because they
// all run to completion on the one event loop. Chips reviewing at the same
// time therefore continue each other's walk; that is how it is meant to be.
struct AgingReviewBookmark {
  enum class VrfPos : std::uint8_t {
    none,   // no walk under way in the current family
    at,     // resume at vrfName (or its successor)
    end,    // the last slice ran off the last VRF; the walk is complete
  };
  VrfPos vrfPos = VrfPos::none;
  L3::VrfName vrfName;
  bool routeSet = false;  // resume at routeKey within vrfName, else at its first route
  IpGenRouteKey routeKey;
  bool ipv4PassDone = false;

  void clear() {
    vrfPos = VrfPos::none;
    routeSet = false;
  }
};

AgingReviewBookmark& agingReviewBookmark() {
  static AgingReviewBookmark bookmark;
  return bookmark;
}

bool clockArmed(Vex::Ptr<Vex::Clock> const& clock) { return clock && clock->timeMin() != Vex::kNever; }

Vex::Seconds currentTime() { return Vex::ActivityManager::current()->now(); }

}  // namespace

std::uint8_t MrouteSwitchSm::activityPollingInterval() const { return mfibConfig_->activityPollingInterval(); }

void MrouteSwitchSm::maybeScheduleAgingReview() {
  std::size_t const routes = mrouteSwitch_->routeSize();
  FAL_SYNC_TRACE(7, "maybeScheduleAgingReview" << ", Mroutes: " << routes);
  bool const armed = clockArmed(agingClock_);
  if (routes > 0) {
    if (armed || !agingClock_) return;
    std::uint8_t const interval = activityPollingInterval();
    FAL_SYNC_TRACE(5, "First mroute, enabling aging review in " << unsigned(interval) << "s");
    agingClock_->timeMinIs(currentTime() + interval);
    return;
  }
  if (!armed) {
    FAL_SYNC_TRACE(6, "Kick review to program the unprogrammed multicast routes if any");
    mrouteSwitch_->mrouteReviewKickInc();
    return;
  }
  FAL_SYNC_TRACE(5, "Last mroute, disabling aging review");
  agingClock_->timeMinIs(Vex::kNever);
  // This chip has emptied its table while routing is being disabled in both
  // families: the agent waits for every chip to get here.
  if (mfibHwStatus_ && !mfibHwStatus_->enabled() && mfib6HwStatus_ && !mfib6HwStatus_->enabled()) {
    l3Status_->waitForRoutingDisabledRefCntInc(1);
  }
}

void MrouteSwitchSm::doRouteHitCacheRefresh() {
  FAL_SYNC_TRACE(7, "doRouteHitCacheRefresh");
  if (!initialized_) return;
  if (routeHitCacheRefreshInProgress_) {
    FAL_SYNC_TRACE(7, "RouteHitCacheRefresh is in Progress, waiting for response");
    return;
  }
  if (routeAgingReviewInProgress_) {
    FAL_SYNC_TRACE(7, "Continue RouteAgingReview");
    doRouteAgingReview();
    return;
  }
  if (usingAsyncMrouteHit_) {
    // The review starts when the cache owner answers the read.
    ++mrouteHitRequestId_;
    routeHitCacheRefreshInProgress_ = true;
    FAL_SYNC_TRACE(7, "Send Read MrouteHitReuqest for ReqId:" << mrouteHitRequestId_);
    mrouteHitConfig_->requestIs(MrouteHitRequest(mrouteHitRequestId_, MrouteHitAction::read));
    return;
  }
  mrouteHelper_->mrouteHitBitCacheRefresh(mrouteSwitch_->switchId());
  routeAgingReviewInProgress_ = true;
  doRouteAgingReview();
}

void MrouteSwitchSm::handleMrouteHitResponse() {
  FAL_SYNC_TRACE(7, "handleMrouteHitResponse");
  // Without both entities there is nothing to answer; handleInitialized
  // stops the agent on their absence.
  if (!usingAsyncMrouteHit_ || !mrouteHitConfig_ || !mrouteHitStatus_) return;
  for (auto it = mrouteHitStatus_->responses().iterator(); !it.done(); ++it) handleMrouteHitResponse(it.key());
}

void MrouteSwitchSm::handleMrouteHitResponse(std::uint32_t id) {
  VEX_ASSERT(usingAsyncMrouteHit());
  FAL_SYNC_TRACE(7, "handleMrouteHitResponse");
  if (!mrouteHitConfig_ || !mrouteHitStatus_) return;
  MrouteHitRequest const response = mrouteHitStatus_->response(id);
  if (response == MrouteHitRequest()) return;  // not answered (or withdrawn)
  FAL_SYNC_TRACE(7, "handleMrouteHitResponse" << " ,hitbit status received for reqId: " << mrouteHitRequestId_);
  mrouteHitConfig_->requestDel(id);
  if (response.action != MrouteHitAction::read) return;
  FAL_SYNC_TRACE(7, "handleMrouteHitResponse" << " ,Trigger mroute aging review.");
  std::uint32_t const requestId = response.requestId;
  VEX_ASSERT(requestId == mrouteHitRequestId());
  routeHitCacheRefreshInProgress_ = false;
  routeAgingReviewInProgress_ = true;
  doRouteAgingReview();
}

void MrouteSwitchSm::doRouteAgingReview() {
  FAL_SYNC_TRACE(7, "doRouteAgingReview");
  if (!initialized_) return;
  VEX_ASSERT(routeAgingReviewInProgress() && !routeHitCacheRefreshInProgress());
  auto& bookmark = agingReviewBookmark();
  if (!bookmark.ipv4PassDone) {
    if (mfibHwStatus_ && !doRouteAgingReviewAfImpl(*mfibHwStatus_)) return;
    bookmark.ipv4PassDone = true;
  }
  if (mfib6HwStatus_ && !doRouteAgingReviewAfImpl(*mfib6HwStatus_)) return;

  bookmark.ipv4PassDone = false;
  FAL_SYNC_TRACE(6, "Review completed");
  mrouteHelper_->doCommitMrouteBatch();
  if (usingAsyncMrouteHit_) {
    ++mrouteHitRequestId_;
    FAL_SYNC_TRACE(7, "Send Clear MrouteHitReuqest for ReqId:" << mrouteHitRequestId_);
    mrouteHitConfig_->requestIs(MrouteHitRequest(mrouteHitRequestId_, MrouteHitAction::clear));
  } else {
    mrouteHelper_->mrouteHitBitCacheClear(mrouteSwitch_->switchId());
  }
  if (agingClock_) agingClock_->timeMinIs(currentTime() + activityPollingInterval());
  routeAgingReviewInProgress_ = false;
  // Routes that could not be programmed earlier (a full table) get another try.
  FAL_SYNC_TRACE(6, "Kick off a new Mroute review in the MrouteProgrammer");
  mrouteSwitch_->mrouteReviewKickInc();
  Vex::Ptr<VerifyData> const verify = acsd_ ? acsd_->verifyData() : nullptr;
  if (verify && verify->verify()) verify->doRequestVerify();
}

bool MrouteSwitchSm::doRouteAgingReviewAfImpl(HwStatus& status) {
  using VrfPos = AgingReviewBookmark::VrfPos;
  auto& bookmark = agingReviewBookmark();
  std::uint32_t const chipId = mrouteSwitch_->switchId();

  // Resume: one positioning for the VRF and, when the walk stopped inside a
  // VRF, one for the route.
  HwStatus::VrfStatusColl::Iterator vrfIt;
  VrfStatus::RouteColl::Iterator routeIt;
  bool routeItSet = false;
  switch (bookmark.vrfPos) {
    case VrfPos::none:
      FAL_SYNC_TRACE(6, "VrfItr not found - restarting review");
      vrfIt = status.vrfStatusIterator();
      break;
    case VrfPos::at:
      vrfIt = status.vrfStatusIterator(bookmark.vrfName);
      if (bookmark.routeSet) {
        FAL_SYNC_TRACE(6, "Current routeIter: " << bookmark.routeKey);
        // Only when the VRF itself is still there: its successor starts at its first route.
        if (!vrfIt.done() && vrfIt.key() == bookmark.vrfName) {
          routeIt = vrfIt.value()->routeIterator(bookmark.routeKey);
          routeItSet = true;
        }
      }
      break;
    case VrfPos::end:
      break;  // vrfIt stays done: nothing is left of this walk
  }

  // The loop's clock, asked after every polled route: a hook may charge time.
  Vex::ActivityManager const& clock = *Vex::ActivityManager::current();
  Vex::Seconds const deadline = clock.now() + agingReviewQuota_;
  for (; !vrfIt.done(); ++vrfIt) {
    Vex::Ptr<VrfStatus> const vrf = vrfIt.value();  // held while its routes are stamped
    FAL_SYNC_TRACE(5, "Iterating VRF " << vrf->name());
    if (!routeItSet) routeIt = vrf->routeIterator();
    routeItSet = true;
    auto const vrfId = static_cast<std::uint16_t>(l3Status_->vrfNameToId(vrf->name()).value_or(0));
    std::uint32_t reviewed = 1;
    // The switch's lookup reads the key index entry first, then the route it
    // names (its key, then its flags). A route programmed when its status was
    // made sits right after the status in the per-route objects' pool, so
    // that is fetched too: a hint, which a route made at another time misses.
    AgingReviewPrefetch prefetch([&sw = *mrouteSwitch_, &vlans = *intfVlanIdTable_](
                                           IpGenRouteKey const& key, RouteStatus const& rs) {
      sw.routeByKeyPrefetch(key, vlans.intfIdToVlanId(rs.acceptingIntfId()));
      Vex::prefetchBytes<sizeof(Route)>(reinterpret_cast<char const*>(&rs) + sizeof(RouteStatus));
    });

    for (; !routeIt.done(); ++routeIt, ++reviewed) {
      prefetch.step(routeIt);
      Vex::Ptr<RouteStatus> const routeStatus = routeIt.value();  // held: a stamp's reactor may delete it
      RouteStatus& rs = *routeStatus;
      if (rs.flags() & RouteStatus::kFlagsMask) continue;
      IpGenRouteKey const& key = rs.key();
      FAL_SYNC_TRACE(7, "Aging review: polling state for route " << key);
      Bridging::VlanIdOrNone const vlan = intfVlanIdTable_->intfIdToVlanId(rs.acceptingIntfId());

      bool askHook = true;
      bool hit = false;
      // One lookup straight to the route; nothing runs between it and the
      // reads below that could delete the route.
      if (Route const* const route = mrouteSwitch_->routeByKey(key, vlan)) {
        bool const noAge = route->noAge();
        if (noAge) {
          FAL_SYNC_TRACE(5, " Forcing hit for " << key);
          hit = true;
          askHook = false;
        }
        // A route programmed without an accepting VLAN has no hit bit of its
        // own; only its fast-drop entries can be read.
        if (vlan.isNone() && !rs.pollWithoutVlan() && route->rpaId() == 0) {
          FAL_SYNC_TRACE(7, "No accepting vlan for the route. Check fastdrops");
          hit = noAge;
          askHook = false;
        }
      }
      if (askHook) hit = mrouteHelper_->mrouteHitBit(chipId, vrfId, key, vlan, false);
      if (hit) {
        FAL_SYNC_TRACE(5, "Updating activity bits for route " << key);
        rs.lastPollTimeIs(clock.now());
      }

      // Most routes have no fast-drop entries: no iterator is made for them.
      if (rs.fastdropSize() != 0) {
        for (auto fd = rs.fastdropIterator(); !fd.done(); ++fd) {
          Netcore::IntfId const intf = fd.key();
          FAL_SYNC_TRACE(7, "Reviewing fastdrop " << intf);
          Bridging::VlanIdOrNone const fdVlan = intfVlanIdTable_->intfIdToVlanId(intf);
          if (fdVlan.isNone()) continue;
          if (mrouteHelper_->mrouteHitBit(chipId, vrfId, key, fdVlan, true)) {
            FAL_SYNC_TRACE(5, "Updating activity bits for fastdrop route" << key << " on vlan " << fdVlan);
            rs.fastdropLastPollTimeIs(intf, clock.now());
          }
        }
      }

      if (clock.now() > deadline) {
        // The count is of routes before this one, as the trace has always read.
        FAL_SYNC_TRACE(6, "Route aging review quota reached (reviewed " << reviewed - 1 << " routes)");
        ++routeIt;
        if (!routeIt.done()) {
          bookmark.vrfPos = VrfPos::at;
          bookmark.vrfName = vrf->name();
          bookmark.routeSet = true;
          bookmark.routeKey = routeIt.key();
        } else {
          ++vrfIt;
          bookmark.routeSet = false;
          if (vrfIt.done()) {
            bookmark.vrfPos = VrfPos::end;
          } else {
            bookmark.vrfPos = VrfPos::at;
            bookmark.vrfName = vrfIt.key();
          }
        }
        if (agingClock_) agingClock_->timeMinIs(clock.now() + agingReviewInterval_);
        return false;
      }
    }
    routeItSet = false;
  }
  bookmark.clear();
  return true;
}

}  // namespace Fal
