#include "sim/InvariantChecker.h"

#include <set>
#include <sstream>
#include <tuple>

#include "absl/container/btree_set.h"
#include "absl/container/flat_hash_set.h"
#include "platform/intf/IntfOperStatus.h"
#include "sim/AsyncReferenceChip.h"
#include "sim/LookAhead.h"

namespace FalSim {

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;

// How many wanted routes ahead the walks over them fetch a route's slots.
constexpr std::size_t kLookAhead = 8;

std::string chipPrefix(std::uint32_t chip) { return "chip " + std::to_string(chip) + ": "; }

bool down(Interface::EthIntfStatusDir const& dir, Netcore::IntfId intf) {
  auto const status = dir.intfStatus(intf);
  return status && (status->operStatus() == Interface::intfOperDown ||
                    status->operStatus() == Interface::intfOperLowerLayerDown);
}

// Sets in use that fast reroute protects, whose interface is down: each must
// wait for its rewrite (queued, or its update outstanding), or its entry
// must hold its rewritten form. A set the switch made after the failure is
// only watched for the next one (allocation does not look at interfaces), so
// it may still hold its outputs.
std::optional<std::string> frrFinding(SimAgent const& agent, std::uint32_t c, MrouteLib::OifSet const* oifSet,
                                      char const* noun, std::uint32_t index, bool waiting) {
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  if (pvs.currentIif().isEmpty() || pvs.portVlanFrrSize() == 0 || !down(agent.ethIntfStatusDir(), pvs.currentIif())) {
    return std::nullopt;
  }
  if (waiting) return std::nullopt;
  auto const* entry = agent.chip().replicationEntry(c, index);
  if (entry && entry->portVlanSet == pvs.withFrrApplied()) return std::nullopt;
  std::ostringstream os;
  os << noun << ' ' << index << " protected on " << pvs.currentIif()
     << ", which is down, is neither waiting for its fast-reroute rewrite nor rewritten";
  return os.str();
}

// A synchronous chip against its Fal::MrouteSwitch: the sets the library
// holds, the switch's index bookkeeping, the routes and boundaries field by
// field (through the verify hooks), fast-reroute protection.
void syncChipFindings(SimAgent const& agent, std::uint32_t c, std::vector<std::string>& out) {
  Fal::MrouteSwitch& sw = agent.switchAt(c);
  ReferenceChip const& chip = agent.chip();
  std::string const where = chipPrefix(c);

  // The library's sets: those its routes use, and its zombies.
  absl::btree_set<std::uint32_t> live;
  absl::btree_set<std::uint32_t> shared;
  auto note = [&](Fal::MtableOifSet const& set) {
    live.insert(set.oifSetIndex());
    if (!set.oifSet() || !set.oifSet()->portVlanSet().reachesNoPort()) shared.insert(set.oifSetIndex());
  };
  // Many routes share a set: each distinct one is noted once, and kept in
  // the order the routes first use it for the fast-reroute check below (the
  // verification between reads the switch's routes and changes none).
  absl::flat_hash_set<Fal::MtableOifSet const*> used;
  std::vector<Fal::MtableOifSet const*> usedInOrder;
  for (auto const& [handle, route] : sw.routes()) {
    if (auto const& set = route->mtableOifSet(); set && used.insert(set.get()).second) {
      note(*set);
      usedInOrder.push_back(set.get());
    }
  }
  for (auto const& [key, set] : sw.zombieOifSet()) note(*set);
  for (auto& v : chip.invariantViolations(c, live)) out.push_back(std::move(v));
  std::size_t recorded = 0;
  for (std::uint32_t index : shared) {
    if (sw.oifSetIndexColl(index)) ++recorded;
  }
  if (recorded != shared.size() || sw.oifSetIndexCollSize() != shared.size()) {
    out.push_back(where + "the switch records " + std::to_string(sw.oifSetIndexCollSize()) +
                  " shared OIF-set indexes in use, its routes and zombies hold " + std::to_string(shared.size()) +
                  " (" + std::to_string(recorded) + " of them recorded)");
  }

  auto const& hwRoutes = chip.routes(c);
  auto const& hwBoundaries = chip.boundaries(c);
  if (sw.routeSize() != hwRoutes.size()) {
    out.push_back(where + "the switch holds " + std::to_string(sw.routeSize()) + " routes, the chip " +
                  std::to_string(hwRoutes.size()));
  }
  if (sw.boundarySize() != hwBoundaries.size()) {
    out.push_back(where + "the switch holds " + std::to_string(sw.boundarySize()) + " boundary entries, the chip " +
                  std::to_string(hwBoundaries.size()));
  }
  // Field by field; the chip records what differs.
  sw.handleVerify();

  absl::flat_hash_set<std::uint32_t> seen;
  for (Fal::MtableOifSet const* set : usedInOrder) {
    if (!set->oifSet() || set->isZombie() || !seen.insert(set->oifSetIndex()).second) continue;
    MrouteLib::OifSet const* const oifSet = set->oifSet().get();
    bool const waiting = sw.frrProcessingOifSet().contains(oifSet) || sw.frrMtableOifSet().contains(oifSet);
    if (auto finding = frrFinding(agent, c, oifSet, "oifSetIndex", set->oifSetIndex(), waiting)) out.push_back(where + *finding);
  }
}

// An asynchronous chip against its Fal::Mroute::AsyncMrouteSwitch: the
// groups the library records are the chip's groups, no more, no fewer; the
// library's route handles are the chip's ingress entries, each for the same
// route; every hardware change was followed by a verify; fast-reroute
// protection. Groups deleted twice or while a route was bound to them the
// chip itself records.
void asyncChipFindings(SimAgent const& agent, std::uint32_t c, std::vector<std::string>& out) {
  Fal::Mroute::AsyncMrouteSwitch const& sw = agent.asyncSwitchAt(c);
  AsyncReferenceChip const& face = agent.asyncChipAt(c);
  ReferenceChip const& chip = agent.chip();
  std::string const where = chipPrefix(c);

  absl::btree_set<std::uint32_t> live;
  for (auto const& [id, entry] : chip.replicationEntries(c)) {
    if (sw.mcastIdToOifSet(id)) live.insert(id);
  }
  std::size_t const known = live.size();
  for (auto const& [key, set] : sw.zombieOifSet()) {
    if (!ReferenceChipTables::noPortIndex(key.multicastId)) live.insert(key.multicastId);
  }
  for (auto& v : chip.invariantViolations(c, live, "group")) out.push_back(std::move(v));
  std::size_t recordedIds = sw.mcastIdToOifSetSize();
  for (std::uint32_t shared : {ReferenceChipTables::kNowhereIndex, ReferenceChipTables::kCpuOnlyIndex}) {
    if (sw.mcastIdToOifSet(shared)) --recordedIds;
  }
  if (recordedIds != known) {
    out.push_back(where + "the library records " + std::to_string(recordedIds) + " groups, the chip holds " +
                  std::to_string(known) + " of them");
  }

  auto const& hwRoutes = chip.routes(c);
  auto const& hwBoundaries = chip.boundaries(c);
  sw.forEachInUseRouteHandleKey([&](MrouteLib::RouteHandle handle, Fal::Mroute::InUseRouteHandleKey const& key) {
    Fal::Mroute::InUseRouteHandleKey hw;
    if (auto const* r = chip.route(c, handle)) {
      hw = Fal::Mroute::AsyncMrouteSwitch::inUseRouteHandleKeyOf(r->key, r->acceptingVlan, r->vrfId);
    } else if (auto const* b = chip.boundary(c, handle)) {
      hw = Fal::Mroute::AsyncMrouteSwitch::inUseRouteHandleKeyOf(b->key, b->vlan, b->vrfId);
    } else {
      std::ostringstream os;
      os << where << "the library's route handle " << handle << " (" << key.routeKey << " vlan " << key.vlan
         << ") has no ingress entry on the chip";
      out.push_back(os.str());
      return;
    }
    if (!(hw == key)) {
      std::ostringstream os;
      os << where << "route handle " << handle << " is " << hw.routeKey << " vlan " << hw.vlan << " VRF " << hw.vrfId
         << " on the chip, " << key.routeKey << " vlan " << key.vlan << " VRF " << key.vrfId << " in the library";
      out.push_back(os.str());
    }
  });
  if (sw.inUseRouteHandleKeySize() != hwRoutes.size() + hwBoundaries.size()) {
    out.push_back(where + "the library holds " + std::to_string(sw.inUseRouteHandleKeySize()) +
                  " route handles, the chip " + std::to_string(hwRoutes.size() + hwBoundaries.size()) +
                  " ingress entries");
  }
  for (auto const& [handle, r] : hwRoutes) {
    if (r.oifSetIndex != 0 && !ReferenceChipTables::noPortIndex(r.oifSetIndex) && !live.contains(r.oifSetIndex)) {
      out.push_back(where + "route " + r.key.pretty() + " handle " + std::to_string(handle.value()) +
                    " points at group " + std::to_string(r.oifSetIndex) + ", which the library holds no record for");
    }
  }
  if (face.unverifiedChanges() > 0) {
    out.push_back(where + std::to_string(face.unverifiedChanges()) +
                  " hardware change(s) not followed by a verify");
  }

  for (auto const& [id, entry] : chip.replicationEntries(c)) {
    auto const oifSet = sw.mcastIdToOifSet(id);
    auto const* set = oifSet ? sw.inUseOifSet(oifSet.get()) : nullptr;
    if (!set || set->isZombie() || set->multicastId() != id) continue;
    // A rewrite whose transaction failed was reported by the chip (the
    // report counts it); the library does not retry in-place updates.
    auto const xact = face.groupXact(id);
    bool const waiting = sw.frrProcessingOifSet().contains(oifSet.get()) || sw.frrMtableOifSet().contains(oifSet.get()) ||
                         face.updatePending(id) || (xact && xact->failed());
    if (auto finding = frrFinding(agent, c, oifSet.get(), "group", id, waiting)) out.push_back(where + *finding);
  }
}

using BoundaryKeys = std::set<std::tuple<std::uint16_t, IpGenRouteKey, std::uint16_t>>;

// The wanted routes chip c holds: how many it holds at all (present), and
// each one it does not hold as wanted cleared in heldEverywhere (by the
// route's place in desired).
//
// The chip's routes usually come in the order of the wanted routes: the
// route programmer programs routes in the order they were first wanted, the
// chip hands out handles counting up, and a route set is wanted in its own
// (VRF, key) order. So the walk first tries the entry after the route it
// found last, read from the same page, and looks a route up by key (a cold
// slot of the prefix index, then the entry) only when that entry is not the
// route. The guess is taken only where a lookup could not answer otherwise:
// its entry holds the VRF, key and accepting VLAN wanted, and no two routes
// of the chip share a key, so it is the one route the lookup would find.
std::size_t wantedOnChip(SimAgent const& agent, std::uint32_t c, WantedRoutes const& desired,
                         BoundaryKeys const& boundaryKeys, std::vector<bool>& heldEverywhere) {
  ReferenceChip const& chip = agent.chip();
  bool const mayGuess = !chip.routeKeysShared(c);
  MrouteLib::RouteHandle guess;
  // Whether the last route was where it was guessed: the lookups ahead are
  // then not fetched.
  bool guessing = false;
  std::size_t present = 0;
  std::size_t i = 0;
  // Routes come by VRF: its id is looked up once per run of the same VRF.
  L3::VrfName const* lastVrf = nullptr;
  std::optional<Fal::VrfId> lastVrfId;
  LookAhead ahead(desired.begin(), desired.end(), kLookAhead);
  for (auto const& want : desired) {
    std::size_t const slot = i++;
    if (!lastVrf || !(*lastVrf == want.vrfName())) {
      lastVrf = &want.vrfName();
      lastVrfId = agent.l3Status().vrfNameToId(want.vrfName());
    }
    auto const& vrfId = lastVrfId;
    if (auto const* later = ahead.next(); !guessing && later && vrfId && later->vrfName() == want.vrfName()) {
      chip.routePrefetch(c, static_cast<std::uint16_t>(*vrfId), later->key());
    }
    if (!vrfId) {
      heldEverywhere[slot] = false;
      continue;
    }
    auto const hwVrf = static_cast<std::uint16_t>(*vrfId);
    if (want.bridge()) {
      bool const held = boundaryKeys.contains({hwVrf, want.key(), want.acceptingVlan().value()});
      present += held;
      if (!held) heldEverywhere[slot] = false;
      continue;
    }
    ReferenceChip::RouteEntry const* r = mayGuess && !guess.isNull() ? chip.route(c, guess) : nullptr;
    guessing = r && r->vrfId == hwVrf && r->acceptingVlan == want.acceptingVlan() && r->key == want.key();
    if (!guessing) r = chip.route(c, hwVrf, want.key(), want.acceptingVlan());
    if (!r) {
      heldEverywhere[slot] = false;
      continue;
    }
    guess = MrouteLib::RouteHandle(r->handle.value() + 1);
    ++present;
    auto const* entry = r->oifSetIndex == 0 ? nullptr : chip.replicationEntry(c, r->oifSetIndex);
    // The entry made for the wanted outputs, holding them or their
    // fast-reroute form. An entry of other outputs whose rewritten form
    // happens to be the same (a route waiting to be re-pointed, or parked,
    // while the protected interface is down) is not the wanted one.
    bool const asWanted = entry && entry->programmed && entry->allocatedSet() == want.outputs() &&
                          (entry->portVlanSet == want.outputs() || entry->portVlanSet == want.outputs().withFrrApplied());
    if (!asWanted) heldEverywhere[slot] = false;
  }
  return present;
}

}  // namespace

