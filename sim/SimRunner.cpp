#include "sim/SimRunner.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>

#include "absl/container/flat_hash_set.h"
#include "platform/intf/IntfOperStatus.h"
#include "sim/KernelChipLink.h"
#include "sim/LookAhead.h"
#include "sim/Printable.h"
#include "sim/RouteFailure.h"

namespace FalSim {

namespace {

using EventKind = Scenario::EventKind;
using Routing::Multicast::Fib::IpGenRouteKey;

// How many flows ahead a set's traffic fetches the chip's index slot.
constexpr std::size_t kFlowLookAhead = 8;

std::string copiesText(std::vector<MrouteLib::PortVlan> const& copies) {
  std::string out = "[";
  for (std::size_t i = 0; i < copies.size(); ++i) out += (i ? ", " : "") + copies[i].stringValue();
  return out + "]";
}

}  // namespace

SimRunner::SimRunner(Scenario scenario) : SimRunner(std::move(scenario), Options()) {}

Vex::Seconds SimRunner::sampleInterval(Scenario const& scenario, Vex::Seconds override) {
  if (override > 0) return override;
  return scenario.sampleInterval ? *scenario.sampleInterval : RunSampler::autoInterval(scenario.end);
}

Netcore::IpGenAddr SimRunner::flowSource(Routing::Multicast::Fib::IpGenRouteKey const& key,
                                         Netcore::IpGenAddr const& setSource) {
  Netcore::IpGenPrefix const& prefix = key.source();
  if (setSource.af() == key.af() && prefix.contains(setSource)) return setSource;
  bool const v6 = key.af() == Netcore::AddressFamily::ipv6;
  if (prefix.len() == 0) return Netcore::IpGenAddr(v6 ? "2001:db8::1" : "192.0.2.1");
  if (prefix.isHost()) return prefix.address();
  if (!v6) return Netcore::IpGenAddr::v4(prefix.address().v4Addr() | 1U);
  auto bytes = prefix.address().bytes();
  bytes[15] |= 1U;
  return Netcore::IpGenAddr::v6(bytes);
}

SimRunner::SimRunner(Scenario scenario, Options options)
    : scenario_(std::move(scenario)),
      options_(std::move(options)),
      am_(std::make_unique<Vex::VirtualTimeSource>(kEpoch)) {}

SimRunner::~SimRunner() {
  sampler_.reset();
  // The agent's clocks and reactors go before the loop they are armed on,
  // and its links before the kernel chips they reach.
  agent_.reset();
  kernel_.reset();
}

SimReport SimRunner::run() {
  start();
  while (step()) {
  }
  finish();
  return report_;
}

void SimRunner::start() {
  if (started_) return;
  started_ = true;
  wallStart_ = lastProgress_ = wallNow();
  report_.scenario = scenario_.name;
  report_.description = scenario_.description;
  report_.chips = scenario_.chips.count;
  chip_ = options_.chipFactory ? options_.chipFactory("FalSim::ReferenceChip", scenario_.chips.count, scenario_.chips.capacity)
                               : Vex::make<ReferenceChip>("FalSim::ReferenceChip", scenario_.chips.count,
                                                          scenario_.chips.capacity);
  chip_->operationCostIs(scenario_.chips.operationCost);
  SimAgent::LinkFactory linkFactory;
  if (scenario_.chips.kernel) {
    kernel_ = std::make_unique<KernelBacking>(scenario_.chips.count);
    linkFactory = [this](Vex::Ptr<ReferenceChip> const& chip) -> Vex::Ptr<ChipLink> {
      kernel_->clearStale();
      return Vex::make<KernelChipLink>("FalSim::KernelChipLink", chip, *kernel_);
    };
  }
  agent_ = std::make_unique<SimAgent>(scenario_, chip_, std::move(linkFactory), options_.asyncChipFactory);
  agent_->counterStatusNameIs(options_.counterStatusName);
  agent_->start();
  am_.runUntil(am_.now());
  check("start");
  sampler_ = std::make_unique<RunSampler>(am_, kEpoch, sampleInterval(scenario_, options_.sampleInterval),
                                          options_.sampleCapacity, *agent_, *chip_);
}

bool SimRunner::step() {
  if (!started_) start();
  if (next_ >= scenario_.events.size()) return false;
  runEvent(scenario_.events[next_++]);
  return true;
}

void SimRunner::runEvent(Scenario::Event const& e) {
  if (!started_) start();
  ++report_.events;
  runTo(e.at);
  if (now() > e.at) ++report_.eventsLate;
  Vex::Seconds const before = am_.now();
  apply(e);
  Vex::Seconds const took = am_.now() - before;
  sampler_->eventDone(scenario_, e, before);
  if (report_.longestEventPath.empty() || took > report_.longestEvent) {
    report_.longestEvent = took;
    report_.longestEventPath = e.path + " " + eventKindName(e.kind);
  }
  check(e.path);
  progress(e.at);
}

void SimRunner::finish() {
  if (finished_) return;
  if (!started_) start();
  while (step()) {
  }
  finished_ = true;
  runTo(std::max(scenario_.end, now()));
  check("end");
  fillFigures();
  sampler_->finish();
  report_.timeline = sampler_->takeTimeline();
}

// ---- events ----

void SimRunner::apply(Scenario::Event const& e) {
  switch (e.kind) {
    case EventKind::addRoutes: {
      auto const& routes = scenario_.routeSets[e.set].routes;
      std::size_t const n = e.count.value_or(routes.size());
      for (std::size_t i = 0; i < n; ++i) addRoute(routes[i], true);
      endBatch();
      break;
    }
    case EventKind::removeRoutes: {
      auto const& routes = scenario_.routeSets[e.set].routes;
      std::size_t const n = e.count.value_or(routes.size());
      for (std::size_t i = 0; i < n; ++i) removeRoute(routes[i].vrfName(), routes[i].key());
      endBatch();
      break;
    }
    case EventKind::addRoute:
      // An event made on the fly (runEvent) is gone once it has run: only the scenario's own are kept by address.
      addRoute(e.route, !scenario_.events.empty() && std::less_equal<>()(&scenario_.events.front(), &e) &&
                            std::less_equal<>()(&e, &scenario_.events.back()));
      endBatch();
      break;
    case EventKind::removeRoute:
      removeRoute(e.vrf, e.key);
      endBatch();
      break;
    case EventKind::interfaceDown:
      interfaceDown(e.intf, e.path);
      break;
    case EventKind::interfaceUp:
      if (kernel_) kernel_->portOperIs(e.intf, true);
      if (auto status = agent_->ethIntfStatusDir().intfStatus(e.intf)) status->operStatusIs(Interface::intfOperUp);
      break;
    case EventKind::traffic:
      traffic(e);
      break;
    case EventKind::config:
      config(e.config);
      break;
    case EventKind::fault:
      fault(e.fault);
      break;
    case EventKind::restart:
      restart(e);
      break;
  }
}

void SimRunner::addRoute(MrouteLib::DesiredRoute const& route, bool kept) {
  kept ? desired_.kept(route) : desired_.copied(route);
  agent_->programmer().routeIs(route);
}

void SimRunner::removeRoute(L3::VrfName const& vrf, IpGenRouteKey const& key) {
  desired_.erase(vrf, key);
  agent_->programmer().routeDel(vrf, key);
}

void SimRunner::endBatch() {
  agent_->programmer().commit();
  agent_->routesChanged();
  report_.peakRoutesParked = std::max(report_.peakRoutesParked, agent_->programmer().routesParked());
}

void SimRunner::interfaceDown(Netcore::IntfId intf, std::string const& where) {
  auto status = agent_->ethIntfStatusDir().intfStatus(intf);
  if (!status) return;
  Vex::Seconds const failedAt = am_.now();
  if (kernel_) kernel_->portOperIs(intf, false);
  sampler_->failureBegin();
  status->operStatusIs(Interface::intfOperDown);
  // The review pass rewrites the protected sets in slices; converged when none is left.
  sampler_->observe();
  // A large rewrite can take a while in wall time too: progress between its turns.
  agent_->frrSettle([this] {
    sampler_->observe();
    progress(now());
  });
  Vex::Seconds const took = am_.now() - failedAt;
  if (agent_->frrPending()) {
    // Sets wait for a rewrite that no pass is scheduled to make.
    std::string waiting;
    for (std::size_t c = 0; c < agent_->switches(); ++c) {
      auto const n = agent_->async(c) ? agent_->asyncSwitchAt(c).frrProcessingOifSet().size()
                                      : agent_->switchAt(c).frrProcessingOifSet().size();
      if (n > 0) waiting += (waiting.empty() ? "chip " : ", chip ") + std::to_string(c) + ": " + std::to_string(n);
    }
    report_.violationIs(where + ": fast reroute did not converge: OIF sets still wait for their rewrite with no "
                        "review pass scheduled (" + waiting + ")");
  }
  ++report_.interfaceFailures;
  report_.lastConvergence = took;
  report_.longestConvergence = std::max(report_.longestConvergence, took);
}

void SimRunner::traffic(Scenario::Event const& e) {
  Scenario::Traffic const& t = e.traffic;
  struct Flow {
    L3::VrfName const& vrf;
    Netcore::IpGenAddr source;
    Netcore::IpGenAddr group;
    Bridging::VlanIdOrNone vlan;
  };
  std::vector<std::uint32_t> chips;
  if (t.chip) {
    chips.push_back(*t.chip);
  } else {
    for (std::uint32_t c = 0; c < scenario_.chips.count; ++c) chips.push_back(c);
  }
  // Each flow is sent as it is made: a set of a million routes makes a
  // million flows, which need not be held at once.
  auto send = [&](Flow const& f) {
    std::uint16_t const vrfId = static_cast<std::uint16_t>(scenario_.vrfId(f.vrf).value_or(0));
    for (std::uint32_t c : chips) {
      bool allForwarded = true;
      bool allDroppedAsExpected = true;
      ReferenceChip::ForwardResult first;
      // Its text only when something is said about it.
      auto flowText = [&] {
        std::ostringstream os;
        os << e.path << ": chip " << c << ": (" << f.source << ", " << f.group << ") on VLAN " << f.vlan;
        return os.str();
      };
      for (std::uint32_t p = 0; p < t.packets; ++p) {
        auto result = chip_->forwardWithReason(c, vrfId, f.source, f.group, f.vlan, t.bytes);
        if (kernel_) {
          kernel_->send(c, vrfId, f.vlan, f.source, f.group,
                        result.forwarded() ? result.copies : std::vector<MrouteLib::PortVlan>{}, flowText());
        }
        ++report_.packetsSent;
        if (result.forwarded()) {
          ++report_.packetsForwarded;
          report_.copies += result.copies.size();
        } else {
          ++report_.packetsDropped;
          allForwarded = false;
        }
        if (t.expectDropped && result.dropReason != *t.expectDropped) allDroppedAsExpected = false;
        if (p == 0) first = std::move(result);
      }
      auto expectation = [&](bool met, auto const& expected) {
        if (met) {
          ++report_.expectationsMet;
          return;
        }
        std::string const gave = first.forwarded() ? copiesText(first.copies)
                                                   : std::string("dropped (") + dropReasonName(first.dropReason) + ")";
        report_.expectationFailedIs(flowText() + " gave " + gave + ", expected " + expected());
      };
      if (t.expect) {
        std::vector<MrouteLib::PortVlan> copies = first.copies;
        std::sort(copies.begin(), copies.end());
        // A dropped packet gives no copies, but it is not forwarded to none.
        expectation(allForwarded && copies == *t.expect, [&] { return copiesText(*t.expect); });
      }
      if (t.expectForwarded) expectation(allForwarded, [] { return std::string("to be forwarded"); });
      if (t.expectDropped) {
        expectation(allDroppedAsExpected,
                    [&] { return std::string("to be dropped (") + dropReasonName(*t.expectDropped) + ")"; });
      }
    }
  };
  if (t.set) {
    auto const& routes = scenario_.routeSets[*t.set].routes;
    // At a million routes every packet's lookup reads a cold slot of the
    // chip's index: the slot of the route a few flows ahead is fetched while
    // this flow is sent (its packet, from inside the route's prefixes, probes
    // that slot for the route's own prefix lengths).
    LookAhead ahead(routes.begin(), routes.end(), kFlowLookAhead);
    for (auto const& r : routes) {
      if (auto const* later = ahead.next(); later && !later->bridge()) {
        auto const vrfId = static_cast<std::uint16_t>(scenario_.vrfId(later->vrfName()).value_or(0));
        for (std::uint32_t c : chips) chip_->routePrefetch(c, vrfId, later->key());
      }
      if (r.bridge()) continue;
      Netcore::IpGenAddr const source = flowSource(r.key(), t.setSource);
      Netcore::IpGenAddr const group = r.key().group().address();
      if (auto finding = InvariantChecker::flowFinding(r, source, group, t.setSource)) {
        report_.violationIs(e.path + ": " + *finding);
      }
      send({r.vrfName(), source, group, r.acceptingVlan()});
    }
  } else {
    send({t.vrf, t.source, t.group, t.vlan});
  }
  if (kernel_) {
    for (auto& finding : kernel_->check()) report_.expectationFailedIs(std::move(finding));
  }
}

void SimRunner::config(Scenario::Config const& c) {
  if (c.zombies) agent_->l3Status().mrouteZombieEnabledIs(*c.zombies);
  if (c.zombieLifetime) agent_->zombieLifetimeIs(*c.zombieLifetime);
  for (auto af : {Netcore::AddressFamily::ipv4, Netcore::AddressFamily::ipv6}) {
    auto& vrfConfig = agent_->vrfConfig(af);
    if (c.activityPollingInterval) vrfConfig.activityPollingIntervalIs(*c.activityPollingInterval);
    if (c.counterMode) vrfConfig.counterModeIs(*c.counterMode);
  }
  // Counters are configured where the top-level state machine watches them.
  auto& counterConfig = agent_->vrfConfig(Netcore::AddressFamily::ipv4);
  if (c.allCounter) counterConfig.allCounterIs(*c.allCounter);
  for (auto const& r : c.counterRoutes) counterConfig.configIs(r.vrf)->counterRouteIs(r.key, true);
  if (c.capacity) {
    for (std::uint32_t chip = 0; chip < scenario_.chips.count; ++chip) {
      if (!c.capacityChip || *c.capacityChip == chip) chip_->capacityIs(chip, c.capacity->appliedTo(chip_->capacity(chip)));
    }
    kick(c.capacityChip);
  }
}

void SimRunner::fault(Scenario::Fault const& f) {
  if (f.transaction) {
    transactionFault(f);
    return;
  }
  for (std::uint32_t c = 0; c < scenario_.chips.count; ++c) {
    if (f.chip && *f.chip != c) continue;
    if (f.failNext) chip_->failNextAllocationsIs(c, f.table, *f.failNext);
    if (f.forceFull) chip_->fullForcedIs(c, f.table, *f.forceFull);
  }
  if (f.forceFull && !*f.forceFull) kick(f.chip);
}

void SimRunner::transactionFault(Scenario::Fault const& f) {
  for (std::uint32_t c = 0; c < scenario_.chips.count; ++c) {
    if ((f.chip && *f.chip != c) || !agent_->async(c)) continue;
    AsyncReferenceChip& face = agent_->asyncChipAt(c);
    AsyncReferenceChip::Failures failures = face.failures(*f.transaction);
    if (f.failNext) failures.next = *f.failNext;
    if (f.probability) failures.probability = *f.probability;
    face.failuresIs(*f.transaction, failures);
    if (failures.next == 0 && failures.probability == 0) kick(c);
  }
}

void SimRunner::kick(std::optional<std::uint32_t> chip) {
  for (std::uint32_t c = 0; c < agent_->switches(); ++c) {
    if (chip && *chip != c) continue;
    if (agent_->async(c)) {
      agent_->programmer().retryParked(&agent_->asyncSwitchAt(c));
    } else {
      agent_->switchAt(c).mrouteReviewKickInc();
    }
  }
  agent_->routesChanged();
}

void SimRunner::restart(Scenario::Event const& e) {
  // Routes every chip held: the recovered status must describe them.
  std::vector<MrouteLib::DesiredRoute const*> held;
  for (auto const& want : desired_) {
    if (want.bridge()) continue;  // boundary entries are not read back as routes
    auto vrf = agent_->hwStatus(want.key().af()).vrfStatus(want.vrfName());
    auto status = vrf ? vrf->route(want.key()) : nullptr;
    if (status && status->programmed()) held.push_back(&want);
  }
  auto const figures = agent_->restart();
  ++report_.restarts;
  report_.routesRecovered += figures.routesRecovered;
  report_.staleEntriesCleared += figures.staleEntriesCleared;
  for (auto const* want : held) {
    std::string const name = e.path + ": recovery: route [" + want->vrfName().stringValue() + "] " + want->key().pretty();
    auto vrf = agent_->hwStatus(want->key().af()).vrfStatus(want->vrfName());
    auto status = vrf ? vrf->route(want->key()) : nullptr;
    if (!status) {
      report_.violationIs(name + " was in hardware but has no recovered status");
    } else if (status->acceptingIntfId() != want->acceptingIntfId()) {
      std::ostringstream os;
      os << name << " was recovered accepting on '" << status->acceptingIntfId() << "', it accepts on '"
         << want->acceptingIntfId() << "'";
      report_.violationIs(os.str());
    }
  }
  // The route owner hands its routes to the new agent.
  for (auto const& want : desired_) agent_->programmer().routeIs(want);
  endBatch();
  // Recovered statuses of routes nobody wants any more.
  for (auto af : {Netcore::AddressFamily::ipv4, Netcore::AddressFamily::ipv6}) {
    auto& status = agent_->hwStatus(af);
    for (auto vrf = status.vrfStatusIterator(); !vrf.done(); ++vrf) {
      std::vector<IpGenRouteKey> stale;
      for (auto r = vrf.value()->routeIterator(); !r.done(); ++r) {
        if (!desired_.contains(vrf.key(), r.key())) stale.push_back(r.key());
      }
      for (auto const& key : stale) vrf.value()->routeDel(key);
      report_.staleStatusesRemoved += stale.size();
    }
  }
}

// ---- checks and figures ----

void SimRunner::check(std::string const& where) {
  for (auto& finding : checker_.check(*agent_, desired_)) report_.violationIs(where + ": " + finding);
  auto const& load = checker_.load();
  // At the same load, a later check where more of the routes replicate
  // (asynchronous bindings completed) tells the sharing better.
  if (load.hwRoutes > report_.peakHwRoutes ||
      (load.hwRoutes == report_.peakHwRoutes && load.routesWithEntry > peakRoutesWithEntry_)) {
    report_.peakHwRoutes = load.hwRoutes;
    peakRoutesWithEntry_ = load.routesWithEntry;
    report_.sharingAtPeak = load.sharingRatio();
  }
  report_.peakRoutesParked = std::max(report_.peakRoutesParked, agent_->programmer().routesParked());
  for (auto const& [reason, n] : load.unprogrammedByReason) {
    std::size_t& peak = peakParkedByReason_[reason];
    peak = std::max(peak, n);
  }
}

void SimRunner::runTo(Vex::Seconds t) {
  stretchWall_ = wallNow();
  stretchFrom_ = now();
  while (true) {
    // Up to the next clock at most: everything due by then runs as it would
    // in one runUntil(t), and the wall clock is looked at in between.
    Vex::Seconds const stop = std::min(kEpoch + t, std::max(am_.nextTime(), am_.now()));
    am_.runUntil(stop);
    if (stop >= kEpoch + t || now() > t) return;
    progress(t);
  }
}

double SimRunner::wallNow() const {
  if (options_.wallClock) return options_.wallClock();
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void SimRunner::progress(Vex::Seconds target) {
  if (!options_.progress) return;
  double const wall = wallNow();
  if (wall - wallStart_ < options_.progressAfterWallSeconds) return;
  if (wall - lastProgress_ < options_.progressEveryWallSeconds) return;
  lastProgress_ = wall;
  std::ostringstream os;
  os << "mroute-sim: " << Printable::text(scenario_.name) << ": event " << next_ << "/" << scenario_.events.size()
     << " at t=" << now() << " s";
  if (now() < target) os << " (running to t=" << target << " s)";
  os << ", " << desired_.size() << " routes wanted, " << report_.violations << " violations, "
     << static_cast<int>(wall - wallStart_) << " s elapsed";
  // At the stretch's pace so far: aging passes and polls fall evenly over a quiet stretch.
  if (now() < target && now() > stretchFrom_) {
    double const left = (target - now()) * (wall - stretchWall_) / (now() - stretchFrom_);
    os << ", about " << static_cast<std::int64_t>(std::ceil(left)) << " s to go";
  }
  options_.progress(os.str());
}

void SimRunner::fillAsyncFigures() {
  SimReport& r = report_;
  r.asyncChips = scenario_.chips.asyncCount();
  if (r.asyncChips == 0) return;
  auto const stats = agent_->asyncStatistics();
  auto const& counts = agent_->counts();
  r.xactsStarted = stats.xactsStarted;
  r.xactsCompleted = stats.xactsSucceeded;
  r.xactsFailed = stats.xactsFailed;
  r.xactsFailedByReason.clear();
  for (auto const& [reason, n] : stats.failedByReason) r.xactsFailedByReason.emplace_back(xactReasonName(reason), n);
  r.longestWait = agent_->longestWait();
  r.routesWaiting = agent_->programmer().routesWaiting();
  r.groupsAllocated = stats.groupsAllocated;
  r.groupsShared = agent_->groupsShared();
  r.groupsResurrected = counts.groupsResurrected;
  r.groupsPurged = counts.groupsPurged;
  r.groupsDeleted = stats.groupsDeleted;
  r.groupUpdates = stats.groupUpdates;
  r.asyncAgingSlices = counts.agingSlices;
  r.lastAccessReads = stats.activityReads;
  r.lastAccessStamps = stats.newerActivity;
}

void SimRunner::fillFigures() {
  SimReport& r = report_;
  r.endTime = now();
  r.wallSeconds = wallNow() - wallStart_;
  auto const& programmer = agent_->programmer();
  r.routesDesired = desired_.size();
  r.routesProgrammed = programmer.routesProgrammed();
  r.routesParked = programmer.routesParked();
  r.retries = programmer.retries();
  r.programmingCalls = programmer.programmingCalls();

  r.hwRoutes = r.hwBoundaries = r.entriesInUse = r.zombiesNow = 0;
  for (std::uint32_t c = 0; c < chip_->chips(); ++c) {
    r.hwRoutes += chip_->routes(c).size();
    r.hwBoundaries += chip_->boundaries(c).size();
    r.entriesInUse += chip_->replicationEntries(c).size();
  }
  for (std::size_t c = 0; c < agent_->switches(); ++c) {
    r.zombiesNow += agent_->async(c) ? agent_->asyncSwitchAt(c).zombieOifSet().size()
                                     : agent_->switchAt(c).zombieOifSet().size();
  }
  auto const stats = chip_->statisticsTotal();
  r.peakEntries = stats.peakEntries;
  r.allocations = stats.allocations;
  r.frees = stats.frees;
  r.refusedAllocations = stats.failedAllocations + stats.failedRouteAllocations;
  r.frrRewrites = stats.inPlaceRewrites;
  // Routes of one set usually share its outputs: each shared one is hashed
  // once, not once per route.
  absl::flat_hash_set<MrouteLib::PortVlanSet const*> seen;
  absl::flat_hash_set<MrouteLib::PortVlanSet> outputs;
  for (auto const& want : desired_) {
    if (!want.bridge() && seen.insert(&want.outputs()).second) outputs.insert(want.outputs());
  }
  r.distinctOutputSets = outputs.size();
  r.sharingRatio = checker_.load().sharingRatio();

  auto const& counts = agent_->counts();
  r.zombiesEntered = counts.zombiesEntered;
  r.zombieReuses = counts.zombieReuses;
  r.zombieExpiries = counts.zombieExpiries;
  r.tableFullEpisodes = counts.tableFullEpisodes;

  auto const aging = agent_->agingCounts();
  r.agingPassesStarted = aging.refreshes;
  r.agingPassesCompleted = aging.clears;
  r.hitBitReads = aging.reads;
  r.activityStamps = aging.hits;
  r.routesWithActivity = 0;
  for (auto af : {Netcore::AddressFamily::ipv4, Netcore::AddressFamily::ipv6}) {
    auto const& status = agent_->hwStatus(af);
    for (auto vrf = status.vrfStatusIterator(); !vrf.done(); ++vrf) {
      for (auto route = vrf.value()->routeIterator(); !route.done(); ++route) {
        if (route.value()->lastPollTime() > 0) ++r.routesWithActivity;
      }
    }
  }

  auto const& counters = agent_->counterStatus();
  r.counterRows = counters.size();
  r.counterActive = 0;
  r.countedTotal = 0;
  for (auto const& [key, row] : counters) {
    if (row.active()) ++r.counterActive;
    r.countedTotal += row.value();
  }
  r.counterReads = agent_->counterReads();
  r.peakParkedByReason.clear();
  for (auto const& [reason, n] : peakParkedByReason_) r.peakParkedByReason.emplace_back(routeFailureName(reason), n);

  fillAsyncFigures();

  if (kernel_) {
    auto const& k = kernel_->figures();
    r.kernelChips = kernel_->chips();
    r.realPacketsSent = k.packetsSent;
    r.realSendErrors = k.sendErrors;
    r.realCopiesPredicted = k.copiesPredicted;
    r.realCopiesCaptured = k.copiesCaptured;
    r.realPacketsAsPredicted = k.packetsAsPredicted;
    r.realPacketsNotAsPredicted = k.packetsNotAsPredicted;
    r.kernelRefusals = k.kernelRefusals;
  }
  r.longestSlice = am_.longestSlice();
  r.checks = checker_.checks();
}

}  // namespace FalSim
