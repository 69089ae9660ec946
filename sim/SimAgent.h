#pragma once
// FalSim::SimAgent: one synchronous forwarding agent wired together as a
// chip agent would wire it, over the reference chips.
//
// The platform entities (L3 status, FIB configuration, VRF enablement,
// interfaces, the VLAN map) outlive the agent; the library objects, the
// counter status they publish and the hardware status do not. An incarnation is: a ChipLink to the chips, one
// Fal::MrouteSm, per chip a Fal::MrouteSwitch and a Fal::MrouteSwitchSm, and
// the route programmer with its OIF-set registry, driving every switch.
//
// restart() is an agent restart that the chips survive: the incarnation
// dies (its link is cut first, so its cleanup reaches no hardware), the
// multicast FIB hardware status is rebuilt from what the chips hold with
// Fal::Mroute::RecoverySm, the chips' stale state is cleared (a new agent
// cannot adopt handles it did not program), and a new incarnation starts
// on the recovered status. Programming the routes again is the route owner's
// part (the runner replays them).
//
// Counts what the report needs from the library's own notifications: zombies
// entered, resurrected and expired, and table-full episodes (a free flag
// going false).
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3MulticastRequest.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/CounterStatus.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/intf/IpStatus.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "sim/ChipLink.h"
#include "sim/ReferenceChip.h"
#include "sim/Scenario.h"
#include "sync/MrouteSm.h"
#include "sync/MrouteSwitch.h"
#include "sync/MrouteSwitchSm.h"

namespace FalSim {

class SimAgent {
 public:
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;

  // Accumulated over every incarnation.
  struct Counts {
    std::uint64_t zombiesEntered = 0;
    std::uint64_t zombieReuses = 0;    // resurrected before their lifetime ran out
    std::uint64_t zombieExpiries = 0;  // released when their lifetime ran out
    // Free flags going false, by ReferenceChip::Table.
    std::array<std::uint64_t, 3> tableFullEpisodes{};
  };

  struct RecoveryFigures {
    std::size_t routesRecovered = 0;  // route statuses RecoverySm rebuilt
    std::size_t vrfsRecovered = 0;
    std::size_t staleEntriesCleared = 0;  // routes, boundaries and replication entries of the old agent
  };

  // Makes each incarnation's hook object; a plain ChipLink when empty.
  using LinkFactory = std::function<Vex::Ptr<ChipLink>(Vex::Ptr<ReferenceChip> const&)>;

  // Sets the platform entities up from the scenario; start() brings the agent up.
  SimAgent(Scenario const& scenario, Vex::Ptr<ReferenceChip> chip, LinkFactory linkFactory = {});
  ~SimAgent();
  SimAgent(SimAgent const&) = delete;
  SimAgent& operator=(SimAgent const&) = delete;

  void start();
  RecoveryFigures restart();
  // The agent exits for good. Deleting the routes is the route owner's part,
  // before; then the library tears down with its hold on the chips intact,
  // so its own cleanup (zombies freed, multicast routing disabled, the
  // hooks told) reaches them, unlike a restart's, which leaves them as they are.
  void shutdown() { stop(false); }
  bool running() const { return incarnation_ != nullptr; }
  std::size_t incarnations() const { return incarnations_; }

  // The current incarnation's objects.
  MrouteLib::RouteProgrammer& programmer() const { return *incarnation_->programmer; }
  Fal::MrouteSm& mrouteSm() const { return *incarnation_->sm; }
  std::size_t switches() const { return incarnation_->switches.size(); }
  Fal::MrouteSwitch& switchAt(std::size_t i) const { return *incarnation_->switches[i]; }
  Fal::MrouteSwitchSm& switchSmAt(std::size_t i) const { return *incarnation_->switchSms[i]; }
  ChipLink& link() const { return *incarnation_->link; }
  // Aging counts of every incarnation's link.
  ChipLink::AgingCounts agingCounts() const;
  std::uint64_t counterReads() const;
  // Whether some chip still has OIF sets waiting for their fast-reroute rewrite.
  bool frrPending() const;

