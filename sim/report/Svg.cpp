#include "sim/report/Svg.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace FalSim::Svg {

std::string escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    switch (ch) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        // Control characters are not allowed in XML 1.0 text.
        if (static_cast<unsigned char>(ch) < 0x20 && ch != '\n' && ch != '\t') {
          out += ' ';
        } else {
          out += ch;
        }
    }
  }
  return out;
}

std::string coord(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", v);
  std::string s = buf;
  while (!s.empty() && s.back() == '0') s.pop_back();
  if (!s.empty() && s.back() == '.') s.pop_back();
  return s == "-0" ? "0" : s;
}

std::string value(double v) {
  char buf[32];
  auto const r = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, r.ptr);
}

std::string label(double v) {
  double const a = std::fabs(v);
  char buf[32];
  if (a >= 1e6) {
    std::snprintf(buf, sizeof buf, "%gM", v / 1e6);
  } else if (a >= 1e4) {
    std::snprintf(buf, sizeof buf, "%gk", v / 1e3);
  } else {
    std::snprintf(buf, sizeof buf, "%g", std::fabs(v) < 1e-12 ? 0.0 : v);
  }
  return buf;
}

std::vector<double> ticks(double lo, double hi, int count, bool whole) {
  std::vector<double> out;
  if (!(hi > lo) || count < 1) {
    out.push_back(lo);
    return out;
  }
  double const raw = (hi - lo) / count;
  double const decade = std::pow(10.0, std::floor(std::log10(raw)));
  double step = 10 * decade;
  for (double m : {1.0, 2.0, 2.5, 5.0}) {
    if (raw <= m * decade) {
      step = m * decade;
      break;
    }
  }
  if (whole) step = std::max(1.0, std::round(step));
  for (double t = std::ceil(lo / step - 1e-9) * step; t <= hi + step * 1e-9; t += step) {
    out.push_back(std::fabs(t) < step * 1e-9 ? 0.0 : t);
  }
  return out;
}

char const* chipColour(std::uint32_t chip) {
  // Okabe-Ito.
  static constexpr std::array<char const*, 7> kPalette{"#0072B2", "#E69F00", "#009E73", "#CC79A7",
                                                       "#56B4E9", "#D55E00", "#F0E442"};
  return kPalette[chip % kPalette.size()];
}

void open(std::ostream& os, Frame const& f, std::string const& source, std::string const& title) {
  std::string const t = escape(title);
  os << "<svg class=\"chart\" data-source=\"" << escape(source) << "\" width=\"" << f.width << "\" height=\""
     << f.height << "\" viewBox=\"0 0 " << f.width << ' ' << f.height << "\" role=\"img\" aria-label=\"" << t
     << "\">\n<title>" << t << "</title>\n<text x=\"" << coord(f.left) << "\" y=\"16\" class=\"title\">" << t
     << "</text>\n";
}

void valueAxis(std::ostream& os, Frame const& f, std::vector<double> const& ticks, std::string const& unit) {
  for (double v : ticks) {
    os << "<line class=\"grid\" x1=\"" << coord(f.left) << "\" y1=\"" << coord(f.y(v)) << "\" x2=\""
       << coord(f.right) << "\" y2=\"" << coord(f.y(v)) << "\"/><text x=\"" << coord(f.left - 6) << "\" y=\""
       << coord(f.y(v) + 4) << "\" text-anchor=\"end\">" << label(v) << "</text>\n";
  }
  os << "<line class=\"axis\" x1=\"" << coord(f.left) << "\" y1=\"" << coord(f.top) << "\" x2=\"" << coord(f.left)
     << "\" y2=\"" << coord(f.bottom) << "\"/>\n";
  os << "<text class=\"unit\" text-anchor=\"middle\" transform=\"translate(14 " << coord((f.top + f.bottom) / 2)
     << ") rotate(-90)\">" << escape(unit) << "</text>\n";
}

void baseAxis(std::ostream& os, Frame const& f, std::string const& what) {
  os << "<line class=\"axis\" x1=\"" << coord(f.left) << "\" y1=\"" << coord(f.bottom) << "\" x2=\""
     << coord(f.right) << "\" y2=\"" << coord(f.bottom) << "\"/>\n";
  os << "<text x=\"" << coord((f.left + f.right) / 2) << "\" y=\"" << f.height - 4
     << "\" text-anchor=\"middle\" class=\"unit\">" << escape(what) << "</text>\n";
}

}  // namespace FalSim::Svg
