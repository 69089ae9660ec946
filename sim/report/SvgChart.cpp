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

double SvgChart::x(Svg::Frame const& f, double t) const { return f.left + (t - t0_) / (t1_ - t0_) * (f.right - f.left); }

std::string SvgChart::svg() const {
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

  std::ostringstream os;
  Svg::open(os, f, source_, title_);
  legend(os, f);
  os << "<g class=\"axes\">\n";
  Svg::valueAxis(os, f, yTicks, unit_);
  for (double t : Svg::ticks(t0_, t1_, 10)) {
    std::string const at = Svg::coord(x(f, t));
    os << "<line class=\"tick\" x1=\"" << at << "\" y1=\"" << f.bottom << "\" x2=\"" << at << "\" y2=\"" << f.bottom + 5
       << "\"/><text x=\"" << at << "\" y=\"" << f.bottom + 18 << "\" text-anchor=\"middle\">" << Svg::label(t)
       << "</text>\n";
  }
  Svg::baseAxis(os, f, "time (s)");
  os << "</g>\n";
  if (marks_) drawMarks(os, f);
  for (auto const& l : lines_) drawLine(os, f, l);
  os << "</svg>\n";
  return os.str();
}

std::size_t SvgChart::figureIndex(std::string const& figure) const {
  std::vector<std::string const*> seen;
  for (auto const& l : lines_) {
    if (l.figure == figure) return seen.size();
    if (std::none_of(seen.begin(), seen.end(), [&](auto const* s) { return *s == l.figure; })) seen.push_back(&l.figure);
  }
  return seen.size();
}

// A colour per chip (and the agent), then a dash per figure when there are several.
void SvgChart::legend(std::ostream& os, Svg::Frame const& f) const {
  std::vector<std::optional<std::uint32_t>> owners;
  std::vector<Line const*> figures;
  for (auto const& l : lines_) {
    if (std::find(owners.begin(), owners.end(), l.chip) == owners.end()) owners.push_back(l.chip);
    if (std::none_of(figures.begin(), figures.end(), [&](Line const* g) { return g->figure == l.figure; })) {
      figures.push_back(&l);
    }
  }
  std::sort(owners.begin(), owners.end());
  double lx = f.left;
  auto item = [&](char const* colour, char const* dash, std::string const& text) {
    os << "<line class=\"legend\" x1=\"" << Svg::coord(lx) << "\" y1=\"30\" x2=\"" << Svg::coord(lx + 22)
       << "\" y2=\"30\" stroke=\"" << colour << "\" stroke-width=\"2.5\"";
    if (*dash) os << " stroke-dasharray=\"" << dash << "\"";
    os << "/><text x=\"" << Svg::coord(lx + 27) << "\" y=\"34\" class=\"legend\">" << Svg::escape(text) << "</text>\n";
    lx += 27 + 6.5 * static_cast<double>(text.size()) + 16;
  };
  for (auto const& o : owners) item(o ? Svg::chipColour(*o) : Svg::kAgentColour, "", ownerName(o));
  if (figures.size() < 2) return;
  lx += 12;
  for (std::size_t i = 0; i < figures.size(); ++i) item("#555555", kDashes[i % kDashes.size()], figures[i]->figureLabel);
}

std::string SvgChart::ownerName(std::optional<std::uint32_t> chip) {
  return chip ? "chip " + std::to_string(*chip) : std::string("agent");
}

// A band from an event's start to when it was done, a line at its start, and
// its label on the first of three rows with room for it.
void SvgChart::drawMarks(std::ostream& os, Svg::Frame const& f) const {
  using Svg::coord;
  os << "<g class=\"marks\">\n";
  std::array<double, 3> rowEnd{-1e9, -1e9, -1e9};
  for (auto const& m : *marks_) {
    if (m.until < t0_ || m.at > t1_) continue;
    double const x0 = x(f, std::max(m.at, t0_));
    double const x1 = x(f, std::min(m.until, t1_));
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

void SvgChart::drawLine(std::ostream& os, Svg::Frame const& f, Line const& l) const {
  using Svg::coord;
  char const* colour = l.chip ? Svg::chipColour(*l.chip) : Svg::kAgentColour;
  char const* dash = kDashes[figureIndex(l.figure) % kDashes.size()];
  auto const& ts = *l.times;
  auto const& vs = *l.values;
  auto point = [&](std::size_t t, std::size_t v) { return coord(x(f, ts[t])) + "," + coord(f.y(vs[v] * l.scale)); };
  os << "<polyline class=\"series\" data-figure=\"" << Svg::escape(l.figure) << "\" data-chip=\""
     << (l.chip ? std::to_string(*l.chip) : std::string("agent")) << "\" data-scale=\"" << Svg::value(l.scale)
     << "\" data-steps=\"" << (l.steps ? 1 : 0) << "\" fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"1.8\"";
  if (*dash) os << " stroke-dasharray=\"" << dash << "\"";
  os << " data-values=\"";
  for (std::size_t i = 0; i < ts.size(); ++i) os << (i ? " " : "") << Svg::value(ts[i]) << ',' << Svg::value(vs[i]);
  os << "\" points=\"";
  for (std::size_t i = 0; i < ts.size(); ++i) {
    if (i > 0) os << ' ';
    if (i > 0 && l.steps) os << point(i, i - 1) << ' ';
    os << point(i, i);
  }
  os << "\"><title>" << ownerName(l.chip) << ": " << Svg::escape(l.figureLabel) << "</title></polyline>\n";
  // Few samples (a zoom on a convergence): each one marked.
  if (ts.size() > kDotsUpTo) return;
  for (std::size_t i = 0; i < ts.size(); ++i) {
    os << "<circle class=\"dot\" cx=\"" << coord(x(f, ts[i])) << "\" cy=\"" << coord(f.y(vs[i] * l.scale))
       << "\" r=\"2.5\" fill=\"" << colour << "\"/>";
  }
  os << '\n';
}

}  // namespace FalSim
