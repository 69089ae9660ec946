#pragma once
// FalSim::RunFigure: the figures mroute-sim samples over a run, with the name
// each has in the JSON report, what it counts, and how its samples merge.
//
// Agent figures have one series; chip figures one per chip. A chip figure
// marked `async` exists only for chips of the asynchronous flavour.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/report/SampleStore.h"

namespace FalSim {

enum class RunFigure : std::uint8_t {
  // The agent.
  routesWanted,
  routesProgrammed,  // on every chip
  routesParked,      // on some chip
  counterRows,
  counterReads,
  longestSlice,  // the longest event-loop slice of the interval
  // Each chip.
  hwRoutes,  // routes in the chip's route table
  entriesInUse,
  zombies,
  routeTableFull,  // table-full episodes so far
  boundaryTableFull,
  replicationTableFull,
  frrWaiting,  // OIF sets waiting for their fast-reroute rewrite
  frrRewrites,
  agingReviews,
  hitBitReads,
  stamps,
  xactsInFlight,
  xactsFailed,
};

struct RunFigureInfo {
  RunFigure figure;
  char const* key;    // the JSON name
  char const* label;  // words for a legend
  bool perChip;
  bool async;
  SampleStore::Merge merge;  // max for a level, last for a running total
};

inline constexpr std::array<RunFigureInfo, 19> kRunFigures{{
    {RunFigure::routesWanted, "routesWanted", "wanted", false, false, SampleStore::Merge::max},
    {RunFigure::routesProgrammed, "routesProgrammed", "programmed on every chip", false, false, SampleStore::Merge::max},
    {RunFigure::routesParked, "routesParked", "parked on some chip", false, false, SampleStore::Merge::max},
    {RunFigure::counterRows, "counterRows", "counter rows", false, false, SampleStore::Merge::max},
    {RunFigure::counterReads, "counterReads", "counter reads", false, false, SampleStore::Merge::last},
    {RunFigure::longestSlice, "longestSlice", "longest slice", false, false, SampleStore::Merge::max},
    {RunFigure::hwRoutes, "hwRoutes", "in the route table", true, false, SampleStore::Merge::max},
    {RunFigure::entriesInUse, "entriesInUse", "entries in use", true, false, SampleStore::Merge::max},
    {RunFigure::zombies, "zombies", "zombies", true, false, SampleStore::Merge::max},
    {RunFigure::routeTableFull, "routeTableFull", "route table", true, false, SampleStore::Merge::last},
    {RunFigure::boundaryTableFull, "boundaryTableFull", "boundary table", true, false, SampleStore::Merge::last},
    {RunFigure::replicationTableFull, "replicationTableFull", "replication table", true, false,
     SampleStore::Merge::last},
    {RunFigure::frrWaiting, "frrWaiting", "OIF sets waiting", true, false, SampleStore::Merge::max},
    {RunFigure::frrRewrites, "frrRewrites", "entries rewritten", true, false, SampleStore::Merge::last},
    {RunFigure::agingReviews, "agingReviews", "reviews started", true, false, SampleStore::Merge::last},
    {RunFigure::hitBitReads, "hitBitReads", "hit bits read", true, false, SampleStore::Merge::last},
    {RunFigure::stamps, "stamps", "activity stamps", true, false, SampleStore::Merge::last},
    {RunFigure::xactsInFlight, "xactsInFlight", "transactions in flight", true, true, SampleStore::Merge::max},
    {RunFigure::xactsFailed, "xactsFailed", "transactions failed", true, true, SampleStore::Merge::last},
}};

inline RunFigureInfo const& runFigureInfo(RunFigure f) { return kRunFigures[static_cast<std::size_t>(f)]; }

}  // namespace FalSim
