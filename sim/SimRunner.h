#pragma once
// FalSim::SimRunner: runs a scenario through one simulated agent in virtual
// time and collects the report.
//
// Owns the event loop (an ActivityManager on virtual time), the reference
// chips and the agent. The agent's clock starts at kEpoch, not at 0: to the
// agent a time of 0 means "never" (a counter row updated at 0 reads as
// absent, a route last active at 0 was never active). Scenario and report
// times are counted from kEpoch. Each event runs at its time: the loop is
// first run up to it (clocks fire: zombies expire, aging slices run, counters
// are polled), then the event is applied, and the invariants are checked.
// Route events are one batch each: the route programmer is handed the routes,
// commits, and the chips' state machines are told routes changed. An
// interface failure runs the loop until every chip's fast-reroute pass is
// done, which is the time it took to converge. After the last event the loop
// runs to the scenario's end and a final check is made.
//
// run() does it all; start(), step() and finish() let a test look at the
// chips between events.
//
// Chips run the flavour the scenario gives them. A transaction fault makes an
// asynchronous chip's transactions of one kind fail; when its failures stop
// (or room comes back), the chip agent asks the route programmer to retry
// at once.
//
// With "chip": "kernel" the chips are also programmed into the Linux kernel
// (KernelBacking, through KernelChipLink), every traffic packet is also sent
// for real, and a packet whose real copies differ from the reference chip's
// prediction is a failed expectation. start() throws std::system_error when
// the kernel backing cannot be made (no privilege).
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/vex/ActivityManager.h"
#include "sim/InvariantChecker.h"
#include "sim/KernelBacking.h"
#include "sim/ReferenceChip.h"
#include "sim/Scenario.h"
#include "sim/SimAgent.h"
#include "sim/SimReport.h"
#include "sim/WantedRoutes.h"
#include "sim/report/RunSampler.h"

namespace FalSim {

class SimRunner {
 public:
  using ChipFactory = std::function<Vex::Ptr<ReferenceChip>(Vex::Name name, std::uint32_t chips, ReferenceChipCapacity)>;

  struct Options {
    // Makes the reference chips; a plain ReferenceChip when empty. Tests give
    // one that misbehaves.
    ChipFactory chipFactory;
    // Makes the faces of the asynchronous chips; plain ones when empty.
    SimAgent::AsyncChipFactory asyncChipFactory;
    // Told a progress line now and then on runs that take long in wall time,
    // between events, inside long stretches of virtual time (with the wall
    // time left at the stretch's pace) and between the turns of a
    // fast-reroute convergence alike.
    std::function<void(std::string const&)> progress;
    double progressAfterWallSeconds = 3.0;
    double progressEveryWallSeconds = 2.0;
    // Wall-clock seconds for the progress lines and the report; a monotonic
    // clock when empty. Tests give one they move themselves.
    std::function<double()> wallClock;
    // The name under which the agent publishes its counter status for other
    // processes (see SimAgent::counterStatusNameIs); empty: not published.
    std::string counterStatusName;
    // Between samples of the run's figures (virtual seconds); 0: the
    // scenario's "sampleInterval", or one chosen from the run's length.
    Vex::Seconds sampleInterval = 0;
    std::size_t sampleCapacity = SampleStore::kDefaultCapacity;
  };

  // The agent's time at the scenario's time 0.
  static constexpr Vex::Seconds kEpoch = 1024.0;

  explicit SimRunner(Scenario scenario);
  SimRunner(Scenario scenario, Options options);
  ~SimRunner();
  SimRunner(SimRunner const&) = delete;
  SimRunner& operator=(SimRunner const&) = delete;

  SimReport run();

  // Between samples of a run's figures: override when positive, else the
  // scenario's "sampleInterval", else one chosen from the run's length.
  static Vex::Seconds sampleInterval(Scenario const& scenario, Vex::Seconds override);

  // Where the flow a set's traffic sends for the route of key comes from: the
  // event's setSource when the route's source prefix holds it, else an
  // address the prefix holds (the host itself, the first address after a
  // prefix's own, or a documentation address for a (*, G) route).
  static Netcore::IpGenAddr flowSource(Routing::Multicast::Fib::IpGenRouteKey const& key,
                                       Netcore::IpGenAddr const& setSource);

  // Brings the agent up and checks it.
  void start();
  // Runs the next event; false when none is left.
  bool step();
  // Runs e as if it were the next event of the scenario, without adding it
  // to the scenario's list: for callers that make events as they go (the
  // soak). Its route events may not name route sets.
  void runEvent(Scenario::Event const& e);
  // Runs to the end time, checks once more and completes the report.
  void finish();
  SimReport const& report() const { return report_; }

  Scenario const& scenario() const { return scenario_; }
  std::size_t nextEvent() const { return next_; }
  Vex::ActivityManager& activityManager() { return am_; }
  // The scenario's time now, and running the loop up to a scenario time.
  Vex::Seconds now() const { return am_.now() - kEpoch; }
  void runUntil(Vex::Seconds t) { am_.runUntil(kEpoch + t); }
  ReferenceChip& chip() { return *chip_; }
  SimAgent& agent() { return *agent_; }
  KernelBacking* kernel() { return kernel_.get(); }
  WantedRoutes const& desired() const { return desired_; }

 private:
  void apply(Scenario::Event const& e);
  // kept: route is the scenario's own, which outlives the run.
  void addRoute(MrouteLib::DesiredRoute const& route, bool kept);
  void removeRoute(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& key);
  void endBatch();
  void interfaceDown(Netcore::IntfId intf, std::string const& where);
  void traffic(Scenario::Event const& e);
  void config(Scenario::Config const& c);
  void fault(Scenario::Fault const& f);
  void restart(Scenario::Event const& e);
  // Room came back on a chip, or its failures stopped: the chip agent asks
  // for a review of parked routes.
  void kick(std::optional<std::uint32_t> chip);
  void transactionFault(Scenario::Fault const& f);
  void check(std::string const& where);
  // Runs the loop to the scenario time t, one clock time after the other, with a progress line
  // whenever one is due: a long stretch of virtual time is no silent hang. Virtual time with
  // nothing due is skipped at once: the loop goes straight to the next clock.
  void runTo(Vex::Seconds t);
  void progress(Vex::Seconds target);
  double wallNow() const;
  void fillFigures();
  void fillAsyncFigures();

  Scenario scenario_;
  Options options_;
  Vex::ActivityManager am_;
  Vex::Ptr<ReferenceChip> chip_;
  // The kernel behind the chips, for a scenario whose chips are "kernel".
  std::unique_ptr<KernelBacking> kernel_;
  std::unique_ptr<SimAgent> agent_;
  std::unique_ptr<RunSampler> sampler_;
  InvariantChecker checker_;
  WantedRoutes desired_;
  SimReport report_;
  std::size_t next_ = 0;
  std::size_t peakRoutesWithEntry_ = 0;
  absl::btree_map<std::uint32_t, std::size_t> peakParkedByReason_;  // by failure code
  double wallStart_ = 0;
  double lastProgress_ = 0;
  // Where the stretch runTo is in began, in wall and scenario time: its pace
  // so far tells how long the rest will take.
  double stretchWall_ = 0;
  Vex::Seconds stretchFrom_ = 0;
  bool started_ = false;
  bool finished_ = false;
};

}  // namespace FalSim
