#pragma once
// FalSim::RunSampler: samples a simulated agent's figures over virtual time
// into a RunTimeline while the run goes on.
//
// A clock on the run's event loop takes a sample every interval, so samples
// fall at the same virtual times whatever the events are, and the loop runs
// them between events as it runs the agent's own clocks. Between two samples
// the runner calls observe() where a level may peak and fall back before the
// next sample (after each event, between the turns of a fast-reroute pass);
// a level's sample is the highest value seen since the previous one.
//
// Memory is bounded by the timeline's store (older samples merged pairwise),
// not by the length of the run.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Clock.h"
#include "sim/ReferenceChip.h"
#include "sim/Scenario.h"
#include "sim/SimAgent.h"
#include "sim/report/RunTimeline.h"

namespace FalSim {

class RunSampler {
 public:
  // Samples a run is given when neither the scenario nor the command line
  // sets the interval.
  static constexpr double kAutoSamples = 256;

  // The interval for a run of `end` seconds: a round value near end/kAutoSamples.
  static Vex::Seconds autoInterval(Vex::Seconds end);
  // The first tick of the grid origin + k * interval that is later than now.
  static Vex::Seconds nextTick(Vex::Seconds origin, Vex::Seconds interval, Vex::Seconds now);

  // origin: the loop's time at the scenario's time 0. Takes the first sample now.
  RunSampler(Vex::ActivityManager& am, Vex::Seconds origin, Vex::Seconds interval, std::size_t capacity,
             SimAgent const& agent, ReferenceChip const& chip);
  ~RunSampler();
  RunSampler(RunSampler const&) = delete;
  RunSampler& operator=(RunSampler const&) = delete;

  // Notes the levels now; the next sample keeps their peaks. During a
  // failure's convergence, also traces its fast-reroute figures.
  void observe();
  // An interface has just failed: observe() traces the convergence until
  // the event is done.
  void failureBegin();
  // The event ran from `at` to now (loop times); marks it and observes.
  void eventDone(Scenario const& scenario, Scenario::Event const& e, Vex::Seconds at);
  // A last sample now (the run's end), and the sharing histogram; the timeline is complete.
  void finish();

  RunTimeline const& timeline() const { return timeline_; }
  RunTimeline takeTimeline() { return std::move(timeline_); }

 private:
  class Tick;

  double value(RunFigure figure, std::optional<std::uint32_t> chip) const;
  std::vector<double> levels() const;
  void sample();
  void trace();
  // Replication entries by routes per entry (bucketed), by chip, now.
  std::vector<std::vector<std::uint64_t>> routesPerEntry() const;

  Vex::ActivityManager& am_;
  Vex::Seconds origin_;
  SimAgent const& agent_;
  ReferenceChip const& chip_;
  RunTimeline timeline_;
  std::unique_ptr<Tick> tick_;
  // The highest level of each series since the last sample (running totals: unused).
  std::vector<double> peaks_;
  Vex::Seconds lastSample_ = 0;
  // The convergence being traced, if any, and its figures' values at the failure.
  RunTimeline::Convergence* tracing_ = nullptr;
  std::vector<double> traceBase_;
};

}  // namespace FalSim
