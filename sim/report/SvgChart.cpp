#include "sim/report/SvgChart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

#include "sim/report/Svg.h"

namespace FalSim {

namespace {

constexpr std::size_t kDotsUpTo = 40;
constexpr std::array<char const*, 4> kDashes{"", "7 4", "2 3", "10 3 2 3"};

}  // namespace

SvgChart::SvgChart(std::string source, std::string title, std::string unit, double t0, double t1)
    : source_(std::move(source)),
      title_(std::move(title)), unit_(std::move(unit)), t0_(t0), t1_(t1 > t0 ? t1 : t0 + 1) {}

char const* SvgChart::markColour(std::string const& kind) {
  if (kind == "interfaceDown") return "#D55E00";
  if (kind == "interfaceUp") return "#009E73";
  if (kind == "restart") return "#7B3294";
  if (kind == "config" || kind == "fault") return "#B8860B";
  return "#8C8C8C";  // route sets and routes added or removed
}

std::string SvgChart::svg() const {
  using Svg::coord;
  double vmax = 0;
  bool whole = true;
  for (auto const& l : lines_) {
    for (double v : *l.values) {
      vmax = std::max(vmax, v * l.scale);
      whole = whole && v * l.scale == std::floor(v * l.scale);
    }
  }
  auto const yTicks = Svg::ticks(0, vmax > 0 ? vmax : 1, 4, whole);
  Svg::Frame const f{kWidth, kHeight, 64, kWidth - 16, 46, kHeight - 38, std::max(yTicks.back(), vmax > 0 ? vmax : 1)};
  auto x = [&](double t) { return f.left + (t - t0_) / (t1_ - t0_) * (f.right - f.left); };
  auto y = [&](double v) { return f.y(v); };

  std::ostringstream os;
  Svg::open(os, f, source_, title_);

  // Legend: a colour per chip (and the agent), then a dash per figure.
  std::vector<std::optional<std::uint32_t>> owners;
  std::vector<std::string> figures;
  std::vector<std::string> figureLabels;
  for (auto const& l : lines_) {
    if (std::find(owners.begin(), owners.end(), l.chip) == owners.end()) owners.push_back(l.chip);
    if (std::find(figures.begin(), figures.end(), l.figure) == figures.end()) {
      figures.push_back(l.figure);
      figureLabels.push_back(l.figureLabel);
    }
  }
  std::sort(owners.begin(), owners.end());
  auto dashOf = [&](std::string const& figure) {
    auto const i = static_cast<std::size_t>(std::find(figures.begin(), figures.end(), figure) - figures.begin());
    return kDashes[i % kDashes.size()];
  };
  double lx = f.left;
  auto legendItem = [&](char const* colour, char const* dash, std::string const& text) {
    os << "<line class=\"legend\" x1=\"" << coord(lx) << "\" y1=\"30\" x2=\"" << coord(lx + 22)
       << "\" y2=\"30\" stroke=\"" << colour << "\" stroke-width=\"2.5\"";
    if (*dash) os << " stroke-dasharray=\"" << dash << "\"";
    os << "/><text x=\"" << coord(lx + 27) << "\" y=\"34\" class=\"legend\">" << Svg::escape(text) << "</text>\n";
    lx += 27 + 6.5 * static_cast<double>(text.size()) + 16;
  };
  for (auto const& o : owners) {
    legendItem(o ? Svg::chipColour(*o) : Svg::kAgentColour, "", o ? "chip " + std::to_string(*o) : "agent");
  }
  if (figures.size() > 1) {
    lx += 12;
    for (std::size_t i = 0; i < figures.size(); ++i) legendItem("#555555", kDashes[i % kDashes.size()], figureLabels[i]);
  }

  // Axes and grid.
  os << "<g class=\"axes\">\n";
  Svg::valueAxis(os, f, yTicks, unit_);
  for (double t : Svg::ticks(t0_, t1_, 10)) {
    os << "<line class=\"tick\" x1=\"" << coord(x(t)) << "\" y1=\"" << f.bottom << "\" x2=\"" << coord(x(t))
       << "\" y2=\"" << f.bottom + 5 << "\"/><text x=\"" << coord(x(t)) << "\" y=\"" << f.bottom + 18
       << "\" text-anchor=\"middle\">" << Svg::label(t) << "</text>\n";
  }
  Svg::baseAxis(os, f, "time (s)");
  os << "</g>\n";

  // Events: a band from start to done, a line at the start, labels where there is room.
  if (marks_) {
    os << "<g class=\"marks\">\n";
    std::array<double, 3> rowEnd{-1e9, -1e9, -1e9};
    for (auto const& m : *marks_) {
      if (m.until < t0_ || m.at > t1_) continue;
      double const x0 = x(std::max(m.at, t0_));
      double const x1 = x(std::min(m.until, t1_));
      char const* colour = markColour(m.kind);
      os << "<g class=\"mark\" data-kind=\"" << Svg::escape(m.kind) << "\"><title>" << Svg::escape(m.event) << ' '
         << Svg::escape(m.label) << ": " << Svg::value(m.at) << " s to " << Svg::value(m.until) << " s</title>";
      if (x1 - x0 >= 1.5) {
        os << "<rect x=\"" << coord(x0) << "\" y=\"" << f.top << "\" width=\"" << coord(x1 - x0) << "\" height=\""
           << f.bottom - f.top << "\" fill=\"" << colour << "\" fill-opacity=\"0.15\"/>";
      }
      os << "<line x1=\"" << coord(x0) << "\" y1=\"" << f.top << "\" x2=\"" << coord(x0) << "\" y2=\"" << f.bottom
         << "\" stroke=\"" << colour << "\" stroke-width=\"1.2\" stroke-dasharray=\"3 2\"/>";
      double const width = 6.0 * static_cast<double>(m.label.size()) + 6;
      for (std::size_t row = 0; row < rowEnd.size(); ++row) {
        if (x0 + 3 < rowEnd[row] || x0 + 3 + width > f.right) continue;
        os << "<text x=\"" << coord(x0 + 3) << "\" y=\"" << coord(f.top + 11 + 11 * static_cast<double>(row))
           << "\" fill=\"" << colour << "\" class=\"marklabel\">" << Svg::escape(m.label) << "</text>";
        rowEnd[row] = x0 + 3 + width;
        break;
      }
      os << "</g>\n";
    }
    os << "</g>\n";
  }

  // The lines.
  for (auto const& l : lines_) {
    char const* colour = l.chip ? Svg::chipColour(*l.chip) : Svg::kAgentColour;
    os << "<polyline class=\"series\" data-figure=\"" << Svg::escape(l.figure) << "\" data-chip=\""
       << (l.chip ? std::to_string(*l.chip) : std::string("agent")) << "\" data-scale=\"" << Svg::value(l.scale) << "\" data-steps=\"" << (l.steps ? 1 : 0)
       << "\" fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"1.8\"";
    if (*dashOf(l.figure)) os << " stroke-dasharray=\"" << dashOf(l.figure) << "\"";
    os << " data-values=\"";
    auto const& ts = *l.times;
    auto const& vs = *l.values;
    for (std::size_t i = 0; i < ts.size(); ++i) os << (i ? " " : "") << Svg::value(ts[i]) << ',' << Svg::value(vs[i]);
    os << "\" points=\"";
    for (std::size_t i = 0; i < ts.size(); ++i) {
      if (i > 0) os << ' ';
      if (i > 0 && l.steps) os << coord(x(ts[i])) << ',' << coord(y(vs[i - 1] * l.scale)) << ' ';
      os << coord(x(ts[i])) << ',' << coord(y(vs[i] * l.scale));
    }
    os << "\"><title>" << (l.chip ? "chip " + std::to_string(*l.chip) : std::string("agent")) << ": "
       << Svg::escape(l.figureLabel) << "</title></polyline>\n";
    // Few samples (a zoom on a convergence): each one marked.
    if (ts.size() <= kDotsUpTo) {
      for (std::size_t i = 0; i < ts.size(); ++i) {
        os << "<circle class=\"dot\" cx=\"" << coord(x(ts[i])) << "\" cy=\"" << coord(y(vs[i] * l.scale))
           << "\" r=\"2.5\" fill=\"" << colour << "\"/>";
      }
      os << '\n';
    }
  }
  os << "</svg>\n";
  return os.str();
}

}  // namespace FalSim
