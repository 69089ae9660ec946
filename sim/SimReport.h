#pragma once
// FalSim::SimReport: the figures of one mroute-sim run, and its two forms: a
// human report and JSON for machines.
//
// The verdict is ok() when every invariant held after every event and every
// traffic expectation was met; mroute-sim exits 0 then, 1 otherwise.
#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/vex/Types.h"
#include "sim/report/RunTimeline.h"

namespace FalSim {

class SimReport {
 public:
  // Findings (violations and failed expectations) kept word for word; the
  // rest are only counted.
  static constexpr std::size_t kFindingsKept = 20;

  std::string scenario;
  std::string description;
  std::uint32_t chips = 0;
  std::size_t events = 0;
  std::size_t eventsLate = 0;  // started after their time: earlier work ran past it
  Vex::Seconds endTime = 0;
  double wallSeconds = 0;

  // Routes.
  std::size_t routesDesired = 0;
  std::size_t routesProgrammed = 0;  // on every chip
  std::size_t routesParked = 0;      // on some chip, at the end
  std::size_t peakRoutesParked = 0;
  // The most routes held back at once for each reason their status gave, in
  // the order of the codes.
  std::vector<std::pair<std::string, std::size_t>> peakParkedByReason;
  std::uint64_t retries = 0;
  std::uint64_t programmingCalls = 0;
  std::size_t hwRoutes = 0;  // over all chips, at the end
  std::size_t hwBoundaries = 0;

  // Replication table.
  std::size_t entriesInUse = 0;  // over all chips, zombies included, at the end
  std::size_t zombiesNow = 0;
  std::uint64_t peakEntries = 0;
  std::uint64_t allocations = 0;
  std::uint64_t frees = 0;
  std::size_t distinctOutputSets = 0;  // among the wanted routes, at the end
  double sharingRatio = 0;             // routes per live entry, at the end
  double sharingAtPeak = 0;            // the same, when the chips held the most routes
  std::size_t peakHwRoutes = 0;

  // Zombies.
  std::uint64_t zombiesEntered = 0;
  std::uint64_t zombieReuses = 0;
  std::uint64_t zombieExpiries = 0;

  // Full tables: episodes by route, boundary, replication; refused allocations.
  std::array<std::uint64_t, 3> tableFullEpisodes{};
  std::uint64_t refusedAllocations = 0;

  // Fast reroute.
  std::size_t interfaceFailures = 0;
  std::uint64_t frrRewrites = 0;  // entries rewritten in place
  Vex::Seconds lastConvergence = 0;
  Vex::Seconds longestConvergence = 0;

  // Aging.
  std::uint64_t agingPassesStarted = 0;
  std::uint64_t agingPassesCompleted = 0;
  std::uint64_t hitBitReads = 0;
  std::uint64_t activityStamps = 0;
  std::size_t routesWithActivity = 0;  // route statuses stamped at least once, at the end

  // Route counters.
  std::size_t counterRows = 0;
  std::size_t counterActive = 0;
  std::int64_t countedTotal = 0;  // sum of the published values
  std::uint64_t counterReads = 0;

  // Traffic.
  std::uint64_t packetsSent = 0;
  std::uint64_t packetsForwarded = 0;
  std::uint64_t packetsDropped = 0;
  std::uint64_t copies = 0;
  std::size_t expectationsMet = 0;
  std::size_t expectationsFailed = 0;

  // Asynchronous chips (when there are any).
  std::uint32_t asyncChips = 0;
  std::uint64_t xactsStarted = 0;
  std::uint64_t xactsCompleted = 0;  // succeeded
  std::uint64_t xactsFailed = 0;
  std::vector<std::pair<std::string, std::uint64_t>> xactsFailedByReason;  // in the order of the codes
  Vex::Seconds longestWait = 0;  // of a route on one chip, for its transactions
  std::size_t routesWaiting = 0;  // at the end
  std::uint64_t groupsAllocated = 0;
  std::uint64_t groupsShared = 0;      // handed to a route while other routes held them
  std::uint64_t groupsResurrected = 0;  // zombies taken back
  std::uint64_t groupsPurged = 0;       // zombies released when their lifetime ran out
  std::uint64_t groupsDeleted = 0;
  std::uint64_t groupUpdates = 0;       // rewritten in place (fast reroute)
  std::uint64_t asyncAgingSlices = 0;
  std::uint64_t lastAccessReads = 0;
  std::uint64_t lastAccessStamps = 0;   // reads that found newer activity

  // Real packets through the Linux kernel (chips "kernel" only).
  std::uint32_t kernelChips = 0;
  std::uint64_t realPacketsSent = 0;
  std::uint64_t realSendErrors = 0;
  std::uint64_t realCopiesPredicted = 0;  // by the reference chip
  std::uint64_t realCopiesCaptured = 0;
  std::uint64_t realPacketsAsPredicted = 0;
  std::uint64_t realPacketsNotAsPredicted = 0;
  std::uint64_t kernelRefusals = 0;

  // Restarts.
  std::size_t restarts = 0;
  std::size_t routesRecovered = 0;
  std::size_t staleEntriesCleared = 0;
  std::size_t staleStatusesRemoved = 0;

  // Event loop.
  Vex::Seconds longestSlice = 0;
  Vex::Seconds longestEvent = 0;
  std::string longestEventPath;

  // Invariants.
  std::size_t checks = 0;
  std::size_t violations = 0;
  std::vector<std::string> findings;  // the first kFindingsKept, in order

  // The figures over time, the events and the sharing at the end.
  RunTimeline timeline;

  bool ok() const { return violations == 0 && expectationsFailed == 0; }
  // Counts a broken invariant and keeps its text while there is room.
  void violationIs(std::string text);
  // Counts a traffic expectation that was not met and keeps its text likewise.
  void expectationFailedIs(std::string text);

  void printHuman(std::ostream& os) const;
  // One line: the verdict and the counts behind it.
  void printVerdict(std::ostream& os) const;
  void printJson(std::ostream& os) const;
};

}  // namespace FalSim
