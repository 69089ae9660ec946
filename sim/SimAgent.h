#pragma once
// FalSim::SimAgent: one forwarding agent wired together as a chip agent would
// wire it, over the reference chips, each chip driven by the flavour of the
// library the scenario gives it.
//
// The platform entities (L3 status, FIB configuration, VRF enablement,
// interfaces, the VLAN map, the chips' VRF ids) outlive the agent; the
// library objects, the counter status they publish and the hardware status
// do not. An incarnation is: a ChipLink to the chips and one Fal::MrouteSm
// (multicast routing, counters); per synchronous chip a Fal::MrouteSwitch and
// a Fal::MrouteSwitchSm; per asynchronous chip an AsyncReferenceChip face, a
// Fal::Mroute::AsyncMrouteSwitch and its AsyncMrouteSwitchSm (with its
// zombie and aging clocks); and the route programmer with its OIF-set
// registry, driving every chip in chip order.
//
// Asynchronous groups take the scenario's zombie lifetime when they are made
// (0 with zombies disabled), as an agent configured with it would set them;
// a change of the lifetime applies to groups made afterwards.
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
// entered, resurrected and expired (of either flavour), table-full episodes
// (a free flag going false) and asynchronous aging slices (an aging clock
// firing).
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
#include "async/AsyncMrouteSwitch.h"
#include "async/AsyncMrouteSwitchSm.h"
#include "platform/fib/routing/RouteStatus.h"
#include "sim/AsyncReferenceChip.h"
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
    // Asynchronous chips only (their share of the zombie figures above).
    std::uint64_t groupsResurrected = 0;
    std::uint64_t groupsPurged = 0;
    std::uint64_t agingSlices = 0;  // aging clock expiries
    // The same, by chip.
    std::vector<std::array<std::uint64_t, 3>> tableFullEpisodesByChip;
  };

  struct RecoveryFigures {
    std::size_t routesRecovered = 0;  // route statuses RecoverySm rebuilt
    std::size_t vrfsRecovered = 0;
    std::size_t staleEntriesCleared = 0;  // routes, boundaries and replication entries of the old agent
  };

  // Makes each incarnation's hook object; a plain ChipLink when empty.
  using LinkFactory = std::function<Vex::Ptr<ChipLink>(Vex::Ptr<ReferenceChip> const&)>;
  // Makes each incarnation's face of one asynchronous chip; a plain
  // AsyncReferenceChip when empty.
  using AsyncChipFactory = std::function<Vex::Ptr<AsyncReferenceChip>(ReferenceChipTables& tables, std::uint32_t chip)>;

  // Sets the platform entities up from the scenario; start() brings the agent up.
  SimAgent(Scenario const& scenario, Vex::Ptr<ReferenceChip> chip, LinkFactory linkFactory = {},
           AsyncChipFactory asyncChipFactory = {});
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
  // Chips, numbered as the reference chips are; each has the objects of its flavour.
  std::size_t switches() const { return chips_; }
  Scenario::Flavour flavour(std::size_t chip) const { return flavours_[chip]; }
  bool async(std::size_t chip) const { return flavours_[chip] == Scenario::Flavour::async; }
  // A synchronous chip's switch and state machine.
  Fal::MrouteSwitch& switchAt(std::size_t i) const;
  Fal::MrouteSwitchSm& switchSmAt(std::size_t i) const;
  // An asynchronous chip's face, switch and state machine.
  AsyncReferenceChip& asyncChipAt(std::size_t i) const;
  Fal::Mroute::AsyncMrouteSwitch& asyncSwitchAt(std::size_t i) const;
  Fal::Mroute::AsyncMrouteSwitchSm& asyncSwitchSmAt(std::size_t i) const;
  ChipLink& link() const { return *incarnation_->link; }
  // The asynchronous faces' figures, and the route programmer's about
  // asynchronous chips, over every incarnation.
  AsyncReferenceChip::Statistics asyncStatistics() const;
  // One chip's (zero for a synchronous chip), and its transactions not yet completed.
  AsyncReferenceChip::Statistics asyncStatistics(std::uint32_t chip) const;
  std::size_t pendingTransactions(std::uint32_t chip) const;
  Vex::Seconds longestWait() const;
  std::uint64_t groupsShared() const;
  // The chips' VRFs and their ids, as the asynchronous switches read them.
  Routing::Hardware::RouteStatus const& routingHwRouteStatus() const { return *routingHwRouteStatus_; }
  // Aging counts of every incarnation's link, over every chip and of one chip.
  ChipLink::AgingCounts agingCounts() const;
  ChipLink::AgingCounts agingCounts(std::uint32_t chip) const;
  std::uint64_t counterReads() const;
  // Whether some chip still has OIF sets waiting for their fast-reroute
  // rewrite, or (asynchronous) a rewrite's transaction outstanding.
  bool frrPending() const;
  // Runs the loop until no chip has: the review passes run, and time moves
  // on to outstanding rewrite transactions. Stops early when sets wait with
  // no pass scheduled to rewrite them (frrPending() still says so).
  // afterTurn, when given, is called after each turn of the loop.
  void frrSettle(std::function<void()> const& afterTurn = {});

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
  // For a process that ends without taking the agent down: withdraws the
  // published counter status as the agent's end would (its readers see the
  // table closed, the name goes). The agent's counter status must not be
  // used after.
  void counterStatusWithdraw();
  Fal::VerifyData& verifyData() const { return *verifyData_; }

  // Tells every chip's state machine that routes changed, as the route
  // owner does after a batch: route-table room and aging are reviewed.
  void routesChanged() { l3MulticastRequest_->multicastReviewPendingInc(); }
  void zombieLifetimeIs(Vex::Seconds s);
  Vex::Seconds zombieLifetime() const { return zombieLifetime_; }

 private:
  class ChipWatch;
  class AsyncChipWatch;
  class AgingClockWatch;
  // By chip number; a chip's entries of the other flavour stay null.
  struct Incarnation {
    Vex::Ptr<ChipLink> link;
    Vex::Ptr<MrouteLib::OifSetRegistry> registry;
    Vex::Ptr<Fal::MrouteSm> sm;
    std::vector<Vex::Ptr<Fal::MrouteSwitch>> switches;
    std::vector<Vex::Ptr<Fal::MrouteSwitchSm>> switchSms;
    std::vector<Vex::Ptr<AsyncReferenceChip>> asyncChips;
    std::vector<Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch>> asyncSwitches;
    std::vector<Vex::Ptr<Fal::Mroute::AsyncMrouteSwitchSm>> asyncSwitchSms;
    std::vector<std::unique_ptr<ChipWatch>> watches;
    std::vector<std::unique_ptr<AsyncChipWatch>> asyncWatches;
    std::vector<std::unique_ptr<AgingClockWatch>> agingWatches;
    Vex::Ptr<MrouteLib::RouteProgrammer> programmer;
  };

  // chipsSurvive: the process dies without a word to the chips (a restart).
  void stop(bool chipsSurvive = true);
  bool frrUpdatesPending() const;
  Vex::Ptr<HwStatus> newHwStatus(Netcore::AddressFamily af) const;
  std::size_t clearStaleChipState();
  void startSync(Incarnation& inc, std::uint32_t id);
  void startAsync(Incarnation& inc, std::uint32_t id);
  // The lifetime asynchronous groups take when they are made.
  Vex::Seconds asyncZombieLifetime() const;

  Vex::Ptr<ReferenceChip> chip_;
  LinkFactory linkFactory_;
  AsyncChipFactory asyncChipFactory_;
  std::vector<Scenario::Flavour> flavours_;
  Vex::Seconds transactionLatency_;
  std::uint64_t seed_;
  Vex::Ptr<Routing::Hardware::RouteStatus> routingHwRouteStatus_;
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
  // Aging counts of the incarnations that have gone, by chip.
  std::vector<ChipLink::AgingCounts> pastAging_;
  std::uint64_t pastCounterReads_ = 0;
  std::vector<AsyncReferenceChip::Statistics> pastAsync_;  // by chip
  Vex::Seconds pastLongestWait_ = 0;
  std::uint64_t pastGroupsShared_ = 0;
  Counts counts_;
  Vex::Seconds zombieLifetime_;
  std::uint32_t chips_;
  std::size_t incarnations_ = 0;
};

}  // namespace FalSim
