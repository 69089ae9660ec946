#pragma once
// FalSim::SoakGenerator: the random life of one agent for the fault soak,
// made from a seed so every run with that seed is the same.
//
// base() is the agent the soak runs: two chips with tables a little small
// for the routes wanted (so they fill up now and then), eight Ethernet ports,
// three VLANs and two VRFs. The seed also picks the chips' flavours: both
// synchronous, both asynchronous or one of each, and how long an
// asynchronous chip's transactions take. next() is the next step: a route
// added, moved to new outputs, flags or accepting VLAN, or removed; an
// interface flap; a configuration change (zombies, their lifetime, the aging
// interval, counters, a chip's table sizes); a restart; or a fault of the
// chip's hooks (refused allocations, a table forced full or freed again, and
// on asynchronous chips the next transactions of one kind failed, or each
// failing with a probability until that is turned off). Routes come from a
// fixed universe of some seven hundred keys in both VRFs and both families
// ((S, G), (*, G), source and group prefixes), so a few hundred are wanted
// at a time, their outputs mostly from a small pool of sets so that entries
// are shared. Only the first four ports ever fail, and only they are
// protected.
//
// The generator keeps its own book of the agent's wanted state (state()):
// the routes it wants, the ports it set down and every setting it made. The
// soak's forwarding model reads the wanted routes from it, never from the
// agent; eventsToReach() turns a state back into events, so a short window
// of the run can start from where the run was.
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_set.h>

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "sim/InvariantChecker.h"
#include "sim/Scenario.h"
#include "sim/soak/ForwardingModel.h"

namespace FalSim {

class SoakGenerator {
 public:
  static constexpr std::uint32_t kChips = 2;
  static constexpr std::uint32_t kPorts = 8;
  // Ports 1..kFailingPorts go down now and then and protect output sets.
  static constexpr std::uint32_t kFailingPorts = 4;

  // Relative weights of the kinds of step.
  struct Mix {
    double addRoute = 20;
    double moveRoute = 15;
    double removeRoute = 14;
    double interfaceDown = 3;
    double interfaceUp = 4;
    double settings = 4;         // zombies, lifetime, aging interval, counters
    double capacity = 3;         // a chip's table sizes
    double refuseAllocations = 4;
    double forceFull = 1;
    double releaseFull = 4;
    double restart = 0.4;
    // Asynchronous chips only: the next transactions of a kind fail; each
    // fails with a probability, or no longer does.
    double failTransactions = 3;
    double transactionOdds = 0.6;
  };

  using PerTable = std::array<std::array<std::uint32_t, 3>, kChips>;
  // Faults armed on the chips that the wanted state does not show: the
  // allocations each chip's tables are still to refuse, the transactions of
  // each kind an asynchronous chip is still to fail.
  struct Armed {
    PerTable allocations{};
    PerTable transactions{};
  };

  // The agent as the generator made it.
  struct State {
    DesiredRoutes wanted;
    absl::btree_set<Netcore::IntfId> down;
    bool zombies = true;
    Vex::Seconds zombieLifetime = 0;
    std::uint8_t activityPollingInterval = 0;
    bool allCounter = false;
    Routing::Multicast::Fib::CounterMode counterMode = Routing::Multicast::Fib::CounterMode::packets;
    std::array<ReferenceChipCapacity, kChips> capacity;
    std::array<std::array<bool, 3>, kChips> forcedFull{};
    // By chip and AsyncReferenceChip::Operation.
    std::array<std::array<double, 3>, kChips> transactionOdds{};
  };

  SoakGenerator(std::uint64_t seed, Mix mix);
  explicit SoakGenerator(std::uint64_t seed) : SoakGenerator(seed, Mix()) {}

  Scenario const& base() const { return base_; }
  State const& state() const { return state_; }
  Vex::Seconds now() const { return now_; }
  // Whether an output set may be held in its rerouted form: its protected
  // interface went down while a route wanted it, or a route took it while
  // that interface was down, and routes have wanted it ever since (or the
  // interface is down after a restart). See ForwardingModel.
  bool mayBeRerouted(MrouteLib::PortVlanSet const& outputs) const { return mayBeRerouted_.contains(outputs); }
  // Whether a wanted route was a boundary at some time since it was last
  // added: a chip may still hold it as one. See ForwardingModel.
  bool mayHoldBoundary(MrouteLib::DesiredRoute const& r) const {
    return boundaryOnce_.contains({r.vrfName(), r.key()});
  }

  // The next step, at its time (time moves on before it, mostly a little,
  // now and then past a zombie's lifetime); state() follows it.
  Scenario::Event next();
  // A flow to send: one of a wanted route's (mostly on its accepting VLAN),
  // or one to any key of the universe. With asynchronous chips time first
  // moves on by a few transactions' latency, so that those the last steps
  // started have completed: probe at now() after it.
  ForwardingModel::Flow probe();

  // Events at time `at` that bring a fresh agent of base() to state, and arm
  // the faults of armed.
  std::vector<Scenario::Event> eventsToReach(State const& state, Armed const& armed, Vex::Seconds at) const;

 private:
  std::uint64_t draw(std::uint64_t n) { return rng_() % n; }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
  Bridging::VlanId anyVlan() { return base_.vlans[draw(base_.vlans.size())].vlan; }
  MrouteLib::PortVlanSet freshOutputs();
  MrouteLib::DesiredRoute describe(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key);
  std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey> const& anyKey() {
    return universe_[draw(universe_.size())];
  }
  DesiredRoutes::const_iterator anyWanted();

  // An event of kind at now().
  Scenario::Event event(Scenario::EventKind kind) const {
    Scenario::Event e;
    e.at = now_;
    e.kind = kind;
    return e;
  }
  Scenario::Event addOrMove(bool move);
  Scenario::Event remove();
  Scenario::Event flap(bool down);
  Scenario::Event settings();
  Scenario::Event capacity();
  Scenario::Event fault(Scenario::Fault f);
  Scenario::Event transactionFault(bool odds);
  // The chip a fault goes to: mostly one (an asynchronous one for a
  // transaction fault), now and then every chip.
  std::optional<std::uint32_t> faultChip(bool async);
  // Keeps mayBeRerouted_ up to date: after outputs were taken (while their
  // interface may be down), after a route left some outputs, after an
  // interface went down, after a restart.
  void outputsTaken(MrouteLib::PortVlanSet const& outputs);
  void outputsLeft(MrouteLib::PortVlanSet const& outputs);
  void interfaceWentDown(Netcore::IntfId intf);
  void restarted();

  std::mt19937_64 rng_;
  Mix mix_;
  Scenario base_;
  State state_;
  Vex::Seconds now_ = 0;
  absl::flat_hash_set<MrouteLib::PortVlanSet> mayBeRerouted_;
  absl::btree_set<std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey>> boundaryOnce_;
  std::vector<std::uint32_t> asyncChips_;
  std::vector<std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey>> universe_;
  std::vector<MrouteLib::PortVlanSet> pool_;
};

}  // namespace FalSim
