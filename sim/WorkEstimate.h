#pragma once
// FalSim::WorkEstimate: what a scenario's run will cost, told before it runs.
//
// Most of a long run's time goes to work the agent's clocks make due however
// quiet the run is: each aging pass reads the hit bit of every route on every
// chip, each counter poll reads every counter row, and the runner samples its
// figures. Virtual time with nothing due costs nothing (the loop jumps to the
// next clock), so a run's CPU time follows these counts, and a scenario that
// runs far past its last event can be told to be too large up front instead
// of seeming to hang.
//
// The counts follow the events: routes wanted are counted per route set as
// they are added and removed (a set's routes added again after some were
// removed count as new), single routes one by one, the aging interval as
// config events change it. They are upper bounds more than exact figures:
// routes that could not be programmed are counted as aged.
#include <cstdint>
#include <string>

#include "platform/vex/Types.h"
#include "sim/Scenario.h"

namespace FalSim {

class WorkEstimate {
 public:
  // CPU seconds per unit of work, measured on the project machine (Release
  // build, mroute-sim on bench/scenarios/long-run.json and idle variants).
  static constexpr double kSecondsPerHitBitRead = 5e-8;
  static constexpr double kSecondsPerAgingPass = 1e-6;
  static constexpr double kSecondsPerCounterRead = 1e-7;
  static constexpr double kSecondsPerSample = 1e-7;
  static constexpr double kSecondsPerSampledChip = 6e-8;
  // Above this estimate of CPU seconds mroute-sim refuses to start unless told to go on.
  static constexpr double kDefaultLimitSeconds = 20;
  // Between two polls of the route counters (the library's default).
  static constexpr Vex::Seconds kCounterPollingInterval = 2.0;

  // sampleInterval: the one the run will use (see SimRunner::sampleInterval).
  WorkEstimate(Scenario const& scenario, Vex::Seconds sampleInterval);

  double agingPasses() const { return agingPasses_; }
  double hitBitReads() const { return hitBitReads_; }
  double counterReads() const { return counterReads_; }
  double samples() const { return samples_; }
  double cpuSeconds() const;
  // "about 51 s of CPU time (1.0e+09 hit-bit reads in 999999 aging passes, ...)".
  // Only the clocks' work: the events' own (programming, traffic, checks) is not in it.
  std::string text() const;

  // Throws a ScenarioError naming file, the estimate and the way to run it
  // anyway (goOnFlag) when the estimate is above limitSeconds.
  void check(std::string const& file, double limitSeconds, std::string const& goOnFlag) const;

 private:
  std::uint32_t chips_;
  double agingPasses_ = 0;
  double hitBitReads_ = 0;
  double counterReads_ = 0;
  double samples_ = 0;
};

}  // namespace FalSim
