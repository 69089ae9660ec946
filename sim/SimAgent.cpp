#include "sim/SimAgent.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "recovery/RecoverySm.h"
#include "sync/MtableOifSet.h"

namespace FalSim {

using Netcore::AddressFamily;
using Table = ReferenceChip::Table;

// Counts a switch's zombies and full tables from its own notifications.
class SimAgent::ChipWatch final : public Fal::MrouteSwitch::Notifiee {
 public:
  ChipWatch(Vex::Ptr<Fal::MrouteSwitch> const& sw, std::uint32_t chip, Counts& counts)
      : sw_(sw.get()), chip_(chip), counts_(counts) {
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
    if (free) return;
    ++counts_.tableFullEpisodes[static_cast<std::size_t>(table)];
    ++counts_.tableFullEpisodesByChip[chip_][static_cast<std::size_t>(table)];
  }

  Fal::MrouteSwitch const* sw_;  // not owned: the watch goes before its switch
  std::uint32_t chip_;
  Counts& counts_;
};

// Counts an asynchronous switch's zombies from its own notifications, and
// gives its new groups the agent's zombie lifetime.
class SimAgent::AsyncChipWatch final : public Fal::Mroute::AsyncMrouteSwitch::Notifiee {
 public:
  AsyncChipWatch(Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch> const& sw, SimAgent& agent) : sw_(sw.get()), agent_(agent) {
    notifierIs(Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch const>(sw.get()));
  }

  void onInUseOifSet(MrouteLib::OifSet const* oifSet) override {
    auto* set = sw_->inUseOifSet(oifSet);
    if (set && !set->usedInHw() && !set->isZombie()) set->zombieLifetimeIs(agent_.asyncZombieLifetime());
  }

  void onZombieOifSet(Fal::Mroute::ZombieKey const& key) override {
    // Groups that reach no port share the chip's entry kept outside the
    // table; they hold nothing of their own to reuse.
    if (ReferenceChipTables::noPortIndex(key.multicastId)) return;
    Counts& counts = agent_.counts_;
    if (sw_->zombieOifSet().contains(key)) {
      ++counts.zombiesEntered;
      return;
    }
    if (sw_->deleted()) return;
    if (key.expiryTime <= Vex::ActivityManager::current()->now()) {
      ++counts.zombieExpiries;
      ++counts.groupsPurged;
    } else {
      ++counts.zombieReuses;
      ++counts.groupsResurrected;
    }
  }

 private:
  Fal::Mroute::AsyncMrouteSwitch const* sw_;  // not owned: the watch goes before its switch
  SimAgent& agent_;
};

// Counts the slices of an asynchronous aging review: each expiry of its clock.
class SimAgent::AgingClockWatch final : public Vex::Clock::Notifiee {
 public:
  AgingClockWatch(Vex::Ptr<Vex::Clock> const& clock, Counts& counts) : counts_(counts) { notifierIs(clock); }
  void onTime() override { ++counts_.agingSlices; }

