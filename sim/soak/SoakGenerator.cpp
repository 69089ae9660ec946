#include "sim/soak/SoakGenerator.h"

#include <algorithm>
#include <utility>

namespace FalSim {

namespace {

using EventKind = Scenario::EventKind;
using Routing::Multicast::Fib::CounterMode;
using Routing::Multicast::Fib::IpGenRouteKey;
using Table = ReferenceChip::Table;
using Operation = AsyncReferenceChip::Operation;

constexpr std::array<std::uint32_t, 3> kVlans = {10, 20, 30};
// Room for most of the routes wanted at a time, but not for all of them at
// their peaks (or with zombies and rerouted sets beside them).
constexpr ReferenceChipCapacity kBaseCapacity{320, 24, 96};
// The universe's groups: IPv4 239.1.0.1 up, IPv6 ff3e::1 up.
constexpr int kV4Groups = 100;
constexpr int kV6Groups = 16;
// Probes to a group prefix go to one of its first addresses, which host
// routes of the universe cover too.
constexpr std::uint32_t kPrefixProbeSpan = 24;
constexpr std::array<Vex::Seconds, 3> kLatencies = {0.001, 0.005, 0.02};
// Transactions started before a probe have completed after this many
// latencies: a group, then its binding, twice over for a change that waited.
constexpr double kProbeSettleLatencies = 5;

Netcore::IpGenPrefix prefix(char const* text) { return Netcore::IpGenPrefix(text); }

// Sources that probes send from: covered by different source prefixes of the universe.
constexpr std::array<char const*, 3> kV4Sources = {"10.0.0.1", "10.0.0.77", "192.0.2.5"};
constexpr std::array<char const*, 2> kV6Sources = {"2001:db8::1", "2001:db8::77"};

}  // namespace

SoakGenerator::SoakGenerator(std::uint64_t seed, Mix mix) : rng_(seed), mix_(mix) {
  base_.name = "soak-" + std::to_string(seed);
  base_.description = "fault soak, seed " + std::to_string(seed);
  base_.chips.count = kChips;
  base_.chips.capacity = kBaseCapacity;
  double const flavours = std::uniform_real_distribution<double>(0, 1)(rng_);
  base_.chips.flavour = chance(0.5) ? Scenario::Flavour::sync : Scenario::Flavour::async;
  if (flavours < 0.6) base_.chips.otherFlavour.push_back(static_cast<std::uint32_t>(draw(kChips)));
  base_.chips.transactionLatency = kLatencies[draw(kLatencies.size())];
  base_.chips.seed = seed;
  for (std::uint32_t c = 0; c < kChips; ++c) {
    if (base_.chips.flavourOf(c) == Scenario::Flavour::async) asyncChips_.push_back(c);
  }
  for (std::uint32_t p = 1; p <= kPorts; ++p) base_.ethernet.push_back(Netcore::IntfId::ethernet(p));
  for (auto v : kVlans) base_.vlans.push_back({Netcore::IntfId::vlan(v), Bridging::VlanId(v)});
  base_.vrfs = {{L3::VrfName("default"), 0}, {L3::VrfName("red"), 1}};
  base_.zombiesEnabled = true;
  base_.zombieLifetime = 2.0;
  base_.activityPollingInterval = 10;
  base_.end = 0;

  state_.zombies = base_.zombiesEnabled;
  state_.zombieLifetime = base_.zombieLifetime;
  state_.activityPollingInterval = base_.activityPollingInterval;
  state_.allCounter = base_.allCounter;
  state_.counterMode = base_.counterMode;
  state_.capacity.fill(kBaseCapacity);

  for (auto const& vrf : base_.vrfs) {
    for (int i = 1; i <= kV4Groups; ++i) {
      auto const group = prefix(("239.1.0." + std::to_string(i) + "/32").c_str());
      for (char const* source : {"0.0.0.0/0", "10.0.0.1/32", "10.0.0.0/24"}) {
        universe_.emplace_back(vrf.name, IpGenRouteKey(prefix(source), group));
      }
    }
    for (char const* group : {"239.1.0.0/24", "239.1.0.0/28"}) {
      universe_.emplace_back(vrf.name, IpGenRouteKey(prefix("0.0.0.0/0"), prefix(group)));
    }
    for (int i = 1; i <= kV6Groups; ++i) {
      auto const group = prefix(("ff3e::" + std::to_string(i) + "/128").c_str());
      for (char const* source : {"::/0", "2001:db8::1/128"}) universe_.emplace_back(vrf.name, IpGenRouteKey(prefix(source), group));
    }
  }
  for (int i = 0; i < 10; ++i) pool_.push_back(freshOutputs());
}

MrouteLib::PortVlanSet SoakGenerator::freshOutputs() {
  MrouteLib::PortVlanSet s;
  auto vlanOrNone = [&]() { return chance(0.2) ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(anyVlan()); };
  std::uint64_t const n = draw(4);
  for (std::uint64_t i = 0; i < n; ++i) {
    s.portVlanIs({Netcore::IntfId::ethernet(static_cast<std::uint32_t>(1 + draw(kPorts))), vlanOrNone()});
  }
  if (chance(0.4)) {
    Netcore::IntfId const prot = Netcore::IntfId::ethernet(static_cast<std::uint32_t>(1 + draw(kFailingPorts)));
    s.portVlanIs({prot, vlanOrNone()});
    s.intfIdIs(prot);
    s.currentIifIs(prot);
    std::uint64_t const backups = 1 + draw(2);
    for (std::uint64_t i = 0; i < backups; ++i) {
      auto const port = static_cast<std::uint32_t>(kFailingPorts + 1 + draw(kPorts - kFailingPorts));
      s.portVlanFrrIs({Netcore::IntfId::ethernet(port), vlanOrNone()});
    }
  }
  s.toCpuIs(chance(0.1));
  return s;
}

MrouteLib::DesiredRoute SoakGenerator::describe(L3::VrfName const& vrf, IpGenRouteKey const& key) {
  MrouteLib::DesiredRoute r(vrf, key);
  r.bridgeIs(chance(0.06));
  r.noRpfIs(!r.bridge() && chance(0.1));
  if (!r.noRpf()) {
    Bridging::VlanId const vlan = anyVlan();
    r.acceptingVlanIs(vlan);
    r.acceptingIntfIdIs(Netcore::IntfId::vlan(vlan.value()));
  }
  r.fastdropIs(chance(0.1));
  if (chance(0.3)) r.rpaIdIs(static_cast<std::uint16_t>(draw(4)));
  if (!r.bridge()) r.outputsIs(chance(0.85) ? pool_[draw(pool_.size())] : freshOutputs());
  return r;
}

DesiredRoutes::const_iterator SoakGenerator::anyWanted() {
  auto it = state_.wanted.begin();
  std::advance(it, static_cast<std::ptrdiff_t>(draw(state_.wanted.size())));
  return it;
}

Scenario::Event SoakGenerator::next() {
  double const r = std::uniform_real_distribution<double>(0, 1)(rng_);
  now_ += r < 0.3 ? 0.0 : r < 0.95 ? std::uniform_real_distribution<double>(0.01, 0.5)(rng_)
                                  : std::uniform_real_distribution<double>(2.0, 8.0)(rng_);
  // Transaction faults only where a chip runs them.
  double const transactions = asyncChips_.empty() ? 0 : mix_.failTransactions + mix_.transactionOdds;
  double const total = mix_.addRoute + mix_.moveRoute + mix_.removeRoute + mix_.interfaceDown + mix_.interfaceUp +
                       mix_.settings + mix_.capacity + mix_.refuseAllocations + mix_.forceFull + mix_.releaseFull +
                       mix_.restart + transactions;
  double pick = std::uniform_real_distribution<double>(0, total)(rng_);
  auto is = [&pick](double weight) { return (pick -= weight) < 0; };

  if (is(mix_.addRoute)) return addOrMove(false);
  if (is(mix_.moveRoute)) return addOrMove(true);
  if (is(mix_.removeRoute)) return remove();
  if (is(mix_.interfaceDown)) return flap(true);
  if (is(mix_.interfaceUp)) return flap(false);
  if (is(mix_.settings)) return settings();
  if (is(mix_.capacity)) return capacity();
  if (is(mix_.refuseAllocations)) {
    Scenario::Fault f;
    f.chip = faultChip(false);
    f.table = static_cast<Table>(draw(3));
    f.failNext = static_cast<std::uint32_t>(1 + draw(3));
    return fault(f);
  }
  if (is(mix_.forceFull)) {
    Scenario::Fault f;
    f.chip = static_cast<std::uint32_t>(draw(kChips));
    f.table = static_cast<Table>(draw(3));
    f.forceFull = true;
    return fault(f);
  }
  if (is(mix_.releaseFull)) {
    std::vector<std::pair<std::uint32_t, Table>> forced;
    for (std::uint32_t c = 0; c < kChips; ++c) {
      for (std::size_t t = 0; t < 3; ++t) {
        if (state_.forcedFull[c][t]) forced.emplace_back(c, static_cast<Table>(t));
      }
    }
    if (forced.empty()) return addOrMove(false);
    Scenario::Fault f;
    std::tie(f.chip, f.table) = forced[draw(forced.size())];
    f.forceFull = false;
    return fault(f);
  }
  if (is(mix_.restart) || asyncChips_.empty()) {
    Scenario::Event e = event(EventKind::restart);
    restarted();
    return e;
  }
  return transactionFault(!is(mix_.failTransactions));
}

std::optional<std::uint32_t> SoakGenerator::faultChip(bool async) {
  if (!chance(0.7)) return std::nullopt;
  if (async) return asyncChips_[draw(asyncChips_.size())];
  return static_cast<std::uint32_t>(draw(kChips));
}

Scenario::Event SoakGenerator::transactionFault(bool odds) {
  Scenario::Event e = event(EventKind::fault);
  Scenario::Fault& f = e.fault;
  f.transaction = static_cast<Operation>(draw(AsyncReferenceChip::kOperations));
  f.chip = faultChip(true);
  if (!odds) {
    f.failNext = static_cast<std::uint32_t>(1 + draw(3));
    return e;
  }
  // Failures now and then, mostly for a while only.
  constexpr std::array<double, 3> kOdds = {0.02, 0.1, 0.3};
  double const p = chance(0.6) ? 0.0 : kOdds[draw(kOdds.size())];
  f.probability = p;
  for (std::uint32_t chip : asyncChips_) {
    if (!f.chip || *f.chip == chip) state_.transactionOdds[chip][static_cast<std::size_t>(*f.transaction)] = p;
  }
  return e;
}

namespace {

// Outputs that fast reroute would rewrite: protected, with backups.
bool reroutable(MrouteLib::PortVlanSet const& o) { return !o.currentIif().isEmpty() && o.portVlanFrrSize() > 0; }

}  // namespace

void SoakGenerator::outputsTaken(MrouteLib::PortVlanSet const& o) {
  if (reroutable(o) && state_.down.contains(o.currentIif())) mayBeRerouted_.insert(o);
}

void SoakGenerator::outputsLeft(MrouteLib::PortVlanSet const& o) {
  bool const wanted = std::any_of(state_.wanted.begin(), state_.wanted.end(),
                                  [&](auto const& w) { return !w.second.bridge() && w.second.outputs() == o; });
  if (!wanted) mayBeRerouted_.erase(o);
}

void SoakGenerator::interfaceWentDown(Netcore::IntfId intf) {
  for (auto const& [id, r] : state_.wanted) {
    if (!r.bridge() && reroutable(r.outputs()) && r.outputs().currentIif() == intf) mayBeRerouted_.insert(r.outputs());
  }
}

void SoakGenerator::restarted() {
  // The new agent programs every set afresh, through new faces of the
  // asynchronous chips, which fail no transaction until told.
  for (auto& odds : state_.transactionOdds) odds.fill(0);
  mayBeRerouted_.clear();
  for (auto const& [id, r] : state_.wanted) {
    if (!r.bridge()) outputsTaken(r.outputs());
  }
}

Scenario::Event SoakGenerator::addOrMove(bool move) {
  Scenario::Event e = event(EventKind::addRoute);
  if (move && !state_.wanted.empty()) {
    auto const it = anyWanted();
    e.route = describe(it->second.vrfName(), it->second.key());
  } else {
    auto const& [vrf, key] = anyKey();
    e.route = describe(vrf, key);
  }
  auto& slot = state_.wanted[{e.route.vrfName(), e.route.key()}];
  MrouteLib::DesiredRoute const before = std::exchange(slot, e.route);
  if (e.route.bridge()) boundaryOnce_.insert({e.route.vrfName(), e.route.key()});
  if (!e.route.bridge()) outputsTaken(e.route.outputs());
  if (!before.bridge()) outputsLeft(before.outputs());
  return e;
}

Scenario::Event SoakGenerator::remove() {
  Scenario::Event e = event(EventKind::removeRoute);
  if (!state_.wanted.empty() && chance(0.9)) {
    auto const it = anyWanted();
    e.vrf = it->first.first;
    e.key = it->first.second;
  } else {
    std::tie(e.vrf, e.key) = anyKey();  // removing what nobody wants changes nothing
  }
  if (auto it = state_.wanted.find({e.vrf, e.key}); it != state_.wanted.end()) {
    MrouteLib::DesiredRoute const before = std::move(it->second);
    state_.wanted.erase(it);
    boundaryOnce_.erase({e.vrf, e.key});
    if (!before.bridge()) outputsLeft(before.outputs());
  }
  return e;
}

Scenario::Event SoakGenerator::flap(bool down) {
  std::vector<Netcore::IntfId> candidates;
  for (std::uint32_t p = 1; p <= kFailingPorts; ++p) {
    Netcore::IntfId const intf = Netcore::IntfId::ethernet(p);
    if (state_.down.contains(intf) != down) candidates.push_back(intf);
  }
  if (candidates.empty()) return flap(!down);
  Scenario::Event e = event(down ? EventKind::interfaceDown : EventKind::interfaceUp);
  e.intf = candidates[draw(candidates.size())];
  if (down) {
    state_.down.insert(e.intf);
    interfaceWentDown(e.intf);
  } else {
    state_.down.erase(e.intf);
  }
  return e;
}

Scenario::Event SoakGenerator::settings() {
  Scenario::Event e = event(EventKind::config);
  auto& c = e.config;
  switch (draw(5)) {
    case 0:
      c.zombies = state_.zombies = !state_.zombies;
      break;
    case 1: {
      constexpr std::array<double, 4> kLifetimes = {0.0, 0.5, 1.0, 4.0};
      c.zombieLifetime = state_.zombieLifetime = kLifetimes[draw(kLifetimes.size())];
      break;
    }
    case 2: {
      constexpr std::array<std::uint8_t, 3> kIntervals = {1, 2, 10};
      c.activityPollingInterval = state_.activityPollingInterval = kIntervals[draw(kIntervals.size())];
      break;
    }
    case 3:
      c.allCounter = state_.allCounter = !state_.allCounter;
      break;
    default:
      c.counterMode = state_.counterMode = static_cast<CounterMode>(draw(3));
      break;
  }
  return e;
}

Scenario::Event SoakGenerator::capacity() {
  Scenario::Event e = event(EventKind::config);
  auto& c = e.config;
  if (chance(0.7)) c.capacityChip = static_cast<std::uint32_t>(draw(kChips));
  Scenario::Config::Capacity cap;
  if (chance(0.5)) {
    // Room comes back: the sizes the soak started with.
    cap = {kBaseCapacity.routes, kBaseCapacity.boundaries, kBaseCapacity.replicationEntries};
  } else {
    constexpr std::array<std::size_t, 4> kRoutes = {24, 160, 320, 400};
    constexpr std::array<std::size_t, 3> kBoundaries = {2, 8, 24};
    constexpr std::array<std::size_t, 4> kEntries = {8, 48, 96, 128};
    switch (draw(3)) {
      case 0: cap.routes = kRoutes[draw(kRoutes.size())]; break;
      case 1: cap.boundaries = kBoundaries[draw(kBoundaries.size())]; break;
      default: cap.replicationEntries = kEntries[draw(kEntries.size())]; break;
    }
  }
  c.capacity = cap;
  for (std::uint32_t chip = 0; chip < kChips; ++chip) {
    if (!c.capacityChip || *c.capacityChip == chip) state_.capacity[chip] = cap.appliedTo(state_.capacity[chip]);
  }
  return e;
}

Scenario::Event SoakGenerator::fault(Scenario::Fault f) {
  Scenario::Event e = event(EventKind::fault);
  if (f.forceFull) {
    for (std::uint32_t chip = 0; chip < kChips; ++chip) {
      if (!f.chip || *f.chip == chip) state_.forcedFull[chip][static_cast<std::size_t>(f.table)] = *f.forceFull;
    }
  }
  e.fault = f;
  return e;
}

ForwardingModel::Flow SoakGenerator::probe() {
  if (!asyncChips_.empty()) now_ += kProbeSettleLatencies * base_.chips.transactionLatency;
  ForwardingModel::Flow f;
  L3::VrfName vrf;
  IpGenRouteKey key;
  Bridging::VlanIdOrNone accepting;
  if (!state_.wanted.empty() && chance(0.7)) {
    auto const& r = anyWanted()->second;
    vrf = r.vrfName();
    key = r.key();
    accepting = r.noRpf() ? Bridging::VlanIdOrNone(anyVlan()) : r.acceptingVlan();
  } else {
    std::tie(vrf, key) = anyKey();
    accepting = anyVlan();
  }
  f.vrf = vrf;
  bool const v6 = key.af() == Netcore::AddressFamily::ipv6;
  if (key.source().isHost() && chance(0.7)) {
    f.source = key.source().address();
  } else {
    f.source = Netcore::IpGenAddr(v6 ? kV6Sources[draw(kV6Sources.size())] : kV4Sources[draw(kV4Sources.size())]);
  }
  if (key.group().isHost()) {
    f.group = key.group().address();
  } else {
    std::uint32_t const span = std::uint32_t{1} << (32 - key.group().len());
    f.group = Netcore::IpGenAddr::v4(key.group().address().v4Addr() |
                                     static_cast<std::uint32_t>(1 + draw(std::min(kPrefixProbeSpan, span - 2))));
  }
  double const r = std::uniform_real_distribution<double>(0, 1)(rng_);
  f.vlan = r < 0.75 ? accepting : r < 0.95 ? Bridging::VlanIdOrNone(anyVlan()) : Bridging::VlanIdOrNone();
  return f;
}

std::vector<Scenario::Event> SoakGenerator::eventsToReach(State const& s, Armed const& armed, Vex::Seconds at) const {
  std::vector<Scenario::Event> out;
  auto event = [&](EventKind kind) -> Scenario::Event& {
    out.emplace_back();
    out.back().at = at;
    out.back().kind = kind;
    return out.back();
  };
  auto& settings = event(EventKind::config).config;
  settings.zombies = s.zombies;
  settings.zombieLifetime = s.zombieLifetime;
  settings.activityPollingInterval = s.activityPollingInterval;
  settings.allCounter = s.allCounter;
  settings.counterMode = s.counterMode;
  for (std::uint32_t chip = 0; chip < kChips; ++chip) {
    auto& c = event(EventKind::config).config;
    c.capacityChip = chip;
    c.capacity = Scenario::Config::Capacity{s.capacity[chip].routes, s.capacity[chip].boundaries,
                                            s.capacity[chip].replicationEntries};
    for (std::size_t t = 0; t < 3; ++t) {
      if (!s.forcedFull[chip][t] && armed.allocations[chip][t] == 0) continue;
      auto& f = event(EventKind::fault).fault;
      f.chip = chip;
      f.table = static_cast<Table>(t);
      if (s.forcedFull[chip][t]) f.forceFull = true;
      if (armed.allocations[chip][t] > 0) f.failNext = armed.allocations[chip][t];
    }
    for (std::size_t op = 0; op < AsyncReferenceChip::kOperations; ++op) {
      if (s.transactionOdds[chip][op] == 0 && armed.transactions[chip][op] == 0) continue;
      auto& f = event(EventKind::fault).fault;
      f.chip = chip;
      f.transaction = static_cast<Operation>(op);
      if (s.transactionOdds[chip][op] > 0) f.probability = s.transactionOdds[chip][op];
      if (armed.transactions[chip][op] > 0) f.failNext = armed.transactions[chip][op];
    }
  }
  for (auto intf : s.down) event(EventKind::interfaceDown).intf = intf;
  for (auto const& [id, route] : s.wanted) event(EventKind::addRoute).route = route;
  return out;
}

}  // namespace FalSim
