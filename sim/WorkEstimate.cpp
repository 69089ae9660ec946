#include "sim/WorkEstimate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "sim/ScenarioError.h"

namespace FalSim {

namespace {

using EventKind = Scenario::EventKind;

// A count as a reader takes it in: whole below a million, else "1.2e+09".
std::string countText(double n) {
  char buf[32];
  if (n < 1e6) {
    std::snprintf(buf, sizeof buf, "%.0f", n);
  } else {
    std::snprintf(buf, sizeof buf, "%.1e", n);
  }
  return buf;
}

}  // namespace

WorkEstimate::WorkEstimate(Scenario const& s, Vex::Seconds sampleInterval) : chips_(s.chips.count) {
  std::vector<std::size_t> present(s.routeSets.size(), 0);  // routes of each set wanted now
  double routes = 0;
  double interval = s.activityPollingInterval;
  double counterRows = s.allCounter ? 1 : 0;
  Vex::Seconds since = 0;
  // Aging passes run while routes are wanted, one per interval on every chip;
  // one begun before a change counts whole.
  auto ageTo = [&](Vex::Seconds t) {
    if (routes > 0 && t > since) {
      double const passes = std::ceil((t - since) / interval) * chips_;
      agingPasses_ += passes;
      hitBitReads_ += passes * routes;
    }
    since = std::max(since, t);
  };
  for (auto const& e : s.events) {
    ageTo(e.at);
    switch (e.kind) {
      case EventKind::addRoutes: {
        std::size_t const size = s.routeSets[e.set].routes.size();
        std::size_t const before = present[e.set];
        present[e.set] = std::min(size, before + e.count.value_or(size));
        routes += static_cast<double>(present[e.set] - before);
        break;
      }
      case EventKind::removeRoutes: {
        std::size_t const before = present[e.set];
        present[e.set] -= std::min(before, e.count.value_or(before));
        routes -= static_cast<double>(before - present[e.set]);
        break;
      }
      case EventKind::addRoute:
        routes += 1;
        break;
      case EventKind::removeRoute:
        routes = std::max(0.0, routes - 1);
        break;
      case EventKind::config:
        if (e.config.activityPollingInterval) interval = *e.config.activityPollingInterval;
        if (e.config.allCounter && *e.config.allCounter) counterRows = std::max(counterRows, 1.0);
        counterRows += static_cast<double>(e.config.counterRoutes.size());
        break;
      default:
        break;
    }
  }
  ageTo(s.end);
  counterReads_ = counterRows * std::ceil(s.end / kCounterPollingInterval);
  samples_ = s.end / sampleInterval + 1;
}

double WorkEstimate::cpuSeconds() const {
  return hitBitReads_ * kSecondsPerHitBitRead + agingPasses_ * kSecondsPerAgingPass +
         counterReads_ * kSecondsPerCounterRead + samples_ * (kSecondsPerSample + chips_ * kSecondsPerSampledChip);
}

std::string WorkEstimate::text() const {
  char seconds[32];
  double const cpu = cpuSeconds();
  std::snprintf(seconds, sizeof seconds, cpu < 10 ? "%.2g" : "%.0f", cpu);
  return std::string("about ") + seconds + " s of CPU time (" + countText(hitBitReads_) + " hit-bit reads in " +
         countText(agingPasses_) + " aging passes, " + countText(counterReads_) + " counter reads, " +
         countText(samples_) + " samples)";
}

void WorkEstimate::check(std::string const& file, double limitSeconds, std::string const& goOnFlag) const {
  if (cpuSeconds() <= limitSeconds) return;
  char limit[32];
  std::snprintf(limit, sizeof limit, "%g", limitSeconds);
  throw ScenarioError(file, "end", std::string("a run whose clocks need at most ") + limit + " s of CPU time",
                      "one whose clocks need " + text() + "; " + goOnFlag + " runs it anyway");
}

}  // namespace FalSim