 private:
  Counts& counts_;
};

SimAgent::SimAgent(Scenario const& scenario, Vex::Ptr<ReferenceChip> chip, LinkFactory linkFactory,
                   AsyncChipFactory asyncChipFactory)
    : chip_(std::move(chip)),
      linkFactory_(std::move(linkFactory)),
      asyncChipFactory_(std::move(asyncChipFactory)),
      transactionLatency_(scenario.chips.transactionLatency),
      seed_(scenario.chips.seed),
      routingHwRouteStatus_(Vex::make<Routing::Hardware::RouteStatus>()),
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
  counts_.tableFullEpisodesByChip.resize(chips_);
  pastAging_.resize(chips_);
  pastAsync_.resize(chips_);
  ipStatus_->ipv4RoutingEnabledIs(true);
  ipStatus_->ipv6RoutingEnabledIs(true);
  l3Status_->mrouteZombieEnabledIs(scenario.zombiesEnabled);
  for (std::uint32_t c = 0; c < chips_; ++c) flavours_.push_back(scenario.chips.flavourOf(c));
  for (auto const& vrf : scenario.vrfs) {
    routingHwRouteStatus_->vrfStatusIs(vrf.name, vrf.id);
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
  inc->switches.resize(chips_);
  inc->switchSms.resize(chips_);
  inc->asyncChips.resize(chips_);
  inc->asyncSwitches.resize(chips_);
  inc->asyncSwitchSms.resize(chips_);
  for (std::uint32_t id = 0; id < chips_; ++id) {
    if (async(id)) {
      startAsync(*inc, id);
    } else {
      startSync(*inc, id);
    }
  }
  inc->programmer = Vex::make<MrouteLib::RouteProgrammer>(inc->registry, hwStatus_, hw6Status_);
  for (std::uint32_t id = 0; id < chips_; ++id) {
    if (async(id)) {
      inc->programmer->switchChipIs(inc->asyncSwitches[id], routingHwRouteStatus_);
    } else {
      inc->programmer->switchChipIs(inc->switches[id]);
    }
  }
  incarnation_ = std::move(inc);
  hwStatus_->hwRoutingIs(true);
}

void SimAgent::startSync(Incarnation& inc, std::uint32_t id) {
  auto sw = Fal::mrouteSwitchFactory(id, acsd_, l3Status_, inc.link, ipStatus_, hwStatus_, hw6Status_);
  sw->zombieLifetimeIs(zombieLifetime_);
  auto sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(id, acsd_, l3Status_, sw, intfVlanIdTable_, vrfConfig_, vrf6Config_,
                                                  hwStatus_, hw6Status_, inc.link, nullptr, nullptr, ethIntfStatusDir_,
                                                  allIntfStatusDir_, allIntfStatusLocalDir_, false, nullptr, nullptr);
  sm->vex_L3MulticastRequestInIs(l3MulticastRequest_);
  inc.watches.push_back(std::make_unique<ChipWatch>(sw, id, counts_));
  inc.switches[id] = std::move(sw);
  inc.switchSms[id] = std::move(sm);
}

void SimAgent::startAsync(Incarnation& inc, std::uint32_t id) {
  auto face = asyncChipFactory_ ? asyncChipFactory_(*chip_, id)
                                : Vex::make<AsyncReferenceChip>("FalSim::AsyncReferenceChip", *chip_, id);
  face->latencyIs(transactionLatency_);
  face->seedIs(seed_ + id);
  auto sw = Fal::Mroute::asyncMrouteSwitchFactory(Vex::Name("chip" + std::to_string(id)), routingHwRouteStatus_, face);
  auto* am = Vex::ActivityManager::current();
  auto agingClock = am->clockNew();
  auto agingClock6 = am->clockNew();
  inc.agingWatches.push_back(std::make_unique<AgingClockWatch>(agingClock, counts_));
  inc.agingWatches.push_back(std::make_unique<AgingClockWatch>(agingClock6, counts_));
  inc.asyncWatches.push_back(std::make_unique<AsyncChipWatch>(sw, *this));
  inc.asyncSwitchSms[id] = Vex::make<Fal::Mroute::AsyncMrouteSwitchSm>(
      sw, intfVlanIdTable_, vrfConfig_, vrf6Config_, hwStatus_, hw6Status_, face, am->clockNew(), agingClock, agingClock6,
      ethIntfStatusDir_, allIntfStatusDir_, allIntfStatusLocalDir_);
  inc.asyncChips[id] = std::move(face);
  inc.asyncSwitches[id] = std::move(sw);
}

Vex::Seconds SimAgent::asyncZombieLifetime() const { return l3Status_->mrouteZombieEnabled() ? zombieLifetime_ : 0.0; }

Fal::MrouteSwitch& SimAgent::switchAt(std::size_t i) const {
  VEX_ASSERT_MSG(incarnation_->switches[i], "chip " + std::to_string(i) + " is not a synchronous chip");
  return *incarnation_->switches[i];
}

Fal::MrouteSwitchSm& SimAgent::switchSmAt(std::size_t i) const {
  VEX_ASSERT_MSG(incarnation_->switchSms[i], "chip " + std::to_string(i) + " is not a synchronous chip");
  return *incarnation_->switchSms[i];
}

AsyncReferenceChip& SimAgent::asyncChipAt(std::size_t i) const {
  VEX_ASSERT_MSG(incarnation_->asyncChips[i], "chip " + std::to_string(i) + " is not an asynchronous chip");
  return *incarnation_->asyncChips[i];
}

Fal::Mroute::AsyncMrouteSwitch& SimAgent::asyncSwitchAt(std::size_t i) const {
  VEX_ASSERT_MSG(incarnation_->asyncSwitches[i], "chip " + std::to_string(i) + " is not an asynchronous chip");
  return *incarnation_->asyncSwitches[i];
}

Fal::Mroute::AsyncMrouteSwitchSm& SimAgent::asyncSwitchSmAt(std::size_t i) const {
  VEX_ASSERT_MSG(incarnation_->asyncSwitchSms[i], "chip " + std::to_string(i) + " is not an asynchronous chip");
  return *incarnation_->asyncSwitchSms[i];
}

AsyncReferenceChip::Statistics SimAgent::asyncStatistics() const {
  AsyncReferenceChip::Statistics total;
  for (std::uint32_t c = 0; c < chips_; ++c) total += asyncStatistics(c);
  return total;
}

AsyncReferenceChip::Statistics SimAgent::asyncStatistics(std::uint32_t chip) const {
  AsyncReferenceChip::Statistics stats = pastAsync_[chip];
  if (incarnation_ && incarnation_->asyncChips[chip]) stats += incarnation_->asyncChips[chip]->statistics();
  return stats;
}

std::size_t SimAgent::pendingTransactions(std::uint32_t chip) const {
  if (!incarnation_ || !incarnation_->asyncChips[chip]) return 0;
  return incarnation_->asyncChips[chip]->pendingTransactions();
}

Vex::Seconds SimAgent::longestWait() const {
  return std::max(pastLongestWait_, incarnation_ ? incarnation_->programmer->longestWait() : 0.0);
}

std::uint64_t SimAgent::groupsShared() const {
  return pastGroupsShared_ + (incarnation_ ? incarnation_->programmer->groupsShared() : 0);
}

void SimAgent::stop(bool chipsSurvive) {
  if (!incarnation_) return;
  auto& inc = *incarnation_;
  // A fast-reroute pass cut short keeps a process-wide resume point: let it finish first.
  frrSettle();
  for (std::uint32_t c = 0; c < chips_; ++c) pastAging_[c] += inc.link->agingCounts(c);
  pastCounterReads_ += inc.link->counterReads();
  for (std::uint32_t c = 0; c < chips_; ++c) {
    if (inc.asyncChips[c]) pastAsync_[c] += inc.asyncChips[c]->statistics();
  }
  pastLongestWait_ = std::max(pastLongestWait_, inc.programmer->longestWait());
  pastGroupsShared_ += inc.programmer->groupsShared();
  if (chipsSurvive) {
    inc.link->cut();
    for (auto const& face : inc.asyncChips) {
      if (face) face->cut();
    }
  }
  inc.watches.clear();
  inc.asyncWatches.clear();
  inc.agingWatches.clear();
  inc.programmer = nullptr;
  // Each state machine goes before its switch.
  inc.switchSms.clear();
  inc.asyncSwitchSms.clear();
  inc.switches.clear();
  inc.asyncSwitches.clear();
  inc.asyncChips.clear();
  inc.link->mrouteSmIs(nullptr);
  inc.sm = nullptr;
  incarnation_.reset();
}

void SimAgent::counterStatusWithdraw() {
  if (counterStatus_) counterStatus_->control()->mappingDel();
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
  ChipLink::AgingCounts total;
  for (std::uint32_t c = 0; c < chips_; ++c) total += agingCounts(c);
  return total;
}

ChipLink::AgingCounts SimAgent::agingCounts(std::uint32_t chip) const {
  ChipLink::AgingCounts counts = pastAging_[chip];
  if (incarnation_) counts += incarnation_->link->agingCounts(chip);
  return counts;
}

std::uint64_t SimAgent::counterReads() const {
  return pastCounterReads_ + (incarnation_ ? incarnation_->link->counterReads() : 0);
}

bool SimAgent::frrPending() const {
  if (!incarnation_) return false;
  for (auto const& sw : incarnation_->switches) {
    if (sw && sw->frrProcessingOifSet().size() > 0) return true;
  }
  for (auto const& sw : incarnation_->asyncSwitches) {
    if (sw && sw->frrProcessingOifSet().size() > 0) return true;
  }
  return frrUpdatesPending();
}

bool SimAgent::frrUpdatesPending() const {
  if (!incarnation_) return false;
  for (auto const& face : incarnation_->asyncChips) {
    if (face && face->updatesPending() > 0) return true;
  }
  return false;
}

void SimAgent::frrSettle(std::function<void()> const& afterTurn) {
  auto* am = Vex::ActivityManager::current();
  while (am && frrPending()) {
    if (am->runOnce()) {
      if (afterTurn) afterTurn();
      continue;
    }
    // Only an outstanding rewrite transaction lets time move on: a set queued
    // with no review pass scheduled would wait for ever.
    if (!frrUpdatesPending()) return;
    am->runUntil(am->nextTime());
    if (afterTurn) afterTurn();
  }
}

void SimAgent::zombieLifetimeIs(Vex::Seconds s) {
  zombieLifetime_ = s;
  if (!incarnation_) return;
  for (auto const& sw : incarnation_->switches) {
    if (sw) sw->zombieLifetimeIs(s);
  }
}

}  // namespace FalSim
