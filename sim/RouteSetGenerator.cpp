#include "sim/RouteSetGenerator.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <utility>

#include "platform/vex/Assert.h"

namespace FalSim {

namespace {

constexpr std::uint64_t kSaturated = std::numeric_limits<std::uint64_t>::max();

std::uint64_t saturatingMul(std::uint64_t a, std::uint64_t b) {
  if (a != 0 && b > kSaturated / a) return kSaturated;
  return a * b;
}

// n choose k, saturating.
std::uint64_t choose(std::uint64_t n, std::uint64_t k) {
  if (k > n) return 0;
  k = std::min(k, n - k);
  // result * (n - k + i) / i stays exact at every step; check before it overflows.
  unsigned __int128 result = 1;
  for (std::uint64_t i = 1; i <= k; ++i) {
    result = result * (n - k + i) / i;
    if (result > kSaturated) return kSaturated;
  }
  return static_cast<std::uint64_t>(result);
}

// One output set before it becomes a PortVlanSet: its ports (as indexes into
// the shape's ports, ascending) and its VLAN (index into outputVlans).
struct Draw {
  std::vector<std::size_t> ports;
  std::size_t vlan = 0;
  friend auto operator<=>(Draw const&, Draw const&) = default;
};

MrouteLib::PortVlanSet toPortVlanSet(RouteSetGenerator::Shape const& shape, Draw const& d) {
  MrouteLib::PortVlanSet pvs;
  Bridging::VlanIdOrNone const vlan = shape.outputVlans.empty() ? Bridging::VlanIdOrNone() : shape.outputVlans[d.vlan];
  bool onProtected = false;
  for (std::size_t p : d.ports) {
    pvs.portVlanIs(MrouteLib::PortVlan(shape.ports[p], vlan));
    if (shape.frr && shape.ports[p] == shape.frr->protectedIntf) onProtected = true;
  }
  if (onProtected) {
    pvs.intfIdIs(shape.frr->protectedIntf);
    pvs.currentIifIs(shape.frr->protectedIntf);
    for (auto const& b : shape.frr->backups) pvs.portVlanFrrIs(b);
  }
  return pvs;
}

// Walks every draw in lexicographic order (ports, then VLAN), for the rare
// case where random draws keep hitting sets already taken.
class DrawEnumerator {
 public:
  DrawEnumerator(std::size_t ports, std::size_t perSet, std::size_t vlans) : n_(ports), vlans_(vlans) {
    cur_.ports.resize(perSet);
    std::iota(cur_.ports.begin(), cur_.ports.end(), 0);
  }
  bool done() const { return done_; }
  Draw const& current() const { return cur_; }
  void next() {
    if (++cur_.vlan < vlans_) return;
    cur_.vlan = 0;
    std::size_t const k = cur_.ports.size();
    std::size_t i = k;
    while (i > 0 && cur_.ports[i - 1] == n_ - k + (i - 1)) --i;
    if (i == 0) {
      done_ = true;
      return;
    }
    ++cur_.ports[i - 1];
    for (std::size_t j = i; j < k; ++j) cur_.ports[j] = cur_.ports[j - 1] + 1;
  }

 private:
  std::size_t n_;
  std::size_t vlans_;
  Draw cur_;
  bool done_ = false;
};

}  // namespace

std::uint64_t RouteSetGenerator::maxDistinct(Shape const& shape) {
  std::uint64_t const vlans = std::max<std::size_t>(1, shape.outputVlans.size());
  return saturatingMul(choose(shape.ports.size(), shape.portsPerSet), vlans);
}

Netcore::IpGenAddr RouteSetGenerator::groupOf(Netcore::IpGenAddr const& base, std::uint64_t i) {
  if (base.isV4()) return Netcore::IpGenAddr::v4(static_cast<std::uint32_t>(base.v4Addr() + i));
  auto bytes = base.bytes();
  unsigned carry = 0;
  for (int b = 15; b >= 0; --b) {
    unsigned const add = static_cast<unsigned>(i & 0xFF) + carry;
    i >>= 8;
    unsigned const sum = bytes[b] + add;
    bytes[b] = static_cast<std::uint8_t>(sum);
    carry = sum >> 8;
    if (i == 0 && carry == 0) break;
  }
  return Netcore::IpGenAddr::v6(bytes);
}

Scenario::RouteSet RouteSetGenerator::generate(std::string name, Shape const& shape) {
  VEX_ASSERT(shape.portsPerSet >= 1 && shape.portsPerSet <= shape.ports.size());
  VEX_ASSERT(shape.diversity >= 1 && shape.diversity <= maxDistinct(shape));
  VEX_ASSERT(!shape.acceptingVlans.empty());

  std::mt19937_64 rng(shape.seed);
  std::size_t const vlans = std::max<std::size_t>(1, shape.outputVlans.size());
  std::size_t const wanted = std::min(shape.diversity, std::max<std::size_t>(shape.count, 1));

  // Draw the distinct sets.
  std::set<Draw> taken;
  std::vector<Draw> draws;
  draws.reserve(wanted);
  std::vector<std::size_t> order(shape.ports.size());
  std::size_t attempts = 0;
  std::size_t const maxAttempts = 20 * wanted + 1000;
  while (draws.size() < wanted && attempts++ < maxAttempts) {
    std::iota(order.begin(), order.end(), 0);
    // Partial Fisher-Yates: the first portsPerSet of order are a uniform choice.
    for (std::size_t i = 0; i < shape.portsPerSet; ++i) std::swap(order[i], order[i + rng() % (order.size() - i)]);
    Draw d;
    d.ports.assign(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(shape.portsPerSet));
    std::sort(d.ports.begin(), d.ports.end());
    d.vlan = rng() % vlans;
    if (taken.insert(d).second) draws.push_back(std::move(d));
  }
  for (DrawEnumerator e(shape.ports.size(), shape.portsPerSet, vlans); draws.size() < wanted && !e.done(); e.next()) {
    if (taken.insert(e.current()).second) draws.push_back(e.current());
  }
  VEX_ASSERT(draws.size() == wanted);

  // Each distinct set once, shared by the routes that take it.
  std::vector<MrouteLib::DesiredRoute> sets(draws.size());
  for (std::size_t s = 0; s < draws.size(); ++s) sets[s].outputsIs(toPortVlanSet(shape, draws[s]));

  Scenario::RouteSet out;
  out.name = std::move(name);
  out.generated = true;
  out.distinctOutputs = shape.count == 0 ? 0 : sets.size();
  out.routes.reserve(shape.count);
  for (std::size_t i = 0; i < shape.count; ++i) {
    Netcore::IpGenAddr const group = groupOf(shape.groupBase, i);
    MrouteLib::DesiredRoute r(shape.vrf, Routing::Multicast::Fib::IpGenRouteKey(
                                            shape.source, Netcore::IpGenPrefix(group, Netcore::IpGenPrefix::maxLen(group.af()))));
    Bridging::VlanId const vlan = shape.acceptingVlans[i % shape.acceptingVlans.size()];
    r.acceptingVlanIs(vlan);
    r.acceptingIntfIdIs(Netcore::IntfId::vlan(vlan.value()));
    std::size_t const s = i < sets.size() ? i : rng() % sets.size();
    r.outputsShare(sets[s]);
    out.routes.push_back(std::move(r));
  }
  return out;
}

}  // namespace FalSim
