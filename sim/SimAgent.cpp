#include "sim/SimAgent.h"

#include <set>
#include <tuple>

#include "platform/vex/ActivityManager.h"
#include "recovery/RecoverySm.h"
#include "sync/MtableOifSet.h"

namespace FalSim {

using Netcore::AddressFamily;
using Table = ReferenceChip::Table;

// Counts a switch's zombies and full tables from its own notifications.
class SimAgent::ChipWatch final : public Fal::MrouteSwitch::Notifiee {
 public:
  ChipWatch(Vex::Ptr<Fal::MrouteSwitch> const& sw, Counts& counts) : sw_(sw.get()), counts_(counts) {
    notifierIs(Vex::Ptr<MrouteLib::SwitchChip const>(sw.get()));
  }

  void onMtableFree() override { episode(sw_->mtableFree(), Table::replication); }
  void onMrouteTcamFree() override { episode(sw_->mrouteTcamFree(), Table::route); }
  void onBoundaryTcamFree() override { episode(sw_->boundaryTcamFree(), Table::boundary); }

  void onZombieOifSet(Fal::ZombieKey const& key) override {
    // Sets that reach no port all hold one of the chip's shared entries; two
    // freed at the same instant share a key too. They hold no entry of their
    // own to reuse, so they are not counted.
    if (key.groupId == ReferenceChip::kNowhereIndex || key.groupId == ReferenceChip::kCpuOnlyIndex) return;
    if (sw_->zombieOifSet().contains(key)) {
      ++counts_.zombiesEntered;
      return;
    }
    // Gone: its lifetime ran out, or a route took it back before that. A
    // switch being torn down releases its zombies as neither.
    if (sw_->deleted()) return;
    if (key.expiryTime <= Vex::ActivityManager::current()->now()) {
      ++counts_.zombieExpiries;
    } else {
      ++counts_.zombieReuses;
    }
  }

 private:
  void episode(bool free, Table table) {
    if (!free) ++counts_.tableFullEpisodes[static_cast<std::size_t>(table)];
  }