  HwStatus& hwStatus(Netcore::AddressFamily af) const { return af == Netcore::AddressFamily::ipv6 ? *hw6Status_ : *hwStatus_; }
  Vex::Ptr<HwStatus> const& hwStatusPtr() const { return hwStatus_; }
  Vex::Ptr<HwStatus> const& hw6StatusPtr() const { return hw6Status_; }
  ReferenceChip& chip() const { return *chip_; }
  Counts const& counts() const { return counts_; }

  // Platform entities.
  Fal::L3Status& l3Status() const { return *l3Status_; }
  Routing::Multicast::Fib::VrfConfig& vrfConfig(Netcore::AddressFamily af) const {
    return af == Netcore::AddressFamily::ipv6 ? *vrf6Config_ : *vrfConfig_;
  }
  Interface::EthIntfStatusDir& ethIntfStatusDir() const { return *ethIntfStatusDir_; }
  IntfVlanId::Table const& intfVlanIdTable() const { return *intfVlanIdTable_; }
  Routing::Multicast::Fib::CounterStatus const& counterStatus() const { return *counterStatus_; }
  // Publishes the counter status (rows and control record) from the next
  // start() on under name, for readers in other processes; empty (the
  // default) keeps it private. Each incarnation publishes a fresh table
  // under the same name.
  void counterStatusNameIs(std::string name) { counterStatusName_ = std::move(name); }
  std::string const& counterStatusName() const { return counterStatusName_; }
  Fal::VerifyData& verifyData() const { return *verifyData_; }

  // Tells every chip's state machine that routes changed, as the route
  // owner does after a batch: route-table room and aging are reviewed.
  void routesChanged() { l3MulticastRequest_->multicastReviewPendingInc(); }
  void zombieLifetimeIs(Vex::Seconds s);
  Vex::Seconds zombieLifetime() const { return zombieLifetime_; }

 private:
  class ChipWatch;
  struct Incarnation {
    Vex::Ptr<ChipLink> link;
    Vex::Ptr<MrouteLib::OifSetRegistry> registry;
    Vex::Ptr<Fal::MrouteSm> sm;
    std::vector<Vex::Ptr<Fal::MrouteSwitch>> switches;
    std::vector<Vex::Ptr<Fal::MrouteSwitchSm>> switchSms;
    std::vector<std::unique_ptr<ChipWatch>> watches;
    Vex::Ptr<MrouteLib::RouteProgrammer> programmer;
  };

  // chipsSurvive: the process dies without a word to the chips (a restart).
  void stop(bool chipsSurvive = true);
  Vex::Ptr<HwStatus> newHwStatus(Netcore::AddressFamily af) const;
  std::size_t clearStaleChipState();

  Vex::Ptr<ReferenceChip> chip_;
  LinkFactory linkFactory_;
  Vex::Ptr<Fal::VerifyData> verifyData_;
  Vex::Ptr<Fal::FalCommonSmData> acsd_;
  Vex::Ptr<Fal::L3Status> l3Status_;
  Vex::Ptr<Fal::L3MulticastRequest> l3MulticastRequest_;
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig_;
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrf6Config_;
  Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus> vrfEnabledStatus_;
  Vex::Ptr<Ip::Status> ipStatus_;
  Vex::Ptr<IntfVlanId::Table> intfVlanIdTable_;
  Vex::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir_;
  Vex::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir_;
  Vex::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir_;
  Vex::Ptr<Routing::Multicast::Fib::CounterStatus> counterStatus_;
  Vex::Ptr<Routing::Multicast::Fib::CounterStatusCtl> counterStatusCtl_;
  std::string counterStatusName_;
  Vex::Ptr<HwStatus> hwStatus_;
  Vex::Ptr<HwStatus> hw6Status_;
  std::unique_ptr<Incarnation> incarnation_;
  // Aging counts of the incarnations that have gone.
  ChipLink::AgingCounts pastAging_;
  std::uint64_t pastCounterReads_ = 0;
  Counts counts_;
  Vex::Seconds zombieLifetime_;
  std::uint32_t chips_;
  std::size_t incarnations_ = 0;
};

}  // namespace FalSim