std::vector<std::string> InvariantChecker::check(SimAgent const& agent, WantedRoutes const& desired) {
  ++checks_;
  std::vector<std::string> out;
  load_ = Load{};
  ReferenceChip const& chip = agent.chip();
  std::uint32_t const chips = static_cast<std::uint32_t>(agent.switches());

  // Whether every chip holds each wanted route as wanted.
  std::vector<bool> heldEverywhere(desired.size(), true);

  for (std::uint32_t c = 0; c < chips; ++c) {
    std::string const where = chipPrefix(c);
    if (agent.async(c)) {
      asyncChipFindings(agent, c, out);
    } else {
      syncChipFindings(agent, c, out);
    }
    auto const& hwRoutes = chip.routes(c);
    auto const& hwBoundaries = chip.boundaries(c);

    BoundaryKeys boundaryKeys;
    for (auto const& [h, b] : hwBoundaries) boundaryKeys.emplace(b.vrfId, b.key, b.vlan.value());

    std::size_t const present = wantedOnChip(agent, c, desired, boundaryKeys, heldEverywhere);
    std::size_t const held = hwRoutes.size() + hwBoundaries.size();
    if (present != held) {
      out.push_back(where + "the chip holds " + std::to_string(held - present) +
                    " route or boundary entries that no wanted route accounts for");
    }

    // Routes and zombies on the entries kept outside the table share nothing.
    auto const& entries = chip.replicationEntries(c);
    load_.hwRoutes += hwRoutes.size();
    for (auto const& [h, r] : hwRoutes) {
      // In the table: found by index, and not one of the two kept outside it.
      bool const inTable = !ReferenceChipTables::noPortIndex(r.oifSetIndex) && chip.replicationEntry(c, r.oifSetIndex);
      if (inTable) ++load_.routesWithEntry;
    }
    load_.entries += entries.size();
    if (agent.async(c)) {
      for (auto const& [key, set] : agent.asyncSwitchAt(c).zombieOifSet()) load_.zombies += entries.contains(key.multicastId);
    } else {
      for (auto const& [key, set] : agent.switchAt(c).zombieOifSet()) load_.zombies += entries.contains(set->oifSetIndex());
    }
  }

  // Route status against what the chips hold.
  std::size_t i = 0;
  // Likewise the VRF's status, per family.
  L3::VrfName const* lastVrf = nullptr;
  Vex::Ptr<Routing::Multicast::Fib::Hardware::VrfStatus const> lastVrfStatus[2];
  LookAhead ahead(desired.begin(), desired.end(), kLookAhead);
  for (auto const& want : desired) {
    std::size_t const slot = i++;
    if (!lastVrf || !(*lastVrf == want.vrfName())) {
      lastVrf = &want.vrfName();
      for (auto af : {Netcore::AddressFamily::ipv4, Netcore::AddressFamily::ipv6}) {
        lastVrfStatus[af == Netcore::AddressFamily::ipv6] = agent.hwStatus(af).vrfStatus(want.vrfName());
      }
    }
    if (auto const* later = ahead.next(); later && later->vrfName() == want.vrfName()) {
      if (auto const& vrf = lastVrfStatus[later->key().af() == Netcore::AddressFamily::ipv6]) vrf->routePrefetch(later->key());
    }
    auto const& vrf = lastVrfStatus[want.key().af() == Netcore::AddressFamily::ipv6];
    auto route = vrf ? vrf->route(want.key()) : nullptr;
    auto name = [&] { return "route [" + want.vrfName().stringValue() + "] " + want.key().pretty() + ": "; };
    if (!route) {
      out.push_back(name() + "has no hardware route status");
      continue;
    }
    bool const held = chips > 0 && heldEverywhere[slot];
    if (!route->programmed() && route->failureReason() != 0) ++load_.unprogrammedByReason[route->failureReason()];
    if (route->programmed() != held) {
      out.push_back(name() + "its status says " + (route->programmed() ? "programmed" : "not programmed") +
                    ", but " + (held ? "every chip holds it as wanted" : "not every chip holds it as wanted"));
    }
  }
  std::size_t statuses = agent.hwStatus(Netcore::AddressFamily::ipv4).routes() +
                         agent.hwStatus(Netcore::AddressFamily::ipv6).routes();
  if (statuses != desired.size()) {
    out.push_back("the hardware status holds " + std::to_string(statuses) + " route statuses for " +
                  std::to_string(desired.size()) + " wanted routes");
  }

  // What the chip itself noticed since the last check (verification included).
  auto const& recorded = chip.violations();
  if (chipViolationsSeen_ > recorded.size()) chipViolationsSeen_ = 0;
  for (std::size_t v = chipViolationsSeen_; v < recorded.size(); ++v) out.push_back(recorded[v]);
  chipViolationsSeen_ = recorded.size();
  return out;
}

std::optional<std::string> InvariantChecker::flowFinding(MrouteLib::DesiredRoute const& route,
                                                         Netcore::IpGenAddr const& source,
                                                         Netcore::IpGenAddr const& group,
                                                         Netcore::IpGenAddr const& setSource) {
  IpGenRouteKey const& key = route.key();
  // Made only for a finding: every flow of a set's traffic is checked.
  auto name = [&] { return "traffic for route [" + route.vrfName().stringValue() + "] " + key.pretty() + " is "; };
  if (source.isZero() || source.af() != key.af() || !key.source().contains(source)) {
    return name() + "sent from " + source.stringValue() + ", which is not one of the route's sources";
  }
  if (setSource.af() == key.af() && key.source().contains(setSource) && source != setSource) {
    return name() + "sent from " + source.stringValue() + ", not from the event's source " + setSource.stringValue();
  }
  if (!key.group().contains(group)) {
    return name() + "sent to " + group.stringValue() + ", which is not one of the route's groups";
  }
  return std::nullopt;
}

}  // namespace FalSim
