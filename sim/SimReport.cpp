#include "sim/SimReport.h"

#include <cstdio>
#include <string>

#include "platform/upg/RapidJson.h"
#include "sim/Printable.h"

namespace FalSim {

namespace {

std::string seconds(Vex::Seconds s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.6f s", s);
  return buf;
}

std::string ratio(double r) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f", r);
  return buf;
}

}  // namespace

void SimReport::violationIs(std::string text) {
  ++violations;
  if (findings.size() < kFindingsKept) findings.push_back(std::move(text));
}

void SimReport::expectationFailedIs(std::string text) {
  ++expectationsFailed;
  if (findings.size() < kFindingsKept) findings.push_back(std::move(text));
}

void SimReport::printVerdict(std::ostream& os) const {
  os << "mroute-sim: " << Printable::text(scenario) << ": " << (ok() ? "OK" : "FAILED") << " (" << checks << " checks, " << violations
     << " invariant violations, " << expectationsFailed << " failed expectations)\n";
}

void SimReport::printHuman(std::ostream& os) const {
  auto line = [&os](char const* title, std::string const& text) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%-14s", title);
    os << buf << text << '\n';
  };
  using std::to_string;
  line("Scenario", Printable::text(scenario) + (description.empty() ? "" : ": " + Printable::text(description)));
  line("Run", to_string(events) + " events (" + to_string(eventsLate) + " late), " + to_string(chips) +
                  (chips == 1 ? " chip" : " chips") + ", virtual time " + seconds(endTime) + ", wall " + seconds(wallSeconds));
  std::string peakReasons;
  for (auto const& [reason, n] : peakParkedByReason) peakReasons += (peakReasons.empty() ? "; " : ", ") + reason + " " + to_string(n);
  line("Routes", "wanted " + to_string(routesDesired) + ", programmed on every chip " + to_string(routesProgrammed) +
                     ", parked " + to_string(routesParked) + " (peak " + to_string(peakRoutesParked) + peakReasons +
                     "), retries " + to_string(retries) + ", chip calls " + to_string(programmingCalls));
  line("Hardware", "routes " + to_string(hwRoutes) + ", boundary entries " + to_string(hwBoundaries) +
                       " (all chips)");
  line("Replication", "entries in use " + to_string(entriesInUse) + " (zombies " + to_string(zombiesNow) +
                          "), peak " + to_string(peakEntries) + ", allocated " + to_string(allocations) +
                          ", freed " + to_string(frees));
  line("Sharing", ratio(sharingRatio) + " routes per entry at the end, " + ratio(sharingAtPeak) + " at peak load (" +
                      to_string(peakHwRoutes) + " routes); " + to_string(distinctOutputSets) +
                      " distinct output sets wanted");
  line("Zombies", "entered " + to_string(zombiesEntered) + ", reused " + to_string(zombieReuses) + ", expired " +
                      to_string(zombieExpiries));
  line("Table full", "route " + to_string(tableFullEpisodes[0]) + ", boundary " + to_string(tableFullEpisodes[1]) +
                         ", replication " + to_string(tableFullEpisodes[2]) + " episodes; refused allocations " +
                         to_string(refusedAllocations));
  line("Fast reroute", "interface failures " + to_string(interfaceFailures) + ", entries rewritten in place " +
                           to_string(frrRewrites) + ", converged in " + seconds(lastConvergence) + " (longest " +
                           seconds(longestConvergence) + ")");
  line("Aging", "passes " + to_string(agingPassesStarted) + " started, " + to_string(agingPassesCompleted) +
                    " completed; hit bits read " + to_string(hitBitReads) + ", stamps " + to_string(activityStamps) +
                    ", routes with activity " + to_string(routesWithActivity));
  line("Counters", "rows " + to_string(counterRows) + " (active " + to_string(counterActive) + "), counted " +
                       to_string(countedTotal) + ", reads " + to_string(counterReads));
  line("Traffic", "packets sent " + to_string(packetsSent) + ", forwarded " + to_string(packetsForwarded) +
                      ", dropped " + to_string(packetsDropped) + ", copies " + to_string(copies) +
                      "; expectations met " + to_string(expectationsMet) + ", failed " + to_string(expectationsFailed));
  if (asyncChips > 0) {
    std::string failed;
    for (auto const& [reason, n] : xactsFailedByReason) failed += (failed.empty() ? "" : ", ") + reason + " " + to_string(n);
    line("Transactions", to_string(asyncChips) + (asyncChips == 1 ? " asynchronous chip" : " asynchronous chips") +
                             ": started " + to_string(xactsStarted) + ", completed " + to_string(xactsCompleted) +
                             ", failed " + to_string(xactsFailed) + (failed.empty() ? "" : " (" + failed + ")") +
                             "; longest wait " + seconds(longestWait) + ", routes waiting " + to_string(routesWaiting));
    line("Groups", "allocated " + to_string(groupsAllocated) + ", shared " + to_string(groupsShared) +
                       ", resurrected " + to_string(groupsResurrected) + ", purged " + to_string(groupsPurged) +
                       ", deleted " + to_string(groupsDeleted) + ", rewritten in place " + to_string(groupUpdates));
    line("Async aging", "slices " + to_string(asyncAgingSlices) + ", last-access reads " + to_string(lastAccessReads) +
                            ", stamps " + to_string(lastAccessStamps));
  }
  if (kernelChips > 0) {
    line("Kernel", to_string(kernelChips) + (kernelChips == 1 ? " chip" : " chips") + " on the Linux kernel: real packets sent " +
                       to_string(realPacketsSent) + " (send errors " + to_string(realSendErrors) + "), copies captured " +
                       to_string(realCopiesCaptured) + " of " + to_string(realCopiesPredicted) + " predicted; " +
                       to_string(realPacketsAsPredicted) + " packets as predicted, " +
                       to_string(realPacketsNotAsPredicted) + " not; allocations the kernel refused " +
                       to_string(kernelRefusals));
  }
  line("Restarts", to_string(restarts) + " (route statuses recovered " + to_string(routesRecovered) +
                       ", stale chip entries cleared " + to_string(staleEntriesCleared) +
                       ", stale statuses removed " + to_string(staleStatusesRemoved) + ")");
  line("Event loop", "longest slice " + seconds(longestSlice) + ", longest event " + seconds(longestEvent) +
                         (longestEventPath.empty() ? "" : " (" + Printable::text(longestEventPath) + ")"));
  line("Invariants", std::string(violations == 0 ? "HOLD" : "BROKEN") + ": " + to_string(checks) + " checks, " +
                         to_string(violations) + " violations");
  line("Verdict", std::string(ok() ? "OK" : "FAILED") + " (" + to_string(violations) + " invariant violations, " +
                      to_string(expectationsFailed) + " failed expectations)");
  for (auto const& f : findings) os << "  " << Printable::text(f) << '\n';
  if (violations + expectationsFailed > findings.size()) {
    os << "  ... and " << (violations + expectationsFailed - findings.size()) << " more\n";
  }
}

