#pragma once
// MrouteSmRig: the entities the agent hands Fal::MrouteSm, a recording hook
// object, a published counter table, and "FalMroute" traces captured in
// memory, all on virtual time. Time starts at 100 s because a counter row
// written at time 0 would read as absent.
//
// Set the entities up, then start(); dropping the rig destroys the state
// machine before the entities and the event loop it uses.
#include <memory>
#include <string>

#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/CounterStatus.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/IpStatus.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Trace.h"
#include "sync/MrouteSm.h"
#include "tests/doubles/RecordingMrouteHelper.h"

namespace FalTest {

class MrouteSmRig {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  static constexpr Vex::Seconds kStart = 100.0;

  MrouteSmRig() : traceLevels_(trace_.levels()) {
    trace_.enable();
    Vex::traceSinkAdd(capture);
  }
  ~MrouteSmRig() {
    sm = nullptr;
    Vex::traceSinkDel(capture);
    trace_.levelsIs(traceLevels_);
  }
  MrouteSmRig(MrouteSmRig const&) = delete;
  MrouteSmRig& operator=(MrouteSmRig const&) = delete;

  // Builds the state machine through the agent's creator and hands it the
  // counter table; the hook calls of its construction stay in helper->calls.
  Vex::Ptr<Fal::MrouteSm> const& start() {
    sm = Fal::MrouteSmIs(acsd, l3Status, vrfConfig, hwStatus, ipStatus, helper, enabledStatus);
    sm->mfibCounterStatusIs(counterStatus);
    sm->mfibCounterStatusCtlIs(counterCtl);
    return sm;
  }

  static IpGenRouteKey key(char const* source, char const* group) {
    return IpGenRouteKey(Netcore::IpGenPrefix(source), Netcore::IpGenPrefix(group));
  }
  static std::string wildcard() { return IpGenRouteKey::wildcard().pretty(); }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(kStart)};
  Vex::Ptr<Fal::VerifyData> verifyData = Vex::make<Fal::VerifyData>(false);
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>(verifyData);
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hwStatus =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Ip::Status> ipStatus = Vex::make<Ip::Status>();
  Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus> enabledStatus =
      Vex::make<Routing::Multicast::Fib::VrfEnabledStatus>();
  Vex::Ptr<RecordingMrouteHelper> helper = Vex::make<RecordingMrouteHelper>();
  Vex::Ptr<Routing::Multicast::Fib::CounterStatus> counterStatus = Vex::make<Routing::Multicast::Fib::CounterStatus>();
  Vex::Ptr<Routing::Multicast::Fib::CounterStatusCtl> counterCtl = Vex::make<Routing::Multicast::Fib::CounterStatusCtl>();
  std::shared_ptr<Vex::CaptureTraceSink> capture = std::make_shared<Vex::CaptureTraceSink>();
  Vex::Ptr<Fal::MrouteSm> sm;

 private:
  Vex::TraceHandle& trace_ = Vex::traceHandle("FalMroute");
  std::uint16_t traceLevels_;
};

}  // namespace FalTest
