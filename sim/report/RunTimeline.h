#pragma once
// FalSim::RunTimeline: how a mroute-sim run went over virtual time, for the
// pictures and the JSON report: the sampled figures (a bounded SampleStore),
// the scenario's events as marks on the time axis, and the sharing of the
// replication entries at the end as a histogram of routes per entry.
//
// Times are the scenario's (seconds from its start). A sample's time is the
// end of the interval it covers; a level is the highest value seen in the
// interval, a running total its value at the end.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/upg/RapidJson.h"
#include "platform/vex/Types.h"
#include "sim/report/RunFigure.h"
#include "sim/report/SampleStore.h"

namespace FalSim {

class RunTimeline {
 public:
  struct Series {
    RunFigure figure;
    std::optional<std::uint32_t> chip;  // none: the agent's
    std::size_t column;                 // in the store
  };

  // An event of the scenario, from when it began to when it was done (an
  // interface failure is done when fast reroute has converged).
  struct Mark {
    Vex::Seconds at = 0;
    Vex::Seconds until = 0;
    std::string kind;   // the event's "do"
    std::string label;  // "Ethernet2 down", "+bulk (600)"
    std::string event;  // "events[5]"
  };

  // Samples of some figures (a store and its series).
  struct Samples {
    SampleStore store;
    std::vector<Series> series;

    // The series of a figure (one chip's, or the agent's); null when not sampled.
    Series const* find(RunFigure figure, std::optional<std::uint32_t> chip = std::nullopt) const;
    bool sampled(RunFigure figure) const;
    // "time", "agent" (when it has series) and "chips" of a JSON object.
    void writeJson(rapidjson::PrettyWriter<rapidjson::StringBuffer>& w, std::uint32_t chips) const;
  };

  // The fast-reroute figures of each chip (OIF sets waiting, entries
  // rewritten since the failure) at every turn of the loop from an
  // interface failure to its convergence.
  struct Convergence {
    Mark mark;
    Samples samples;
  };

  // Marks kept; later ones are only counted.
  static constexpr std::size_t kMarksKept = 1000;
  // Failures traced to their convergence, and turns kept of each.
  static constexpr std::size_t kConvergencesKept = 8;
  static constexpr std::size_t kConvergenceRows = 256;

  Vex::Seconds interval = 0;  // between samples before any merge
  std::uint32_t chips = 0;
  Samples samples;
  std::vector<Mark> marks;
  std::size_t marksDropped = 0;
  std::vector<Convergence> convergences;
  // Replication entries by routes pointing at them (bucketed), by chip: when
  // the chips held the most routes, and at the end.
  std::vector<std::vector<std::uint64_t>> routesPerEntryAtPeak;
  Vex::Seconds peakAt = 0;
  std::uint64_t peakRoutes = 0;
  std::vector<std::vector<std::uint64_t>> routesPerEntry;

  // Buckets of routes per entry: 0 (a zombie), 1, 2, 3-4, 5-8, ...
  static std::size_t bucketOf(std::uint64_t routes);
  static std::string bucketLabel(std::size_t bucket);

  void markIs(Mark mark);

  // The "samples" object of the JSON report.
  void writeJson(rapidjson::PrettyWriter<rapidjson::StringBuffer>& w) const;
};

}  // namespace FalSim