void SimReport::printJson(std::ostream& os) const {
  rapidjson::StringBuffer buf;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> w(buf);
  w.SetIndent(' ', 2);
  auto u = [&w](char const* k, std::uint64_t v) {
    w.Key(k);
    w.Uint64(v);
  };
  auto d = [&w](char const* k, double v) {
    w.Key(k);
    w.Double(v);
  };
  // Texts from the scenario file may hold anything; the report stays valid UTF-8.
  auto text = [&w](std::string const& v) {
    std::string const printable = Printable::text(v);
    w.String(printable.c_str(), static_cast<rapidjson::SizeType>(printable.size()));
  };
  auto s = [&w, &text](char const* k, std::string const& v) {
    w.Key(k);
    text(v);
  };
  w.StartObject();
  s("scenario", scenario);
  s("description", description);
  w.Key("ok");
  w.Bool(ok());
  w.Key("run");
  w.StartObject();
  u("chips", chips);
  u("events", events);
  u("eventsLate", eventsLate);
  d("endTime", endTime);
  d("wallSeconds", wallSeconds);
  w.EndObject();
  w.Key("routes");
  w.StartObject();
  u("wanted", routesDesired);
  u("programmed", routesProgrammed);
  u("parked", routesParked);
  u("peakParked", peakRoutesParked);
  w.Key("peakParkedByReason");
  w.StartObject();
  for (auto const& [reason, n] : peakParkedByReason) u(reason.c_str(), n);
  w.EndObject();
  u("retries", retries);
  u("chipCalls", programmingCalls);
  u("hwRoutes", hwRoutes);
  u("hwBoundaries", hwBoundaries);
  w.EndObject();
  w.Key("replication");
  w.StartObject();
  u("entriesInUse", entriesInUse);
  u("zombies", zombiesNow);
  u("peakEntries", peakEntries);
  u("allocated", allocations);
  u("freed", frees);
  u("distinctOutputSets", distinctOutputSets);
  d("sharingRatio", sharingRatio);
  d("sharingAtPeak", sharingAtPeak);
  u("peakHwRoutes", peakHwRoutes);
  w.EndObject();
  w.Key("zombies");
  w.StartObject();
  u("entered", zombiesEntered);
  u("reused", zombieReuses);
  u("expired", zombieExpiries);
  w.EndObject();
  w.Key("tableFull");
  w.StartObject();
  u("route", tableFullEpisodes[0]);
  u("boundary", tableFullEpisodes[1]);
  u("replication", tableFullEpisodes[2]);
  u("refusedAllocations", refusedAllocations);
  w.EndObject();
  w.Key("fastReroute");
  w.StartObject();
  u("interfaceFailures", interfaceFailures);
  u("rewrites", frrRewrites);
  d("lastConvergence", lastConvergence);
  d("longestConvergence", longestConvergence);
  w.EndObject();
  w.Key("aging");
  w.StartObject();
  u("passesStarted", agingPassesStarted);
  u("passesCompleted", agingPassesCompleted);
  u("hitBitReads", hitBitReads);
  u("stamps", activityStamps);
  u("routesWithActivity", routesWithActivity);
  w.EndObject();
  w.Key("counters");
  w.StartObject();
  u("rows", counterRows);
  u("active", counterActive);
  w.Key("counted");
  w.Int64(countedTotal);
  u("reads", counterReads);
  w.EndObject();
  w.Key("traffic");
  w.StartObject();
  u("sent", packetsSent);
  u("forwarded", packetsForwarded);
  u("dropped", packetsDropped);
  u("copies", copies);
  u("expectationsMet", expectationsMet);
  u("expectationsFailed", expectationsFailed);
  w.EndObject();
  if (asyncChips > 0) {
    w.Key("async");
    w.StartObject();
    u("chips", asyncChips);
    w.Key("transactions");
    w.StartObject();
    u("started", xactsStarted);
    u("completed", xactsCompleted);
    u("failed", xactsFailed);
    w.Key("failedByReason");
    w.StartObject();
    for (auto const& [reason, n] : xactsFailedByReason) u(reason.c_str(), n);
    w.EndObject();
    d("longestWait", longestWait);
    u("routesWaiting", routesWaiting);
    w.EndObject();
    w.Key("groups");
    w.StartObject();
    u("allocated", groupsAllocated);
    u("shared", groupsShared);
    u("resurrected", groupsResurrected);
    u("purged", groupsPurged);
    u("deleted", groupsDeleted);
    u("rewrittenInPlace", groupUpdates);
    w.EndObject();
    w.Key("aging");
    w.StartObject();
    u("slices", asyncAgingSlices);
    u("lastAccessReads", lastAccessReads);
    u("stamps", lastAccessStamps);
    w.EndObject();
    w.EndObject();
  }
  if (kernelChips > 0) {
    w.Key("kernel");
    w.StartObject();
    u("chips", kernelChips);
    u("packetsSent", realPacketsSent);
    u("sendErrors", realSendErrors);
    u("copiesPredicted", realCopiesPredicted);
    u("copiesCaptured", realCopiesCaptured);
    u("packetsAsPredicted", realPacketsAsPredicted);
    u("packetsNotAsPredicted", realPacketsNotAsPredicted);
    u("kernelRefusals", kernelRefusals);
    w.EndObject();
  }
  w.Key("restarts");
  w.StartObject();
  u("count", restarts);
  u("routesRecovered", routesRecovered);
  u("staleEntriesCleared", staleEntriesCleared);
  u("staleStatusesRemoved", staleStatusesRemoved);
  w.EndObject();
  w.Key("eventLoop");
  w.StartObject();
  d("longestSlice", longestSlice);
  d("longestEvent", longestEvent);
  s("longestEventAt", longestEventPath);
  w.EndObject();
  w.Key("invariants");
  w.StartObject();
  w.Key("hold");
  w.Bool(violations == 0);
  u("checks", checks);
  u("violations", violations);
  w.Key("findings");
  w.StartArray();
  for (auto const& f : findings) text(f);
  w.EndArray();
  w.EndObject();
  w.Key("samples");
  timeline.writeJson(w);
  w.EndObject();
  os << buf.GetString() << '\n';
}

}  // namespace FalSim
