#pragma once
// FalSim::SvgChart: one time-series chart as inline SVG: lines over a time
// axis in seconds, a value axis with its unit, a legend (a colour per chip, a
// dash per figure), and the scenario's events marked on the time axis (a
// line where an event began, a band to where it was done, e.g. a failure to
// its convergence).
//
// Each line carries its data as well as its drawing: the chart's data-source
// names the samples it draws (as the JSON report has them), a line's
// data-figure and data-chip name the series, data-values holds the samples
// ("t,v t,v ...", exact), points the same samples in chart coordinates.
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "sim/report/RunTimeline.h"
#include "sim/report/Svg.h"

namespace FalSim {

class SvgChart {
 public:
  struct Line {
    std::string figure;                 // the JSON name of the series
    std::optional<std::uint32_t> chip;  // none: the agent's
    std::string figureLabel;            // legend words for the figure
    std::vector<double> const* times = nullptr;
    std::vector<double> const* values = nullptr;
    double scale = 1;  // drawn as value * scale (seconds shown in ms)
    // Each value holds until the next sample (observations at turns of the
    // loop, data-steps="1"): the points have a corner (t[i], v[i-1]) before
    // each (t[i], v[i]).
    bool steps = false;
  };

  static constexpr int kWidth = 960;
  static constexpr int kHeight = 250;

  // The time axis runs from t0 to t1 (scenario seconds).
  SvgChart(std::string source, std::string title, std::string unit, double t0, double t1);

  void lineIs(Line line) { lines_.push_back(std::move(line)); }
  void marksIs(std::vector<RunTimeline::Mark> const* marks) { marks_ = marks; }
  std::string svg() const;

  // The colour an event of this kind is marked in.
  static char const* markColour(std::string const& kind);

 private:
  static std::string ownerName(std::optional<std::uint32_t> chip);
  double x(Svg::Frame const& f, double t) const;
  // The figure's place among the chart's figures (its dash).
  std::size_t figureIndex(std::string const& figure) const;
  void legend(std::ostream& os, Svg::Frame const& f) const;
  void drawMarks(std::ostream& os, Svg::Frame const& f) const;
  void drawLine(std::ostream& os, Svg::Frame const& f, Line const& l) const;

  std::string source_;
  std::string title_;
  std::string unit_;
  double t0_;
  double t1_;
  std::vector<Line> lines_;
  std::vector<RunTimeline::Mark> const* marks_ = nullptr;
};

}  // namespace FalSim