  Fal::MrouteSwitch const* sw_;  // not owned: the watch goes before its switch
  Counts& counts_;
};

SimAgent::SimAgent(Scenario const& scenario, Vex::Ptr<ReferenceChip> chip, LinkFactory linkFactory)
    : chip_(std::move(chip)),
      linkFactory_(std::move(linkFactory)),
      verifyData_(Vex::make<Fal::VerifyData>(false)),
      acsd_(Vex::make<Fal::FalCommonSmData>(verifyData_)),
      l3Status_(Vex::make<Fal::L3Status>()),
      l3MulticastRequest_(Vex::make<Fal::L3MulticastRequest>()),
      vrfConfig_(Vex::make<Routing::Multicast::Fib::VrfConfig>()),
      vrf6Config_(Vex::make<Routing::Multicast::Fib::VrfConfig>()),
      vrfEnabledStatus_(Vex::make<Routing::Multicast::Fib::VrfEnabledStatus>()),
      ipStatus_(Vex::make<Ip::Status>()),
      intfVlanIdTable_(Vex::make<IntfVlanId::Table>()),
      ethIntfStatusDir_(Vex::make<Interface::EthIntfStatusDir>()),
      allIntfStatusDir_(Vex::make<Interface::AllIntfStatusDir>()),
      allIntfStatusLocalDir_(Vex::make<Interface::AllIntfStatusLocalDir>()),
      zombieLifetime_(scenario.zombieLifetime),
      chips_(scenario.chips.count) {
  ipStatus_->ipv4RoutingEnabledIs(true);
  ipStatus_->ipv6RoutingEnabledIs(true);
  l3Status_->mrouteZombieEnabledIs(scenario.zombiesEnabled);
  for (auto const& vrf : scenario.vrfs) {
    l3Status_->vrfIs(vrf.name, vrf.id);
    vrfEnabledStatus_->vrfIs(vrf.name);
    vrfConfig_->configIs(vrf.name);
    vrf6Config_->configIs(vrf.name);
  }
  for (auto* config : {vrfConfig_.get(), vrf6Config_.get()}) {
    config->activityPollingIntervalIs(scenario.activityPollingInterval);
    config->counterModeIs(scenario.counterMode);
  }
  vrfConfig_->allCounterIs(scenario.allCounter);
  for (auto const& v : scenario.vlans) {
    intfVlanIdTable_->mappingIs(v.intf, v.vlan);
    allIntfStatusDir_->intfStatusIs(v.intf)->operStatusIs(Interface::intfOperUp);
    allIntfStatusLocalDir_->intfStatusIs(v.intf)->operStatusIs(Interface::intfOperUp);
  }
  for (auto const& eth : scenario.ethernet) {
    ethIntfStatusDir_->intfStatusIs(eth)->operStatusIs(Interface::intfOperUp);
    allIntfStatusDir_->intfStatusIs(eth)->operStatusIs(Interface::intfOperUp);
    allIntfStatusLocalDir_->intfStatusIs(eth)->operStatusIs(Interface::intfOperUp);
  }
  hwStatus_ = newHwStatus(AddressFamily::ipv4);
  hw6Status_ = newHwStatus(AddressFamily::ipv6);
  acsd_->initializedIs(true);
}

SimAgent::~SimAgent() { stop(); }

Vex::Ptr<SimAgent::HwStatus> SimAgent::newHwStatus(AddressFamily af) const {
  auto status = Vex::make<HwStatus>(af);
  status->enabledIs(true);
  return status;
}

void SimAgent::start() {
  if (incarnation_) return;
  ++incarnations_;
  auto inc = std::make_unique<Incarnation>();
  inc->link = linkFactory_ ? linkFactory_(chip_) : Vex::make<ChipLink>("FalSim::ChipLink", chip_);
  inc->registry = Vex::make<MrouteLib::OifSetRegistry>();
  // The published counters belong to the agent that publishes them: a new
  // one starts an empty table and counts from there.
  counterStatus_ = counterStatusName_.empty()
                       ? Vex::make<Routing::Multicast::Fib::CounterStatus>()
                       : Vex::make<Routing::Multicast::Fib::CounterStatus>(
                             Memtab::CollectionControl::collectionControlIs(counterStatusName_, Memtab::Mode::writer));
  counterStatusCtl_ = Vex::make<Routing::Multicast::Fib::CounterStatusCtl>(counterStatus_);
  // Routing comes up once the state machine and the counter status are
  // wired, so that the counters made when it comes up are published.
  hwStatus_->hwRoutingIs(false);
  inc->sm = Fal::MrouteSmIs(acsd_, l3Status_, vrfConfig_, hwStatus_, ipStatus_, inc->link, vrfEnabledStatus_);
  inc->sm->mfibCounterStatusIs(counterStatus_);
  inc->sm->mfibCounterStatusCtlIs(counterStatusCtl_);
  inc->link->mrouteSmIs(inc->sm);
  for (std::uint32_t id = 0; id < chips_; ++id) {
    auto sw = Fal::mrouteSwitchFactory(id, acsd_, l3Status_, inc->link, ipStatus_, hwStatus_, hw6Status_);
    sw->zombieLifetimeIs(zombieLifetime_);
    auto sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(id, acsd_, l3Status_, sw, intfVlanIdTable_, vrfConfig_, vrf6Config_,
                                                    hwStatus_, hw6Status_, inc->link, nullptr, nullptr, ethIntfStatusDir_,
                                                    allIntfStatusDir_, allIntfStatusLocalDir_, false, nullptr, nullptr);
    sm->vex_L3MulticastRequestInIs(l3MulticastRequest_);
    inc->watches.push_back(std::make_unique<ChipWatch>(sw, counts_));
    inc->switches.push_back(std::move(sw));
    inc->switchSms.push_back(std::move(sm));
  }
  inc->programmer = Vex::make<MrouteLib::RouteProgrammer>(inc->registry, hwStatus_, hw6Status_);
  for (auto const& sw : inc->switches) inc->programmer->switchChipIs(sw);
  incarnation_ = std::move(inc);
  hwStatus_->hwRoutingIs(true);
}

void SimAgent::stop(bool chipsSurvive) {
  if (!incarnation_) return;
  auto& inc = *incarnation_;
  // A fast-reroute pass cut short keeps a process-wide resume point: let it finish first.
  auto* am = Vex::ActivityManager::current();
  while (am && frrPending() && am->runOnce()) {
  }
  auto const aging = inc.link->agingCounts();
  pastAging_.refreshes += aging.refreshes;
  pastAging_.clears += aging.clears;
  pastAging_.reads += aging.reads;
  pastAging_.hits += aging.hits;
  pastCounterReads_ += inc.link->counterReads();
  if (chipsSurvive) inc.link->cut();
  inc.watches.clear();
  inc.programmer = nullptr;
  inc.switchSms.clear();
  inc.switches.clear();
  inc.link->mrouteSmIs(nullptr);
  inc.sm = nullptr;
  incarnation_.reset();
}

SimAgent::RecoveryFigures SimAgent::restart() {
  RecoveryFigures figures;
  stop();
  // What the old agent published about the hardware died with it.
  hwStatus_ = newHwStatus(AddressFamily::ipv4);
  hw6Status_ = newHwStatus(AddressFamily::ipv6);
  auto recovery4 = Fal::Mroute::recoverySmFactory(l3Status_, intfVlanIdTable_, vrfEnabledStatus_, hwStatus_);
  auto recovery6 = Fal::Mroute::recoverySmFactory(l3Status_, intfVlanIdTable_, vrfEnabledStatus_, hw6Status_);
  recovery4->doAddMfibHwVrfStatus();
  recovery6->doAddMfibHwVrfStatus();
  for (std::uint32_t c = 0; c < chip_->chips(); ++c) {
    for (auto const& [handle, r] : chip_->routes(c)) {
      auto& recovery = r.key.af() == AddressFamily::ipv6 ? recovery6 : recovery4;
      recovery->doAddMfibHwStatusEntry(r.vrfId, r.key, r.acceptingVlan);
    }
  }
  for (auto const* status : {hwStatus_.get(), hw6Status_.get()}) {
    figures.routesRecovered += status->routes();
    for (auto it = status->vrfStatusIterator(); !it.done(); ++it) {
      if (it.value()->routeSize() > 0) ++figures.vrfsRecovered;
    }
  }
  figures.staleEntriesCleared = clearStaleChipState();
  start();
  return figures;
}

// The chip agent's warm start: whatever the old agent programmed goes, so
// the new one programs from a clean table.
std::size_t SimAgent::clearStaleChipState() {
  std::size_t cleared = 0;
  for (std::uint32_t c = 0; c < chip_->chips(); ++c) {
    std::vector<std::pair<MrouteLib::RouteHandle, std::uint16_t>> routes, boundaries;
    for (auto const& [h, r] : chip_->routes(c)) routes.emplace_back(h, r.vrfId);
    for (auto const& [h, b] : chip_->boundaries(c)) boundaries.emplace_back(h, b.vrfId);
    std::vector<std::uint32_t> entries;
    for (auto const& [index, e] : chip_->replicationEntries(c)) entries.push_back(index);
    for (auto const& [h, vrfId] : routes) chip_->doDeleteMroute(c, vrfId, h, nullptr);
    for (auto const& [h, vrfId] : boundaries) chip_->doDeleteMrouteBoundary(c, vrfId, h, nullptr);
    for (std::uint32_t index : entries) {
      // A stand-in record naming the entry; it belongs to no switch.
      auto set = Fal::mtableOifSetFactory(nullptr, false, nullptr);
      set->oifSetIndexIs(index);
      chip_->handleFreeMtableOifSet(c, set);
    }
    cleared += routes.size() + boundaries.size() + entries.size();
  }
  return cleared;
}

ChipLink::AgingCounts SimAgent::agingCounts() const {
  ChipLink::AgingCounts total = pastAging_;
  if (incarnation_) {
    auto const& now = incarnation_->link->agingCounts();
    total.refreshes += now.refreshes;
    total.clears += now.clears;
    total.reads += now.reads;
    total.hits += now.hits;
  }
  return total;
}

std::uint64_t SimAgent::counterReads() const {
  return pastCounterReads_ + (incarnation_ ? incarnation_->link->counterReads() : 0);
}

bool SimAgent::frrPending() const {
  if (!incarnation_) return false;
  for (auto const& sw : incarnation_->switches) {
    if (sw->frrProcessingOifSet().size() > 0) return true;
  }
  return false;
}

void SimAgent::zombieLifetimeIs(Vex::Seconds s) {
  zombieLifetime_ = s;
  if (!incarnation_) return;
  for (auto const& sw : incarnation_->switches) sw->zombieLifetimeIs(s);
}

}  // namespace FalSim
