#include "sim/report/HtmlReport.h"

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <string>

#include "sim/report/Svg.h"
#include "sim/report/SvgChart.h"
#include "sim/report/SvgHistogram.h"

namespace FalSim {

namespace {

constexpr char const* kStyle = R"(
body { font-family: sans-serif; margin: 16px 24px; color: #222; max-width: 1000px; }
h1 { font-size: 22px; margin: 0 0 4px 0; }
h2 { font-size: 17px; margin: 22px 0 4px 0; border-bottom: 1px solid #ddd; }
p.description { margin: 2px 0 10px 0; color: #444; }
.verdict { font-size: 15px; padding: 2px 10px; border-radius: 4px; color: #fff; vertical-align: middle; }
.verdict.ok { background: #1b7f3a; }
.verdict.failed { background: #b3261e; }
pre.totals { font-size: 12px; background: #f6f6f6; padding: 8px; white-space: pre-wrap; }
svg.chart { display: block; margin: 4px 0 8px 0; }
svg text { font-family: sans-serif; font-size: 11px; fill: #333; }
svg text.title { font-size: 13px; font-weight: bold; }
svg text.unit { font-size: 11px; fill: #555; }
svg text.marklabel { font-size: 10px; }
svg line.grid { stroke: #e6e6e6; }
svg line.axis, svg line.tick { stroke: #666; }
table.events { border-collapse: collapse; font-size: 12px; }
table.events td, table.events th { border: 1px solid #ddd; padding: 2px 8px; text-align: left; }
p.note { font-size: 12px; color: #555; }
)";

std::string seconds(double s) {
  std::ostringstream os;
  os.precision(6);
  os << s;
  return os.str();
}

}  // namespace

void HtmlReport::write(std::ostream& os) const {
  SimReport const& r = report_;
  RunTimeline const& tl = r.timeline;
  auto const& store = tl.samples.store;
  double const end = std::max(r.endTime, store.rows() == 0 ? 0.0 : store.times().back());

  os << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n<title>mroute-sim: "
     << Svg::escape(r.scenario) << "</title>\n<style>" << kStyle << "</style>\n</head>\n<body>\n";
  os << "<header>\n<h1>mroute-sim: " << Svg::escape(r.scenario) << " <span class=\"verdict "
     << (r.ok() ? "ok\">OK" : "failed\">FAILED") << "</span></h1>\n";
  if (!r.description.empty()) os << "<p class=\"description\">" << Svg::escape(r.description) << "</p>\n";
  std::ostringstream totals;
  r.printHuman(totals);
  os << "<pre class=\"totals\">" << Svg::escape(totals.str()) << "</pre>\n</header>\n";
  os << "<p class=\"note\">Sampled every " << seconds(tl.interval * static_cast<double>(store.stride()))
     << " s of virtual time (" << store.rowsReceived() << " samples taken, " << store.rows()
     << " kept). A level is the highest seen in each interval, a count its total so far. Dashed lines and bands"
        " mark the scenario's events, from when each began to when it was done.</p>\n";

  struct Pick {
    RunFigure figure;
    double scale = 1;
  };
  // A chart of the picked figures, or a line saying they stayed at zero.
  auto chart = [&](RunTimeline::Samples const& samples, std::string const& source, std::string const& title,
                   char const* unit, double t0, double t1, bool steps, std::initializer_list<Pick> picks) {
    SvgChart c(source, title, unit, t0, t1);
    c.marksIs(&tl.marks);
    bool any = false;
    for (auto const& pick : picks) {
      auto const& info = runFigureInfo(pick.figure);
      for (auto const& s : samples.series) {
        if (s.figure != pick.figure) continue;
        auto const& values = samples.store.column(s.column);
        any = any || std::any_of(values.begin(), values.end(), [](double v) { return v != 0; });
        c.lineIs({info.key, s.chip, info.label, &samples.store.times(), &values, pick.scale, steps});
      }
    }
    if (any) {
      os << c.svg();
    } else {
      os << "<p class=\"note\">" << Svg::escape(title) << ": none in this run.</p>\n";
    }
  };
  auto timeChart = [&](char const* title, char const* unit, std::initializer_list<Pick> picks) {
    chart(tl.samples, "samples", title, unit, 0, end, false, picks);
  };
  auto section = [&](char const* heading) { os << "<section>\n<h2>" << heading << "</h2>\n"; };

  section("Routes");
  timeChart("Routes", "routes",
            {{RunFigure::routesWanted}, {RunFigure::routesProgrammed}, {RunFigure::routesParked}, {RunFigure::hwRoutes}});
  os << "</section>\n";
  section("Replication table");
  timeChart("Replication entries in use, and the zombies among them", "entries",
            {{RunFigure::entriesInUse}, {RunFigure::zombies}});
  timeChart("Table-full episodes so far", "episodes",
            {{RunFigure::routeTableFull}, {RunFigure::boundaryTableFull}, {RunFigure::replicationTableFull}});
  os << "</section>\n";
  section("Fast reroute");
  timeChart("OIF sets waiting for their fast-reroute rewrite (peak per interval)", "OIF sets",
            {{RunFigure::frrWaiting}});
  timeChart("Replication entries rewritten in place so far", "rewrites", {{RunFigure::frrRewrites}});
  for (std::size_t i = 0; i < tl.convergences.size(); ++i) {
    auto const& c = tl.convergences[i];
    double const took = c.mark.until - c.mark.at;
    double const margin = std::max(took, 1e-3) * 0.08;
    chart(c.samples, "convergence[" + std::to_string(i) + "]",
          c.mark.label + " at " + seconds(c.mark.at) + " s, converged in " + seconds(took) +
              " s: sets waiting, entries rewritten, turn by turn",
          "OIF sets, rewrites", c.mark.at - margin, c.mark.until + margin, true,
          {{RunFigure::frrWaiting}, {RunFigure::frrRewrites}});
  }
  os << "</section>\n";
  section("Aging");
  timeChart("Hit bits read and activity stamps so far", "hit bits", {{RunFigure::hitBitReads}, {RunFigure::stamps}});
  os << "</section>\n";
  section("Route counters");
  timeChart("Counter rows published, and reads so far", "rows, reads",
            {{RunFigure::counterRows}, {RunFigure::counterReads}});
  os << "</section>\n";
  if (tl.samples.sampled(RunFigure::xactsInFlight)) {
    section("Transactions");
    timeChart("Transactions in flight (peak per interval), and failed so far", "transactions",
              {{RunFigure::xactsInFlight}, {RunFigure::xactsFailed}});
    os << "</section>\n";
  }
  section("Event loop");
  timeChart("Longest event-loop slice in each interval", "ms", {{RunFigure::longestSlice, 1000}});
  os << "</section>\n";

  section("Events");
  if (tl.marks.empty()) {
    os << "<p class=\"note\">No events but traffic.</p>\n";
  } else {
    os << "<table class=\"events\">\n<tr><th>at (s)</th><th>took (s)</th><th>event</th><th>what</th></tr>\n";
    for (auto const& m : tl.marks) {
      os << "<tr><td>" << seconds(m.at) << "</td><td>" << seconds(m.until - m.at) << "</td><td>"
         << Svg::escape(m.event) << "</td><td><span style=\"color: " << SvgChart::markColour(m.kind) << "\">"
         << Svg::escape(m.label) << "</span></td></tr>\n";
    }
    os << "</table>\n";
    if (tl.marksDropped > 0) os << "<p class=\"note\">... and " << tl.marksDropped << " more events.</p>\n";
  }
  os << "</section>\n";
  section("Sharing");
  os << SvgHistogram("routesPerEntryAtPeak",
                     "Replication entries by routes pointing at them, at peak load (" + std::to_string(tl.peakRoutes) +
                         " routes at " + seconds(tl.peakAt) + " s)",
                     tl.routesPerEntryAtPeak)
            .svg();
  os << SvgHistogram("routesPerEntry", "The same at the end", tl.routesPerEntry).svg();
  os << "</section>\n</body>\n</html>\n";
}

}  // namespace FalSim
