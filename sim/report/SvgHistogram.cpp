#include "sim/report/SvgHistogram.h"

#include <algorithm>
#include <sstream>

#include "sim/report/RunTimeline.h"
#include "sim/report/Svg.h"

namespace FalSim {

std::string SvgHistogram::svg() const {
  using Svg::coord;
  std::size_t buckets = 0;
  std::uint64_t most = 0;
  for (auto const& chip : entries_) {
    buckets = std::max(buckets, chip.size());
    for (auto n : chip) most = std::max(most, n);
  }
  buckets = std::max<std::size_t>(buckets, 1);
  double const top = static_cast<double>(std::max<std::uint64_t>(most, 1));
  auto const yTicks = Svg::ticks(0, top, 4, true);
  Svg::Frame const f{kWidth, kHeight, 64, kWidth - 16, 46, kHeight - 40, std::max(yTicks.back(), top)};
  double const slot = (f.right - f.left) / static_cast<double>(buckets);
  std::size_t const chips = std::max<std::size_t>(entries_.size(), 1);
  double const bar = std::min(28.0, slot * 0.8 / static_cast<double>(chips));

  std::ostringstream os;
  Svg::open(os, f, source_, title_);
  double lx = f.left;
  for (std::size_t c = 0; c < entries_.size(); ++c) {
    os << "<rect x=\"" << coord(lx) << "\" y=\"24\" width=\"14\" height=\"10\" fill=\""
       << Svg::chipColour(static_cast<std::uint32_t>(c)) << "\"/><text x=\"" << coord(lx + 19)
       << "\" y=\"34\" class=\"legend\">chip " << c << "</text>\n";
    lx += 80;
  }
  os << "<g class=\"axes\">\n";
  Svg::valueAxis(os, f, yTicks, "entries");
  for (std::size_t b = 0; b < buckets; ++b) {
    os << "<text x=\"" << coord(f.left + slot * (static_cast<double>(b) + 0.5)) << "\" y=\"" << f.bottom + 16
       << "\" text-anchor=\"middle\">" << RunTimeline::bucketLabel(b) << (b == 0 ? " (zombies)" : "") << "</text>\n";
  }
  Svg::baseAxis(os, f, "routes per replication entry");
  os << "</g>\n";
  for (std::size_t c = 0; c < entries_.size(); ++c) {
    for (std::size_t b = 0; b < entries_[c].size(); ++b) {
      double const n = static_cast<double>(entries_[c][b]);
      double const x0 = f.left + slot * (static_cast<double>(b) + 0.5) - bar * static_cast<double>(chips) / 2 +
                        bar * static_cast<double>(c);
      os << "<rect class=\"bar\" data-chip=\"" << c << "\" data-bucket=\"" << RunTimeline::bucketLabel(b)
         << "\" data-entries=\"" << entries_[c][b] << "\" x=\"" << coord(x0) << "\" y=\"" << coord(f.y(n))
         << "\" width=\"" << coord(bar - 1) << "\" height=\"" << coord(f.bottom - f.y(n)) << "\" fill=\""
         << Svg::chipColour(static_cast<std::uint32_t>(c)) << "\"><title>chip " << c << ": " << entries_[c][b]
         << " entries with " << RunTimeline::bucketLabel(b) << " routes</title></rect>\n";
    }
  }
  os << "</svg>\n";
  return os.str();
}

}  // namespace FalSim
