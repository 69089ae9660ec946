#pragma once
// FalSim::Soak: the fault soak of mroute-sim (--soak STEPS --seed N).
//
// One agent over reference chips (of the flavours the seed picks) lives
// through STEPS random steps of SoakGenerator: routes added, moved and
// removed, interfaces flapping, settings and table sizes changing, restarts
// and hook faults, failed transactions among them. After every step the
// runner checks every invariant, and a probe packet's fate on every chip is
// compared with what ForwardingModel makes of the wanted routes alone (sent
// as a traffic event whose expectation the model sets). A flow the model
// cannot predict is not sent; the summary counts those by why the route
// that left it open was not programmed: the failure code in its status (a
// full table, a refused allocation, a failed transaction, parked until the
// route programmer's retry takes it), or none yet (its transactions still
// outstanding).
//
// What a failed transaction means for the forwarding follows from what the
// system does with it: a failed group write or ingress binding parks the
// route (not programmed: its flows are not predicted until a retry has
// programmed it); a failed in-place update of a group leaves its old outputs,
// and updates are only made to rewrite a set for fast reroute, whose copies
// the model leaves open anyway.
//
// On the first finding the soak stops and looks for the shortest scenario
// file that shows the same finding: it replays windows of the last steps
// from snapshots of the wanted state (taken every few hundred steps), the
// shortest window first, then the whole run when it is short enough to be
// kept; the first window that shows it is cut down by ScenarioShrinker, the
// result written out with ScenarioWriter, and read back and run once more
// to confirm it. Runs are deterministic: the same seed finds the same.
#include <absl/container/btree_map.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "sim/SimRunner.h"
#include "sim/soak/SoakGenerator.h"

namespace FalSim {

class Soak {
 public:
  struct Options {
    std::uint64_t steps = 1000;
    std::uint64_t seed = 1;
    // Where the reproducing scenario goes; empty: it is not written.
    std::string reproPath;
    // Told a line every progressEvery seconds of wall time.
    std::function<void(std::string const&)> progress;
    double progressEvery = 5.0;
    // The chips; tests give one that misbehaves.
    SimRunner::ChipFactory chipFactory;
    SimAgent::AsyncChipFactory asyncChipFactory;
    SoakGenerator::Mix mix;
    // Runs the shrinking may make.
    std::size_t shrinkTrials = 2000;
  };

  struct Summary {
    std::uint64_t seed = 0;
    std::uint64_t steps = 0;  // run
    std::uint64_t events = 0;
    std::array<std::uint64_t, 10> eventsByKind{};  // by Scenario::EventKind
    std::uint64_t probes = 0;                      // flows sent
    std::uint64_t probesForwarded = 0;             // of which predicted forwarded
    std::uint64_t probesCopiesLeftOpen = 0;        // ... with copies left open by fast reroute
    std::uint64_t probesUnpredicted = 0;           // flows not sent: a covering route was not programmed
    // ... by the failure code in that route's status ("inFlight": none).
    absl::btree_map<std::string, std::uint64_t> unpredictedByReason;
    std::string chips;  // the flavour of each chip
    std::size_t checks = 0;
    std::size_t violations = 0;
    std::size_t failedExpectations = 0;
    std::size_t routesWantedAtEnd = 0;
    std::size_t routesProgrammedAtEnd = 0;
    std::uint64_t refusedAllocations = 0;
    std::uint64_t zombieReuses = 0;
    std::uint64_t frrRewrites = 0;
    std::uint64_t transactions = 0;  // asynchronous chips' transactions
    std::uint64_t failedTransactions = 0;
    absl::btree_map<std::string, std::uint64_t> failedTransactionsByReason;
    std::size_t restarts = 0;
    Vex::Seconds virtualTime = 0;
    double wallSeconds = 0;
    // The first finding, and what became of reproducing it.
    std::optional<std::string> finding;
    std::size_t reproEvents = 0;
    std::size_t shrinkTrials = 0;
    bool reproConfirmed = false;
    std::string reproPath;

    bool ok() const { return !finding; }
    void print(std::ostream& os) const;
  };

  explicit Soak(Options options);
  Summary run();

  // Whether the first finding of running scenario is of the same shape as
  // finding.
  static bool reproduces(Scenario const& scenario, std::string const& finding, SimRunner::Options const& runnerOptions);
  // The finding without its "events[N]: " (or "start: ", "end: ") prefix.
  static std::string withoutPath(std::string const& finding);
  // What a finding says with every number in it as "#": a shorter run shows
  // the same fault with other handles, indexes and counts.
  static std::string shape(std::string const& finding);

 private:
  struct Snapshot {
    std::uint64_t event = 0;  // the index of the first event after it
    Vex::Seconds at = 0;
    SoakGenerator::State state;
    SoakGenerator::Armed armed;
  };

  // Runs one event; false when it gave a finding.
  bool runEvent(Scenario::Event e);
  void probe();
  void snapshot();
  void reproduce(std::string const& finding);
  // The base scenario with the events from snapshot s up to the failing one,
  // or from the start when s is null.
  Scenario window(Snapshot const* s) const;
  void progress(bool force = false);
  // Why a wanted route is not programmed: its failure's name, or "inFlight".
  std::string unprogrammedReason(MrouteLib::DesiredRoute const& route);
  SimRunner::Options runnerOptions() const;

  Options options_;
  SoakGenerator gen_;
  SimRunner runner_;
  ForwardingModel model_;
  Summary summary_;
  // The last events run, the first of them numbered historyStart_.
  std::deque<Scenario::Event> history_;
  std::uint64_t historyStart_ = 0;
  std::deque<Snapshot> snapshots_;
  double wallStart_ = 0;
  double lastProgress_ = 0;
};

}  // namespace FalSim
